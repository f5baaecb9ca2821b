// What a simulated session films: sensor and optics, the shake table, the OIS module, and the
// model that turns them into image motion. A scenario plus its seeds fixes every frame exactly.
#ifndef ZELK_SIM_SCENARIO_H
#define ZELK_SIM_SCENARIO_H

#include "sim/chart.h"

#include <cstdint>

namespace sim
{

// SR = 10 log10(kReferenceBlurPx / blur) + kSrOffsetDb: a blur as large as the default,
// uncompensated shake (kReferenceBlurPx peak to peak) measures 4 dB.
constexpr double kReferenceBlurPx = 181.248;
constexpr double kSrOffsetDb      = 4.0;
constexpr double kPi              = 3.14159265358979323846;

struct SensorConfig
{
    int      widthPx          = 1440;
    int      heightPx         = 1080;
    int      strideBytes      = 0; // 0: the width
    int      scanlineRows     = 0; // 0: the height
    int      cropSidePx       = 0; // 0: the node's rule; a square frame is its own crop
    double   frameRateHz      = 60.0;
    double   exposureS        = 0.004; // the image integrates motion over this time
    int64_t  startTimestampNs = 0;     // timestamp of frame 0 (start of its exposure)
    double   noiseStdDn       = 2.0;   // Gaussian read noise added to every luma sample
    uint64_t seed             = 1;     // sensor noise and the OIS residual floor
};

struct OpticsConfig
{
    double vignetteCornerGain = 1.0; // relative illumination at the crop corners (1: even light)
    double defocusSigmaPx     = 0.0; // Gaussian point spread of the defocused lens
    double motionBlurXPx      = 0.0; // extra linear smear across each exposure, centred on it
    double motionBlurYPx      = 0.0;
    double chartOffsetXPx     = 0.0; // static misalignment of the chart from the crop centre
    double chartOffsetYPx     = 0.0;
};

// Rotation of the shake table, expressed as the image motion it causes without OIS.
struct ShakeConfig
{
    double frequencyHz  = 4.0;
    double amplitudeXPx = kReferenceBlurPx; // peak to peak, crop pixels
    double amplitudeYPx = kReferenceBlurPx;
    double phaseXRad    = 0.0;
    double phaseYRad    = 1.5707963267948966; // a quarter period after x: a circular path
};

// The module's OIS: a gyro-driven lens shift that cancels gain / idealGain of the shake, seen one
// loop delay late, plus a small per-frame residual (hall sensor and servo noise). Gains belong to
// gyro axes; swapGyroAxes makes gyro X drive the image's vertical axis and gyro Y the horizontal.
struct OisModuleConfig
{
    bool   enabled         = true;
    double gainX           = 1.0;
    double gainY           = 1.0;
    double idealGainX      = 1.0;
    double idealGainY      = 1.0;
    bool   swapGyroAxes    = false;
    double loopDelayS      = 0.0003;
    double residualFloorPx = 0.15; // standard deviation per frame and axis
};

struct Scenario
{
    SensorConfig    sensor;
    OpticsConfig    optics;
    ShakeConfig     shake;
    OisModuleConfig ois;
    Chart           chart; // no discs: the standard chart for the crop
};

// The default session with the OIS switched off (about 4 dB) and with it on at the given gains.
Scenario OisOffScenario();
Scenario OisOnScenario(double gainX, double gainY);

// Image motion of the chart over time: the shake minus the OIS correction, per image axis.
class MotionModel
{
public:
    MotionModel(const ShakeConfig& shake, const OisModuleConfig& ois, uint64_t seed);

    // Image displacement the table alone causes at time tS.
    Point ShakePx(double tS) const;
    // Displacement left after the OIS correction with the given gyro gains (floor excluded).
    Point ResidualPx(double tS, double gainX, double gainY) const;
    // The residual floor of one frame: constant over its exposure, independent between frames.
    Point FloorPx(uint32_t frameIndex) const;

private:
    ShakeConfig     m_shake;
    OisModuleConfig m_ois;
    uint64_t        m_seed;
};

} // namespace sim

#endif // ZELK_SIM_SCENARIO_H
