// "oisverify population": a simulated production line. Draws modules from stated distributions
// (or reads them from a CSV file), runs each through the node in the emulated phone exactly as
// "oisverify run" would (verification and, with --calibrate, the gain search under each --search
// setting), in worker processes side by side, and reports yield before and after calibration,
// failures by state, SR histograms, capability, selected against ideal gains and the node's SR
// against the truth. The journal (one JSON line per finished module) survives an interrupt and
// --resume continues from it. Exit 0 when every module ran, 1 when the run could not start or a
// module could not run, 2 for a usage error, 130 after an interrupt.
#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <map>
#include <set>

#include "commands/commands.h"
#include "population/journal.h"
#include "population/modulerun.h"
#include "population/populationoptions.h"
#include "population/workerpool.h"
#include "yield/summaryrecord.h"
#include "yield/yieldpage.h"

namespace oisverify
{

namespace
{

volatile sig_atomic_t g_interrupted = 0;

void OnInterrupt(int)
{
    g_interrupted = 1;
}

void PrintHelp()
{
    printf("usage: oisverify population [OPTIONS]\n\n"
           "Runs a simulated production population through the node in the emulated phone: each module\n"
           "is drawn from the distributions below (or read from --modules-csv) and tested exactly as\n"
           "'oisverify run' would, with --calibrate including the gain search closed through the\n"
           "calibration service, once per --search setting. Modules run in worker processes (-j), each\n"
           "with a device root and, for calibrations, a network namespace of its own. Draws are seeded:\n"
           "the same options give the same modules and results whatever -j.\n\n"
           "Writes into the output folder: modules.jsonl (one JSON line per module, the journal),\n"
           "modules.csv, index.html (yield, failures, capability, figures; settings side by side).\n"
           "Ctrl-C keeps the finished modules; --resume --out DIR continues the run.\n\n"
           "Options:\n%s\n"
           "Exit status: 0 every module ran, 1 the run or a module could not run, 2 usage error,\n"
           "130 interrupted.\n",
           DescribeOptions(PopulationOptionSpecs()).c_str());
}

int UsageError(const std::string& message)
{
    fprintf(stderr, "oisverify population: %s\n'oisverify population --help' lists the options.\n",
            message.c_str());
    return 2;
}

std::string Duration(double seconds)
{
    const long total = std::max(0L, static_cast<long>(seconds + 0.5));
    char       text[32];
    if (total >= 3600)
    {
        snprintf(text, sizeof(text), "%ldh%02ldm", total / 3600, (total / 60) % 60);
    }
    else
    {
        snprintf(text, sizeof(text), "%ldm%02lds", total / 60, total % 60);
    }
    return text;
}

class PopulationProgress
{
public:
    PopulationProgress(size_t total, size_t already)
        : m_total(total), m_already(already), m_terminal(isatty(fileno(stderr)) != 0),
          m_start(std::chrono::steady_clock::now())
    {
    }

    void Record(bool pass) { m_passed += pass ? 1 : 0; }

    void operator()(size_t finished, size_t running)
    {
        const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
        if (!m_terminal && finished == m_lastFinished && elapsed - m_lastPrintS < 10.0)
        {
            return;
        }
        const double rate = elapsed > 0.0 ? static_cast<double>(finished) / elapsed : 0.0;
        const size_t left = m_total - m_already - finished;
        char         line[200];
        snprintf(line, sizeof(line), "population: %zu/%zu modules, %zu running, %.2f modules/s, ETA %s, %zu passed",
                 m_already + finished, m_total, running, rate,
                 rate > 0.0 ? Duration(static_cast<double>(left) / rate).c_str() : "-", m_passed);
        fprintf(stderr, m_terminal ? "\r%-100s" : "%s\n", line);
        m_lastFinished = finished;
        m_lastPrintS   = elapsed;
    }

