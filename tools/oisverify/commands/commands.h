// The oisverify commands; each takes the program's arguments and the index of its first option
// and returns the process exit code (0 success, 1 failure, 2 usage error).
#ifndef ZELK_TOOLS_OISVERIFY_COMMANDS_H
#define ZELK_TOOLS_OISVERIFY_COMMANDS_H

namespace oisverify
{

class Arguments;

int RunInfo(int argc, char** argv, int first);
int RunRun(int argc, char** argv, int first);
int RunPersist(int argc, char** argv, int first);
// "run --sweep-freq": the run once per listed frequency; `arguments` are the run's, parsed.
int RunFrequencySweep(int argc, char** argv, int first, const Arguments& arguments);
int RunPopulation(int argc, char** argv, int first);
int RunStats(int argc, char** argv, int first);

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_COMMANDS_H
