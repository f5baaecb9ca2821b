// The run's summary page; see htmlsummary.h.
#include "report/htmlsummary.h"

#include <stdio.h>

#include "report/calibrationreport.h"
#include "report/runreport.h"
#include "report/runsummary.h"
#include "report/toolversion.h"
#include "figures/svgwriter.h"

namespace oisverify
{

namespace
{

const char kStyle[] =
    "body{font-family:Helvetica,Arial,sans-serif;color:#1f2328;margin:24px auto;max-width:960px;padding:0 16px}"
    "h1{display:inline-block;color:#fff;padding:4px 18px;border-radius:8px;margin:0 12px 0 0}"
    "h1.pass{background:#1a7f37}h1.fail{background:#cf222e}"
    "h2{margin-top:28px;border-bottom:1px solid #d0d7de;padding-bottom:4px}"
    "table{border-collapse:collapse}td,th{padding:4px 12px;text-align:right;border-bottom:1px solid #eaeef2}"
    "th:first-child,td:first-child{text-align:left}table.params td,table.identity td{text-align:left}"
    "td.bad{color:#cf222e;font-weight:bold}td.good{color:#1a7f37;font-weight:bold}"
    ".headline{font-size:18px;vertical-align:middle}figure{margin:12px 0}svg{max-width:100%;height:auto}"
    "code{background:#f6f8fa;padding:1px 4px}"
    "p.interrupted{background:#fff8c5;border:1px solid #d4a72c;border-radius:6px;padding:8px 12px}";

std::string Fixed(double value, const char* pUnit)
{
    char text[48];
    snprintf(text, sizeof(text), "%.2f%s", value, pUnit);
    return text;
}

std::string Cell(const std::string& text, const std::string& cls = "")
{
    return (cls.empty() ? "<td>" : "<td class=\"" + cls + "\">") + XmlEscape(text) + "</td>";
}

// One axis of the SR table; the columns follow the console's: node SR, the suppression of the
// applied shake, true SR and difference, blur, then the applied shake and, with a measured
// reference, the OIS-off session's SR and blur and the stabilisation gain.
std::string SrRow(const char* pAxis, const RunConfig& config, const RunResult& result, bool yAxis)
{
    const float  nodeSr   = yAxis ? result.verSrDb : result.horSrDb;
    const float  nodeBlur = yAxis ? result.events.verBlurPx : result.events.horBlurPx;
    const double limit    = config.srLimitDb;
    std::string  row = "<tr>" + Cell(pAxis) + Cell(Fixed(nodeSr, " dB"), nodeSr >= limit ? "good" : "bad");
    const TrueSuppression& s = result.suppression;
    if (result.hasTruth && s.known)
    {
        const float suppressed = yAxis ? s.trueSuppressionDb.vertical : s.trueSuppressionDb.horizontal;
        row += Cell(DbText(suppressed), suppressed >= limit ? "good" : "bad");
    }
    const float trueSr = yAxis ? result.truth.verSrDb : result.truth.horSrDb;
    if (result.hasTruth)
    {
        char diff[32];
        snprintf(diff, sizeof(diff), "%+.2f dB", SrDifference(nodeSr, trueSr));
        row += Cell(Fixed(trueSr, " dB")) + Cell(diff);
    }
    row += Cell(Fixed(nodeBlur, " px"));
    if (result.hasTruth)
    {
        row += Cell(Fixed(yAxis ? result.truth.verBlurPx : result.truth.horBlurPx, " px"));
    }
    if (result.hasTruth && s.known)
    {
        row += Cell(Fixed(yAxis ? s.appliedShakePx.vertical : s.appliedShakePx.horizontal, " px"));
    }
    const ReferenceResult& ref = result.reference;
    if (ref.measured)
    {
        row += Cell(Fixed(yAxis ? ref.referenceSrDb.vertical : ref.referenceSrDb.horizontal, " dB")) +
               Cell(Fixed(yAxis ? ref.referenceBlurPx.vertical : ref.referenceBlurPx.horizontal, " px"));
    }
    if (ref.hasGain)
    {
        row += Cell(DbText(yAxis ? ref.stabilisationGainDb.vertical : ref.stabilisationGainDb.horizontal));
    }
    return row + "</tr>\n";
}

std::string SrHeadings(const RunResult& result)
{
    const bool  suppression = result.hasTruth && result.suppression.known;
    std::string html        = "<tr><th>axis</th><th>node SR</th>";
    html += suppression ? "<th>suppression</th>" : "";
    html += result.hasTruth ? "<th>true SR</th><th>difference</th><th>node blur</th><th>true blur</th>"
                            : "<th>node blur</th>";
    html += suppression ? "<th>applied shake</th>" : "";
    html += result.reference.measured ? "<th>reference SR</th><th>reference blur</th>" : "";
    html += result.reference.hasGain ? "<th>stabilisation</th>" : "";
    return html + "</tr>\n";
}

// What the console prints under its table: how the suppression is taken.
std::string SrNotes(const RunResult& result)
{
    char                   text[256];
    std::string            html;
    const TrueSuppression& s = result.suppression;
    if (result.hasTruth && s.known)
    {
        snprintf(text, sizeof(text), "suppression of the applied shake (%.2f x %.2f px over the same frames): "
                                     "10 log10(applied / true blur) + 4 dB",
                 s.appliedShakePx.horizontal, s.appliedShakePx.vertical);
        html += "<p class=\"suppression\">" + XmlEscape(text) + "</p>\n";
    }
    return html;
}

// The reference session's outcome as the console prints it: its SR and blur and the
// stabilisation gain, or why it gave none, with the node's errors in it.
std::string ReferenceHtml(const RunResult& result)
{
    char                   text[256];
    std::string            html;
    const ReferenceResult& ref = result.reference;
    if (ref.measured)
    {
        snprintf(text, sizeof(text), "reference: OIS off, measured by the node first: blur %.2f / %.2f px, "
                                     "SR %.2f / %.2f dB",
                 ref.referenceBlurPx.horizontal, ref.referenceBlurPx.vertical, ref.referenceSrDb.horizontal,
                 ref.referenceSrDb.vertical);
        html += "<p class=\"reference\">" + XmlEscape(text) + "</p>\n";
    }
    if (ref.hasGain)
    {
        html += "<p class=\"reference\">" +
                XmlEscape("stabilisation " + DbText(ref.stabilisationGainDb.horizontal) + " horizontal, " +
                          DbText(ref.stabilisationGainDb.vertical) +
                          " vertical: 10 log10(unstabilised blur / stabilised blur)") +
                "</p>\n";
    }
    if (!ref.ran || ref.measured)
    {
        return html;
    }
    const std::string state =
        (ref.finalState < 0) ? "error " + std::to_string(ref.finalState) + ": " + ErrorMeaning(ref.finalState)
                             : "state " + std::to_string(ref.finalState);
    html += "<p class=\"reference\">" +
            XmlEscape("reference: the OIS-off session gave no SR (" + state + "): no stabilisation gain") + "</p>\n";
    for (const std::string& error : ref.errors)
    {
        html += "<p class=\"reference\">reference error: <code>" + XmlEscape(error) + "</code></p>\n";
    }
    return html;
}

std::string SrTable(const RunConfig& config, const RunResult& result)
{
    if (!result.events.hasSr)
    {
        return "<p>The node published no SR.</p>\n" + ReferenceHtml(result);
    }
    std::string html = "<table class=\"sr\">\n" + SrHeadings(result);
    html += SrRow("horizontal", config, result, false);
    html += SrRow("vertical", config, result, true);
    html += "<tr>" + Cell("limit") + Cell(Fixed(config.srLimitDb, " dB")) + "</tr>\n</table>\n";
    return html + SrNotes(result) + ReferenceHtml(result);
}

std::string List(const std::vector<std::string>& items, bool code)
{
    std::string html = "<ul>\n";
    for (const std::string& item : items)
    {
        html += code ? "<li><code>" + XmlEscape(item) + "</code></li>\n" : "<li>" + XmlEscape(item) + "</li>\n";
    }
    return html + "</ul>\n";
}

// The page's head under the verdict: what identifies the run, the node's final state and the
// frame counts, as the run's JSON summary carries them.
std::string RunIdentityHtml(const RunConfig& config, const RunResult& result)
{
    const std::string buildId = ElfBuildId(result.nodeLibraryPath);
    const int32_t     state   = result.finalState;
    char              frames[128];
    snprintf(frames, sizeof(frames), "%u measured, %u failed, %u dropped, %llu in all", result.events.measured,
             result.events.failed, config.params.dropFrames, static_cast<unsigned long long>(result.requests));
    const std::pair<const char*, std::string> rows[] = {
        { "module", config.summary.moduleId.empty() ? "(no ID)" : config.summary.moduleId },
        { "station", config.summary.station },
        { "time (UTC)", IsoUtc(config.summary.started) },
        { "mode", config.calibration.enabled ? "calibrate" : "verify" },
        { "tool", std::string("oisverify ") + kToolVersion },
        { "node build", buildId.empty() ? "unknown" : "GNU build ID " + buildId },
        { "node state",
          std::to_string(state) + " (" + StateName(state) + (state < 0 ? ": " + ErrorMeaning(state) : "") + ")" },
        { "frames", frames },
    };
    std::string html = "<table class=\"identity\">\n";
    for (const auto& row : rows)
    {
        html += "<tr>" + Cell(row.first) + Cell(row.second) + "</tr>\n";
    }
    return html + "</table>\n";
}

std::string FileLinks(const std::vector<std::string>& files)
{
    std::string html = "<ul>\n";
    for (const std::string& file : files)
    {
        html += "<li><a href=\"" + XmlEscape(file) + "\">" + XmlEscape(file) + "</a></li>\n";
    }
    return html + "</ul>\n";
}

} // namespace

std::vector<std::pair<std::string, std::string>> RunParameters(const RunConfig& config, const RunResult& result)
{
    const AlgoParams&    params = config.params;
    const FrameLayout&   layout = config.layout;
    const sim::Scenario& s      = config.scenario;
    char                 text[160];
    std::vector<std::pair<std::string, std::string>> rows;
    rows.push_back({ "frames from", DescribeSource(config) });
    snprintf(text, sizeof(text), "%ux%u NV12, stride %u, scanline %u, %u fps", layout.width, layout.height,
             layout.Stride(), layout.Scanline(), params.frameRateHz);
    rows.push_back({ "frames", text });
    if (config.source != FrameSource::Replay)
    {
        snprintf(text, sizeof(text), "%u Hz, %.2f x %.2f px peak to peak", params.shakeFreqHz, s.shake.amplitudeXPx,
                 s.shake.amplitudeYPx);
        rows.push_back({ "shake", text });
        snprintf(text, sizeof(text), "noise %.1f DN, seed %llu", s.sensor.noiseStdDn,
                 static_cast<unsigned long long>(s.sensor.seed));
        rows.push_back({ "sensor", text });
    }
    rows.push_back({ kAlgoParaProperty, config.algoParaText });
    snprintf(text, sizeof(text), "drop %u, SR over %u frames, time limit %u ms", params.dropFrames,
             params.verdictFrames, params.timeLimitMs);
    rows.push_back({ "node parameters", text });
    const std::string limitSource =
        config.srLimitSource.empty() ? " (node default)" : " (" + config.srLimitSource + ")";
    rows.push_back({ "SR limit", Fixed(config.srLimitDb, " dB") + limitSource });
    if (config.calibration.enabled)
    {
        rows.push_back({ "gain search", "gyro X " + DescribeAxisSearch(config, false) + ", gyro Y " +
                                            DescribeAxisSearch(config, true) + "; " +
                                            std::to_string(config.calibration.settleFrames) + " settle frames" });
        rows.push_back({ "module", "fuse ID " + config.calibration.fuseId +
                                       (s.ois.swapGyroAxes ? ", gyro X drives the vertical axis" : "") });
    }
    snprintf(text, sizeof(text), "%llu streamed, %u measured, %u failed",
             static_cast<unsigned long long>(result.requests), result.events.measured, result.events.failed);
    rows.push_back({ "session", text });
    rows.push_back({ "final state", std::to_string(result.finalState) + " (" + StateName(result.finalState) + ")" });
    if (result.events.durationMs >= 0)
    {
        rows.push_back({ "measurement time", std::to_string(result.events.durationMs) + " ms" });
    }
    rows.push_back({ "node library", result.nodeLibraryPath });
    return rows;
}

std::string SummaryHtml(const RunConfig& config, const RunResult& result, const Verdict& verdict,
                        const PageFigures& figures, const std::vector<std::string>& files)
{
    const char* pWord = verdict.pass ? "PASS" : "FAIL";
    std::string html  = "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\"/>\n";
    html += "<title>oisverify run: " + std::string(pWord) + "</title>\n<style>" + kStyle + "</style>\n</head>\n<body>\n";
    html += "<h1 class=\"" + std::string(verdict.pass ? "pass" : "fail") + "\">" + pWord + "</h1>";
    html += "<span class=\"headline\">" + XmlEscape(verdict.headline) + "</span>\n";
    if (result.stopSignal != 0)
    {
        html += "<p class=\"interrupted\" id=\"interrupted\"><strong>Interrupted.</strong> The run was " +
                XmlEscape(result.stopReason) + "; this page and the files below hold what it produced until then.</p>\n";
    }
    if (verdict.reasons.size() > 1)
    {
        html += List(verdict.reasons, false);
    }
    if (!verdict.notes.empty())
    {
        html += "<h2>Notes</h2>\n" + List(verdict.notes, false);
    }
    const std::vector<std::string> warnings = RunWarnings(config);
    if (!warnings.empty())
    {
        html += "<h2>Warnings</h2>\n" + List(warnings, false);
    }
    html += RunIdentityHtml(config, result);
    if (figures.calibrationSection.empty())
    {
        html += "<h2>Suppression ratio</h2>\n" + SrTable(config, result);
    }
    html += "<figure>\n" + figures.summarySvg + "</figure>\n" + figures.calibrationSection;
    html += "<h2>Chart</h2>\n";
    html += figures.chartSvg.empty() ? "<p>" + XmlEscape(figures.chartNote) + "</p>\n"
                                     : "<figure>\n" + figures.chartSvg + "</figure>\n";
    html += "<h2>Circle positions</h2>\n<figure>\n" + figures.positionsSvg + "</figure>\n";
    html += "<h2>Parameters</h2>\n<table class=\"params\">\n";
    for (const auto& row : RunParameters(config, result))
    {
        html += "<tr>" + Cell(row.first) + Cell(row.second) + "</tr>\n";
    }
    html += "</table>\n";
    if (!result.events.errors.empty())
    {
        html += "<h2>Node errors</h2>\n" + List(result.events.errors, true);
    }
    html += "<h2>Files</h2>\n" + FileLinks(files);
    return html + "</body>\n</html>\n";
}

} // namespace oisverify
