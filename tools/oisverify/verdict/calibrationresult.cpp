// A calibration run read back; see calibrationresult.h.
#include "verdict/calibrationresult.h"

#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include <sstream>

#include "report/persistrecords.h"
#include "report/runreport.h"

namespace oisverify
{

namespace
{

// The node logs gains with two decimals; the persist file holds them with six.
constexpr double kLoggedGainTolerance = 0.005;

std::string Db(double value)
{
    char text[32];
    snprintf(text, sizeof(text), "%.2f dB", value);
    return text;
}

std::string Gain(double value)
{
    char text[32];
    snprintf(text, sizeof(text), "%.2f", value);
    return text;
}

// The first record with exactly the selection's gain and SR on that axis.
int SelectedRecord(const std::vector<SearchRecord>& records, bool yAxis, float gain, float srDb)
{
    for (size_t i = 0; i < records.size(); i++)
    {
        const SearchRecord& r = records[i];
        if ((yAxis ? r.gainY : r.gainX) == gain && (yAxis ? r.srYDb : r.srXDb) == srDb)
        {
            return static_cast<int>(i);
        }
    }
    return -1;
}

int ModuleRecordLine(const RunResult& result, const std::string& fuseId)
{
    const std::vector<OISPersistLine>& lines = result.calibration.persistLines;
    for (size_t i = 0; i < lines.size(); i++)
    {
        if (IsRecord(lines[i]) && lines[i].record.fuseId == fuseId)
        {
            return static_cast<int>(i);
        }
    }
    return -1;
}

std::string AxisShortfall(const char* pAxis, float gain, float srDb, double limitDb)
{
    if (isnan(srDb) || srDb < limitDb)
    {
        return std::string(pAxis) + " SR with the selected gain " + Gain(gain) + " is " + Db(srDb) +
               ", below the limit of " + Db(limitDb);
    }
    return "";
}

// What is wrong with the module's record in the persist file; empty when it holds the choice.
std::string PersistShortfall(const RunConfig& config, const RunResult& result, const CalibrationOutcome& outcome)
{
    const std::string module = "fuse ID \"" + ShownField(config.calibration.fuseId) + "\"";
    if (outcome.persistLine < 0)
    {
        return "the persist file holds no record of " + module;
    }
    const OISPersistLine& line = result.calibration.persistLines[static_cast<size_t>(outcome.persistLine)];
    if (!HasGoodCrc(line))
    {
        return "the persist record of " + module + " has a bad CRC";
    }
    const double gainX = atof(line.record.gainX.c_str());
    const double gainY = atof(line.record.gainY.c_str());
    if (line.record.calibFlag != "1" || fabs(gainX - outcome.selection.gainX) > kLoggedGainTolerance ||
        fabs(gainY - outcome.selection.gainY) > kLoggedGainTolerance)
    {
        return "the persist record of " + module + " does not hold the selected gains " +
               Gain(outcome.selection.gainX) + ", " + Gain(outcome.selection.gainY) + " as calibrated";
    }
    return "";
}

// An error state explained for a calibration run where the search itself leads to it.
std::string CalibrationHint(const RunConfig& config, int32_t state)
{
    if (state == -21 && config.calibration.fuseId.empty())
    {
        return " (the module has no fuse ID the node can read, so it cannot write the module's record)";
    }
    if (state == -21 && config.calibration.singleAxis != 0)
    {
        return " (with one axis held the search ends only once both axes pass their upper bound, which the held "
               "axis never does: the targets ran on until the persist file refused one)";
    }
    return "";
}

// Every way the selected gains fall short: an axis below the limit, the record not holding them.
std::vector<std::string> SelectionShortfalls(const RunConfig& config, const RunResult& result,
                                             const CalibrationOutcome& outcome)
{
    std::vector<std::string> reasons;
    const GainSelection&     s = outcome.selection;
    for (const std::string& shortfall : { AxisShortfall("gyro X", s.gainX, s.srXDb, config.srLimitDb),
                                          AxisShortfall("gyro Y", s.gainY, s.srYDb, config.srLimitDb),
                                          PersistShortfall(config, result, outcome) })
    {
        if (!shortfall.empty())
        {
            reasons.push_back(shortfall);
        }
    }
    return reasons;
}

void JoinHeadline(Verdict* pVerdict)
{
    pVerdict->pass = pVerdict->reasons.empty();
    for (size_t i = 0; i < pVerdict->reasons.size(); i++)
    {
        pVerdict->headline += (i == 0 ? "" : "; ") + pVerdict->reasons[i];
    }
}

// The simulator's SR on the gains the module took last, when those are the selected ones; gyro X
// moves the vertical image axis of a module with swapped axes.
void ReadTrueSr(const RunConfig& config, const RunResult& result, CalibrationOutcome* pOutcome)
{
    const CalibrationArtifacts& artifacts = result.calibration;
    if (!pOutcome->hasSelection || !artifacts.hasFinalTruth ||
        fabs(artifacts.applied.back().gainX - pOutcome->selection.gainX) > kLoggedGainTolerance ||
        fabs(artifacts.applied.back().gainY - pOutcome->selection.gainY) > kLoggedGainTolerance)
    {
        return;
    }
    const bool swapped   = config.scenario.ois.swapGyroAxes;
    pOutcome->hasTrueSr  = true;
    pOutcome->trueSrXDb  = swapped ? artifacts.finalTruth.verSrDb : artifacts.finalTruth.horSrDb;
    pOutcome->trueSrYDb  = swapped ? artifacts.finalTruth.horSrDb : artifacts.finalTruth.verSrDb;
}

} // namespace

std::vector<SearchRecord> ParseCalibrationLog(const std::string& text)
{
    std::vector<SearchRecord> records;
    std::istringstream        lines(text);
    std::string               line;
    while (std::getline(lines, line))
    {
        SearchRecord r;
        if (sscanf(line.c_str(),
                   "Verify Done frameNum = %d oisCalibCnt = %d m_OISGyroGainAndSRMatch = %d Gain[%f, %f] SR[%f, %f] "
                   "Blur[%f, %f]",
                   &r.frameNum, &r.index, &r.axisSwap, &r.gainX, &r.gainY, &r.srXDb, &r.srYDb, &r.horBlurPx,
                   &r.verBlurPx) == 9)
        {
            records.push_back(r);
        }
    }
    return records;
}

bool NearestTriedGain(const std::vector<SearchRecord>& records, bool yAxis, double gain, double* pNearest)
{
    bool found = false;
    for (const SearchRecord& r : records)
    {
        const double tried = yAxis ? r.gainY : r.gainX;
        if (!found || fabs(tried - gain) < fabs(*pNearest - gain))
        {
            *pNearest = tried;
            found     = true;
        }
    }
    return found;
}

void MarkSelectedFrames(const std::vector<SearchRecord>& records, const GainSelection& selection, uint32_t ringFrames,
                        std::vector<RunFrame>* pFrames)
{
    std::vector<RunFrame>& frames = *pFrames;
    for (RunFrame& frame : frames)
    {
        frame.inRing = false;
    }
    for (const int selected : { SelectedRecord(records, false, selection.gainX, selection.srXDb),
                                SelectedRecord(records, true, selection.gainY, selection.srYDb) })
    {
        if (selected < 0)
        {
            continue;
        }
        const int64_t doneAt = records[static_cast<size_t>(selected)].frameNum;
        size_t        end    = 0; // one past the last frame measured for that record
        while (end < frames.size() && static_cast<int64_t>(frames[end].measured.frameNum) <= doneAt)
        {
            end++;
        }
        for (size_t i = (end > ringFrames) ? end - ringFrames : 0; i < end; i++)
        {
            frames[i].inRing = true;
        }
    }
}

CalibrationOutcome ReadCalibrationOutcome(const RunConfig& config, const RunResult& result)
{
    CalibrationOutcome outcome;
    const NodeEvents&  events = result.events;
    outcome.hasInitial        = !events.verdicts.empty();
    if (outcome.hasInitial)
    {
        // The node compares in single precision, as the limit is kept.
        outcome.initial     = events.verdicts.front();
        const float limit   = static_cast<float>(config.srLimitDb);
        outcome.initialPass = outcome.initial.horSrDb >= limit && outcome.initial.verSrDb >= limit;
    }
    outcome.searched     = events.targets != 0;
    outcome.records      = ParseCalibrationLog(result.calibration.calibLogText);
    outcome.hasSelection = events.hasSelection;
    outcome.selection    = events.selection;
    if (outcome.hasSelection)
    {
        outcome.selectedX = SelectedRecord(outcome.records, false, outcome.selection.gainX, outcome.selection.srXDb);
        outcome.selectedY = SelectedRecord(outcome.records, true, outcome.selection.gainY, outcome.selection.srYDb);
    }
    outcome.idealX     = config.scenario.ois.idealGainX;
    outcome.idealY     = config.scenario.ois.idealGainY;
    outcome.hasNearest = NearestTriedGain(outcome.records, false, outcome.idealX, &outcome.nearestX) &&
                         NearestTriedGain(outcome.records, true, outcome.idealY, &outcome.nearestY);
    outcome.persistLine = ModuleRecordLine(result, config.calibration.fuseId);
    ReadTrueSr(config, result, &outcome);
    return outcome;
}

Verdict DecideCalibrationVerdict(const RunConfig& config, const RunResult& result, const CalibrationOutcome& outcome)
{
    Verdict verdict;
    if (!result.finished || result.finalState != kVerifiedState)
    {
        verdict = DecideVerdict(MakeVerdictInput(config, result));
        if (!verdict.reasons.empty())
        {
            verdict.reasons.back() += CalibrationHint(config, result.finalState);
        }
        verdict.headline.clear();
    }
    else if (!outcome.searched)
    {
        if (!outcome.hasInitial || !outcome.initialPass)
        {
            verdict.reasons.push_back("the node finished without a passing verification and without a search");
        }
        else
        {
            // No search because the node's SR passed: that must hold for the applied shake too,
            // or a stalled table would skip the calibration and pass.
            VerdictInput input = MakeVerdictInput(config, result);
            input.hasSr        = true;
            input.horSrDb      = outcome.initial.horSrDb;
            input.verSrDb      = outcome.initial.verSrDb;
            verdict.reasons    = DecideVerdict(input).reasons;
        }
    }
    else if (!outcome.hasSelection)
    {
        verdict.reasons.push_back("the search ended without selecting gains");
    }
    else
    {
        verdict.reasons = SelectionShortfalls(config, result, outcome);
    }
    JoinHeadline(&verdict);
    if (verdict.pass)
    {
        verdict.headline = outcome.searched ? "SR at or above the limit of " + Db(config.srLimitDb) +
                                                  " on both gyro axes with the selected gains " +
                                                  Gain(outcome.selection.gainX) + ", " + Gain(outcome.selection.gainY)
                                            : "SR at or above the limit of " + Db(config.srLimitDb) +
                                                  " on both axes at the base gains: no search needed";
    }
    return verdict;
}

} // namespace oisverify
