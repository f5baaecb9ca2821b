// "oisverify run": a complete verification session off-device. Streams frames of the simulated
// shake table (or the node's debug images, or a recorded folder) through the node in the
// emulated phone until it reaches a final state, prints progress and a PASS/FAIL verdict against
// the SR limit with the node's SR next to the true SR, and writes the node's files, its log, the
// figures and a summary page into the output folder. With --calibrate a verification below the
// limit goes on into the node's gain search, closed through the calibration service, and the
// verdict is the selected gains'. Exit 0 on PASS, 1 on FAIL or when the session cannot run, 2 for
// a usage error.
#include <stdio.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include "report/calibrationreport.h"
#include "verdict/calibrationresult.h"
#include "commands/commands.h"
#include "cli/runoptions.h"
#include "report/runoutput.h"
#include "report/runreport.h"
#include "report/runsummary.h"
#include "session/runsession.h"

namespace oisverify
{

namespace
{

void PrintHelp(const std::vector<OptionSpec>& specs)
{
    printf("usage: oisverify run [OPTIONS]\n\n"
           "Runs a complete OIS verification off-device: the node in the emulated phone measures frames\n"
           "of a simulated shake table (default: OIS on at the ideal gain, 4 Hz at 60 fps, 1440x1080)\n"
           "until it reaches a verdict. Prints PASS or FAIL against the SR limit with the node's SR\n"
           "next to the simulator's true SR, and writes the node's report and logs, plots of the circle\n"
           "positions and a summary page (index.html) into the output folder.\n\n"
           "With --calibrate a verification below the limit goes on into the node's gyro-gain search,\n"
           "closed through the emulated calibration service: the module takes each gain pair the node\n"
           "writes to the persist file. Prints every pair tried, the selected gains against the\n"
           "module's ideal gains and PASS when the selected gains reach the limit.\n\n"
           "Options:\n%s\n"
           "Exit status: 0 PASS (with --calibrate: after calibration), 1 FAIL or the session could not\n"
           "run, 2 usage error.\n",
           DescribeOptions(specs).c_str());
}

int UsageError(const std::string& message)
{
    fprintf(stderr, "oisverify run: %s\n'oisverify run --help' lists the options.\n", message.c_str());
    return 2;
}

// Writes the summary document when --json asked for one; false after saying why it could not.
bool WriteSummary(const RunConfig& config, const RunSummary& summary)
{
    if (config.summary.jsonPath.empty())
    {
        return true;
    }
    const chihost::Status status = WriteRunSummary(config.summary.jsonPath, summary);
    if (!status)
    {
        fprintf(stderr, "oisverify run: %s\n", status.Message().c_str());
    }
    return static_cast<bool>(status);
}

// The run could not be completed after all: its measurement stays, its verdict does not count.
void MarkError(RunSummary* pSummary, const std::string& reason)
{
    pSummary->verdict = kVerdictError;
    pSummary->reason  = reason;
    pSummary->reasons = { reason };
}

} // namespace

int RunRun(int argc, char** argv, int first)
{
    const std::vector<OptionSpec> specs = RunOptionSpecs();
    if (WantsHelp(argc, argv, first))
    {
        PrintHelp(specs);
        return 0;
    }
    Arguments   arguments;
    RunConfig   config;
    std::string error;
    if (!arguments.Parse(argc, argv, first, specs, &error) || !ParseRunConfig(arguments, &config, &error))
    {
        return UsageError(error);
    }

    // With the summary on stdout, stdout holds nothing else: the text goes to stderr.
    const time_t started = time(nullptr);
    FILE*        pText   = (config.summary.jsonPath == "-") ? stderr : stdout;
    PrintRunHeader(pText, config);
    if (config.calibration.enabled)
    {
        PrintCalibrationHeader(pText, config);
    }
    // On a terminal the progress line is rewritten in place, unless the node's log is echoed too.
    const bool      terminal = isatty(fileno(pText)) != 0;
    const bool      colour   = terminal && getenv("NO_COLOR") == nullptr;
    ProgressPrinter printer(pText, terminal && !config.echoLog, config.progressEvery);
    RunResult       result;
    chihost::Status status =
        RunVerification(config, [&printer](const ProgressInfo& info, bool last) { printer(info, last); }, &result);
    if (!status)
    {
        fprintf(stderr, "oisverify run: %s\n", status.Message().c_str());
        WriteSummary(config, SummariseError(config, result, status.Message(), started));
        return 1;
    }
    std::vector<std::string> written;
    Verdict                  verdict;
    RunSummary               summary;
    if (config.calibration.enabled)
    {
        const CalibrationOutcome outcome = ReadCalibrationOutcome(config, result);
        verdict                          = DecideCalibrationVerdict(config, result, outcome);
        PrintCalibrationReport(pText, config, result, outcome, verdict, colour);
        status  = WriteRunOutputs(config, result, verdict, &written, &outcome);
        summary = SummariseRun(config, result, verdict, &outcome, started);
    }
    else
    {
        verdict = DecideVerdict(MakeVerdictInput(config, result));
        PrintVerdict(pText, config, result, verdict, colour);
        status  = WriteRunOutputs(config, result, verdict, &written);
        summary = SummariseRun(config, result, verdict, nullptr, started);
    }
    if (!status)
    {
        fprintf(stderr, "oisverify run: %s\n", status.Message().c_str());
        MarkError(&summary, status.Message());
        WriteSummary(config, summary);
        return 1;
    }
    PrintOutputFiles(pText, config, result, written);
    if (!WriteSummary(config, summary))
    {
        return 1;
    }
    if (config.summary.jsonPath != "-" && !config.summary.jsonPath.empty())
    {
        fprintf(pText, "Summary in %s\n", config.summary.jsonPath.c_str());
    }
    return verdict.pass ? 0 : 1;
}

} // namespace oisverify
