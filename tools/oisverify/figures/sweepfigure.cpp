// The SR-versus-frequency figure; see sweepfigure.h.
#include "figures/sweepfigure.h"

#include <algorithm>
#include <utility>

#include "figures/svgwriter.h"

namespace oisverify
{

namespace
{

const char kHorizontalColour[] = "#0969da";
const char kVerticalColour[]   = "#e16f24";
const char kGridColour[]       = "#d0d7de";
const char kMutedColour[]      = "#57606a";

constexpr double kWidth        = 720.0;
constexpr double kHeight       = 420.0;
constexpr double kPlotLeft     = 64.0;
constexpr double kPlotRight    = 20.0;
constexpr double kPlotTop      = 70.0;
constexpr double kPlotBottom   = 48.0;
constexpr double kMinFreqSpanHz = 2.0;
constexpr double kMinSrSpanDb   = 6.0;

struct Series
{
    const char* id;
    const char* colour;
    bool        truth;
    bool        vertical;
};

const Series kSeries[] = { { "node-horizontal", kHorizontalColour, false, false },
                           { "node-vertical", kVerticalColour, false, true },
                           { "true-horizontal", kHorizontalColour, true, false },
                           { "true-vertical", kVerticalColour, true, true } };

bool Value(const SweepPoint& p, const Series& s, double* pSr)
{
    if (s.truth ? !p.hasTruth : !p.hasSr)
    {
        return false;
    }
    *pSr = s.truth ? (s.vertical ? p.trueVerSrDb : p.trueHorSrDb) : (s.vertical ? p.verSrDb : p.horSrDb);
    return true;
}

void DrawSeries(SvgDocument& svg, const std::vector<SweepPoint>& points, const Series& s, const LinearScale& freq,
                const LinearScale& sr, const AxisSpan& srs)
{
    const std::string ring = "stroke=\"" + std::string(s.colour) + "\" stroke-width=\"1.5\"";
    std::vector<std::pair<double, double>> line;
    svg.BeginGroup(s.id);
    for (const SweepPoint& p : points)
    {
        double value = 0.0;
        if (!Value(p, s, &value))
        {
            continue;
        }
        const double x = freq(p.frequencyHz);
        const double y = sr(std::max(srs.low, std::min(srs.high, value)));
        line.push_back({ x, y });
        s.truth ? svg.Circle(x, y, 5.5, "none", ring) : svg.Circle(x, y, 3.5, s.colour);
    }
    if (line.size() > 1)
    {
        svg.Polyline(line, s.colour, 1.2, s.truth ? "stroke-dasharray=\"4,3\"" : "stroke-opacity=\"0.7\"");
    }
    svg.EndGroup();
}

void DrawLegend(SvgDocument& svg)
{
    svg.Circle(kPlotLeft + 6, 46, 3.5, kHorizontalColour);
    svg.Text(kPlotLeft + 14, 50, "horizontal", 12);
    svg.Circle(kPlotLeft + 106, 46, 3.5, kVerticalColour);
    svg.Text(kPlotLeft + 114, 50, "vertical: SR the node measured", 12);
    svg.Circle(kPlotLeft + 326, 46, 5.5, "none", "stroke=\"" + std::string(kMutedColour) + "\"");
    svg.Text(kPlotLeft + 336, 50, "true SR", 12);
    svg.Line(kPlotLeft + 406, 46, kPlotLeft + 424, 46, kMutedColour, 1.5, "stroke-dasharray=\"5,4\"");
    svg.Text(kPlotLeft + 430, 50, "SR limit", 12);
}

} // namespace

std::string SweepSvg(const std::vector<SweepPoint>& points, double limitDb)
{
    SvgDocument svg(kWidth, kHeight, "SR against shake frequency");
    svg.Text(kPlotLeft, 24, "SR against shake frequency", 16, "start", "font-weight=\"bold\"");
    AxisSpan freqs, srs;
    srs.Add(limitDb);
    for (const SweepPoint& p : points)
    {
        freqs.Add(p.frequencyHz);
        for (const Series& s : kSeries)
        {
            double value = 0.0;
            if (Value(p, s, &value))
            {
                srs.Add(value);
            }
        }
    }
    freqs.Settle(kMinFreqSpanHz);
    srs.Settle(kMinSrSpanDb);
    DrawLegend(svg);
    const double      left = kPlotLeft, right = kWidth - kPlotRight, top = kPlotTop, bottom = kHeight - kPlotBottom;
    const LinearScale freq(freqs.low, freqs.high, left, right);
    const LinearScale sr(srs.low, srs.high, bottom, top);
    svg.Rect(left, top, right - left, bottom - top, "none", "stroke=\"#8c959f\"");
    for (double tick : NiceTicks(srs.low, srs.high, 6))
    {
        svg.Line(left, sr(tick), right, sr(tick), kGridColour, 0.5);
        svg.Text(left - 6, sr(tick) + 4, ShortNumber(tick, 1), 10, "end");
    }
    for (double tick : NiceTicks(freqs.low, freqs.high, 8))
    {
        svg.Line(freq(tick), bottom, freq(tick), bottom + 4, kMutedColour, 0.8);
        svg.Text(freq(tick), bottom + 16, ShortNumber(tick, 1), 10, "middle");
    }
    svg.Text(right, bottom + 34, "shake frequency, Hz", 10, "end");
    svg.Text(left - 48, top - 8, "SR, dB", 10, "start");
    svg.BeginGroup("limit");
    svg.Line(left, sr(limitDb), right, sr(limitDb), kMutedColour, 1.5, "stroke-dasharray=\"5,4\"");
    svg.Text(left + 4, sr(limitDb) - 5, "limit " + ShortNumber(limitDb) + " dB", 10, "start");
    svg.EndGroup();
    for (const Series& s : kSeries)
    {
        DrawSeries(svg, points, s, freq, sr, srs);
    }
    return svg.Finish();
}

} // namespace oisverify
