// Session simulator: exposure sampling, truth, ground truth of a window, and frame rendering. An
// exposure is sampled at sub-steps no more than a quarter pixel of motion apart; each sub-step
// rasterises the discs exactly and the frame shows their average, which is how a sensor integrates
// motion.
#include "sim/simulator.h"

#include "render.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

namespace sim
{
namespace
{

constexpr double kSubStepPx       = 0.25;
constexpr int    kMaxSubSteps     = 512;
constexpr int    kPathProbeSteps  = 16; // coarse look at the path to choose the sub-step count
constexpr double kSamePhaseTolPx  = 1e-9;
constexpr int    kMinFrameSidePx  = 16;
constexpr double kDefaultFpsHz    = 60.0;
constexpr double kMaxSizeInFrames = 4.0; // largest disc, shake or smear, in frame sides

int ResolveCropSide(const SensorConfig& sensor)
{
    const int shorter = std::min(sensor.widthPx, sensor.heightPx);
    if (sensor.cropSidePx > 0)
    {
        return std::min(sensor.cropSidePx, shorter);
    }
    if (sensor.widthPx == sensor.heightPx)
    {
        return shorter;
    }
    const int nodeSide = NodeCropSide(sensor.widthPx, sensor.heightPx);
    return nodeSide > 0 ? nodeSide : shorter / 2;
}

Scenario Sanitised(Scenario s)
{
    SensorConfig& sensor = s.sensor;
    sensor.widthPx       = std::max(sensor.widthPx, kMinFrameSidePx);
    sensor.heightPx      = std::max(sensor.heightPx, kMinFrameSidePx);
    sensor.strideBytes   = std::max(sensor.strideBytes, sensor.widthPx);
    sensor.scanlineRows  = std::max(sensor.scanlineRows, sensor.heightPx);
    if (!(sensor.frameRateHz > 0.0))
    {
        sensor.frameRateHz = kDefaultFpsHz;
    }
    sensor.exposureS  = std::max(0.0, sensor.exposureS);
    // A readout longer than the frame period cannot run at that frame rate.
    sensor.readoutS = std::isfinite(sensor.readoutS)
                          ? std::clamp(sensor.readoutS, 0.0, 1.0 / sensor.frameRateHz)
                          : 0.0;
    sensor.noiseStdDn = std::max(0.0, sensor.noiseStdDn);
    sensor.cropSidePx = ResolveCropSide(sensor);
    if (s.chart.discs.empty())
    {
        s.chart.discs = MakeFourDiscChart(sensor.cropSidePx).discs;
    }
    // Sizes far beyond the frame only cost memory and time: keep them within a few frames.
    const double limitPx = kMaxSizeInFrames * std::max(sensor.widthPx, sensor.heightPx);
    for (ChartDisc& disc : s.chart.discs)
    {
        disc.radiusPx = std::clamp(disc.radiusPx, 0.0, limitPx);
    }
    for (double* size : {&s.optics.motionBlurXPx, &s.optics.motionBlurYPx, &s.shake.amplitudeXPx,
                         &s.shake.amplitudeYPx})
    {
        *size = std::clamp(*size, -limitPx, limitPx);
    }
    s.optics.defocusSigmaPx = std::clamp(s.optics.defocusSigmaPx, 0.0, limitPx / kMaxSizeInFrames);
    OisModuleConfig& ois    = s.ois;
    if (!(ois.servoBandwidthHz >= 0.0) || !(ois.servoDampingRatio > 0.0))
    {
        ois.servoBandwidthHz = 0.0; // an ideal servo stands in
    }
    ois.strokeLimitPx = ois.strokeLimitPx >= 0.0 ? ois.strokeLimitPx : 0.0;
    return s;
}

// Discs with one radius whose offsets differ by whole pixels look the same on the pixel grid:
// rasterise the first, place the others as shifted copies. Under a rolling shutter only discs on
// the same rows are exposed at the same times.
std::vector<size_t> GroupAnchors(const Chart& chart, bool rolling)
{
    std::vector<size_t> anchorOf(chart.discs.size());
    for (size_t d = 0; d < chart.discs.size(); ++d)
    {
        anchorOf[d] = d;
        for (size_t a = 0; a < d; ++a)
        {
            const ChartDisc& da = chart.discs[a];
            const ChartDisc& dd = chart.discs[d];
            const double     sx = dd.offsetXPx - da.offsetXPx;
            const double     sy = dd.offsetYPx - da.offsetYPx;
            if (anchorOf[a] == a && da.radiusPx == dd.radiusPx &&
                std::fabs(sx - std::round(sx)) < kSamePhaseTolPx &&
                std::fabs(sy - std::round(sy)) < kSamePhaseTolPx && !(rolling && sy != 0.0))
            {
                anchorOf[d] = a;
                break;
            }
        }
    }
    return anchorOf;
}

void RasteriseDisc(const ChartDisc& disc, const std::vector<Point>& path, double defocusSigmaPx,
                   detail::CoverageMap& map)
{
    double minX = path.front().x, maxX = minX, minY = path.front().y, maxY = minY;
    for (const Point& p : path)
    {
        minX = std::min(minX, p.x);
        maxX = std::max(maxX, p.x);
        minY = std::min(minY, p.y);
        maxY = std::max(maxY, p.y);
    }
    const double margin = disc.radiusPx + 2.0 + detail::GaussianMarginPx(defocusSigmaPx);
    const int    x0     = static_cast<int>(std::floor(minX + disc.offsetXPx - margin));
    const int    y0     = static_cast<int>(std::floor(minY + disc.offsetYPx - margin));
    const int    x1     = static_cast<int>(std::ceil(maxX + disc.offsetXPx + margin));
    const int    y1     = static_cast<int>(std::ceil(maxY + disc.offsetYPx + margin));
    map.Reset(x0, y0, x1 - x0 + 1, y1 - y0 + 1);
    const double weight = 1.0 / static_cast<double>(path.size());
    for (const Point& p : path)
    {
        detail::AddDiscCoverage(map, p.x + disc.offsetXPx, p.y + disc.offsetYPx, disc.radiusPx,
                                weight);
    }
    detail::ApplyGaussianBlur(map, defocusSigmaPx);
}

} // namespace

std::string ValidateScenario(const Scenario& s)
{
    const SensorConfig& sensor = s.sensor;
    if (sensor.widthPx < kMinFrameSidePx || sensor.heightPx < kMinFrameSidePx)
    {
        return "frame smaller than 16 pixels";
    }
    if ((sensor.strideBytes != 0 && sensor.strideBytes < sensor.widthPx) ||
        (sensor.scanlineRows != 0 && sensor.scanlineRows < sensor.heightPx))
    {
        return "stride or scanline smaller than the frame";
    }
    if (!(sensor.frameRateHz > 0.0) || sensor.exposureS < 0.0 || sensor.noiseStdDn < 0.0)
    {
        return "frame rate, exposure or noise out of range";
    }
    if (sensor.cropSidePx > std::min(sensor.widthPx, sensor.heightPx))
    {
        return "crop larger than the frame";
    }
    if (!(sensor.readoutS >= 0.0) || sensor.readoutS > 1.0 / sensor.frameRateHz)
    {
        return "rolling-shutter readout negative or longer than the frame period";
    }
    if (!(s.ois.servoBandwidthHz >= 0.0) || !(s.ois.servoDampingRatio > 0.0) ||
        !(s.ois.strokeLimitPx >= 0.0))
    {
        return "servo bandwidth, damping ratio or stroke limit out of range";
    }
    for (const ChartDisc& disc : s.chart.discs)
    {
        if (!(disc.radiusPx > 0.0))
        {
            return "chart disc without a positive radius";
        }
    }
    return {};
}

Simulator::Simulator(const Scenario& scenario)
    : m_scenario(Sanitised(scenario)),
      m_motion(m_scenario.shake, m_scenario.ois, m_scenario.sensor.seed)
{
    const SensorConfig& sensor = m_scenario.sensor;
    m_cropSide                 = sensor.cropSidePx;
    m_cropOrigin               = CentreCropOrigin(sensor.widthPx, sensor.heightPx, m_cropSide);
    const double centre        = 0.5 * (m_cropSide - 1);
    m_chartRestPx              = {m_cropOrigin.x + centre + m_scenario.optics.chartOffsetXPx,
                                  m_cropOrigin.y + centre + m_scenario.optics.chartOffsetYPx};
    m_gainChanges.push_back({0, m_scenario.ois.gainX, m_scenario.ois.gainY});
    m_lineS  = sensor.readoutS / sensor.heightPx;
    m_canvas = std::make_shared<const detail::Canvas>(Look(), sensor.widthPx, sensor.heightPx);
}

int64_t Simulator::FrameTimestampNs(uint32_t index) const
{
    return m_scenario.sensor.startTimestampNs +
           std::llround(static_cast<double>(index) * 1e9 / m_scenario.sensor.frameRateHz);
}

void Simulator::SetGyroGains(double gainX, double gainY, uint32_t fromFrame)
{
    std::lock_guard<std::mutex> lock(m_gainLock);
    // A new setting replaces any later ones: gains are applied in time order.
    while (m_gainChanges.size() > 1 && m_gainChanges.back().fromFrame >= fromFrame)
    {
        m_gainChanges.pop_back();
    }
    if (m_gainChanges.back().fromFrame >= fromFrame)
    {
        m_gainChanges.back() = {fromFrame, gainX, gainY};
    }
    else
    {
        m_gainChanges.push_back({fromFrame, gainX, gainY});
    }
}

Simulator::GainChange Simulator::GainsAt(uint32_t index) const
{
    std::lock_guard<std::mutex> lock(m_gainLock);
    GainChange                  current = m_gainChanges.front();
    for (const GainChange& change : m_gainChanges)
    {
        if (change.fromFrame <= index)
        {
            current = change;
        }
    }
    return current;
}

Simulator::FrameClock Simulator::Clock(uint32_t index) const
{
    return {static_cast<double>(index) / m_scenario.sensor.frameRateHz, GainsAt(index),
            m_motion.FloorPx(index)};
}

// u runs over the exposure from 0 to 1; the extra linear smear is centred on it.
Point Simulator::ChartAt(const FrameClock& clock, double delayS, double u) const
{
    const OpticsConfig& optics = m_scenario.optics;
    const Point         r      = m_motion.ResidualPx(
        clock.startS + delayS + u * m_scenario.sensor.exposureS, clock.gains.gainX,
        clock.gains.gainY);
    return {m_chartRestPx.x + r.x + clock.floorPx.x + optics.motionBlurXPx * (u - 0.5),
            m_chartRestPx.y + r.y + clock.floorPx.y + optics.motionBlurYPx * (u - 0.5)};
}

int Simulator::SubSteps(const FrameClock& clock, double delayS) const
{
    double length = 0.0;
    Point  prev   = ChartAt(clock, delayS, 0.0);
    for (int s = 1; s <= kPathProbeSteps; ++s)
    {
        const Point p = ChartAt(clock, delayS, static_cast<double>(s) / kPathProbeSteps);
        length += std::hypot(p.x - prev.x, p.y - prev.y);
        prev = p;
    }
    return static_cast<int>(
        std::clamp(std::ceil(length / kSubStepPx), 1.0, static_cast<double>(kMaxSubSteps)));
}

std::vector<Point> Simulator::ExposurePath(uint32_t index) const
{
    const FrameClock   clock = Clock(index);
    const int          steps = SubSteps(clock, 0.0);
    std::vector<Point> path(steps);
    for (int k = 0; k < steps; ++k)
    {
        path[k] = ChartAt(clock, 0.0, (k + 0.5) / steps);
    }
    return path;
}

FrameTruth Simulator::Truth(uint32_t index) const
{
    if (Rolling())
    {
        return RollingTruth(index);
    }
    const std::vector<Point> path = ExposurePath(index);
    Point                    mean;
    for (const Point& p : path)
    {
        mean.x += p.x;
        mean.y += p.y;
    }
    mean.x /= static_cast<double>(path.size());
    mean.y /= static_cast<double>(path.size());
    FrameTruth truth;
    truth.index       = index;
    truth.timestampNs = FrameTimestampNs(index);
    truth.motionPx    = {mean.x - m_chartRestPx.x, mean.y - m_chartRestPx.y};
    for (const ChartDisc& disc : m_scenario.chart.discs)
    {
        const Point frame = {mean.x + disc.offsetXPx, mean.y + disc.offsetYPx};
        truth.discsFrame.push_back(frame);
        truth.discsCrop.push_back({frame.x - m_cropOrigin.x, frame.y - m_cropOrigin.y});
    }
    return truth;
}

BlurSr Simulator::TrueBlurSr(uint32_t firstFrame, uint32_t count) const
{
    std::vector<FourCentres> window;
    window.reserve(count);
    for (uint32_t i = 0; i < count; ++i)
    {
        window.push_back(Truth(firstFrame + i).CropCentres());
    }
    return ComputeBlurSr(window);
}

void Simulator::RenderLuma(uint32_t index, uint8_t* luma, int stride, RenderPath renderPath) const
{
    const SensorConfig& sensor = m_scenario.sensor;
    const Chart&        chart  = m_scenario.chart;
    if (luma == nullptr || stride < sensor.widthPx)
    {
        return;
    }
    const FrameClock                    clock    = Clock(index);
    const std::vector<Point>            path     = Rolling() ? std::vector<Point>{} : ExposurePath(index);
    const std::vector<size_t>           anchorOf = GroupAnchors(chart, Rolling());
    std::vector<detail::CoverageMap>    maps(chart.discs.size());
    std::vector<detail::PlacedCoverage> placed;
    for (size_t d = 0; d < chart.discs.size(); ++d)
    {
        const size_t a = anchorOf[d];
        if (a == d && Rolling())
        {
            RasteriseRolling(clock, chart.discs[d], maps[d]);
        }
        else if (a == d)
        {
            RasteriseDisc(chart.discs[d], path, m_scenario.optics.defocusSigmaPx, maps[d]);
        }
        const int shiftX =
            static_cast<int>(std::lround(chart.discs[d].offsetXPx - chart.discs[a].offsetXPx));
        const int shiftY =
            static_cast<int>(std::lround(chart.discs[d].offsetYPx - chart.discs[a].offsetYPx));
        placed.push_back({&maps[a], shiftX, shiftY});
    }
    if (renderPath == RenderPath::Full)
    {
        detail::ComposeLumaFull(*m_canvas, index, placed, luma, sensor.heightPx, stride);
    }
    else
    {
        detail::ComposeLumaCached(*m_canvas, index, placed, luma, sensor.heightPx, stride);
    }
}

detail::LumaLook Simulator::Look() const
{
    detail::LumaLook look;
    look.paperDn    = m_scenario.chart.paperDn;
    look.inkDn      = m_scenario.chart.inkDn;
    look.noiseStdDn = m_scenario.sensor.noiseStdDn;
    look.seed       = m_scenario.sensor.seed;
    // The optical axis is the crop centre, and the corner gain is reached at the crop's
    // corners, half a diagonal away.
    look.lightCentreX         = m_cropOrigin.x + 0.5 * (m_cropSide - 1);
    look.lightCentreY         = m_cropOrigin.y + 0.5 * (m_cropSide - 1);
    const double cornerDistSq = 0.5 * static_cast<double>(m_cropSide) * m_cropSide;
    look.vignetteK            = (1.0 - m_scenario.optics.vignetteCornerGain) / cornerDistSq;
    return look;
}

bool Simulator::RenderNv12(uint32_t index, uint8_t* buffer, size_t bufferSize) const
{
    const SensorConfig& sensor = m_scenario.sensor;
    const size_t        needed = Nv12BufferSize(sensor.strideBytes, sensor.scanlineRows);
    if (buffer == nullptr || bufferSize < needed)
    {
        return false;
    }
    RenderLuma(index, buffer, sensor.strideBytes);
    // Padding is zero: the tail of each row, the rows below the image in each plane.
    const size_t stride = static_cast<size_t>(sensor.strideBytes);
    for (int row = 0; row < sensor.heightPx; ++row)
    {
        std::memset(buffer + row * stride + sensor.widthPx, 0, stride - sensor.widthPx);
    }
    uint8_t* const chroma = buffer + stride * sensor.scanlineRows;
    std::memset(buffer + stride * sensor.heightPx, 0, chroma - (buffer + stride * sensor.heightPx));
    // The chart is grey: neutral chroma over the image, interleaved U and V for each 2 x 2 block.
    const int    chromaRows = (sensor.heightPx + 1) / 2;
    const size_t rowBytes   = std::min(stride, static_cast<size_t>((sensor.widthPx + 1) / 2 * 2));
    for (int row = 0; row < chromaRows; ++row)
    {
        std::memset(chroma + row * stride, 0x80, rowBytes);
        std::memset(chroma + row * stride + rowBytes, 0, stride - rowBytes);
    }
    std::memset(chroma + chromaRows * stride, 0, buffer + needed - (chroma + chromaRows * stride));
    return true;
}

void Simulator::Render(uint32_t index, Nv12Image& image) const
{
    const SensorConfig& sensor = m_scenario.sensor;
    image.width                = sensor.widthPx;
    image.height               = sensor.heightPx;
    image.stride               = sensor.strideBytes;
    image.scanline             = sensor.scanlineRows;
    image.data.resize(Nv12BufferSize(image.stride, image.scanline));
    RenderNv12(index, image.data.data(), image.data.size());
}

// Ground truth: the node's own arithmetic (float storage of blur and SR, float averaging of the
// two discs per axis), so a measured session compares with it value for value.
namespace
{

std::array<double, 8> Coordinates(const FourCentres& c)
{
    return {c.up.x, c.up.y, c.down.x, c.down.y, c.left.x, c.left.y, c.right.x, c.right.y};
}

} // namespace

FourCentres FrameTruth::CropCentres() const
{
    FourCentres centres;
    Point*      slots[] = {&centres.up, &centres.down, &centres.left, &centres.right};
    for (size_t i = 0; i < 4 && i < discsCrop.size(); ++i)
    {
        *slots[i] = discsCrop[i];
    }
    return centres;
}

double SrFromBlurDb(double blurPx)
{
    return 10.0 * std::log10(kReferenceBlurPx / blurPx) + kSrOffsetDb;
}

BlurSr ComputeBlurSr(const std::vector<FourCentres>& window)
{
    BlurSr result;
    if (window.empty())
    {
        return result;
    }
    std::array<double, 8> lo = Coordinates(window.front());
    std::array<double, 8> hi = lo;
    for (const FourCentres& frame : window)
    {
        const std::array<double, 8> c = Coordinates(frame);
        for (size_t k = 0; k < c.size(); ++k)
        {
            lo[k] = std::min(lo[k], c[k]);
            hi[k] = std::max(hi[k], c[k]);
        }
    }
    for (size_t k = 0; k < lo.size(); ++k)
    {
        result.pointBlurPx[k] = static_cast<float>(hi[k] - lo[k]);
    }
    const std::array<float, 8>& blur = result.pointBlurPx;
    // Horizontal spread from the discs above and below, vertical from those left and right.
    result.horBlurPx = (blur[0] + blur[2]) * 0.5F;
    result.verBlurPx = (blur[5] + blur[7]) * 0.5F;
    result.horSrDb   = static_cast<float>(SrFromBlurDb(result.horBlurPx));
    result.verSrDb   = static_cast<float>(SrFromBlurDb(result.verBlurPx));
    return result;
}

} // namespace sim
