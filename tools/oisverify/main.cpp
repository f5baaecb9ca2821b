// oisverify: runs the OIS verification node off-device in the emulated phone.
#include <stdio.h>
#include <string.h>

#include <string>

#include "commands/commands.h"
#include "report/toolversion.h"
#include "session/emulateddevice.h"

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
    fprintf(pOut, "usage: oisverify COMMAND [OPTIONS]\n       oisverify help [COMMAND]\n       oisverify --version\n\n"
                  "commands:\n");
    for (const Command& command : kCommands)
    {
        fprintf(pOut, "  %-8s %s\n", command.name, command.summary);
    }
    fprintf(pOut, "  %-8s %s\n", "help", "this list, or with a command its options (as COMMAND --help)");
    fprintf(pOut, "\n'oisverify COMMAND --help' lists a command's options; '--version' (alone or after a command)\n"
                  "prints the tool's version and the node library's build.\n");
}

const Command* FindCommand(const char* pName)
{
    for (const Command& command : kCommands)
    {
        if (strcmp(pName, command.name) == 0)
        {
            return &command;
        }
    }
    return nullptr;
}

int UnknownCommand(const char* pName)
{
    fprintf(stderr, "oisverify: unknown command '%s'\n\n", pName);
    PrintUsage(stderr);
    return 2;
}

// "--version" among the options, and the node library they name (--node, else the default
// beside the tool); a value of another option is not taken for the flag.
bool WantsVersion(int argc, char** argv, int first, std::string* pNodeLibrary)
{
    *pNodeLibrary = oisverify::ExecutableDirectory() + "/../lib/com.zelk.node.zelkoisverify.so";
    bool wanted   = false;
    for (int i = first; i < argc; i++)
    {
        const std::string word = argv[i];
        if (word == "--version")
        {
            wanted = true;
        }
        else if (word == "--node" && i + 1 < argc)
        {
            *pNodeLibrary = argv[++i];
        }
        else if (word.compare(0, 7, "--node=") == 0)
        {
            *pNodeLibrary = word.substr(7);
        }
    }
    return wanted;
}

// "oisverify help [COMMAND]": the usage, or the command's own help.
int RunHelp(int argc, char** argv)
{
    if (argc < 3)
    {
        PrintUsage(stdout);
        return 0;
    }
    if (argc > 3)
    {
        fprintf(stderr, "oisverify help: expected at most one COMMAND\n");
        return 2;
    }
    const Command* pCommand = FindCommand(argv[2]);
    if (pCommand == nullptr)
    {
        return UnknownCommand(argv[2]);
    }
    char  help[]  = "--help";
    char* words[] = { argv[0], argv[2], help, nullptr };
    return pCommand->run(3, words, 2);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2 || strcmp(argv[1], "--help") == 0 || strcmp(argv[1], "-h") == 0)
    {
        PrintUsage(argc < 2 ? stderr : stdout);
        return argc < 2 ? 2 : 0;
    }
    if (strcmp(argv[1], "help") == 0)
    {
        return RunHelp(argc, argv);
    }
    // "--version" alone or among a command's options; argv[1] is the command or the flag itself.
    const Command* pCommand = FindCommand(argv[1]);
    std::string    nodeLibrary;
    if (WantsVersion(argc, argv, 1, &nodeLibrary) && (pCommand != nullptr || strcmp(argv[1], "--version") == 0))
    {
        printf("%s", oisverify::VersionText(nodeLibrary).c_str());
        return 0;
    }
    return (pCommand != nullptr) ? pCommand->run(argc, argv, 2) : UnknownCommand(argv[1]);
}
