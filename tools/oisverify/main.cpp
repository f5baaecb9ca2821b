// oisverify: runs the OIS verification node off-device in the emulated phone.
#include <stdio.h>
#include <string.h>

#include "commands/commands.h"

namespace
{

struct Command
{
    const char* name;
    int (*run)(int argc, char** argv, int first);
    const char* summary;
};

const Command kCommands[] = {
    { "run", oisverify::RunRun,
      "verify OIS off-device: stream shake-table frames through the node, print PASS or FAIL" },
    { "info", oisverify::RunInfo,
      "load the node, show its capabilities, vendor tags and the parameters it derives, destroy it" },
    { "persist", oisverify::RunPersist,
      "check a calibration persist file: each record's CRC, then a summary" },
    { "population", oisverify::RunPopulation, "run a simulated module population: yield, capability, gains" },
    { "stats", oisverify::RunStats, "the yield page for collected reports, summaries and persist files" },
};

void PrintUsage(FILE* pOut)
{
    fprintf(pOut, "usage: oisverify COMMAND [OPTIONS]\n\ncommands:\n");
    for (const Command& command : kCommands)
    {
        fprintf(pOut, "  %-8s %s\n", command.name, command.summary);
    }
    fprintf(pOut, "\n'oisverify COMMAND --help' lists a command's options.\n");
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2 || strcmp(argv[1], "--help") == 0 || strcmp(argv[1], "-h") == 0)
    {
        PrintUsage(argc < 2 ? stderr : stdout);
        return argc < 2 ? 2 : 0;
    }
    for (const Command& command : kCommands)
    {
        if (strcmp(argv[1], command.name) == 0)
        {
            return command.run(argc, argv, 2);
        }
    }
    fprintf(stderr, "oisverify: unknown command '%s'\n\n", argv[1]);
    PrintUsage(stderr);
    return 2;
}
