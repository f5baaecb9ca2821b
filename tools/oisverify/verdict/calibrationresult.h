// A calibration run read back: the verification at the base gains that decided whether the node
// searched, every gain pair the search measured (the node's calibration log), the pair the node
// chose and wrote to the persist file, and how that compares with the simulated module's ideal
// gains; then the run's verdict. Gains and SR of the search belong to the gyro axes (the node
// pairs them with the image axes by the EEPROM flag); blur belongs to the image axes.
#ifndef ZELK_TOOLS_OISVERIFY_CALIBRATIONRESULT_H
#define ZELK_TOOLS_OISVERIFY_CALIBRATIONRESULT_H

#include <stdint.h>

#include <string>
#include <vector>

#include "session/runconfig.h"
#include "session/runsession.h"
#include "verdict/verdict.h"

namespace oisverify
{

// One "Verify Done" line of the node's calibration log: a measured gain target.
struct SearchRecord
{
    int32_t frameNum  = 0; // the request that completed the measurement
    int32_t index     = 0; // the target's count, from 0
    int32_t axisSwap  = 0; // the EEPROM flag the node paired the axes by
    float   gainX     = 0.0f;
    float   gainY     = 0.0f;
    float   srXDb     = 0.0f;
    float   srYDb     = 0.0f;
    float   horBlurPx = 0.0f;
    float   verBlurPx = 0.0f;
};

// The records of the log's text; lines that do not match are skipped.
std::vector<SearchRecord> ParseCalibrationLog(const std::string& text);

// The tried gain of an axis nearest to a gain (the first of two equally near); false without any.
bool NearestTriedGain(const std::vector<SearchRecord>& records, bool yAxis, double gain, double* pNearest);

// Marks as in the SR window exactly the frames the selected gains' SR was taken over: for the
// record each axis was selected from, the last ringFrames measured frames up to the request that
// completed its measurement. Every other frame is unmarked (the last target's ring included).
void MarkSelectedFrames(const std::vector<SearchRecord>& records, const GainSelection& selection, uint32_t ringFrames,
                        std::vector<RunFrame>* pFrames);

struct CalibrationOutcome
{
    bool                      hasInitial  = false; // the node reached a verdict at the base gains
    MeasuredSr                initial;
    bool                      initialPass = false;
    bool                      searched    = false; // the node set at least one gain target
    std::vector<SearchRecord> records;
    bool                      hasSelection = false;
    GainSelection             selection;
    int                       selectedX = -1; // the records the node selected from, per axis
    int                       selectedY = -1;
    double                    idealX  = 0.0; // the simulated module's, per gyro axis
    double                    idealY  = 0.0;
    bool                      hasNearest = false;
    double                    nearestX   = 0.0; // tried gain nearest the ideal, per axis
    double                    nearestY   = 0.0;
    int                       persistLine = -1; // index of the module's record in the persist file
    bool                      hasTrueSr   = false; // the module ran on the selected gains at the end
    double                    trueSrXDb   = 0.0;   // the simulator's SR with them, per gyro axis
    double                    trueSrYDb   = 0.0;
};

CalibrationOutcome ReadCalibrationOutcome(const RunConfig& config, const RunResult& result);

// PASS when the node finished (state 4) and either verified at the base gains or chose gains
// whose SR the node measured at or above the limit on both gyro axes, with the chosen pair in a
// good record of the module in the persist file. Otherwise FAIL with every reason.
Verdict DecideCalibrationVerdict(const RunConfig& config, const RunResult& result, const CalibrationOutcome& outcome);

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_CALIBRATIONRESULT_H
