// The machine-readable summary of one "oisverify run": the verdict and why, SR and blur per axis
// (the node's and the simulator's truth), the node's final state, the parameters the node ran
// with (its property strings and the values it derives from them), the frame counts, a
// calibration run's selected gains and persist record, and what identifies the run (tool
// version, UTC time, module, station, node library). RunSummary is a plain struct so that other
// commands can fill, write and read it back; RunSummaryJson and ParseRunSummary are inverse, and
// the document's field names are stable (listed in the README; "format" changes when a field's
// meaning does).
#ifndef ZELK_TOOLS_OISVERIFY_RUNSUMMARY_H
#define ZELK_TOOLS_OISVERIFY_RUNSUMMARY_H

#include <stdint.h>
#include <time.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "chihost/emulator/status.h"
#include "session/runconfig.h"
#include "session/runsession.h"
#include "verdict/calibrationresult.h"
#include "verdict/verdict.h"

namespace oisverify
{

constexpr int kRunSummaryFormat = 1;

// The three verdicts of a document: ERROR means the run could not be completed (the session
// could not be set up, or its outputs not written) and says nothing about the module.
extern const char* const kVerdictPass;
extern const char* const kVerdictFail;
extern const char* const kVerdictError;

using NamedTexts = std::vector<std::pair<std::string, std::string>>;

// One image axis of the measurement at the module's gains: the verification (in a calibration
// run the one at the base gains; its truth only when the node did not search). Absent values: the
// node published no SR, or there is no truth (replay).
struct AxisSummary
{
    std::optional<double> nodeSrDb;
    std::optional<double> trueSrDb;
    std::optional<double> nodeBlurPx;
    std::optional<double> trueBlurPx;
};

struct FrameCounts
{
    uint64_t measured = 0; // algorithm runs that found the four circles
    uint64_t failed   = 0; // runs that did not
    uint64_t dropped  = 0; // frames the node drops before measuring
    uint64_t total    = 0; // frames streamed
};

// The simulated module and table; absent for recorded frames.
struct SimulationSummary
{
    bool     oisOn       = true;
    double   gainX       = 1.0;
    double   gainY       = 1.0;
    double   idealGainX  = 1.0;
    double   idealGainY  = 1.0;
    double   amplitudeXPx = 0.0; // peak to peak on the crop
    double   amplitudeYPx = 0.0;
    double   noiseDn     = 0.0;
    uint64_t seed        = 0;
    bool     swapAxes    = false;
};

// The gain search as configured; absent without --calibrate.
struct SearchSettings
{
    uint32_t    singleAxis    = 0; // 0 both gyro axes, 1 X only, 2 Y only
    double      stepFraction  = 0.0;
    double      limitFraction = 0.0;
    uint32_t    settleFrames  = 0;
    std::string fuseId;
};

struct SummaryParameters
{
    std::string source; // "simulator", "debug-images" or "replay"
    NamedTexts  properties; // every system property the device held (the value the node reads)
    NamedTexts  settings;   // CamX static settings
    std::vector<std::pair<std::string, uint32_t>> eeprom; // custom entries of the sensor's EEPROM record
    uint32_t    frameRateHz = 0;
    uint32_t    shakeFreqHz = 0;
    uint32_t    dropFrames  = 0;
    uint32_t    ringSize    = 0; // frames the SR is taken over
    uint32_t    timeLimitMs = 0;
    uint32_t    debugMode   = 0;
    uint32_t    dumpImages  = 0;
    uint32_t    width       = 0;
    uint32_t    height      = 0;
    uint32_t    stride      = 0;
    uint32_t    scanline    = 0;
    std::optional<SimulationSummary> simulation;
    std::optional<SearchSettings>    search;
};

// The module's record in the persist file after a calibration run; texts as stored, with bytes
// that are not printable ASCII written as \xNN.
struct PersistSummary
{
    uint32_t    line = 0; // from 1
    std::string fuseId;
    std::string calibFlag;
    std::string gainX;
    std::string gainY;
    uint32_t    crcStored   = 0;
    uint32_t    crcComputed = 0;
};

// Gains and SR of a search belong to the gyro axes.
struct CalibrationSummary
{
    bool                  basePass      = false; // the verification at the base gains passed
    bool                  searched      = false;
    uint32_t              pairsMeasured = 0;
    std::optional<double> selectedGainX;
    std::optional<double> selectedGainY;
    std::optional<double> selectedSrXDb; // the node's, with the selected gains
    std::optional<double> selectedSrYDb;
    std::optional<double> trueSrXDb; // the simulator's, with the module on the selected gains
    std::optional<double> trueSrYDb;
    std::optional<double> idealGainX; // the simulated module's
    std::optional<double> idealGainY;
    std::optional<double> nearestGainX; // tried gain nearest the ideal
    std::optional<double> nearestGainY;
    std::optional<PersistSummary> persist;
};

struct RunSummary
{
    int                      format = kRunSummaryFormat;
    std::string              toolVersion;
    std::string              timeUtc; // ISO 8601, e.g. 2026-11-23T15:40:02Z
    std::string              moduleId;
    std::string              station;
    std::string              mode = "verify"; // or "calibrate"
    std::string              verdict;         // kVerdictPass, kVerdictFail or kVerdictError
    std::string              reason;          // the headline after the verdict
    std::vector<std::string> reasons;         // every reason for FAIL or ERROR
    double                   limitDb = 0.0;
    std::string              limitSource; // the property text the limit came from; empty: the default
    AxisSummary              horizontal;
    AxisSummary              vertical;
    bool                     finished  = false; // the node reached a final state
    int32_t                  nodeState = 0;
    std::string              nodeStateName;
    std::optional<int32_t>   measurementMs; // first to last measured frame, at the verdict
    FrameCounts              frames;
    SummaryParameters        parameters;
    std::optional<CalibrationSummary> calibration;
    std::string              nodeLibrary;
    std::string              nodeBuildId; // GNU build ID in hex; empty when unknown
    std::vector<std::string> nodeErrors;  // the node's error lines
};

// "2026-11-23T15:40:02Z" for a time in seconds since the epoch.
std::string IsoUtc(time_t when);

// The summary of a finished session. pCalibration: a calibration run's outcome. started: when
// the run began. Identity fields come from config.summary; the tool version and build ID are
// the running tool's and the session's node library's.
RunSummary SummariseRun(const RunConfig& config, const RunResult& result, const Verdict& verdict,
                        const CalibrationOutcome* pCalibration, time_t started);

// The summary of a run that could not be completed: verdict ERROR with the reason, plus whatever
// the session left in the result.
RunSummary SummariseError(const RunConfig& config, const RunResult& result, const std::string& reason,
                          time_t started);

// The document: indented over several lines, or (compact) on one line without a line feed, for
// files that hold one document per line.
std::string RunSummaryJson(const RunSummary& summary, bool compact = false);

// Reads a document back; empty with a message in pError (when given) for text that is not such a
// document: not JSON, another format, a required field missing or a field of the wrong type.
std::optional<RunSummary> ParseRunSummary(const std::string& text, std::string* pError = nullptr);

// Writes the document to a file, or to stdout for "-".
chihost::Status WriteRunSummary(const std::string& path, const RunSummary& summary);

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_RUNSUMMARY_H
