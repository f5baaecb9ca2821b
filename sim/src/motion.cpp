// Shake table and OIS model. The table's rotation moves the image sinusoidally on each axis; the
// OIS commands a lens shift against what its gyro saw one loop delay earlier, scaled by gain /
// ideal gain, the servo turns the command into the lens shift (|H| and arg H of its second-order
// response at the shake frequency) and the lens stops at its stroke limit. With u(t) the shake on
// an axis, the residual is u(t) - clamp((g / g*) |H| u(t - delay + arg H / w), +-stroke): zero
// for a perfect gain, an ideal servo and no delay, the whole shake with the OIS off or at g = 0,
// and for a small delay and lag about amplitude x |1 - g / g*| plus amplitude x 2 pi f x (delay +
// 2 zeta / wn). A per-frame Gaussian floor is added.
#include "random.h"
#include "sim/scenario.h"

#include <algorithm>
#include <cmath>

namespace sim
{
namespace
{

constexpr uint64_t kFloorStream = 0x4F49530000000001ULL; // keeps floor draws apart from noise rows

double GainRatio(double gain, double idealGain)
{
    return idealGain > 0.0 ? gain / idealGain : 0.0;
}

double Stroke(double shiftPx, double limitPx)
{
    return limitPx > 0.0 ? std::clamp(shiftPx, -limitPx, limitPx) : shiftPx;
}

} // namespace

Scenario OisOffScenario()
{
    Scenario scenario;
    scenario.ois.enabled = false;
    return scenario;
}

Scenario OisOnScenario(double gainX, double gainY)
{
    Scenario scenario;
    scenario.ois.enabled = true;
    scenario.ois.gainX   = gainX;
    scenario.ois.gainY   = gainY;
    return scenario;
}

ServoResponse ServoAt(double frequencyHz, double bandwidthHz, double dampingRatio)
{
    if (!(bandwidthHz > 0.0) || !(dampingRatio > 0.0))
    {
        return {};
    }
    const double z2      = dampingRatio * dampingRatio;
    const double shape   = 1.0 - 2.0 * z2;
    const double naturHz = bandwidthHz / std::sqrt(shape + std::sqrt(shape * shape + 1.0));
    const double u       = frequencyHz / naturHz;
    const double re      = 1.0 - u * u;
    const double im      = 2.0 * dampingRatio * u;
    return {1.0 / std::hypot(re, im), -std::atan2(im, re)};
}

MotionModel::MotionModel(const ShakeConfig& shake, const OisModuleConfig& ois, uint64_t seed)
    : m_shake(shake), m_ois(ois), m_seed(seed),
      m_servo(ServoAt(shake.frequencyHz, ois.servoBandwidthHz, ois.servoDampingRatio))
{
}

Point MotionModel::ShakePx(double tS) const
{
    const double omega = 2.0 * kPi * m_shake.frequencyHz;
    return {0.5 * m_shake.amplitudeXPx * std::sin(omega * tS + m_shake.phaseXRad),
            0.5 * m_shake.amplitudeYPx * std::sin(omega * tS + m_shake.phaseYRad)};
}

Point MotionModel::LensPx(double tS, double gainX, double gainY) const
{
    if (!m_ois.enabled)
    {
        return {};
    }
    const double ratioX = GainRatio(gainX, m_ois.idealGainX);
    const double ratioY = GainRatio(gainY, m_ois.idealGainY);
    // Gain X scales the horizontal correction and gain Y the vertical, unless the module swaps
    // them.
    const double imageXRatio = m_ois.swapGyroAxes ? ratioY : ratioX;
    const double imageYRatio = m_ois.swapGyroAxes ? ratioX : ratioY;
    // The servo's phase is a time shift of the sinusoidal command (none for an ideal servo, so
    // that model is exactly the one without a servo).
    double lagS = m_ois.loopDelayS;
    if (m_servo.phaseRad != 0.0 && m_shake.frequencyHz > 0.0)
    {
        lagS -= m_servo.phaseRad / (2.0 * kPi * m_shake.frequencyHz);
    }
    const Point sensed = ShakePx(tS - lagS);
    return {Stroke(imageXRatio * m_servo.gain * sensed.x, m_ois.strokeLimitPx),
            Stroke(imageYRatio * m_servo.gain * sensed.y, m_ois.strokeLimitPx)};
}

Point MotionModel::ResidualPx(double tS, double gainX, double gainY) const
{
    const Point shake = ShakePx(tS);
    if (!m_ois.enabled)
    {
        return shake;
    }
    const Point lens = LensPx(tS, gainX, gainY);
    return {shake.x - lens.x, shake.y - lens.y};
}

Point MotionModel::FloorPx(uint32_t frameIndex) const
{
    if (m_ois.residualFloorPx <= 0.0)
    {
        return {};
    }
    uint64_t     state = detail::StreamState(m_seed ^ kFloorStream, frameIndex, 0);
    const double x     = detail::Gaussian(state);
    const double y     = detail::Gaussian(state);
    return {m_ois.residualFloorPx * x, m_ois.residualFloorPx * y};
}

} // namespace sim