    void Finish()
    {
        if (m_terminal)
        {
            fprintf(stderr, "\n");
        }
    }

private:
    size_t                                m_total;
    size_t                                m_already;
    bool                                  m_terminal;
    std::chrono::steady_clock::time_point m_start;
    size_t                                m_passed       = 0;
    size_t                                m_lastFinished = SIZE_MAX;
    double                                m_lastPrintS   = 0.0;
};

// The words to run with: the given ones, or with --resume the interrupted run's plus the few
// that may change.
bool ResolveWords(const std::vector<std::string>& given, const Arguments& arguments, std::vector<std::string>* pWords,
                  std::string* pError)
{
    *pWords = given;
    if (!arguments.Has("resume"))
    {
        return true;
    }
    for (const OptionSpec& plan : PopulationOptionSpecs())
    {
        if (arguments.Has(plan.name) && !IsResumeOption(plan.name))
        {
            *pError = "--resume runs the interrupted run's population; --" + plan.name +
                      " cannot change it (only --out, -j, --no-namespace and --service-wait)";
            return false;
        }
    }
    PopulationConfig probe;
    Arguments        parsed;
    if (!ParsePopulationWords(given, &parsed, &probe, pError))
    {
        return false;
    }
    std::vector<std::string> saved;
    if (!LoadArguments(probe.outDir + "/" + kArgumentsFile, &saved))
    {
        *pError = "--resume: " + probe.outDir + " holds no interrupted population (" + kArgumentsFile + ")";
        return false;
    }
    *pWords = saved;
    pWords->insert(pWords->end(), given.begin(), given.end());
    return true;
}

std::vector<PoolJob> MakeJobs(const PopulationConfig& config)
{
    std::vector<PoolJob> jobs;
    for (const ModulePlan& module : config.modules)
    {
        for (const TestSetting& setting : config.settings)
        {
            jobs.push_back({ module, setting });
        }
    }
    return jobs;
}

void PrintTiming(const std::vector<ModuleRecord>& records, double wallS)
{
    double render = 0.0, node = 0.0, emulator = 0.0, total = 0.0;
    for (const ModuleRecord& record : records)
    {
        render += record.renderS;
        node += record.nodeS;
        emulator += record.emulatorS;
        total += record.totalS;
    }
    const double count = std::max<double>(1.0, static_cast<double>(records.size()));
    printf("\ntime: %.1f s wall for %zu modules; CPU per module %.2f s: rendering %.2f s, node %.2f s, "
           "emulator %.2f s, set-up, service and collection %.2f s\n",
           wallS, records.size(), total / count, render / count, node / count, emulator / count,
           (total - render - node - emulator) / count);
}

// The options of the run as words to save: every option given except those a resume may change,
// with paths made absolute.
std::vector<std::string> WordsToSave(const Arguments& arguments, const PopulationConfig& config)
{
    std::vector<std::string> words;
    for (const OptionSpec& plan : PopulationOptionSpecs())
    {
        if (!arguments.Has(plan.name) || IsResumeOption(plan.name))
        {
            continue;
        }
        if (!plan.takesValue)
        {
            words.push_back("--" + plan.name);
            continue;
        }
        for (const std::string& value : arguments.Values(plan.name))
        {
            words.push_back("--" + plan.name);
            words.push_back(plan.name == "modules-csv" ? config.modulesCsv
                            : plan.name == "node"      ? config.nodeLibrary
                                                       : value);
        }
    }
    return words;
}

// Starts the journal afresh, or with --resume keeps its whole lines; false with a message.
bool OpenJournal(const PopulationConfig& config, const Arguments& arguments, std::vector<ModuleRecord>* pDone,
                 std::string* pError)
{
    const std::string journalPath = config.outDir + "/" + kJournalFile;
    std::error_code   error;
    std::filesystem::create_directories(config.outDir, error);
    if (config.resume)
    {
        const JournalLines journal = ReadJournalLines(journalPath);
        *pDone                     = journal.records;
        printf("resuming %s: %zu modules done", config.outDir.c_str(), pDone->size());
        printf(journal.dropped != 0 ? ", %zu line(s) cut short dropped\n" : "\n", journal.dropped);
        return RewriteJournal(journalPath, journal.lines) || (*pError = "cannot rewrite " + journalPath, false);
    }
    if (std::filesystem::exists(journalPath, error))
    {
        *pError = journalPath + " exists: --resume continues that run, or give another --out";
        return false;
    }
    if (!SaveArguments(config.outDir + "/" + kArgumentsFile, WordsToSave(arguments, config)) ||
        !RewriteJournal(journalPath, {}))
    {
        *pError = "cannot write into " + config.outDir;
        return false;
    }
    return true;
}

// The records in job order (module, then setting), whatever order the workers finished in.
std::vector<ModuleRecord> InJobOrder(const std::vector<PoolJob>& jobs, const std::vector<ModuleRecord>& records)
{
    std::map<std::string, const ModuleRecord*> byKey;
    for (const ModuleRecord& record : records)
    {
        byKey[JobKey(record.id, record.setting)] = &record;
    }
    std::vector<ModuleRecord> ordered;
    for (const PoolJob& job : jobs)
    {
        const auto it = byKey.find(JobKey(job.module.id, job.setting.Label()));
        if (it != byKey.end())
        {
            ordered.push_back(*it->second);
        }
    }
    return ordered;
}

void DecideIsolation(PopulationConfig* pConfig)
{
    const bool calibrating = pConfig->settings.front().calibrate;
    if (!calibrating || pConfig->workers == 1)
    {
        return;
    }
    std::string why;
    if (!pConfig->namespaces)
    {
        printf("no network namespaces (--no-namespace): calibrations run one at a time\n");
    }
    else if (NetworkNamespacesAvailable(&why))
    {
        printf("each calibration worker runs in a network namespace of its own\n");
    }
    else
    {
        printf("this machine gives workers no network namespace of their own (%s): the calibration service's "
               "socket name is one per namespace, so calibrations run one at a time\n",
               why.c_str());
        pConfig->namespaces = false;
    }
}

// The jobs without a record in the journal.
std::vector<PoolJob> PendingJobs(const std::vector<PoolJob>& all, const std::vector<ModuleRecord>& done)
{
    std::set<std::string> finished;
    for (const ModuleRecord& record : done)
    {
        finished.insert(JobKey(record.id, record.setting));
    }
    std::vector<PoolJob> jobs;
    for (const PoolJob& job : all)
    {
        if (finished.count(JobKey(job.module.id, job.setting.Label())) == 0)
        {
            jobs.push_back(job);
        }
    }
    return jobs;
}

// Runs the jobs with Ctrl-C and SIGTERM caught, journaling each summary as it arrives.
PoolSummary RunWorkers(const PopulationConfig& config, const std::vector<PoolJob>& jobs, FILE* pJournal,
                       PopulationProgress& progress, std::vector<ModuleRecord>* pFresh)
{
    struct sigaction action;
    memset(&action, 0, sizeof(action));
    action.sa_handler = OnInterrupt;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    const std::string node   = config.nodeLibrary;
    const uint32_t    waitMs = config.serviceWaitMs;
    const auto        runner = [&node, waitMs](const PoolJob& job) {
        ModuleTiming     timing;
        const RunSummary summary = RunModule(job.module, job.setting, node, waitMs, &timing);
        return SummaryLine(summary, timing);
    };
    const PoolSummary summary = RunPool(
        jobs, PoolOptions{ config.workers, config.namespaces }, runner,
        [&](size_t, const ModuleRecord& record, const std::string& line) {
            // A worker that gave no summary is not journaled: a resumed run tries the module again.
            if (!line.empty())
            {
                AppendJournal(pJournal, line);
            }
            progress.Record(record.passAfter);
            pFresh->push_back(record);
        },
        [&progress](size_t count, size_t running) { progress(count, running); }, &g_interrupted);
    progress.Finish();
    signal(SIGINT, SIG_DFL);
    signal(SIGTERM, SIG_DFL);
    return summary;
}

// Writes the page and CSV and prints the summary; the exit status.
int Report(const PopulationConfig& config, size_t jobCount, const std::vector<ModuleRecord>& records,
           const std::vector<ModuleRecord>& fresh, bool serialised, double wallS)
{
    std::vector<std::string> notes;
    if (g_interrupted != 0)
    {
        notes.push_back("interrupted: " + std::to_string(records.size()) + " of " + std::to_string(jobCount) +
                        " modules done; 'oisverify population --resume --out " + config.outDir + "' continues");
    }
    if (serialised)
    {
        notes.push_back("calibrations ran one at a time: no network namespace per worker");
    }
    std::string error;
    if (!WriteYieldOutputs(config.outDir, "OIS population", records, notes, &error))
    {
        fprintf(stderr, "oisverify population: %s\n", error.c_str());
        return 1;
    }
    PrintYieldSummary(stdout, ComputeYieldBySetting(records));
    PrintTiming(fresh, wallS);
    for (const std::string& note : notes)
    {
        printf("%s\n", note.c_str());
    }
    printf("\nOutput in %s: index.html, modules.csv, %s\n", config.outDir.c_str(), kJournalFile);
    if (g_interrupted != 0)
    {
        return 130;
    }
    const bool allRan =
        std::none_of(records.begin(), records.end(), [](const ModuleRecord& record) { return record.runError; });
    return allRan ? 0 : 1;
}

int RunJobs(PopulationConfig& config, std::vector<ModuleRecord> done)
{
    const std::vector<PoolJob> all  = MakeJobs(config);
    const std::vector<PoolJob> jobs = PendingJobs(all, done);
    DecideIsolation(&config);
    printf("population: %zu modules x %zu setting(s), %zu to run on %u worker(s)\n", config.modules.size(),
           config.settings.size(), jobs.size(), config.workers);
    const std::string journalPath = config.outDir + "/" + kJournalFile;
    FILE*             pJournal    = fopen(journalPath.c_str(), "ab");
    if (pJournal == nullptr)
    {
        fprintf(stderr, "oisverify population: cannot append to %s: %s\n", journalPath.c_str(), strerror(errno));
        return 1;
    }
    PopulationProgress        progress(all.size(), done.size());
    const auto                start = std::chrono::steady_clock::now();
    std::vector<ModuleRecord> fresh;
    const PoolSummary         summary = RunWorkers(config, jobs, pJournal, progress, &fresh);
    fclose(pJournal);
    const double wallS = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    done.insert(done.end(), fresh.begin(), fresh.end());
    return Report(config, all.size(), InJobOrder(all, done), fresh, summary.serialised, wallS);
}

} // namespace

int RunPopulation(int argc, char** argv, int first)
{
    if (WantsHelp(argc, argv, first))
    {
        PrintHelp();
        return 0;
    }
    const std::vector<std::string> given = ExpandShortOptions(argc, argv, first);
    std::vector<std::string>       words;
    PopulationConfig               config;
    Arguments                      arguments;
    std::string                    error;
    if (!ParsePopulationWords(given, &arguments, &config, &error) || !ResolveWords(given, arguments, &words, &error))
    {
        return UsageError(error);
    }
    Arguments resolved;
    if (!ParsePopulationWords(words, &resolved, &config, &error))
    {
        return UsageError(error);
    }
    std::vector<ModuleRecord> done;
    if (!OpenJournal(config, resolved, &done, &error))
    {
        fprintf(stderr, "oisverify population: %s\n", error.c_str());
        return 1;
    }
    return RunJobs(config, done);
}

} // namespace oisverify
