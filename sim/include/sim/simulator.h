// The shake-table session simulator: renders NV12 frames of the chart as the module films it
// under shake and OIS, and gives each frame's true disc centres, so that the blur and SR a
// measurement should find are known exactly. Deterministic for a scenario and its seed; frames can
// be rendered in any order.
#ifndef ZELK_SIM_SIMULATOR_H
#define ZELK_SIM_SIMULATOR_H

#include "sim/chart.h"
#include "sim/scenario.h"

#include <array>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace sim
{
namespace detail
{
struct LumaLook;
class Canvas;
struct CoverageMap;
}

// Truth for one frame. Centres are the centres of the darkness the frame actually shows: the mean
// of the disc positions over the exposure, and under a rolling shutter the mean over the disc's
// rows, each row at the position of its own exposure, weighted by the ink the row holds.
struct FrameTruth
{
    uint32_t           index       = 0;
    int64_t            timestampNs = 0;
    Point              motionPx;   // chart displacement (exposure mean; rolling: the discs' mean)
    std::vector<Point> discsFrame; // every chart disc, frame coordinates
    std::vector<Point> discsCrop;  // the same, crop coordinates

    // The first four discs (up, down, left, right of the standard chart) in crop coordinates.
    FourCentres CropCentres() const;
};

// Blur and SR of a window of frames, computed as the measurement node computes them: per
// coordinate max - min in double, stored as float; horizontal blur from the up and down discs' x,
// vertical from the left and right discs' y, averaged in float; SR in double, stored as float.
struct BlurSr
{
    std::array<float, 8>
          pointBlurPx{}; // up x, up y, down x, down y, left x, left y, right x, right y
    float horBlurPx = 0.0F;
    float verBlurPx = 0.0F;
    float horSrDb   = 0.0F;
    float verSrDb   = 0.0F;
};

BlurSr ComputeBlurSr(const std::vector<FourCentres>& window);
double SrFromBlurDb(double blurPx);

// Checks a scenario; returns an empty string when it is usable, else what is wrong.
std::string ValidateScenario(const Scenario& scenario);

class Simulator
{
public:
    // An unusable scenario (see ValidateScenario) is replaced by the nearest usable one.
    explicit Simulator(const Scenario& scenario);

    const Scenario& GetScenario() const { return m_scenario; }
    int             CropSide() const { return m_cropSide; }
    CropOrigin      GetCropOrigin() const { return m_cropOrigin; }
    int64_t         FrameTimestampNs(uint32_t index) const;

    // Gyro gains in force from frame `fromFrame` on (the calibration service applying new gains).
    void SetGyroGains(double gainX, double gainY, uint32_t fromFrame);

    FrameTruth Truth(uint32_t index) const;
    BlurSr     TrueBlurSr(uint32_t firstFrame, uint32_t count) const;

    // Cached: rows without ink come from the cached paper and noise, pixels are evaluated only
    // around the discs. Full: every pixel is evaluated. Both give the same bytes; Full is the
    // reference the cached path is tested and timed against.
    enum class RenderPath
    {
        Cached,
        Full
    };

    // Renders frame `index` into `image`, sized to the scenario's layout.
    void Render(uint32_t index, Nv12Image& image) const;
    // Renders into a caller buffer of the scenario's layout; false when bufferSize is too small.
    bool RenderNv12(uint32_t index, uint8_t* buffer, size_t bufferSize) const;
    // Renders only the luma plane into `luma` (rows `stride` bytes apart, at least the width).
    void RenderLuma(uint32_t index, uint8_t* luma, int stride,
                    RenderPath path = RenderPath::Cached) const;

private:
    struct GainChange
    {
        uint32_t fromFrame;
        double   gainX;
        double   gainY;
    };

    // Where the chart centre is over a frame's exposures: gains and floor of the frame, and the
    // chart centre at a row's exposure start delay plus a fraction u of the exposure.
    struct FrameClock
    {
        double     startS;
        GainChange gains;
        Point      floorPx;
    };
    // Disc centres of one disc for a run of rows, `steps` sub-steps per row (rolling shutter).
    struct RowPaths
    {
        int                firstRow = 0;
        int                rows     = 0;
        int                steps    = 1;
        std::vector<Point> centres; // row-major: row r, sub-step k at (r - firstRow) * steps + k
    };

    FrameClock         Clock(uint32_t index) const;
    Point              ChartAt(const FrameClock& clock, double delayS, double u) const;
    int                SubSteps(const FrameClock& clock, double delayS) const;
    std::vector<Point> ExposurePath(uint32_t index) const;
    GainChange         GainsAt(uint32_t index) const;
    detail::LumaLook   Look() const;
    bool               Rolling() const { return m_lineS > 0.0; }
    RowPaths           DiscRowPaths(const FrameClock& clock, const ChartDisc& disc) const;
    void RasteriseRolling(const FrameClock& clock, const ChartDisc& disc,
                          detail::CoverageMap& map) const;
    FrameTruth RollingTruth(uint32_t index) const;

    Scenario                m_scenario;
    MotionModel             m_motion;
    int                     m_cropSide = 0;
    CropOrigin              m_cropOrigin;
    Point                   m_chartRestPx; // chart centre at rest, frame coordinates
    double                  m_lineS = 0.0; // rolling shutter: exposure start delay per row
    std::shared_ptr<const detail::Canvas> m_canvas;
    mutable std::mutex      m_gainLock;
    std::vector<GainChange> m_gainChanges;
};

} // namespace sim

#endif // ZELK_SIM_SIMULATOR_H
