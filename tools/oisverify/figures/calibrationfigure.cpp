// The SR-versus-gain figure; see calibrationfigure.h.
#include "figures/calibrationfigure.h"

#include <math.h>
#include <stdio.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "figures/svgwriter.h"

namespace oisverify
{

namespace
{

const char kTriedColour[]    = "#0969da";
const char kIdealColour[]    = "#e16f24";
const char kSelectedColour[] = "#1a7f37";
const char kGridColour[]     = "#d0d7de";
const char kMutedColour[]    = "#57606a";

constexpr double kPanelWidth   = 440.0;
constexpr double kPanelHeight  = 300.0;
constexpr double kPanelGap     = 10.0;
constexpr double kHeaderHeight = 62.0;
constexpr double kPlotLeft     = 56.0; // inside a panel: room for the SR labels
constexpr double kPlotRight    = 14.0;
constexpr double kPlotTop      = 30.0;
constexpr double kPlotBottom   = 40.0;
// Smallest spans shown, so that a search of nearly equal results is not magnified into noise.
constexpr double kMinGainSpan = 0.1;
constexpr double kMinSrSpanDb = 6.0;
constexpr double kLabelHeadroom = 0.12; // of the SR span


// The tried (gain, SR) points of one gyro axis, in gain order.
std::vector<std::pair<double, double>> AxisPoints(const CalibrationOutcome& outcome, bool yAxis)
{
    std::vector<std::pair<double, double>> points;
    for (const SearchRecord& r : outcome.records)
    {
        points.push_back({ yAxis ? r.gainY : r.gainX, yAxis ? r.srYDb : r.srXDb });
    }
    std::stable_sort(points.begin(), points.end(),
                     [](const std::pair<double, double>& a, const std::pair<double, double>& b) {
                         return a.first < b.first;
                     });
    return points;
}

struct Plot
{
    LinearScale gain;
    LinearScale sr;
    double      left, top, right, bottom;
};

Plot DrawFrame(SvgDocument& svg, const AxisSpan& gains, const AxisSpan& srs, double left, const std::string& title)
{
    const double top = kHeaderHeight;
    Plot p{ LinearScale(gains.low, gains.high, left + kPlotLeft, left + kPanelWidth - kPlotRight),
            LinearScale(srs.low, srs.high, top + kPanelHeight - kPlotBottom, top + kPlotTop),
            left + kPlotLeft, top + kPlotTop, left + kPanelWidth - kPlotRight, top + kPanelHeight - kPlotBottom };
    svg.Text(p.left, top + 16, title, 13, "start", "font-weight=\"bold\"");
    svg.Rect(p.left, p.top, p.right - p.left, p.bottom - p.top, "none", "stroke=\"#8c959f\"");
    for (double tick : NiceTicks(srs.low, srs.high, 5))
    {
        svg.Line(p.left, p.sr(tick), p.right, p.sr(tick), kGridColour, 0.5);
        svg.Text(p.left - 6, p.sr(tick) + 4, ShortNumber(tick, 1), 10, "end");
    }
    for (double tick : NiceTicks(gains.low, gains.high, 6))
    {
        svg.Line(p.gain(tick), p.bottom, p.gain(tick), p.bottom + 4, kMutedColour, 0.8);
        svg.Text(p.gain(tick), p.bottom + 16, ShortNumber(tick, 2), 10, "middle");
    }
    svg.Text(p.right, p.bottom + 30, "gyro gain", 10, "end");
    return p;
}

// The SR of every tried gain as dots joined in gain order; SRs off the scale sit on its edge.
void DrawTried(SvgDocument& svg, const Plot& p, const AxisSpan& srs, const std::vector<std::pair<double, double>>& points,
               const std::string& id)
{
    std::vector<std::pair<double, double>> line;
    svg.BeginGroup(id + "-tried");
    for (const auto& point : points)
    {
        const double x = p.gain(point.first);
        const double y = p.sr(std::max(srs.low, std::min(srs.high, point.second)));
        line.push_back({ x, y });
        svg.Circle(x, y, 3.5, kTriedColour);
    }
    if (line.size() > 1)
    {
        svg.Polyline(line, kTriedColour, 1.2, "stroke-opacity=\"0.6\"");
    }
    svg.EndGroup();
}

void DrawAxis(SvgDocument& svg, const RunConfig& config, const CalibrationOutcome& outcome, bool yAxis, double left)
{
    const std::string id     = yAxis ? "gyro-y" : "gyro-x";
    const double      ideal  = yAxis ? outcome.idealY : outcome.idealX;
    const auto        points = AxisPoints(outcome, yAxis);
    AxisSpan              gains, srs;
    gains.Add(ideal);
    srs.Add(config.srLimitDb);
    for (const auto& point : points)
    {
        gains.Add(point.first);
        srs.Add(point.second);
    }
    gains.Settle(kMinGainSpan);
    srs.Settle(kMinSrSpanDb);
    // Headroom for the label above the selected point.
    srs.high += kLabelHeadroom * (srs.high - srs.low);
    svg.BeginGroup(id);
    const Plot p = DrawFrame(svg, gains, srs, left, yAxis ? "gyro Y: SR in dB per gain" : "gyro X: SR in dB per gain");
    svg.BeginGroup(id + "-limit");
    svg.Line(p.left, p.sr(config.srLimitDb), p.right, p.sr(config.srLimitDb), kMutedColour, 1.5,
             "stroke-dasharray=\"5,4\"");
    svg.Text(p.left + 4, p.sr(config.srLimitDb) - 5, "limit " + ShortNumber(config.srLimitDb) + " dB", 10, "start");
    svg.EndGroup();
    svg.BeginGroup(id + "-ideal");
    svg.Line(p.gain(ideal), p.top, p.gain(ideal), p.bottom, kIdealColour, 1.5);
    svg.Text(p.gain(ideal) + 4, p.bottom - 6, "ideal " + ShortNumber(ideal, 3), 10, "start");
    svg.EndGroup();
    DrawTried(svg, p, srs, points, id);
    svg.BeginGroup(id + "-selected");
    if (outcome.hasSelection)
    {
        const double gain = yAxis ? outcome.selection.gainY : outcome.selection.gainX;
        const double sr   = yAxis ? outcome.selection.srYDb : outcome.selection.srXDb;
        const double y    = p.sr(std::max(srs.low, std::min(srs.high, sr)));
        char         label[48];
        snprintf(label, sizeof(label), "selected %.2f", gain);
        svg.Circle(p.gain(gain), y, 8, "none", "stroke=\"" + std::string(kSelectedColour) + "\" stroke-width=\"2.5\"");
        svg.Text(p.gain(gain), y - 13, label, 11, "middle",
                 "font-weight=\"bold\" fill=\"" + std::string(kSelectedColour) + "\"");
    }
    svg.EndGroup();
    svg.EndGroup();
}

} // namespace

std::string CalibrationSvg(const RunConfig& config, const CalibrationOutcome& outcome)
{
    const double width  = 2 * kPanelWidth + 3 * kPanelGap;
    const double height = kHeaderHeight + kPanelHeight + kPanelGap;
    SvgDocument  svg(width, height, "SR against gyro gain");
    svg.Text(kPanelGap, 24, "SR against gyro gain, per gyro axis", 16, "start", "font-weight=\"bold\"");
    if (outcome.records.empty())
    {
        svg.Text(kPanelGap, 50, "The node measured no gain pairs.", 13);
        return svg.Finish();
    }
    svg.Circle(kPanelGap + 6, 46, 3.5, kTriedColour);
    svg.Text(kPanelGap + 14, 50, "SR the node measured per tried gain", 12);
    svg.Line(kPanelGap + 250, 46, kPanelGap + 268, 46, kIdealColour, 2);
    svg.Text(kPanelGap + 274, 50, "ideal gain of the simulated module", 12);
    svg.Circle(kPanelGap + 506, 46, 6, "none", "stroke=\"" + std::string(kSelectedColour) + "\" stroke-width=\"2\"");
    svg.Text(kPanelGap + 518, 50, "selected gain", 12);
    svg.Line(kPanelGap + 620, 46, kPanelGap + 638, 46, kMutedColour, 1.5, "stroke-dasharray=\"5,4\"");
    svg.Text(kPanelGap + 644, 50, "SR limit", 12);
    DrawAxis(svg, config, outcome, false, kPanelGap);
    DrawAxis(svg, config, outcome, true, 2 * kPanelGap + kPanelWidth);
    return svg.Finish();
}

} // namespace oisverify
