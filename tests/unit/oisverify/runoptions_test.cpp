// Options of "oisverify run": usage errors, the test-parameter property composed from
// --freq/--fps/--drop and the mode flags, the node's own reading of that property, the SR limit
// and the scenario the simulator gets.
#include <gtest/gtest.h>

#include "runoptions.h"
#include "runreport.h"

namespace
{

using oisverify::RunConfig;
using Words = std::vector<std::string>;

struct UsageCase
{
    Words       words;
    const char* expected; // part of the message
};

void PrintTo(const UsageCase& c, std::ostream* pOut)
{
    for (const std::string& word : c.words)
    {
        *pOut << word << ' ';
    }
}

class UsageErrors : public ::testing::TestWithParam<UsageCase> {};

TEST_P(UsageErrors, AreRefusedWithAMessageNamingTheProblem)
{
    RunConfig   config;
    std::string error;
    EXPECT_FALSE(oisverify::ParseRunWords(GetParam().words, &config, &error));
    EXPECT_NE(error.find(GetParam().expected), std::string::npos) << error;
}

INSTANTIATE_TEST_SUITE_P(
    Table, UsageErrors,
    ::testing::Values(
        UsageCase{ { "--gain" }, "'--gain' needs a value" },
        UsageCase{ { "--gain", "--fps", "30" }, "'--gain' needs a value" },
        UsageCase{ { "--gain", "abc" }, "--gain needs a number from 0.01 to 10" },
        UsageCase{ { "--gain", "0" }, "--gain needs a number" },
        UsageCase{ { "--gain", "1,2,3" }, "got '1,2,3'" },
        UsageCase{ { "--gain", "0.9," }, "got '0.9,'" },
        UsageCase{ { "--ideal-gain", "nan" }, "--ideal-gain needs a number" },
        UsageCase{ { "--amplitude", "-5" }, "--amplitude needs a number from 0" },
        UsageCase{ { "--noise", "1e9" }, "--noise needs a number" },
        UsageCase{ { "--freq", "2.5" }, "--freq needs a whole number" },
        UsageCase{ { "--freq", "40" }, "needs at least 80 fps" },
        UsageCase{ { "--fps", "0" }, "--fps needs a whole number from 1" },
        UsageCase{ { "--drop", "-1" }, "--drop needs a whole number" },
        UsageCase{ { "--seed", "x" }, "--seed needs a whole number" },
        UsageCase{ { "--size", "1440" }, "--size needs WIDTHxHEIGHT" },
        UsageCase{ { "--size", "1441x1080" }, "even pixels" },
        UsageCase{ { "--size", "1000x1000" }, "only 4:3 or 16:9 frames" },
        UsageCase{ { "--size", "640x480" }, "a 640x480 frame gives a 240-pixel crop" },
        UsageCase{ { "--size", "8192x6144" }, "gives a 3072-pixel crop" },
        UsageCase{ { "--stride", "1000" }, "--stride needs a whole number from 1440" },
        UsageCase{ { "--scanline", "1000" }, "--scanline needs a whole number from 1080" },
        UsageCase{ { "--progress-every", "-3" }, "--progress-every needs a whole number" },
        UsageCase{ { "--ois-off", "--gain", "0.5" }, "--ois-off contradicts" },
        UsageCase{ { "--replay", "dir", "--gain", "0.5" }, "no meaning with --replay" },
        UsageCase{ { "--replay", "dir", "--debug-images" }, "no meaning with --replay" },
        UsageCase{ { "--replay", "dir", "--prop", "vendor.debug.camera.oisAlgoPara=1:1:0:0:4:60" },
                   "debug mode measures its debug images" },
        UsageCase{ { "--prop", "vendor.debug.camera.oisAlgoPara=1:0:0:10:4:60", "--fps", "30" }, "give one or the other" },
        UsageCase{ { "--prop", "vendor.debug.camera.oisGainCalibrate=0:0:20", "--limit", "18" }, "give one or the other" },
        UsageCase{ { "--prop", "vendor.debug.camera.oisAlgoPara=1:0:0:1x:4:60" }, "field 3 (dropped frames) is '1x'" },
        UsageCase{ { "--prop", "vendor.debug.camera.oisAlgoPara=1:0::10:4:60" }, "field 2 (dump images) is ''" },
        UsageCase{ { "--prop", "vendor.debug.camera.oisAlgoPara=1:0:0:10:4:0" }, "frame rate of 0" },
        UsageCase{ { "--prop", "vendor.debug.camera.oisGainCalibrate=0:0:high" }, "field 2 (SR limit) is 'high'" },
        UsageCase{ { "--prop", "novalue" }, "expects NAME=VALUE" },
        UsageCase{ { "--eeprom", "OISGyroGainAndSRMatch=yes" }, "32-bit unsigned value" },
        UsageCase{ { "--frobnicate" }, "unknown option '--frobnicate'" },
        UsageCase{ { "gain" }, "unexpected argument 'gain'" },
        UsageCase{ { "--out", "a", "--out", "b" }, "given twice" }));

struct CompositionCase
{
    Words       words;
    const char* algoPara;      // the property the node gets
    uint32_t    verdictFrames; // what the node derives from it
    uint32_t    timeLimitMs;
    double      simFrameRateHz;
    double      simShakeHz;
    oisverify::FrameSource source;
};

void PrintTo(const CompositionCase& c, std::ostream* pOut) { *pOut << c.algoPara; }

class PropertyComposition : public ::testing::TestWithParam<CompositionCase> {};

// The property text, the node's derived values and the simulator always agree.
TEST_P(PropertyComposition, NodeAndSimulatorGetTheSameParameters)
{
    const CompositionCase& c = GetParam();
    RunConfig              config;
    std::string            error;
    ASSERT_TRUE(oisverify::ParseRunWords(c.words, &config, &error)) << error;
    const chihost::NameValueList& props = config.device.root.buildProperties;
    EXPECT_EQ(oisverify::EffectiveProperty(props, oisverify::kAlgoParaProperty), c.algoPara);
    EXPECT_EQ(config.params.verdictFrames, c.verdictFrames);
    EXPECT_EQ(config.params.timeLimitMs, c.timeLimitMs);
    EXPECT_EQ(config.scenario.sensor.frameRateHz, c.simFrameRateHz);
    EXPECT_EQ(config.scenario.shake.frequencyHz, c.simShakeHz);
    EXPECT_EQ(config.source, c.source);
}

using oisverify::FrameSource;
INSTANTIATE_TEST_SUITE_P(
    Table, PropertyComposition,
    ::testing::Values(
        CompositionCase{ {}, "1:0:0:120:4:60", 31, 688, 60, 4, FrameSource::Simulator },
        CompositionCase{ { "--freq", "2", "--fps", "30" }, "1:0:0:120:2:30", 31, 1240, 30, 2, FrameSource::Simulator },
        CompositionCase{ { "--drop", "10" }, "1:0:0:10:4:60", 31, 688, 60, 4, FrameSource::Simulator },
        CompositionCase{ { "--fps", "25" }, "1:0:0:120:4:25", 13, 520, 25, 4, FrameSource::Simulator },
        CompositionCase{ { "--freq", "3", "--fps", "120" }, "1:0:0:120:3:120", 81, 3240, 120, 3, FrameSource::Simulator },
        CompositionCase{ { "--debug-images", "--dump-images" }, "1:1:1:120:4:60", 31, 688, 60, 4,
                         FrameSource::DebugImages },
        CompositionCase{ { "--replay", "frames" }, "1:0:0:0:4:60", 31, 688, 60, 4, FrameSource::Replay },
        CompositionCase{ { "--replay", "frames", "--drop", "5" }, "1:0:0:5:4:60", 31, 688, 60, 4, FrameSource::Replay },
        // A property the user gives is read with the node's rules and steers the simulator too.
        CompositionCase{ { "--prop", "vendor.debug.camera.oisAlgoPara=x:0:0:30:2:30" }, "x:0:0:30:2:30", 31, 1240, 30, 2,
                         FrameSource::Simulator },
        CompositionCase{ { "--prop", "vendor.debug.camera.oisAlgoPara=1:1:0:30" }, "1:1:0:30", 31, 688, 60, 4,
                         FrameSource::DebugImages },
        CompositionCase{ { "--prop", "vendor.debug.camera.oisAlgoPara=1:0:0:10:0:60" }, "1:0:0:10:0:60", 60, 1333, 60, 0,
                         FrameSource::Simulator },
        CompositionCase{ { "--prop", "vendor.debug.camera.oisAlgoPara=" }, "", 31, 688, 60, 4, FrameSource::Simulator }));

// Field k counts only when the text has more than k fields; a trailing colon adds no field.
TEST(AlgoParaReading, FollowsTheNodesFieldRules)
{
    struct Case
    {
        const char* text;
        uint32_t    debug, drop, freq, fps;
    } cases[] = {
        { "", 0, 120, 4, 60 },         { "1:1:0:30:2:30", 1, 30, 2, 30 }, { "1:0:0:10:", 0, 10, 4, 60 },
        { "1:0:0:10:8", 0, 10, 8, 60 }, { "1:0:0:10:8:30", 0, 10, 8, 30 }, { "7", 0, 0, 4, 60 },
    };
    for (const Case& c : cases)
    {
        oisverify::AlgoParams params;
        std::string           error;
        ASSERT_TRUE(oisverify::ParseAlgoPara(c.text, &params, &error)) << c.text << ": " << error;
        EXPECT_EQ(params.debugMode, c.debug) << c.text;
        EXPECT_EQ(params.dropFrames, c.drop) << c.text;
        EXPECT_EQ(params.shakeFreqHz, c.freq) << c.text;
        EXPECT_EQ(params.frameRateHz, c.fps) << c.text;
    }
}

TEST(SrLimit, ComesFromTheThirdCalibrationField)
{
    struct Case
    {
        const char* text;
        double      limitDb;
    } cases[] = { { "", 18.0 }, { "0:0:20.5:0.05:0.2:10", 20.5 }, { "0:0:-3", -3.0 }, { "1:1", 0.0 } };
    for (const Case& c : cases)
    {
        double      limit = -1.0;
        std::string error;
        ASSERT_TRUE(oisverify::ParseSrLimit(c.text, &limit, &error)) << c.text;
        EXPECT_DOUBLE_EQ(limit, c.limitDb) << c.text;
    }
}

TEST(RunOptions, LimitAndGainsReachBuildProp)
{
    RunConfig   config;
    std::string error;
    ASSERT_TRUE(oisverify::ParseRunWords({ "--gain", "0.5,0.75", "--limit", "20" }, &config, &error)) << error;
    const chihost::NameValueList& props = config.device.root.buildProperties;
    EXPECT_EQ(oisverify::EffectiveProperty(props, oisverify::kGainCalibrateProperty), "0:0:20:0.05:0.2:10");
    EXPECT_EQ(oisverify::EffectiveProperty(props, "persist.vendor.camera.oisgyrogain.w"), "0.500000,0.750000");
    EXPECT_DOUBLE_EQ(config.srLimitDb, 20.0);
    EXPECT_DOUBLE_EQ(config.scenario.ois.gainX, 0.5);
    EXPECT_DOUBLE_EQ(config.scenario.ois.gainY, 0.75);
}

// A --prop of a composed name comes later in build.prop, so it is what the node reads.
TEST(RunOptions, UserPropertiesWinOverComposedOnes)
{
    RunConfig   config;
    std::string error;
    ASSERT_TRUE(oisverify::ParseRunWords({ "--gain", "0.5", "--prop", "persist.vendor.camera.oisgyrogain.w=1.1,1.2",
                                           "--prop", "vendor.debug.camera.oisGainCalibrate=0:0:21.5" },
                                         &config, &error))
        << error;
    const chihost::NameValueList& props = config.device.root.buildProperties;
    EXPECT_EQ(oisverify::EffectiveProperty(props, "persist.vendor.camera.oisgyrogain.w"), "1.1,1.2");
    EXPECT_DOUBLE_EQ(config.srLimitDb, 21.5);
    EXPECT_DOUBLE_EQ(config.scenario.ois.gainX, 0.5);
}

TEST(RunOptions, ScenarioAndLayoutFollowTheOptions)
{
    RunConfig   config;
    std::string error;
    ASSERT_TRUE(oisverify::ParseRunWords({ "--ois-off", "--amplitude", "100,50", "--noise", "0", "--seed", "9",
                                           "--size", "1920x1080", "--stride", "2048", "--out", "rel/out" },
                                         &config, &error))
        << error;
    const sim::Scenario& s = config.scenario;
    EXPECT_FALSE(s.ois.enabled);
    EXPECT_DOUBLE_EQ(s.shake.amplitudeXPx, 100.0);
    EXPECT_DOUBLE_EQ(s.shake.amplitudeYPx, 50.0);
    EXPECT_DOUBLE_EQ(s.sensor.noiseStdDn, 0.0);
    EXPECT_EQ(s.sensor.seed, 9u);
    EXPECT_EQ(s.sensor.widthPx, 1920);
    EXPECT_EQ(s.sensor.strideBytes, 2048);
    EXPECT_EQ(config.layout.Scanline(), 1080u);
    // The device root becomes the working directory, so paths are fixed before it opens.
    ASSERT_FALSE(config.outDir.empty());
    EXPECT_EQ(config.outDir[0], '/');
    EXPECT_NE(config.outDir.find("rel/out"), std::string::npos);
}

// The warning before a run: the discs sit 0.28 crop sides from the centre, so on a 540-pixel crop a
// residual beyond about 237 px peak to peak carries them out (the node then fails with -12).
TEST(RunOptions, WarnsWhenTheResidualShakeLeavesTheCrop)
{
    const struct
    {
        Words words;
        bool  leaves;
    } cases[] = {
        { {}, false },
        { { "--ois-off" }, false },
        { { "--ois-off", "--amplitude", "230" }, false },
        { { "--ois-off", "--amplitude", "240" }, true },
        { { "--ois-off", "--amplitude", "10,240" }, true },
        { { "--gain", "0.2", "--amplitude", "300" }, true },
        { { "--gain", "0.5", "--amplitude", "300" }, false },
        { { "--ois-off", "--size", "1024x768" }, true },
        { { "--ois-off", "--debug-images" }, false },
    };
    for (const auto& c : cases)
    {
        RunConfig   config;
        std::string error;
        ASSERT_TRUE(oisverify::ParseRunWords(c.words, &config, &error)) << error;
        EXPECT_EQ(oisverify::DiscsLeaveTheCrop(config), c.leaves) << ::testing::PrintToString(c.words);
    }
}

} // namespace
