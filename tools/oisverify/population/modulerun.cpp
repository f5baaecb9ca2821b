// One module of a population in this process; see modulerun.h.
#include "population/modulerun.h"

#include <time.h>


#include "cli/runoptions.h"
#include "report/runreport.h"
#include "verdict/calibrationresult.h"
#include "verdict/verdict.h"

namespace oisverify
{

bool ModuleRunConfig(const ModulePlan& module, const TestSetting& setting, const std::string& nodeLibrary,
                     uint32_t serviceWaitMs, RunConfig* pConfig, std::string* pError)
{
    std::vector<std::string> words = ModuleRunWords(module, setting);
    words.push_back("--module-id");
    words.push_back(module.id);
    if (!nodeLibrary.empty())
    {
        words.push_back("--node");
        words.push_back(nodeLibrary);
    }
    if (!ParseRunWords(words, pConfig, pError))
    {
        *pError = "module " + module.id + ": " + *pError;
        return false;
    }
    pConfig->outDir                   = "";
    pConfig->progressEvery            = 0;
    pConfig->summary.jsonPath         = "";
    pConfig->calibration.socketWaitMs = serviceWaitMs;
    return true;
}

RunSummary RunModule(const ModulePlan& module, const TestSetting& setting, const std::string& nodeLibrary,
                     uint32_t serviceWaitMs, ModuleTiming* pTiming)
{
    timespec     start{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &start);
    const time_t started = time(nullptr);
    RunConfig    config;
    RunResult    result;
    std::string  error;
    RunSummary   summary;
    if (!ModuleRunConfig(module, setting, nodeLibrary, serviceWaitMs, &config, &error))
    {
        summary          = SummariseError(config, result, error, started);
        summary.moduleId = module.id;
    }
    else if (const chihost::Status status = RunVerification(config, nullptr, &result); !status)
    {
        summary = SummariseError(config, result, status.Message(), started);
    }
    else if (config.calibration.enabled)
    {
        const CalibrationOutcome outcome = ReadCalibrationOutcome(config, result);
        summary = SummariseRun(config, result, DecideCalibrationVerdict(config, result, outcome), &outcome, started);
    }
    else
    {
        summary = SummariseRun(config, result, DecideVerdict(MakeVerdictInput(config, result)), nullptr, started);
    }
    pTiming->renderS   = result.timing.sourceS;
    pTiming->nodeS     = result.timing.nodeS;
    pTiming->emulatorS = result.timing.streamS - result.timing.sourceS - result.timing.nodeS;
    timespec end{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &end);
    pTiming->totalS = static_cast<double>(end.tv_sec - start.tv_sec) + static_cast<double>(end.tv_nsec - start.tv_nsec) * 1e-9;
    return summary;
}

} // namespace oisverify
