// Console output of "oisverify run"; see runreport.h.
#include "report/runreport.h"

#include <math.h>

#include <algorithm>
#include <vector>

#include "sim/chart.h"
#include "sim/debugimages.h"

namespace oisverify
{

namespace
{

struct FileNote
{
    const char* pName;
    const char* pWhat;
};

// What the files in the output folder hold; the node's dump folder is summarised as one entry.
const FileNote kFileNotes[] = {
    { "index.html", "summary page: verdict, SR table, parameters and plots" },
    { "summary.svg", "SR per axis against the limit" },
    { "positions.svg", "circle centres per frame, measured and true" },
    { "positions.csv", "circle centres per frame as numbers" },
    { "node.log", "the node's log" },
    { "oisVerify.json", "the node's report" },
    { "oisVerify_point_position.txt", "the node's circle centres per measured frame" },
    { "oisverify_crop.yuv", "the first measured crop (grey-chroma NV12)" },
    { "oisGyroGainCalibrate.txt", "the node's calibration log" },
    { "calibration.svg", "SR against gyro gain per axis: every pair the search tried" },
};

const char* FileWhat(const std::string& name)
{
    for (const FileNote& note : kFileNotes)
    {
        if (name == note.pName)
        {
            return note.pWhat;
        }
    }
    return "";
}

std::string ModuleText(const sim::OisModuleConfig& ois)
{
    if (!ois.enabled)
    {
        return "OIS off";
    }
    char text[128];
    snprintf(text, sizeof(text), "OIS on, gain %.3f,%.3f against ideal %.3f,%.3f", ois.gainX, ois.gainY,
             ois.idealGainX, ois.idealGainY);
    return text;
}

void PrintSrRow(FILE* pOut, const char* pAxis, float nodeSr, float nodeBlur, bool hasTruth, float trueSr,
                float trueBlur)
{
    if (!hasTruth)
    {
        fprintf(pOut, "  %-11s %8.2f dB  %8.2f px\n", pAxis, nodeSr, nodeBlur);
        return;
    }
    fprintf(pOut, "  %-11s %8.2f dB  %8.2f dB  %+8.2f dB  %8.2f px  %8.2f px\n", pAxis, nodeSr, trueSr,
            SrDifference(nodeSr, trueSr), nodeBlur, trueBlur);
}

} // namespace

VerdictInput MakeVerdictInput(const RunConfig& config, const RunResult& result)
{
    VerdictInput input;
    input.finished       = result.finished;
    input.state          = result.finalState;
    input.requests       = result.requests;
    input.hasSr          = result.events.hasSr;
    input.horSrDb        = result.horSrDb;
    input.verSrDb        = result.verSrDb;
    input.limitDb        = config.srLimitDb;
    input.failedFrames   = result.events.failed;
    input.lastAlgoReturn = result.events.lastAlgoReturn;
    input.durationMs     = result.events.durationMs;
    input.timeLimitMs    = config.params.timeLimitMs;
    input.stopReason     = result.stopReason;
    return input;
}

std::string DescribeSource(const RunConfig& config)
{
    const std::string module = ModuleText(config.scenario.ois);
    switch (config.source)
    {
    case FrameSource::Replay:
        return "recorded frames from " + config.replayDir +
               (config.replayDescription.empty() ? "" : ": " + config.replayDescription);
    case FrameSource::DebugImages: return "node debug mode on rendered 720x720 images, " + module;
    case FrameSource::Simulator: break;
    }
    return "simulated shake table, " + module;
}

double SrDifference(float nodeSr, float trueSr)
{
    const double difference = static_cast<double>(nodeSr) - static_cast<double>(trueSr);
    return (fabs(difference) < 0.005) ? 0.0 : difference;
}

// Whether the residual shake carries the chart's discs out of the crop the node measures: a disc
// reaches spacing + radius from the centre at rest, plus half the residual's peak-to-peak.
bool DiscsLeaveTheCrop(const RunConfig& config)
{
    const sim::Scenario& s    = config.scenario;
    const int            crop = (config.source == FrameSource::DebugImages)
                                    ? sim::kDebugImageSidePx
                                    : sim::NodeCropSide(static_cast<int>(config.layout.width),
                                                        static_cast<int>(config.layout.height));
    const double residualX = s.ois.enabled ? fabs(1.0 - s.ois.gainX / s.ois.idealGainX) : 1.0;
    const double residualY = s.ois.enabled ? fabs(1.0 - s.ois.gainY / s.ois.idealGainY) : 1.0;
    const double reachPx   = (sim::kDiscSpacingFraction + sim::kDiscRadiusFraction) * crop +
                           0.5 * std::max(s.shake.amplitudeXPx * residualX, s.shake.amplitudeYPx * residualY);
    return reachPx > 0.5 * crop;
}

uint32_t ExpectedDurationMs(const AlgoParams& params)
{
    // The emulator's clock advances by the rounded frame period per request.
    const uint64_t periodNs = static_cast<uint64_t>(1.0e9 / params.frameRateHz + 0.5);
    return static_cast<uint32_t>(periodNs * params.verdictFrames / 1000000u);
}

void PrintRunHeader(FILE* pOut, const RunConfig& config)
{
    const FrameLayout&   layout = config.layout;
    const AlgoParams&    params = config.params;
    const sim::Scenario& s      = config.scenario;
    fprintf(pOut, "oisverify run   %s\n", DescribeSource(config).c_str());
    fprintf(pOut, "  frames        %ux%u NV12 (stride %u, scanline %u) at %u fps", layout.width, layout.height,
            layout.Stride(), layout.Scanline(), params.frameRateHz);
    if (config.source != FrameSource::Replay)
    {
        fprintf(pOut, ", noise %.1f DN, seed %llu", s.sensor.noiseStdDn,
                static_cast<unsigned long long>(s.sensor.seed));
        fprintf(pOut, "\n  shake         %u Hz, %.2f x %.2f px peak to peak on the crop", params.shakeFreqHz,
                s.shake.amplitudeXPx, s.shake.amplitudeYPx);
    }
    fprintf(pOut, "\n  node          %s = \"%s\" (drop %u frames, SR over %u frames, time limit %u ms)\n",
            kAlgoParaProperty, config.algoParaText.c_str(), params.dropFrames, params.verdictFrames,
            params.timeLimitMs);
    const std::string limitSource = config.srLimitSource.empty()
                                        ? " (the node's default)"
                                        : " from " + std::string(kGainCalibrateProperty) + "=" + config.srLimitSource;
    fprintf(pOut, "  SR limit      %.2f dB%s\n", config.srLimitDb, limitSource.c_str());
    if (config.source != FrameSource::Replay && DiscsLeaveTheCrop(config))
    {
        fprintf(pOut, "  note          the residual shake carries the chart out of the crop: expect error -12\n");
    }
    if (ExpectedDurationMs(params) >= params.timeLimitMs)
    {
        fprintf(pOut, "  note          at %u fps the %u frames take %u ms, not under the node's limit of %u ms: "
                      "expect error -13\n",
                params.frameRateHz, params.verdictFrames, ExpectedDurationMs(params), params.timeLimitMs);
    }
    fflush(pOut);
}

std::string FormatProgress(const ProgressInfo& info)
{
    char text[160];
    int  length = snprintf(text, sizeof(text), "  frame %-6llu %-16s", static_cast<unsigned long long>(info.frameNum),
                           StateName(info.state).c_str());
    std::string line(text, static_cast<size_t>(std::max(length, 0)));
    if (info.measured == 0 && info.failed == 0 && info.frameNum < info.dropFrames)
    {
        snprintf(text, sizeof(text), "dropping %llu/%u", static_cast<unsigned long long>(info.frameNum + 1),
                 info.dropFrames);
        return line + text;
    }
    if (info.measuredPairs != 0)
    {
        snprintf(text, sizeof(text), "gain search over, %u pairs measured  failed %u", info.measuredPairs,
                 info.failed);
        return line + text;
    }
    if (info.targets != 0)
    {
        // During a gain search: the target being settled or measured (the node counts from 0).
        snprintf(text, sizeof(text), "target %u gain %.2f,%.2f  ", info.targets - 1, info.targetGainX,
                 info.targetGainY);
        line += text;
    }
    snprintf(text, sizeof(text), "measured %u/%u  failed %u", info.measured, info.needed, info.failed);
    line += text;
    if (info.hasSr)
    {
        snprintf(text, sizeof(text), "  SR %.2f / %.2f dB", info.horSrDb, info.verSrDb);
        line += text;
    }
    return line;
}

void ProgressPrinter::operator()(const ProgressInfo& info, bool last)
{
    const std::string line = FormatProgress(info);
    if (m_rewrite)
    {
        // Pad over the rest of a longer previous line.
        const size_t pad = (m_lastWidth > line.size()) ? m_lastWidth - line.size() : 0;
        fprintf(m_pOut, "\r%s%s%s", line.c_str(), std::string(pad, ' ').c_str(), last ? "\n" : "");
        m_lastWidth = line.size();
        fflush(m_pOut);
        return;
    }
    if (m_every != 0 && (last || (info.frameNum + 1) % m_every == 0))
    {
        fprintf(m_pOut, "%s\n", line.c_str());
        fflush(m_pOut);
    }
}

void PrintVerdictLine(FILE* pOut, const Verdict& verdict, bool colour)
{
    const char* pWord = verdict.pass ? "PASS" : "FAIL";
    if (colour)
    {
        fprintf(pOut, "\n\033[1;%dm%s\033[0m  %s\n", verdict.pass ? 32 : 31, pWord, verdict.headline.c_str());
    }
    else
    {
        fprintf(pOut, "\n%s  %s\n", pWord, verdict.headline.c_str());
    }
}

void PrintSessionLine(FILE* pOut, const RunConfig& config, const RunResult& result)
{
    const NodeEvents&  events = result.events;
    const std::string stateText =
        (result.finalState < 0) ? ErrorMeaning(result.finalState) : StateName(result.finalState);
    fprintf(pOut, "\n  %u frames measured, %u failed, after %u dropped; node state %d (%s) after %llu frames\n",
            events.measured, events.failed, config.params.dropFrames, result.finalState, stateText.c_str(),
            static_cast<unsigned long long>(result.requests));
    for (const std::string& error : events.errors)
    {
        fprintf(pOut, "  node error: %s\n", error.c_str());
    }
}

void PrintVerdict(FILE* pOut, const RunConfig& config, const RunResult& result, const Verdict& verdict,
                  bool colour)
{
    PrintVerdictLine(pOut, verdict, colour);
    const NodeEvents& events = result.events;
    if (events.hasSr)
    {
        const bool truth = result.hasTruth;
        if (truth)
        {
            fprintf(pOut, "\n  %-11s %11s  %11s  %11s  %11s  %11s\n", "", "node SR", "true SR", "difference",
                    "node blur", "true blur");
        }
        else
        {
            fprintf(pOut, "\n  %-11s %11s  %11s\n", "", "node SR", "node blur");
        }
        PrintSrRow(pOut, "horizontal", result.horSrDb, events.horBlurPx, truth, result.truth.horSrDb,
                   result.truth.horBlurPx);
        PrintSrRow(pOut, "vertical", result.verSrDb, events.verBlurPx, truth, result.truth.verSrDb,
                   result.truth.verBlurPx);
        fprintf(pOut, "  %-11s %8.2f dB\n", "limit", config.srLimitDb);
    }
    PrintSessionLine(pOut, config, result);
}

void PrintOutputFiles(FILE* pOut, const RunConfig& config, const RunResult& result,
                      const std::vector<std::string>& ownFiles)
{
    fprintf(pOut, "\nOutput in %s\n", config.outDir.c_str());
    std::vector<std::string> names = ownFiles;
    size_t                   dumps = 0;
    for (const std::string& name : result.nodeFiles)
    {
        (name.find('/') == std::string::npos) ? names.push_back(name) : (void)dumps++;
    }
    for (const std::string& name : names)
    {
        fprintf(pOut, "  %-30s %s\n", name.c_str(), FileWhat(name));
    }
    if (dumps != 0)
    {
        fprintf(pOut, "  %-30s %zu input crops the node dumped\n", "dumpImage/", dumps);
    }
    if (result.rootKept)
    {
        fprintf(pOut, "Device root kept at %s\n", result.rootPath.c_str());
    }
}

} // namespace oisverify
