// The run's figures; see svgfigures.h.
#include "figures/svgfigures.h"

#include <math.h>

#include <algorithm>

#include "figures/svgwriter.h"

namespace oisverify
{

namespace
{

const char kMeasuredColour[] = "#0969da";
const char kTruthColour[]    = "#e16f24";
const char kFailedColour[]   = "#cf222e";
const char kPassColour[]     = "#1a7f37";
const char kBandColour[]     = "#eaeef2";
const char kGridColour[]     = "#d0d7de";
const char kMutedColour[]    = "#57606a";

const char* const kCircleNames[] = { "up", "down", "left", "right" };

constexpr double kPanelWidth   = 440.0;
constexpr double kPanelHeight  = 180.0;
constexpr double kPanelGap     = 10.0;
constexpr double kHeaderHeight = 62.0;
constexpr double kPlotLeft     = 56.0; // inside a panel: room for the y labels
constexpr double kPlotRight    = 12.0;
constexpr double kPlotTop      = 26.0;
constexpr double kPlotBottom   = 32.0;
// Smallest y span shown, so that a nearly still circle is not magnified into noise.
constexpr double kMinSpanPx = 1.0;

double Coordinate(const sim::FourCentres& centres, int circle, bool yAxis)
{
    const sim::Point* points[] = { &centres.up, &centres.down, &centres.left, &centres.right };
    return yAxis ? points[circle]->y : points[circle]->x;
}


struct Panel
{
    LinearScale x;
    LinearScale y;
    double      left, top, right, bottom; // plot area
};

Panel PanelFrame(SvgDocument& svg, const AxisSpan& frames, const AxisSpan& values, double left, double top,
                 const std::string& title)
{
    Panel p{ LinearScale(frames.low, frames.high, left + kPlotLeft, left + kPanelWidth - kPlotRight),
             LinearScale(values.low, values.high, top + kPanelHeight - kPlotBottom, top + kPlotTop),
             left + kPlotLeft, top + kPlotTop, left + kPanelWidth - kPlotRight, top + kPanelHeight - kPlotBottom };
    svg.Text(p.left, top + 16, title, 13, "start", "font-weight=\"bold\"");
    svg.Rect(p.left, p.top, p.right - p.left, p.bottom - p.top, "none", "stroke=\"#8c959f\"");
    for (double tick : NiceTicks(values.low, values.high, 4))
    {
        svg.Line(p.left, p.y(tick), p.right, p.y(tick), kGridColour, 0.5);
        svg.Text(p.left - 6, p.y(tick) + 4, ShortNumber(tick), 10, "end", "fill-opacity=\"0.8\"");
    }
    for (double tick : NiceTicks(frames.low, frames.high, 6))
    {
        svg.Line(p.x(tick), p.bottom, p.x(tick), p.bottom + 4, kMutedColour, 0.8);
        svg.Text(p.x(tick), p.bottom + 16, ShortNumber(tick, 0), 10, "middle");
    }
    svg.Text(p.right, p.bottom + 28, "frame", 10, "end");
    return p;
}

AxisSpan ValueRange(const RunResult& result, int circle, bool yAxis, AxisSpan* pFrames)
{
    AxisSpan values;
    for (const RunFrame& frame : result.frames)
    {
        pFrames->Add(frame.measured.frameNum);
        // A failed frame's coordinates are whatever the algorithm left; they would stretch the axis.
        if (frame.measured.algoReturn == 0)
        {
            values.Add(Coordinate(frame.measured.centres, circle, yAxis));
        }
        if (frame.hasTruth)
        {
            values.Add(Coordinate(frame.truth, circle, yAxis));
        }
    }
    pFrames->Settle(2.0);
    values.Settle(kMinSpanPx);
    return values;
}

void DrawSeries(SvgDocument& svg, const RunResult& result, const Panel& p, int circle, bool yAxis,
                const std::string& id)
{
    std::vector<std::pair<double, double>> truth;
    svg.BeginGroup(id + "-measured");
    for (const RunFrame& frame : result.frames)
    {
        const double x = p.x(frame.measured.frameNum);
        if (frame.hasTruth)
        {
            truth.push_back({ x, p.y(Coordinate(frame.truth, circle, yAxis)) });
        }
        if (frame.measured.algoReturn == 0)
        {
            svg.Circle(x, p.y(Coordinate(frame.measured.centres, circle, yAxis)), 2.2, kMeasuredColour);
        }
    }
    svg.EndGroup();
    svg.BeginGroup(id + "-truth");
    if (!truth.empty())
    {
        svg.Polyline(truth, kTruthColour, 1.4);
    }
    svg.EndGroup();
    svg.BeginGroup(id + "-failed");
    for (const RunFrame& frame : result.frames)
    {
        if (frame.measured.algoReturn != 0)
        {
            svg.Rect(p.x(frame.measured.frameNum) - 1.5, p.bottom - 8, 3, 8, kFailedColour);
        }
    }
    svg.EndGroup();
}

void DrawPanel(SvgDocument& svg, const RunResult& result, int circle, bool yAxis, double left, double top)
{
    AxisSpan             frames;
    const AxisSpan       values = ValueRange(result, circle, yAxis, &frames);
    const std::string id     = std::string(kCircleNames[circle]) + (yAxis ? "-y" : "-x");
    svg.BeginGroup(id);
    const Panel p = PanelFrame(svg, frames, values, left, top,
                               std::string(kCircleNames[circle]) + " circle, " + (yAxis ? "y" : "x") + " (px)");
    // One band per run of SR-window frames: after a gain search the selected gains' measurements.
    const auto inRing = [](const RunFrame& f) { return f.inRing; };
    int        bands  = 0;
    for (auto ring = std::find_if(result.frames.begin(), result.frames.end(), inRing); ring != result.frames.end();
         ring      = std::find_if(ring, result.frames.end(), inRing))
    {
        const auto   last = std::find_if_not(ring, result.frames.end(), inRing) - 1;
        const double from = p.x(ring->measured.frameNum - 0.5);
        const double to   = p.x(last->measured.frameNum + 0.5);
        const std::string suffix = (bands++ == 0) ? "-ring" : "-ring-" + std::to_string(bands);
        svg.Rect(from, p.top + 0.5, to - from, p.bottom - p.top - 1, kBandColour, "id=\"" + id + suffix + "\"");
        ring = last + 1;
    }
    DrawSeries(svg, result, p, circle, yAxis, id);
    svg.EndGroup();
}

void DrawLegend(SvgDocument& svg, bool hasTruth)
{
    double x = kPanelGap;
    svg.Circle(x + 6, 46, 3, kMeasuredColour);
    svg.Text(x + 14, 50, "measured by the node", 12);
    x += 170;
    if (hasTruth)
    {
        svg.Line(x, 46, x + 18, 46, kTruthColour, 2);
        svg.Text(x + 24, 50, "simulator truth", 12);
        x += 140;
    }
    svg.Rect(x, 40, 18, 12, kBandColour, "stroke=\"#8c959f\" stroke-width=\"0.5\"");
    svg.Text(x + 24, 50, "frames of the final SR", 12);
    x += 180;
    svg.Rect(x + 7, 40, 3, 12, kFailedColour);
    svg.Text(x + 16, 50, "frame without the four circles", 12);
}

std::string DbText(float value)
{
    return isfinite(value) ? ShortNumber(value, 2) + " dB" : (isnan(value) ? "NaN" : "inf dB");
}

void DrawBadge(SvgDocument& svg, const Verdict& verdict)
{
    svg.Rect(20, 20, 120, 56, verdict.pass ? kPassColour : kFailedColour, "rx=\"8\"");
    svg.Text(80, 58, verdict.pass ? "PASS" : "FAIL", 30, "middle", "fill=\"#ffffff\" font-weight=\"bold\"");
    // The headline, wrapped at word boundaries into at most three lines.
    std::vector<std::string> lines(1);
    std::string              word;
    for (size_t i = 0; i <= verdict.headline.size(); i++)
    {
        const char c = (i < verdict.headline.size()) ? verdict.headline[i] : ' ';
        if (c != ' ')
        {
            word.push_back(c);
            continue;
        }
        if (lines.back().size() + word.size() > 68 && !lines.back().empty())
        {
            lines.push_back("");
        }
        lines.back() += (lines.back().empty() ? "" : " ") + word;
        word.clear();
    }
    for (size_t i = 0; i < lines.size() && i < 3; i++)
    {
        svg.Text(160, 40 + 18.0 * i, lines[i], 14);
    }
}

// One bar per axis on a dB scale wide enough for the limit and every SR, in steps of 5 dB.
void DrawSrBars(SvgDocument& svg, const RunConfig& config, const std::vector<SrBar>& bars)
{
    double high = std::max(30.0, config.srLimitDb + 6.0);
    double low  = std::min(0.0, config.srLimitDb - 6.0);
    for (const SrBar& bar : bars)
    {
        high = isfinite(bar.srDb) ? std::max(high, bar.srDb + 3.0) : high;
        low  = isfinite(bar.srDb) ? std::min(low, bar.srDb - 3.0) : low;
    }
    high = ceil(high / 5.0) * 5.0;
    low  = floor(low / 5.0) * 5.0;
    const LinearScale x(low, high, 130, 680);
    const auto        clamp = [&](double v) { return x(std::max(low, std::min(high, isnan(v) ? low : v))); };
    for (size_t axis = 0; axis < bars.size() && axis < 2; axis++)
    {
        const SrBar& bar = bars[axis];
        const double y   = 110 + 50.0 * axis;
        svg.BeginGroup(bar.id);
        svg.Text(120, y + 19, bar.name, 13, "end");
        svg.Rect(x(low), y, clamp(bar.srDb) - x(low), 28, bar.srDb >= config.srLimitDb ? kPassColour : kFailedColour,
                 "fill-opacity=\"0.85\"");
        svg.Text(clamp(bar.srDb) + 6, y + 19, DbText(bar.srDb), 13, "start", "font-weight=\"bold\"");
        if (bar.hasTruth)
        {
            svg.Line(clamp(bar.trueSrDb), y - 4, clamp(bar.trueSrDb), y + 32, "#1f2328", 2.5,
                     "id=\"" + bar.id + "-true\"");
            svg.Text(clamp(bar.trueSrDb), y + 43, "true " + DbText(bar.trueSrDb), 10, "middle");
        }
        svg.EndGroup();
    }
    svg.Line(x(config.srLimitDb), 96, x(config.srLimitDb), 206, kMutedColour, 1.5, "stroke-dasharray=\"5,4\"");
    svg.Text(x(config.srLimitDb), 92, "limit " + DbText(static_cast<float>(config.srLimitDb)), 11, "middle");
    for (double tick : NiceTicks(low, high, 8))
    {
        svg.Line(x(tick), 210, x(tick), 214, kMutedColour);
        svg.Text(x(tick), 228, ShortNumber(tick, 1), 10, "middle");
    }
    svg.Text(680, 244, "SR, dB", 10, "end");
}

} // namespace

std::string PositionsSvg(const RunResult& result)
{
    const double width  = 2 * kPanelWidth + 3 * kPanelGap;
    const double height = kHeaderHeight + 4 * kPanelHeight + kPanelGap;
    SvgDocument  svg(width, height, "Circle centres per frame");
    svg.Text(kPanelGap, 24, "Circle centres per frame, crop pixels", 16, "start", "font-weight=\"bold\"");
    if (result.frames.empty())
    {
        svg.Text(kPanelGap, 50, "The node measured no frames.", 13);
        return svg.Finish();
    }
    DrawLegend(svg, result.frames.front().hasTruth);
    for (int circle = 0; circle < 4; circle++)
    {
        for (int axis = 0; axis < 2; axis++)
        {
            DrawPanel(svg, result, circle, axis == 1, kPanelGap + axis * (kPanelWidth + kPanelGap),
                      kHeaderHeight + circle * kPanelHeight);
        }
    }
    return svg.Finish();
}

std::string SummarySvg(const RunConfig& config, const RunResult& result, const Verdict& verdict)
{
    std::vector<SrBar> bars;
    if (result.events.hasSr)
    {
        bars.push_back({ "horizontal", "horizontal", result.horSrDb, result.hasTruth, result.truth.horSrDb });
        bars.push_back({ "vertical", "vertical", result.verSrDb, result.hasTruth, result.truth.verSrDb });
    }
    return SummarySvg(config, bars, verdict);
}

std::string SummarySvg(const RunConfig& config, const std::vector<SrBar>& bars, const Verdict& verdict)
{
    SvgDocument svg(720, 250, verdict.pass ? "PASS" : "FAIL");
    DrawBadge(svg, verdict);
    if (!bars.empty())
    {
        DrawSrBars(svg, config, bars);
    }
    else
    {
        svg.Text(20, 130, "The node published no SR.", 14, "start", "fill-opacity=\"0.8\"");
    }
    return svg.Finish();
}

} // namespace oisverify
