// The figures of a yield page; see yieldfigures.h.
#include "yield/yieldfigures.h"

#include <math.h>

#include <algorithm>

#include "figures/svgwriter.h"

namespace oisverify
{

namespace
{

constexpr double kWidth   = 460.0;
constexpr double kHeight  = 300.0;
constexpr double kLeft    = 56.0;
constexpr double kRight   = 16.0;
constexpr double kTop     = 34.0;
constexpr double kBottom  = 46.0;
const char       kBeforeColour[] = "#8c959f";
const char       kAfterColour[]  = "#0969da";
const char       kLimitColour[]  = "#cf222e";
constexpr size_t kMaxScatterPoints = 4000;

void Axes(SvgDocument& svg, const LinearScale& x, const LinearScale& y, double xLow, double xHigh, double yLow,
          double yHigh, const std::string& xLabel, const std::string& yLabel)
{
    svg.Line(kLeft, kHeight - kBottom, kWidth - kRight, kHeight - kBottom, "#57606a");
    svg.Line(kLeft, kTop, kLeft, kHeight - kBottom, "#57606a");
    for (double tick : NiceTicks(xLow, xHigh, 6))
    {
        svg.Line(x(tick), kHeight - kBottom, x(tick), kHeight - kBottom + 4, "#57606a");
        svg.Text(x(tick), kHeight - kBottom + 16, ShortNumber(tick, 3), 10, "middle");
    }
    for (double tick : NiceTicks(yLow, yHigh, 5))
    {
        svg.Line(kLeft - 4, y(tick), kLeft, y(tick), "#57606a");
        svg.Text(kLeft - 6, y(tick) + 3, ShortNumber(tick, 3), 10, "end");
    }
    svg.Text((kLeft + kWidth - kRight) / 2, kHeight - 8, xLabel, 11, "middle");
    svg.Text(14, (kTop + kHeight - kBottom) / 2, yLabel, 11, "middle",
             "transform=\"rotate(-90 14 " + ShortNumber((kTop + kHeight - kBottom) / 2) + ")\"");
}

} // namespace

std::string SrHistogramSvg(const std::string& id, const std::string& title, const AxisStats& before,
                           const AxisStats& after, double limitDb)
{
    std::vector<double> all = before.values;
    all.insert(all.end(), after.values.begin(), after.values.end());
    const Histogram shape  = AutoHistogram(all, limitDb, kHistogramBinDb, kMaxHistogramBins);
    const Histogram first  = MakeHistogram(before.values, shape.low, shape.width, shape.counts.size());
    const Histogram second = MakeHistogram(after.values, shape.low, shape.width, shape.counts.size());
    size_t          peak   = 1;
    for (size_t i = 0; i < shape.counts.size(); i++)
    {
        peak = std::max({ peak, first.counts[i], second.counts[i] });
    }
    SvgDocument svg(kWidth, kHeight, title);
    svg.Text(kLeft, 20, title, 13, "start", "font-weight=\"bold\"");
    const LinearScale x(shape.low, shape.High(), kLeft, kWidth - kRight);
    const LinearScale y(0.0, static_cast<double>(peak) * 1.1, kHeight - kBottom, kTop);
    Axes(svg, x, y, shape.low, shape.High(), 0.0, static_cast<double>(peak) * 1.1, "SR (dB)", "modules");
    const double barWidth = std::max((x(shape.width) - x(0.0)) / 2.0 - 1.0, 0.5);
    const std::pair<const Histogram*, const char*> series[] = { { &first, kBeforeColour }, { &second, kAfterColour } };
    for (size_t s = 0; s < 2; s++)
    {
        svg.BeginGroup(id + (s == 0 ? "-before" : "-after"));
        for (size_t i = 0; i < shape.counts.size(); i++)
        {
            const size_t count = series[s].first->counts[i];
            if (count == 0)
            {
                continue;
            }
            const double left = x(shape.low + shape.width * static_cast<double>(i)) + 0.5 + barWidth * static_cast<double>(s);
            svg.Rect(left, y(static_cast<double>(count)), barWidth, y(0.0) - y(static_cast<double>(count)),
                     series[s].second, "data-count=\"" + std::to_string(count) + "\"");
        }
        svg.EndGroup();
    }
    svg.BeginGroup(id + "-limit");
    svg.Line(x(limitDb), kTop, x(limitDb), kHeight - kBottom, kLimitColour, 1.5, "stroke-dasharray=\"5 3\"");
    svg.Text(x(limitDb) + 3, kTop + 10, "limit " + ShortNumber(limitDb) + " dB", 10, "start",
             "fill=\"" + std::string(kLimitColour) + "\"");
    svg.EndGroup();
    svg.Rect(kWidth - 150, 8, 10, 10, kBeforeColour);
    svg.Text(kWidth - 136, 17, "before calibration", 10);
    svg.Rect(kWidth - 150, 22, 10, 10, kAfterColour);
    svg.Text(kWidth - 136, 31, "after", 10);
    return svg.Finish();
}

std::string ScatterSvg(const std::string& title, const std::string& xLabel, const std::string& yLabel,
                       const std::vector<ScatterSeries>& series)
{
    AxisSpan span;
    for (const ScatterSeries& one : series)
    {
        for (const auto& point : one.points)
        {
            span.Add(point.first);
            span.Add(point.second);
        }
    }
    span.Settle(0.1);
    SvgDocument svg(kWidth, kHeight, title);
    svg.Text(kLeft, 20, title, 13, "start", "font-weight=\"bold\"");
    const LinearScale x(span.low, span.high, kLeft, kWidth - kRight);
    const LinearScale y(span.low, span.high, kHeight - kBottom, kTop);
    Axes(svg, x, y, span.low, span.high, span.low, span.high, xLabel, yLabel);
    svg.Line(x(span.low), y(span.low), x(span.high), y(span.high), "#d0d7de", 1.0, "stroke-dasharray=\"4 3\"");
    double legendY = 17;
    for (const ScatterSeries& one : series)
    {
        if (one.points.empty())
        {
            continue;
        }
        svg.BeginGroup(one.id);
        // A page over a large collection shows an even sample; the CSV has every module.
        const size_t every = one.points.size() / kMaxScatterPoints + 1;
        for (size_t i = 0; i < one.points.size(); i += every)
        {
            svg.Circle(x(one.points[i].first), y(one.points[i].second), 2.5, one.colour, "fill-opacity=\"0.6\"");
        }
        svg.EndGroup();
        svg.Circle(kWidth - 140, legendY - 4, 4, one.colour);
        svg.Text(kWidth - 132, legendY, one.name, 10);
        legendY += 14;
    }
    return svg.Finish();
}

std::string GainScatterSvg(const std::vector<ModuleRecord>& records)
{
    ScatterSeries gainX{ "gain-x", "gyro X", kAfterColour, {} };
    ScatterSeries gainY{ "gain-y", "gyro Y", "#bf8700", {} };
    for (const ModuleRecord& record : records)
    {
        if (record.hasSelection && record.hasIdeal)
        {
            gainX.points.push_back({ record.idealX, record.selectedX });
            gainY.points.push_back({ record.idealY, record.selectedY });
        }
    }
    return ScatterSvg("Selected against ideal gain", "ideal gain", "selected gain", { gainX, gainY });
}

std::string TruthScatterSvg(const std::vector<ModuleRecord>& records)
{
    ScatterSeries hor{ "sr-horizontal", "horizontal", kAfterColour, {} };
    ScatterSeries ver{ "sr-vertical", "vertical", "#bf8700", {} };
    for (const ModuleRecord& record : records)
    {
        if (record.hasTruth && record.hasAfter)
        {
            hor.points.push_back({ record.trueHorDb, record.afterHorDb });
            ver.points.push_back({ record.trueVerDb, record.afterVerDb });
        }
    }
    return ScatterSvg("Node SR against true SR", "true SR (dB)", "node SR (dB)", { hor, ver });
}

} // namespace oisverify
