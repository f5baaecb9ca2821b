// One module of a population in this process; see modulerun.h.
#include "population/modulerun.h"

#include <chrono>

#include "cli/calibrationoptions.h"
#include "cli/runoptions.h"
#include "report/runreport.h"
#include "verdict/calibrationresult.h"
#include "verdict/verdict.h"

namespace oisverify
{

namespace
{

void AddSelection(const RunConfig& config, const RunResult& result, const ModuleSpec& module,
                  const TestSetting& setting, ModuleRecord* pRecord)
{
    const CalibrationOutcome outcome = ReadCalibrationOutcome(config, result);
    const Verdict            verdict = DecideCalibrationVerdict(config, result, outcome);
    pRecord->hasBefore   = outcome.hasInitial;
    pRecord->beforeHorDb = outcome.initial.horSrDb;
    pRecord->beforeVerDb = outcome.initial.verSrDb;
    pRecord->passBefore  = outcome.hasInitial && outcome.initialPass;
    pRecord->passAfter   = verdict.pass;
    pRecord->reason      = verdict.pass || verdict.reasons.empty() ? "" : verdict.reasons.front();
    pRecord->searched    = outcome.searched;
    pRecord->hasSelection = outcome.hasSelection;
    pRecord->selectedX    = outcome.selection.gainX;
    pRecord->selectedY    = outcome.selection.gainY;
    // The SR the module ends with: the selected gains' as the node measured them (per gyro axis,
    // which the swap pairs with the image axes), or the verification's when it did not search.
    const bool swap   = config.scenario.ois.swapGyroAxes;
    pRecord->hasAfter = outcome.searched ? outcome.hasSelection : outcome.hasInitial;
    pRecord->afterHorDb = outcome.searched ? (swap ? outcome.selection.srYDb : outcome.selection.srXDb)
                                           : outcome.initial.horSrDb;
    pRecord->afterVerDb = outcome.searched ? (swap ? outcome.selection.srXDb : outcome.selection.srYDb)
                                           : outcome.initial.verSrDb;
    if (pRecord->searched)
    {
        pRecord->hasNearest = true;
        pRecord->nearestX   = NearestSearchTarget(module.baseX, setting.stepFraction, setting.limitFraction, module.idealX);
        pRecord->nearestY   = NearestSearchTarget(module.baseY, setting.stepFraction, setting.limitFraction, module.idealY);
    }
    const CalibrationArtifacts& artifacts = result.calibration;
    if (artifacts.hasFinalTruth)
    {
        pRecord->hasTruth  = true;
        pRecord->trueHorDb = artifacts.finalTruth.horSrDb;
        pRecord->trueVerDb = artifacts.finalTruth.verSrDb;
    }
}

} // namespace

bool ModuleRunConfig(const ModuleSpec& module, const TestSetting& setting, const std::string& nodeLibrary,
                     uint32_t serviceWaitMs, RunConfig* pConfig, std::string* pError)
{
    std::vector<std::string> words = ModuleRunWords(module, setting);
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
    pConfig->calibration.socketWaitMs = serviceWaitMs;
    return true;
}

ModuleRecord RecordFromRun(const RunConfig& config, const RunResult& result, const ModuleSpec& module,
                           const TestSetting& setting)
{
    ModuleRecord record;
    record.id         = module.id;
    record.fuseId     = module.id;
    record.setting    = setting.Label();
    record.source     = "population";
    record.finished   = result.finished;
    record.state      = result.finalState;
    record.limitDb    = config.srLimitDb;
    record.calibrated = setting.calibrate;
    record.hasIdeal   = true;
    record.idealX     = module.idealX;
    record.idealY     = module.idealY;
    record.hasAfter   = result.events.hasSr;
    record.afterHorDb = result.horSrDb;
    record.afterVerDb = result.verSrDb;
    if (setting.calibrate)
    {
        AddSelection(config, result, module, setting, &record);
    }
    else
    {
        const Verdict verdict = DecideVerdict(MakeVerdictInput(config, result));
        record.hasBefore   = record.hasAfter;
        record.beforeHorDb = record.afterHorDb;
        record.beforeVerDb = record.afterVerDb;
        record.passBefore  = verdict.pass;
        record.passAfter   = verdict.pass;
        record.reason      = verdict.pass || verdict.reasons.empty() ? "" : verdict.reasons.front();
        record.hasTruth    = result.hasTruth;
        record.trueHorDb   = result.truth.horSrDb;
        record.trueVerDb   = result.truth.verSrDb;
    }
    record.renderS   = result.timing.sourceS;
    record.nodeS     = result.timing.nodeS;
    record.emulatorS = result.timing.streamS - result.timing.sourceS - result.timing.nodeS;
    return record;
}

ModuleRecord RunModule(const ModuleSpec& module, const TestSetting& setting, const std::string& nodeLibrary,
                       uint32_t serviceWaitMs)
{
    const auto   start = std::chrono::steady_clock::now();
    RunConfig    config;
    RunResult    result;
    std::string  error;
    ModuleRecord record;
    chihost::Status status = chihost::Status::Ok();
    if (!ModuleRunConfig(module, setting, nodeLibrary, serviceWaitMs, &config, &error))
    {
        status = chihost::Status::Error(error);
    }
    else
    {
        status = RunVerification(config, nullptr, &result);
    }
    if (status)
    {
        record = RecordFromRun(config, result, module, setting);
    }
    else
    {
        record.id      = module.id;
        record.fuseId  = module.id;
        record.setting = setting.Label();
        record.source  = "population";
        record.limitDb = setting.limitDb;
        record.calibrated = setting.calibrate;
        record.hasIdeal = true;
        record.idealX   = module.idealX;
        record.idealY   = module.idealY;
        record.reason   = "the session could not run: " + status.Message();
    }
    record.totalS = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return record;
}

} // namespace oisverify
