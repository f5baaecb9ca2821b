// Shake table and OIS model. The table's rotation moves the image sinusoidally on each axis; the
// OIS shifts the lens against what its gyro saw one loop delay earlier, scaled by gain / ideal
// gain. The residual on an axis is therefore u(t) - (g / g*) u(t - delay): zero for a perfect
// gain and no delay, the whole shake with the OIS off or at g = 0, and for a small delay about
// amplitude x |1 - g / g*| plus amplitude x 2 pi f delay. A per-frame Gaussian floor is added.
#include "random.h"
#include "sim/scenario.h"

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

MotionModel::MotionModel(const ShakeConfig& shake, const OisModuleConfig& ois, uint64_t seed)
    : m_shake(shake), m_ois(ois), m_seed(seed)
{
}

Point MotionModel::ShakePx(double tS) const
{
    const double omega = 2.0 * kPi * m_shake.frequencyHz;
    return {0.5 * m_shake.amplitudeXPx * std::sin(omega * tS + m_shake.phaseXRad),
            0.5 * m_shake.amplitudeYPx * std::sin(omega * tS + m_shake.phaseYRad)};
}

Point MotionModel::ResidualPx(double tS, double gainX, double gainY) const
{
    const Point shake = ShakePx(tS);
    if (!m_ois.enabled)
    {
        return shake;
    }
    const double ratioX = GainRatio(gainX, m_ois.idealGainX);
    const double ratioY = GainRatio(gainY, m_ois.idealGainY);
    // Gain X scales the horizontal correction and gain Y the vertical, unless the module swaps
    // them.
    const double imageXRatio = m_ois.swapGyroAxes ? ratioY : ratioX;
    const double imageYRatio = m_ois.swapGyroAxes ? ratioX : ratioY;
    const Point  sensed      = ShakePx(tS - m_ois.loopDelayS);
    return {shake.x - imageXRatio * sensed.x, shake.y - imageYRatio * sensed.y};
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
