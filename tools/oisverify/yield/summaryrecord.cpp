// Module records from run summaries; see summaryrecord.h.
#include "yield/summaryrecord.h"

#include <stdio.h>

#include <cjson/cJSON.h>

#include "population/populationplan.h"

namespace oisverify
{

namespace
{

const char kTimingKey[] = "population";

void AddBefore(const RunSummary& summary, ModuleRecord* pRecord)
{
    const AxisSummary& hor = summary.horizontal;
    const AxisSummary& ver = summary.vertical;
    pRecord->hasBefore     = hor.nodeSrDb.has_value() && ver.nodeSrDb.has_value();
    pRecord->beforeHorDb   = hor.nodeSrDb.value_or(0.0);
    pRecord->beforeVerDb   = ver.nodeSrDb.value_or(0.0);
    pRecord->hasTruth      = hor.trueSrDb.has_value() && ver.trueSrDb.has_value();
    pRecord->trueHorDb     = hor.trueSrDb.value_or(0.0);
    pRecord->trueVerDb     = ver.trueSrDb.value_or(0.0);
    pRecord->hasAfter      = pRecord->hasBefore;
    pRecord->afterHorDb    = pRecord->beforeHorDb;
    pRecord->afterVerDb    = pRecord->beforeVerDb;
}

// A search's outcome: the selected gains and their SR, per gyro axis, mapped to the image axes.
void AddSearch(const RunSummary& summary, const CalibrationSummary& calibration, ModuleRecord* pRecord)
{
    const bool swap        = summary.parameters.simulation && summary.parameters.simulation->swapAxes;
    pRecord->hasSelection  = calibration.selectedGainX.has_value() && calibration.selectedGainY.has_value();
    pRecord->selectedX     = calibration.selectedGainX.value_or(0.0);
    pRecord->selectedY     = calibration.selectedGainY.value_or(0.0);
    const auto& srX        = calibration.selectedSrXDb;
    const auto& srY        = calibration.selectedSrYDb;
    pRecord->hasAfter      = srX.has_value() && srY.has_value();
    pRecord->afterHorDb    = (swap ? srY : srX).value_or(0.0);
    pRecord->afterVerDb    = (swap ? srX : srY).value_or(0.0);
    const auto& trueX      = calibration.trueSrXDb;
    const auto& trueY      = calibration.trueSrYDb;
    pRecord->hasTruth      = trueX.has_value() && trueY.has_value();
    pRecord->trueHorDb     = (swap ? trueY : trueX).value_or(0.0);
    pRecord->trueVerDb     = (swap ? trueX : trueY).value_or(0.0);
    const auto& search     = summary.parameters.search;
    const auto& simulation = summary.parameters.simulation;
    if (search && simulation && pRecord->hasIdeal)
    {
        pRecord->hasNearest = true;
        pRecord->nearestX =
            NearestSearchTarget(simulation->gainX, search->stepFraction, search->limitFraction, pRecord->idealX);
        pRecord->nearestY =
            NearestSearchTarget(simulation->gainY, search->stepFraction, search->limitFraction, pRecord->idealY);
    }
}

void AddCalibration(const RunSummary& summary, ModuleRecord* pRecord)
{
    const CalibrationSummary& calibration = *summary.calibration;
    pRecord->calibrated                   = true;
    pRecord->passBefore                   = calibration.basePass;
    pRecord->searched                     = calibration.searched;
    if (calibration.idealGainX && calibration.idealGainY)
    {
        pRecord->hasIdeal = true;
        pRecord->idealX   = *calibration.idealGainX;
        pRecord->idealY   = *calibration.idealGainY;
    }
    if (calibration.persist)
    {
        pRecord->fuseId = calibration.persist->fuseId;
    }
    if (calibration.searched)
    {
        AddSearch(summary, calibration, pRecord);
    }
}

bool ReadTiming(const std::string& text, ModuleTiming* pTiming)
{
    cJSON*       pRoot   = cJSON_ParseWithLength(text.data(), text.size());
    const cJSON* pObject = cJSON_GetObjectItemCaseSensitive(pRoot, kTimingKey);
    const std::pair<const char*, double*> fields[] = { { "renderS", &pTiming->renderS },
                                                       { "nodeS", &pTiming->nodeS },
                                                       { "emulatorS", &pTiming->emulatorS },
                                                       { "totalS", &pTiming->totalS } };
    bool ok = cJSON_IsObject(pObject);
    for (const auto& field : fields)
    {
        const cJSON* pItem = cJSON_GetObjectItemCaseSensitive(pObject, field.first);
        ok                 = ok && cJSON_IsNumber(pItem);
        *field.second      = ok ? pItem->valuedouble : 0.0;
    }
    cJSON_Delete(pRoot);
    return ok;
}

} // namespace

std::string SearchLabel(double stepFraction, double limitFraction)
{
    char text[64];
    snprintf(text, sizeof(text), "%.6g,%.6g", stepFraction, limitFraction);
    return text;
}

std::string SummaryLine(const RunSummary& summary, const ModuleTiming& timing)
{
    std::string line = RunSummaryJson(summary, true);
    if (line.empty() || line.back() != '}')
    {
        return line;
    }
    char extra[200];
    snprintf(extra, sizeof(extra), ",\"%s\":{\"renderS\":%.3f,\"nodeS\":%.3f,\"emulatorS\":%.3f,\"totalS\":%.3f}}",
             kTimingKey, timing.renderS, timing.nodeS, timing.emulatorS, timing.totalS);
    line.pop_back();
    return line + extra;
}

ModuleRecord RecordFromSummary(const RunSummary& summary)
{
    ModuleRecord record;
    record.id       = summary.moduleId;
    record.source   = "summary";
    record.finished = summary.finished;
    record.state    = summary.nodeState;
    record.limitDb  = summary.limitDb;
    record.runError = summary.verdict == kVerdictError;
    record.passAfter = summary.verdict == kVerdictPass;
    record.reason   = record.passAfter ? "" : summary.reason;
    const auto& search = summary.parameters.search;
    if (search)
    {
        record.setting = SearchLabel(search->stepFraction, search->limitFraction);
        record.fuseId  = search->fuseId;
    }
    const auto& simulation = summary.parameters.simulation;
    if (simulation)
    {
        record.hasIdeal = true;
        record.idealX   = simulation->idealGainX;
        record.idealY   = simulation->idealGainY;
    }
    AddBefore(summary, &record);
    record.passBefore = record.passAfter;
    if (summary.calibration)
    {
        AddCalibration(summary, &record);
    }
    return record;
}

bool RecordFromSummaryText(const std::string& text, ModuleRecord* pRecord, std::string* pReason)
{
    const std::optional<RunSummary> summary = ParseRunSummary(text, pReason);
    if (!summary)
    {
        return false;
    }
    *pRecord = RecordFromSummary(*summary);
    ModuleTiming timing;
    if (text.find(kTimingKey) != std::string::npos && ReadTiming(text, &timing))
    {
        pRecord->renderS   = timing.renderS;
        pRecord->nodeS     = timing.nodeS;
        pRecord->emulatorS = timing.emulatorS;
        pRecord->totalS    = timing.totalS;
    }
    return true;
}

} // namespace oisverify
