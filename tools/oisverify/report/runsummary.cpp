// A run's summary filled from its results, and written; see runsummary.h. The document's text is
// built and read in runsummaryjson.cpp.
#include "report/runsummary.h"

#include <errno.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "report/persistrecords.h"
#include "report/toolversion.h"

namespace oisverify
{

const char* const kVerdictPass  = "PASS";
const char* const kVerdictFail  = "FAIL";
const char* const kVerdictError = "ERROR";

namespace
{

// The node works in single precision: a float is written as the shortest decimal that reads
// back as the same float (24.79, not 24.790000915527344). Not a number: absent.
std::optional<double> FloatValue(float value)
{
    if (!isfinite(value))
    {
        return std::nullopt;
    }
    char text[32];
    for (int digits = 1; digits <= 9; digits++)
    {
        snprintf(text, sizeof(text), "%.*g", digits, static_cast<double>(value));
        if (strtof(text, nullptr) == value)
        {
            break;
        }
    }
    return strtod(text, nullptr);
}

double FloatOf(double value)
{
    return FloatValue(static_cast<float>(value)).value_or(value);
}

const char* SourceName(FrameSource source)
{
    switch (source)
    {
    case FrameSource::DebugImages: return "debug-images";
    case FrameSource::Replay: return "replay";
    case FrameSource::Simulator: break;
    }
    return "simulator";
}

// The value each name ends up with (the last entry wins), in the order the names first appear.
NamedTexts EffectiveEntries(const chihost::NameValueList& entries)
{
    NamedTexts effective;
    for (const auto& entry : entries)
    {
        bool replaced = false;
        for (auto& known : effective)
        {
            if (known.first == entry.first)
            {
                known.second = entry.second;
                replaced     = true;
            }
        }
        if (!replaced)
        {
            effective.push_back(entry);
        }
    }
    return effective;
}

SummaryParameters SummariseParameters(const RunConfig& config)
{
    SummaryParameters parameters;
    const AlgoParams& params = config.params;
    parameters.source        = SourceName(config.source);
    parameters.properties    = EffectiveEntries(config.device.root.buildProperties);
    parameters.settings      = EffectiveEntries(config.device.root.overrideSettings);
    for (const auto& entry : config.device.host.eepromCustomInfo)
    {
        parameters.eeprom.push_back({ entry.first, entry.second });
    }
    parameters.frameRateHz   = params.frameRateHz;
    parameters.shakeFreqHz   = params.shakeFreqHz;
    parameters.dropFrames    = params.dropFrames;
    parameters.ringSize      = params.verdictFrames;
    parameters.timeLimitMs   = params.timeLimitMs;
    parameters.debugMode     = params.debugMode;
    parameters.dumpImages    = params.dumpImages;
    parameters.width         = config.layout.width;
    parameters.height        = config.layout.height;
    parameters.stride        = config.layout.Stride();
    parameters.scanline      = config.layout.Scanline();
    if (config.source != FrameSource::Replay)
    {
        const sim::Scenario& s = config.scenario;
        parameters.simulation  = SimulationSummary{ s.ois.enabled,          s.ois.gainX,           s.ois.gainY,
                                                    s.ois.idealGainX,       s.ois.idealGainY,      s.shake.amplitudeXPx,
                                                    s.shake.amplitudeYPx,   s.sensor.noiseStdDn,   s.sensor.seed,
                                                    s.ois.swapGyroAxes };
    }
    if (config.calibration.enabled)
    {
        const CalibrationConfig& c = config.calibration;
        parameters.search = SearchSettings{ c.singleAxis, FloatOf(c.stepFraction), FloatOf(c.limitFraction),
                                            c.settleFrames, c.fuseId };
    }
    return parameters;
}

void SetAxis(AxisSummary* pAxis, bool hasSr, float srDb, float blurPx, bool hasTruth, float trueSrDb,
             float trueBlurPx)
{
    *pAxis = AxisSummary();
    if (hasSr)
    {
        pAxis->nodeSrDb   = FloatValue(srDb);
        pAxis->nodeBlurPx = FloatValue(blurPx);
    }
    if (hasTruth)
    {
        pAxis->trueSrDb   = FloatValue(trueSrDb);
        pAxis->trueBlurPx = FloatValue(trueBlurPx);
    }
}

std::optional<PersistSummary> SummarisePersist(const RunResult& result, const CalibrationOutcome& outcome)
{
    const std::vector<OISPersistLine>& lines = result.calibration.persistLines;
    if (outcome.persistLine < 0 || static_cast<size_t>(outcome.persistLine) >= lines.size())
    {
        return std::nullopt;
    }
    const OISCalData& record = lines[static_cast<size_t>(outcome.persistLine)].record;
    return PersistSummary{ static_cast<uint32_t>(outcome.persistLine) + 1, ShownField(record.fuseId),
                           ShownField(record.calibFlag), ShownField(record.gainX), ShownField(record.gainY),
                           record.crc, OISCalibrationFile::GetCrc(&record) };
}

CalibrationSummary SummariseCalibration(const RunResult& result, const CalibrationOutcome& outcome)
{
    CalibrationSummary calibration;
    calibration.basePass      = outcome.hasInitial && outcome.initialPass;
    calibration.searched      = outcome.searched;
    calibration.pairsMeasured = static_cast<uint32_t>(outcome.records.size());
    if (outcome.hasSelection)
    {
        calibration.selectedGainX = FloatValue(outcome.selection.gainX);
        calibration.selectedGainY = FloatValue(outcome.selection.gainY);
        calibration.selectedSrXDb = FloatValue(outcome.selection.srXDb);
        calibration.selectedSrYDb = FloatValue(outcome.selection.srYDb);
    }
    if (outcome.hasTrueSr)
    {
        calibration.trueSrXDb = FloatOf(outcome.trueSrXDb);
        calibration.trueSrYDb = FloatOf(outcome.trueSrYDb);
    }
    calibration.idealGainX = outcome.idealX;
    calibration.idealGainY = outcome.idealY;
    if (outcome.hasNearest)
    {
        calibration.nearestGainX = FloatOf(outcome.nearestX);
        calibration.nearestGainY = FloatOf(outcome.nearestY);
    }
    calibration.persist = SummarisePersist(result, outcome);
    return calibration;
}

// Everything but the verdict and the measurement.
RunSummary SummariseSession(const RunConfig& config, const RunResult& result, time_t started)
{
    RunSummary        summary;
    const NodeEvents& events = result.events;
    summary.toolVersion      = kToolVersion;
    summary.timeUtc          = IsoUtc(started);
    summary.moduleId         = config.summary.moduleId;
    summary.station          = config.summary.station;
    summary.mode             = config.calibration.enabled ? "calibrate" : "verify";
    summary.limitDb          = FloatOf(config.srLimitDb);
    summary.limitSource      = config.srLimitSource;
    summary.finished         = result.finished;
    summary.nodeState        = result.finalState;
    summary.nodeStateName    = (result.finalState < 0) ? ErrorMeaning(result.finalState) : StateName(result.finalState);
    summary.frames           = { events.measured, events.failed, config.params.dropFrames, result.requests };
    summary.parameters       = SummariseParameters(config);
    summary.nodeLibrary = result.nodeLibraryPath.empty() ? config.device.nodeLibraryPath : result.nodeLibraryPath;
    summary.nodeBuildId = ElfBuildId(summary.nodeLibrary);
    summary.nodeErrors  = events.errors;
    if (events.durationMs >= 0)
    {
        summary.measurementMs = events.durationMs;
    }
    return summary;
}

} // namespace

std::string IsoUtc(time_t when)
{
    struct tm parts;
    char      text[32];
    if (gmtime_r(&when, &parts) == nullptr || strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%SZ", &parts) == 0)
    {
        return "";
    }
    return text;
}

RunSummary SummariseRun(const RunConfig& config, const RunResult& result, const Verdict& verdict,
                        const CalibrationOutcome* pCalibration, time_t started)
{
    RunSummary        summary = SummariseSession(config, result, started);
    const NodeEvents& events  = result.events;
    summary.verdict           = verdict.pass ? kVerdictPass : kVerdictFail;
    summary.reason            = verdict.headline;
    summary.reasons           = verdict.reasons;
    if (pCalibration != nullptr && pCalibration->searched)
    {
        // The node's last SR belongs to the last gain it tried; the verification at the module's
        // own gains is the first.
        const MeasuredSr& base = pCalibration->initial;
        SetAxis(&summary.horizontal, pCalibration->hasInitial, base.horSrDb, base.horBlurPx, false, 0.0f, 0.0f);
        SetAxis(&summary.vertical, pCalibration->hasInitial, base.verSrDb, base.verBlurPx, false, 0.0f, 0.0f);
    }
    else
    {
        SetAxis(&summary.horizontal, events.hasSr, result.horSrDb, events.horBlurPx, result.hasTruth,
                result.truth.horSrDb, result.truth.horBlurPx);
        SetAxis(&summary.vertical, events.hasSr, result.verSrDb, events.verBlurPx, result.hasTruth,
                result.truth.verSrDb, result.truth.verBlurPx);
    }
    if (pCalibration != nullptr)
    {
        summary.calibration = SummariseCalibration(result, *pCalibration);
    }
    return summary;
}

RunSummary SummariseError(const RunConfig& config, const RunResult& result, const std::string& reason,
                          time_t started)
{
    RunSummary summary = SummariseSession(config, result, started);
    summary.verdict    = kVerdictError;
    summary.reason     = reason;
    summary.reasons    = { reason };
    return summary;
}

chihost::Status WriteRunSummary(const std::string& path, const RunSummary& summary)
{
    const std::string text    = RunSummaryJson(summary) + "\n";
    const bool        toStdout = (path == "-");
    FILE*             pFile   = toStdout ? stdout : fopen(path.c_str(), "wb");
    if (pFile == nullptr)
    {
        return chihost::Status::Error("cannot write the summary to " + path + ": " + strerror(errno));
    }
    const bool written = fwrite(text.data(), 1, text.size(), pFile) == text.size();
    const int  err     = errno;
    const bool closed  = toStdout ? fflush(pFile) == 0 : fclose(pFile) == 0;
    if (!written || !closed)
    {
        return chihost::Status::Error("cannot write the summary to " + (toStdout ? std::string("stdout") : path) +
                                      ": " + strerror(written ? errno : err));
    }
    return chihost::Status::Ok();
}

} // namespace oisverify
