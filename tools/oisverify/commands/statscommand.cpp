// "oisverify stats PATH...": the yield page for results collected from stations. Reads the node's
// reports, module summaries, population journals and persist files (folders recursively), lists
// every file it skips with the reason, and writes the same page and CSV as "oisverify
// population". Exit 0 when it wrote them, 1 when nothing usable was found or the output cannot be
// written, 2 for a usage error.
#include <stdio.h>

#include <chrono>
#include <filesystem>

#include "cli/arguments.h"
#include "cli/optionreader.h"
#include "commands/commands.h"
#include "stats/resultreader.h"
#include "yield/yieldpage.h"

namespace oisverify
{

namespace
{

constexpr size_t kSkippedShown = 20; // on the console; the page lists them all

std::vector<OptionSpec> StatsOptionSpecs()
{
    return {
        { "limit", true, false, "DB", "SR limit for the node's reports, which do not carry it (default 18.0)" },
        { "out", true, false, "DIR", "output folder for index.html and modules.csv (default ./oisverify-stats)" },
        { "title", true, false, "TEXT", "title of the page (default: OIS yield)" },
    };
}

void PrintHelp()
{
    printf("usage: oisverify stats [OPTIONS] PATH...\n\n"
           "Reads results collected from stations and writes the yield page (index.html) and a CSV of every\n"
           "module (modules.csv): yield before and after calibration, failures by state, SR histograms\n"
           "against the limit, capability (Cpk against the limit) and selected gains. PATH is a file or\n"
           "a folder searched recursively for:\n"
           "  oisVerify.json       the node's report; the module ID is its folder's name\n"
           "  *.json, *.jsonl      module summaries and population journals (modules.jsonl)\n"
           "  com.zelk.oiscal.bin  persist files; their records add the fuse ID and gains to the\n"
           "                       report in the same folder\n"
           "A bad or truncated file is listed and skipped.\n\nOptions:\n%s",
           DescribeOptions(StatsOptionSpecs()).c_str());
}

int UsageError(const std::string& message)
{
    fprintf(stderr, "oisverify stats: %s\n'oisverify stats --help' lists the options.\n", message.c_str());
    return 2;
}

// Splits the words into options (with their values) and paths.
bool SplitWords(int argc, char** argv, int first, std::vector<std::string>* pOptionWords,
                std::vector<std::string>* pPaths)
{
    const std::vector<OptionSpec> specs = StatsOptionSpecs();
    for (int i = first; i < argc; i++)
    {
        const std::string word = argv[i];
        if (word.compare(0, 2, "--") != 0)
        {
            pPaths->push_back(word);
            continue;
        }
        pOptionWords->push_back(word);
        const std::string name = word.substr(2);
        for (const OptionSpec& spec : specs)
        {
            if (spec.name == name && spec.takesValue && i + 1 < argc)
            {
                pOptionWords->push_back(argv[++i]);
            }
        }
    }
    return true;
}

// Prints the first skipped files and returns them all, with the unpaired persist records, as the
// page's notes.
std::vector<std::string> ListSkipped(const CollectedResults& results)
{
    std::vector<std::string> notes;
    for (size_t i = 0; i < results.skipped.size(); i++)
    {
        const SkippedFile& skipped = results.skipped[i];
        notes.push_back("skipped " + skipped.path + ": " + skipped.reason);
        if (i < kSkippedShown)
        {
            printf("  skipped %s: %s\n", skipped.path.c_str(), skipped.reason.c_str());
        }
    }
    if (results.skipped.size() > kSkippedShown)
    {
        printf("  ... and %zu more (all listed on the page)\n", results.skipped.size() - kSkippedShown);
    }
    if (results.persistUnpaired != 0)
    {
        notes.push_back(std::to_string(results.persistUnpaired) +
                        " persist record(s) without a report beside them: not counted");
    }
    return notes;
}

} // namespace

int RunStats(int argc, char** argv, int first)
{
    if (WantsHelp(argc, argv, first))
    {
        PrintHelp();
        return 0;
    }
    std::vector<std::string> optionWords, paths;
    SplitWords(argc, argv, first, &optionWords, &paths);
    std::vector<char*> optionArgv = { argv[0] };
    for (std::string& word : optionWords)
    {
        optionArgv.push_back(&word[0]);
    }
    Arguments   arguments;
    std::string error;
    double      limitDb = 18.0;
    OptionReader reader(arguments, &error);
    if (!arguments.Parse(static_cast<int>(optionArgv.size()), optionArgv.data(), 1, StatsOptionSpecs(), &error) ||
        !reader.Number("limit", -100.0, 100.0, &limitDb))
    {
        return UsageError(error);
    }
    if (paths.empty())
    {
        return UsageError("give at least one file or folder of results");
    }
    const auto             start   = std::chrono::steady_clock::now();
    const CollectedResults results = CollectResults(paths, limitDb);
    const double           readS   = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    printf("read %zu files in %.1f s: %zu modules, %zu skipped\n", results.filesRead, readS, results.records.size(),
           results.skipped.size());
    const std::vector<std::string> notes = ListSkipped(results);
    if (results.records.empty())
    {
        fprintf(stderr, "oisverify stats: no module results found\n");
        return 1;
    }
    PrintYieldSummary(stdout, ComputeYieldBySetting(results.records));
    std::error_code   fsError;
    const std::string outDir =
        std::filesystem::absolute(arguments.Value("out", "oisverify-stats"), fsError).lexically_normal().string();
    if (!WriteYieldOutputs(outDir, arguments.Value("title", "OIS yield"), results.records, notes, &error))
    {
        fprintf(stderr, "oisverify stats: %s\n", error.c_str());
        return 1;
    }
    printf("\nOutput in %s: index.html, modules.csv\n", outDir.c_str());
    return 0;
}

} // namespace oisverify
