// Shake and OIS model as seen through the frames' truth: residual motion against the gyro gains
// and the axis mapping, gain changes during a session, timestamps, and the ground-truth SR.
#include "sim/simulator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace
{

constexpr uint32_t kWindow = 31; // the node's default window: two periods at 4 Hz and 60 fps

struct Spread
{
    double x;
    double y;
};

// Peak-to-peak of the chart motion over frames first .. first + count - 1.
Spread MotionSpread(const sim::Simulator& simulator, uint32_t first = 0, uint32_t count = kWindow)
{
    double minX = 1e9, maxX = -1e9, minY = 1e9, maxY = -1e9;
    for (uint32_t i = first; i < first + count; ++i)
    {
        const sim::Point m = simulator.Truth(i).motionPx;
        minX               = std::min(minX, m.x);
        maxX               = std::max(maxX, m.x);
        minY               = std::min(minY, m.y);
        maxY               = std::max(maxY, m.y);
    }
    return {maxX - minX, maxY - minY};
}

struct GainCase
{
    const char* name;
    bool        enabled;
    double      gainX;
    double      gainY;
    bool        swap;
    double      delayS;
    double      floorPx;
    double      expectX; // expected peak-to-peak as a fraction of the amplitude
    double      expectY;
    double      tolerance;
};

class OisResidual : public ::testing::TestWithParam<GainCase>
{
};

TEST_P(OisResidual, SpreadFollowsGainOverIdealGain)
{
    const GainCase& c     = GetParam();
    sim::Scenario   s     = sim::OisOnScenario(c.gainX, c.gainY);
    s.ois.enabled         = c.enabled;
    s.ois.idealGainX      = 1.25; // gains are relative to the module's ideal gain
    s.ois.idealGainY      = 0.8;
    s.ois.swapGyroAxes    = c.swap;
    s.ois.loopDelayS      = c.delayS;
    s.ois.residualFloorPx = c.floorPx;
    // The gain model alone: a lens that follows its command exactly, no stroke limit, one time
    // for every row.
    s.ois.servoBandwidthHz = 0.0;
    s.ois.strokeLimitPx    = 0.0;
    s.sensor.readoutS      = 0.0;
    const Spread spread   = MotionSpread(sim::Simulator(s));
    EXPECT_NEAR(spread.x / sim::kReferenceBlurPx, c.expectX, c.tolerance);
    EXPECT_NEAR(spread.y / sim::kReferenceBlurPx, c.expectY, c.tolerance);
}

// Sampling 15 frames a period catches at least 98 % of a sine's peak-to-peak.
INSTANTIATE_TEST_SUITE_P(
    Gains, OisResidual,
    ::testing::Values(
        GainCase{"IdealNoDelay", true, 1.25, 0.8, false, 0.0, 0.0, 0.0, 0.0, 1e-9},
        GainCase{"IdealDefaultDelayAndFloor", true, 1.25, 0.8, false, 0.0003, 0.15, 0.0, 0.0,
                 0.015},
        GainCase{"ZeroGain", true, 0.0, 0.0, false, 0.0003, 0.0, 1.0, 1.0, 0.02},
        GainCase{"HalfGain", true, 0.625, 0.4, false, 0.0, 0.0, 0.5, 0.5, 0.01},
        GainCase{"TenPercentHigh", true, 1.375, 0.88, false, 0.0, 0.0, 0.1, 0.1, 0.003},
        GainCase{"OnlyXGain", true, 1.25, 0.0, false, 0.0, 0.0, 0.0, 1.0, 0.02},
        GainCase{"OnlyXGainSwapped", true, 1.25, 0.0, true, 0.0, 0.0, 1.0, 0.0, 0.02},
        GainCase{"OnlyYGainSwapped", true, 0.0, 0.8, true, 0.0, 0.0, 0.0, 1.0, 0.02},
        GainCase{"OisOffIgnoresGains", false, 1.25, 0.8, false, 0.0003, 0.0, 1.0, 1.0, 0.02}),
    [](const ::testing::TestParamInfo<GainCase>& info) { return std::string(info.param.name); });

TEST(GainSchedule, NewGainsApplyFromTheirFrameOn)
{
    sim::Scenario s       = sim::OisOnScenario(0.0, 0.0);
    s.ois.residualFloorPx = 0.0;
    sim::Simulator       changed(s);
    const sim::Simulator unchanged(s);
    changed.SetGyroGains(1.0, 1.0, 40);
    for (uint32_t i : {0u, 20u, 39u})
    {
        EXPECT_DOUBLE_EQ(changed.Truth(i).motionPx.x, unchanged.Truth(i).motionPx.x);
    }
    const Spread after = MotionSpread(changed, 40, kWindow);
    EXPECT_LT(after.x, 2.0);
    EXPECT_LT(after.y, 2.0);
    // A later call for an earlier frame replaces the schedule from that frame on.
    changed.SetGyroGains(0.5, 0.5, 10);
    EXPECT_NEAR(MotionSpread(changed, 40, kWindow).x / sim::kReferenceBlurPx, 0.5, 0.02);
}

TEST(FrameTiming, TimestampsFollowTheFrameRate)
{
    sim::Scenario s           = sim::OisOffScenario();
    s.sensor.frameRateHz      = 30.0;
    s.sensor.startTimestampNs = 1000;
    const sim::Simulator simulator(s);
    EXPECT_EQ(simulator.FrameTimestampNs(0), 1000);
    EXPECT_EQ(simulator.FrameTimestampNs(1), 1000 + 33333333);
    EXPECT_EQ(simulator.FrameTimestampNs(300), 1000 + 10000000000LL);
    EXPECT_EQ(simulator.Truth(7).timestampNs, simulator.FrameTimestampNs(7));
}

TEST(GroundTruth, DefaultOisOffSessionIsAboutFourDecibels)
{
    const sim::BlurSr truth = sim::Simulator(sim::OisOffScenario()).TrueBlurSr(0, kWindow);
    EXPECT_NEAR(truth.horSrDb, 4.0, 0.1);
    EXPECT_NEAR(truth.verSrDb, 4.0, 0.1);
}

TEST(GroundTruth, BlurUsesUpDownXAndLeftRightYLikeTheNode)
{
    // Only up/down x and left/right y count; the other four coordinates vary wildly.
    std::vector<sim::FourCentres> window(3);
    const double                  upX[] = {10.0, 11.0, 10.5}, downX[] = {20.0, 23.0, 21.0};
    const double                  leftY[] = {5.0, 5.5, 5.25}, rightY[] = {7.0, 7.0, 7.0};
    for (size_t i = 0; i < window.size(); ++i)
    {
        window[i].up    = {upX[i], 100.0 * i};
        window[i].down  = {downX[i], -50.0 * i};
        window[i].left  = {300.0 * i, leftY[i]};
        window[i].right = {-70.0 * i, rightY[i]};
    }
    const sim::BlurSr b = sim::ComputeBlurSr(window);
    EXPECT_FLOAT_EQ(b.horBlurPx, 2.0F); // (1 + 3) / 2
    EXPECT_FLOAT_EQ(b.verBlurPx, 0.25F);
    EXPECT_FLOAT_EQ(b.pointBlurPx[1], 200.0F);
    EXPECT_FLOAT_EQ(b.horSrDb, static_cast<float>(sim::SrFromBlurDb(2.0)));
    EXPECT_DOUBLE_EQ(sim::SrFromBlurDb(1.81248), 24.0);
}

} // namespace
