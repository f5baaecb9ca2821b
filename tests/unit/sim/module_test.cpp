// The module's servo, stroke limit and rolling shutter against values worked out by hand or in
// closed form, their truth in the frames, and the defaults against the SR the sessions measured
// before these effects were modelled.
#include "sim/simulator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>

namespace
{

constexpr double kHalfAmplitudePx = 0.5 * sim::kReferenceBlurPx; // 90.624

// Largest |residual| on each image axis over one shake period, densely sampled.
sim::Point PeakResidual(const sim::Scenario& s, double gainX, double gainY)
{
    const sim::MotionModel model(s.shake, s.ois, s.sensor.seed);
    const int              samples = 200000;
    sim::Point             peak;
    for (int i = 0; i < samples; ++i)
    {
        const sim::Point r =
            model.ResidualPx(static_cast<double>(i) / (samples * s.shake.frequencyHz), gainX, gainY);
        peak.x = std::max(peak.x, std::fabs(r.x));
        peak.y = std::max(peak.y, std::fabs(r.y));
    }
    return peak;
}

// A module with only the effect under test: no loop delay, no floor, no stroke limit, an ideal
// servo and a global shutter unless the test sets them.
sim::Scenario BareModule()
{
    sim::Scenario s          = sim::OisOnScenario(1.0, 1.0);
    s.ois.loopDelayS         = 0.0;
    s.ois.residualFloorPx    = 0.0;
    s.ois.servoBandwidthHz   = 0.0;
    s.ois.strokeLimitPx      = 0.0;
    s.sensor.readoutS        = 0.0;
    s.sensor.exposureS       = 0.0;
    return s;
}

TEST(ServoResponse, HalfPowerAtTheBandwidthForAnyDamping)
{
    for (double zeta : {0.2, 0.5, 0.70710678118654752, 1.0, 2.0})
    {
        const sim::ServoResponse at = sim::ServoAt(40.0, 40.0, zeta);
        EXPECT_NEAR(at.gain, 1.0 / std::sqrt(2.0), 1e-12) << zeta;
        EXPECT_LT(at.phaseRad, 0.0) << zeta;
    }
    // Maximally flat: the natural frequency is the bandwidth, where the lag is a quarter period.
    EXPECT_NEAR(sim::ServoAt(40.0, 40.0, 0.70710678118654752).phaseRad, -sim::kPi / 2, 1e-12);
    EXPECT_EQ(sim::ServoAt(40.0, 0.0, 0.7).gain, 1.0); // bandwidth 0: an ideal servo
    EXPECT_EQ(sim::ServoAt(40.0, 0.0, 0.7).phaseRad, 0.0);
}

// Residual over shake for a perfect gain: |1 - H(j w)| with u = f / fn,
// |1 - H|^2 = u^2 (u^2 + 4 zeta^2) / ((1 - u^2)^2 + 4 zeta^2 u^2).
double AnalyticResidualRatio(double frequencyHz, double bandwidthHz, double zeta)
{
    const double shape   = 1.0 - 2.0 * zeta * zeta;
    const double naturHz = bandwidthHz / std::sqrt(shape + std::sqrt(shape * shape + 1.0));
    const double u2      = (frequencyHz / naturHz) * (frequencyHz / naturHz);
    return std::sqrt(u2 * (u2 + 4 * zeta * zeta) /
                     ((1 - u2) * (1 - u2) + 4 * zeta * zeta * u2));
}

TEST(ServoResponse, SuppressionFallsWithFrequencyAsTheSecondOrderModelSays)
{
    const double bandwidthHz = 10.0, zeta = 0.5;
    double       lastSuppressionDb = HUGE_VAL;
    for (double frequencyHz : {1.0, 2.0, 4.0, 7.0, 10.0})
    {
        sim::Scenario s          = BareModule();
        s.ois.servoBandwidthHz   = bandwidthHz;
        s.ois.servoDampingRatio  = zeta;
        s.shake.frequencyHz      = frequencyHz;
        const sim::Point peak    = PeakResidual(s, 1.0, 1.0);
        const double     ratio   = AnalyticResidualRatio(frequencyHz, bandwidthHz, zeta);
        EXPECT_NEAR(peak.x / kHalfAmplitudePx, ratio, 1e-6) << frequencyHz << " Hz";
        EXPECT_NEAR(peak.y / kHalfAmplitudePx, ratio, 1e-6) << frequencyHz << " Hz";
        const double suppressionDb = -20.0 * std::log10(ratio);
        EXPECT_LT(suppressionDb, lastSuppressionDb) << frequencyHz << " Hz";
        lastSuppressionDb = suppressionDb;
    }
    // Near the bandwidth the lens lags so far that it moves the image more than the shake does.
    EXPECT_LT(lastSuppressionDb, 0.0);
}

TEST(ServoResponse, FramesCarryTheServoResidual)
{
    sim::Scenario s        = BareModule();
    s.ois.servoBandwidthHz = 12.0;
    const sim::Simulator   simulator(s);
    const sim::MotionModel model(s.shake, s.ois, s.sensor.seed);
    for (uint32_t frame : {0u, 7u, 130u})
    {
        const sim::Point expected = model.ResidualPx(frame / s.sensor.frameRateHz, 1.0, 1.0);
        EXPECT_NEAR(simulator.Truth(frame).motionPx.x, expected.x, 1e-9);
        EXPECT_NEAR(simulator.Truth(frame).motionPx.y, expected.y, 1e-9);
    }
    EXPECT_GT(std::fabs(simulator.Truth(7).motionPx.x), 1.0); // the servo's lag shows
}

struct StrokeCase
{
    const char* name;
    double      gainRatio;
    double      strokePx;
    double      peakPx; // worked out by hand for a shake of 90.624 px peak
};

class StrokeLimit : public ::testing::TestWithParam<StrokeCase>
{
};

TEST_P(StrokeLimit, ClipsTheLensAndLeavesTheRest)
{
    const StrokeCase& c = GetParam();
    sim::Scenario     s = BareModule();
    s.ois.strokeLimitPx = c.strokePx;
    const sim::Point peak = PeakResidual(s, c.gainRatio, c.gainRatio);
    EXPECT_NEAR(peak.x, c.peakPx, 2e-3);
    EXPECT_NEAR(peak.y, c.peakPx, 2e-3);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, StrokeLimit,
    ::testing::Values(
        // Perfect gain within the stroke: nothing left.
        StrokeCase{"WithinStroke", 1.0, 100.0, 0.0},
        // The lens stops at 30: 90.624 - 30 at the shake's peak.
        StrokeCase{"ClippedPerfectGain", 1.0, 30.0, 60.624},
        StrokeCase{"ClippedHalfGain", 0.5, 30.0, 60.624},
        // Half gain commands 45.312 at most: within a 50-pixel stroke, half the shake is left.
        StrokeCase{"HalfGainWithinStroke", 0.5, 50.0, 45.312},
        // Gain 1.2 overshoots by 0.2 u until the lens stops at u = 100 / 1.2, where 0.2 u is
        // 16.667; beyond, u - 100 is smaller.
        StrokeCase{"OvershootUntilTheStop", 1.2, 100.0, 100.0 / 1.2 * 0.2}),
    [](const ::testing::TestParamInfo<StrokeCase>& info) { return std::string(info.param.name); });

// Darkness centroid along one pixel row of the frame, in a window of columns.
double RowCentroidX(const sim::Nv12Image& image, int row, int first, int last, double paperDn)
{
    double weight = 0.0, moment = 0.0;
    for (int x = first; x <= last; ++x)
    {
        const double d = paperDn - image.Luma()[static_cast<size_t>(row) * image.stride + x];
        weight += d;
        moment += d * x;
    }
    return moment / weight;
}

TEST(RollingShutter, ShearsAMovingDiscByTheMotionBetweenItsRows)
{
    sim::Scenario s        = BareModule();
    s.ois.enabled          = false;
    s.sensor.noiseStdDn    = 0.0;
    s.shake.amplitudeXPx   = 400.0; // x = 200 sin(w t): fastest at t = 0
    s.shake.amplitudeYPx   = 0.0;
    for (double readoutS : {0.0, 0.012})
    {
        s.sensor.readoutS = readoutS;
        const sim::Simulator  simulator(s);
        sim::Nv12Image        image;
        simulator.Render(0, image);
        const sim::FrameTruth truth = simulator.Truth(0);
        const sim::Point      up    = truth.discsFrame[0];
        const int             rowA  = static_cast<int>(std::lround(up.y)) - 20;
        const int             rowB  = rowA + 40;
        const int             left  = static_cast<int>(up.x) - 60;
        const double          shear = RowCentroidX(image, rowB, left, left + 120, 190.0) -
                             RowCentroidX(image, rowA, left, left + 120, 190.0);
        const double lineS  = readoutS / s.sensor.heightPx;
        const double omega  = 2.0 * sim::kPi * s.shake.frequencyHz;
        const double expect = 200.0 * (std::sin(omega * rowB * lineS) - std::sin(omega * rowA * lineS));
        EXPECT_NEAR(shear, expect, 0.01) << "readout " << readoutS;
        if (readoutS > 0.0)
        {
            EXPECT_GT(expect, 2.0);
        }
    }
}

TEST(RollingShutter, DiscsLowerInTheFrameAreSeenLater)
{
    sim::Scenario s      = BareModule();
    s.ois.enabled        = false;
    s.shake.amplitudeXPx = 400.0;
    s.shake.amplitudeYPx = 0.0;
    s.sensor.readoutS    = 0.012;
    const sim::FrameTruth truth = sim::Simulator(s).Truth(0);
    const double          omega = 2.0 * sim::kPi * s.shake.frequencyHz;
    const double          lineS = s.sensor.readoutS / s.sensor.heightPx;
    // Up and down discs sit 2 x 119 rows apart; each sees the shake at its own rows' time.
    const double restUpY = truth.discsFrame[0].y, restDownY = truth.discsFrame[1].y;
    EXPECT_NEAR(truth.discsFrame[1].x - truth.discsFrame[0].x,
                200.0 * (std::sin(omega * restDownY * lineS) - std::sin(omega * restUpY * lineS)),
                0.01);
    EXPECT_NEAR(restDownY - restUpY, 238.0, 1e-9);
}

// SR of nine sessions over the frames of a default verification's ring (121 .. 151), as the model
// without servo, stroke limit and rolling shutter gave them (loop delay 0.3 ms).
struct PastSession
{
    const char* name;
    bool        oisOn;
    double      gainX, gainY, idealGain, frequencyHz, frameRateHz;
    double      horSrDb, verSrDb;
};

class DefaultModule : public ::testing::TestWithParam<PastSession>
{
protected:
    static sim::Scenario Session(const PastSession& p)
    {
        sim::Scenario s      = p.oisOn ? sim::OisOnScenario(p.gainX, p.gainY) : sim::OisOffScenario();
        s.ois.idealGainX     = p.idealGain;
        s.ois.idealGainY     = p.idealGain;
        s.shake.frequencyHz  = p.frequencyHz;
        s.sensor.frameRateHz = p.frameRateHz;
        return s;
    }
};

TEST_P(DefaultModule, KeepsTheSessionsSrWithinATenthOfADecibel)
{
    const sim::BlurSr now = sim::Simulator(Session(GetParam())).TrueBlurSr(121, 31);
    EXPECT_NEAR(now.horSrDb, GetParam().horSrDb, 0.1);
    EXPECT_NEAR(now.verSrDb, GetParam().verSrDb, 0.1);
}

TEST_P(DefaultModule, WithoutTheNewEffectsIsThePreviousModel)
{
    sim::Scenario s        = Session(GetParam());
    s.ois.servoBandwidthHz = 0.0;
    s.ois.strokeLimitPx    = 0.0;
    s.ois.loopDelayS       = 0.0003;
    s.sensor.readoutS      = 0.0;
    const sim::BlurSr then = sim::Simulator(s).TrueBlurSr(121, 31);
    EXPECT_NEAR(then.horSrDb, GetParam().horSrDb, 6e-5);
    EXPECT_NEAR(then.verSrDb, GetParam().verSrDb, 6e-5);
}

INSTANTIATE_TEST_SUITE_P(
    Sessions, DefaultModule,
    ::testing::Values(PastSession{"OisOff", false, 1.0, 1.0, 1.0, 4, 60, 4.0248, 4.0240},
                      PastSession{"Ideal", true, 1.0, 1.0, 1.0, 4, 60, 24.7863, 23.7652},
                      PastSession{"HalfGain", true, 0.5, 0.5, 1.0, 4, 60, 7.0302, 7.0242},
                      PastSession{"Gain095", true, 0.95, 0.95, 1.0, 4, 60, 16.8698, 16.8469},
                      PastSession{"Gain110Ideal108", true, 1.1, 1.1, 1.08, 4, 60, 20.6288, 20.8302},
                      PastSession{"Gain120Ideal108", true, 1.2, 1.2, 1.08, 4, 60, 13.5419, 13.5360},
                      PastSession{"MixedGains", true, 0.8, 1.2, 1.0, 4, 60, 10.9949, 11.0185},
                      PastSession{"TwoHertzThirtyFps", true, 1.0, 1.0, 1.0, 2, 30, 26.8119, 25.5633},
                      PastSession{"EightHertz", true, 1.0, 1.0, 1.0, 8, 60, 21.7330, 21.9206}),
    [](const ::testing::TestParamInfo<PastSession>& info) { return std::string(info.param.name); });

TEST(ModuleScenario, OutOfRangeEffectsAreNamed)
{
    sim::Scenario s = sim::OisOnScenario(1.0, 1.0);
    EXPECT_EQ(sim::ValidateScenario(s), "");
    s.sensor.readoutS = 0.02; // longer than a 60 fps frame
    EXPECT_EQ(sim::ValidateScenario(s),
              "rolling-shutter readout negative or longer than the frame period");
    EXPECT_DOUBLE_EQ(sim::Simulator(s).GetScenario().sensor.readoutS, 1.0 / 60.0);
    s.sensor.readoutS       = 0.0;
    s.ois.servoDampingRatio = 0.0;
    EXPECT_EQ(sim::ValidateScenario(s), "servo bandwidth, damping ratio or stroke limit out of range");
    EXPECT_EQ(sim::Simulator(s).GetScenario().ois.servoBandwidthHz, 0.0);
    s.ois.servoDampingRatio = 0.7;
    s.ois.strokeLimitPx     = -1.0;
    EXPECT_NE(sim::ValidateScenario(s), "");
}

} // namespace
