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

// Module defaults: realistic values under which the default sessions measure what they did
// before these effects were modelled (within 0.1 dB). The servo's low-frequency lag (2 zeta /
// omega_n, 0.225 ms at 1 kHz) and the loop delay add up to 0.3 ms.
constexpr double kDefaultReadoutS          = 0.004;
constexpr double kDefaultServoBandwidthHz  = 1000.0;
constexpr double kDefaultServoDampingRatio = 0.70710678118654752; // maximally flat response
constexpr double kDefaultLoopDelayS        = 0.000075;
constexpr double kDefaultStrokeLimitPx     = 150.0;

struct SensorConfig
{
    int      widthPx          = 1440;
    int      heightPx         = 1080;
    int      strideBytes      = 0; // 0: the width
    int      scanlineRows     = 0; // 0: the height
    int      cropSidePx       = 0; // 0: the node's rule; a square frame is its own crop
    double   frameRateHz      = 60.0;
    double   exposureS        = 0.004; // the image integrates motion over this time
    // Rolling shutter: row y starts its exposure y x readoutS / heightPx after row 0 (0: every
    // row at once, a global shutter). The default is a fast 1080-row readout.
    double   readoutS         = kDefaultReadoutS;
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

// The module's OIS: a gyro-driven lens shift commanded to cancel gain / idealGain of the shake,
// seen one loop delay late. The lens follows the command through its servo, a second-order
// low-pass (servoBandwidthHz: its -3 dB frequency, 0 for a lens that follows exactly;
// servoDampingRatio: zeta, below 0.707 the response peaks near the resonance), and stops at
// +-strokeLimitPx on each image axis (0: no limit). A small per-frame residual (hall sensor and
// servo noise) is added. Gains belong to gyro axes; swapGyroAxes makes gyro X drive the image's
// vertical axis and gyro Y the horizontal.
struct OisModuleConfig
{
    bool   enabled           = true;
    double gainX             = 1.0;
    double gainY             = 1.0;
    double idealGainX        = 1.0;
    double idealGainY        = 1.0;
    bool   swapGyroAxes      = false;
    double loopDelayS        = kDefaultLoopDelayS;
    double servoBandwidthHz  = kDefaultServoBandwidthHz;
    double servoDampingRatio = kDefaultServoDampingRatio;
    double strokeLimitPx     = kDefaultStrokeLimitPx; // crop pixels, each way from rest
    double residualFloorPx   = 0.15; // standard deviation per frame and axis
};

// The servo's steady-state response to a sinusoidal command: gain |H| and phase arg H (radians,
// negative: the lens lags). |H| = 1 and phase 0 for an ideal servo (bandwidth 0).
struct ServoResponse
{
    double gain     = 1.0;
    double phaseRad = 0.0;
};

// H(j w) = wn^2 / (wn^2 - w^2 + 2 j zeta wn w), with wn placed so that |H| = 1/sqrt(2) at the
// bandwidth: wn = wb / sqrt(1 - 2 zeta^2 + sqrt((1 - 2 zeta^2)^2 + 1)).
ServoResponse ServoAt(double frequencyHz, double bandwidthHz, double dampingRatio);

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

// Image motion of the chart over time: the shake minus the lens shift, per image axis. The shake
// is a sustained sinusoid, so the servo is in its steady state: the lens runs at |H| of the command
// with the phase of H (after a gain change the actuator's transient, a few milliseconds at the
// default bandwidth, is not modelled).
class MotionModel
{
public:
    MotionModel(const ShakeConfig& shake, const OisModuleConfig& ois, uint64_t seed);

    // Image displacement the table alone causes at time tS.
    Point ShakePx(double tS) const;
    // Lens shift on each image axis at time tS with the given gyro gains (0 with the OIS off).
    Point LensPx(double tS, double gainX, double gainY) const;
    // Displacement left after the OIS correction with the given gyro gains (floor excluded).
    Point ResidualPx(double tS, double gainX, double gainY) const;
    // The residual floor of one frame: constant over its exposure, independent between frames.
    Point FloorPx(uint32_t frameIndex) const;

private:
    ShakeConfig     m_shake;
    OisModuleConfig m_ois;
    uint64_t        m_seed;
    ServoResponse   m_servo;
};

} // namespace sim

#endif // ZELK_SIM_SCENARIO_H
