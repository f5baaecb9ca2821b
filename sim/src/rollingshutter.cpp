// Rolling shutter. Row y of the sensor starts its exposure y x readoutS / heightPx after row 0,
// so each row of a disc shows the disc where the chart was during that row's exposure: a disc
// moving sideways is sheared, one moving vertically is stretched or squeezed. Each row is drawn
// from its own exposure path (the same sub-steps as a global-shutter frame), and the truth is the
// darkness centroid of those rows: per row and sub-step, the disc's area inside the row's band
// (its centroid is the disc centre horizontally, and from the band's first moment vertically),
// so the truth is what the rendered frame shows, row for row.
#include "sim/simulator.h"

#include "render.h"

#include <algorithm>
#include <cmath>

namespace sim
{
namespace
{

constexpr int    kRowScanProbes   = 64; // delays looked at to find the rows a disc can reach
constexpr double kRowScanMarginPx = 2.0;

} // namespace

Simulator::RowPaths Simulator::DiscRowPaths(const FrameClock& clock, const ChartDisc& disc) const
{
    // Rows the disc can reach: its centre over the delays of the frame's rows (and half a readout
    // beyond either end, for rows of discs near the frame's edges), padded by its radius.
    const double readoutS = m_scenario.sensor.readoutS;
    double       lo       = HUGE_VAL;
    double       hi       = -HUGE_VAL;
    for (int k = 0; k <= kRowScanProbes; ++k)
    {
        const double delayS = readoutS * (-0.5 + 2.0 * k / kRowScanProbes);
        for (double u : {0.0, 1.0})
        {
            const double y = ChartAt(clock, delayS, u).y + disc.offsetYPx;
            lo             = std::min(lo, y);
            hi             = std::max(hi, y);
        }
    }
    const double reach = disc.radiusPx + 0.5 + kRowScanMarginPx;
    RowPaths     paths;
    paths.firstRow      = static_cast<int>(std::floor(lo - reach));
    paths.rows          = static_cast<int>(std::ceil(hi + reach)) - paths.firstRow + 1;
    const double restY  = m_chartRestPx.y + disc.offsetYPx;
    paths.steps         = SubSteps(clock, m_lineS * restY);
    paths.centres.resize(static_cast<size_t>(paths.rows) * paths.steps);
    for (int r = 0; r < paths.rows; ++r)
    {
        const double delayS = m_lineS * (paths.firstRow + r);
        for (int k = 0; k < paths.steps; ++k)
        {
            const Point c = ChartAt(clock, delayS, (k + 0.5) / paths.steps);
            paths.centres[static_cast<size_t>(r) * paths.steps + k] = {c.x + disc.offsetXPx,
                                                                       c.y + disc.offsetYPx};
        }
    }
    return paths;
}

void Simulator::RasteriseRolling(const FrameClock& clock, const ChartDisc& disc,
                                 detail::CoverageMap& map) const
{
    const RowPaths paths = DiscRowPaths(clock, disc);
    double         minX  = HUGE_VAL;
    double         maxX  = -HUGE_VAL;
    for (const Point& c : paths.centres)
    {
        minX = std::min(minX, c.x);
        maxX = std::max(maxX, c.x);
    }
    const double sigmaPx = m_scenario.optics.defocusSigmaPx;
    const int    blurPx  = detail::GaussianMarginPx(sigmaPx);
    const double margin  = disc.radiusPx + 2.0 + blurPx;
    const int    x0      = static_cast<int>(std::floor(minX - margin));
    const int    x1      = static_cast<int>(std::ceil(maxX + margin));
    map.Reset(x0, paths.firstRow - blurPx, x1 - x0 + 1, paths.rows + 2 * blurPx);
    const double weight = 1.0 / paths.steps;
    for (int r = 0; r < paths.rows; ++r)
    {
        const Point* row = paths.centres.data() + static_cast<size_t>(r) * paths.steps;
        for (int k = 0; k < paths.steps; ++k)
        {
            detail::AddDiscRowCoverage(map, row[k].x, row[k].y, disc.radiusPx,
                                       paths.firstRow + r, weight);
        }
    }
    detail::ApplyGaussianBlur(map, sigmaPx);
}

FrameTruth Simulator::RollingTruth(uint32_t index) const
{
    const FrameClock clock = Clock(index);
    FrameTruth       truth;
    truth.index       = index;
    truth.timestampNs = FrameTimestampNs(index);
    for (const ChartDisc& disc : m_scenario.chart.discs)
    {
        const RowPaths paths = DiscRowPaths(clock, disc);
        double         area = 0.0, momentX = 0.0, momentY = 0.0;
        for (int r = 0; r < paths.rows; ++r)
        {
            const int row = paths.firstRow + r;
            for (int k = 0; k < paths.steps; ++k)
            {
                const Point& c = paths.centres[static_cast<size_t>(r) * paths.steps + k];
                const double a = detail::DiscBandArea(c.y, disc.radiusPx, row);
                area += a;
                momentX += a * c.x;
                momentY += a * c.y + detail::DiscBandMomentY(c.y, disc.radiusPx, row);
            }
        }
        const Point frame = area > 0.0 ? Point{momentX / area, momentY / area} : Point{};
        truth.discsFrame.push_back(frame);
        truth.discsCrop.push_back({frame.x - m_cropOrigin.x, frame.y - m_cropOrigin.y});
        truth.motionPx.x += frame.x - m_chartRestPx.x - disc.offsetXPx;
        truth.motionPx.y += frame.y - m_chartRestPx.y - disc.offsetYPx;
    }
    if (!m_scenario.chart.discs.empty())
    {
        truth.motionPx.x /= static_cast<double>(m_scenario.chart.discs.size());
        truth.motionPx.y /= static_cast<double>(m_scenario.chart.discs.size());
    }
    return truth;
}

} // namespace sim
