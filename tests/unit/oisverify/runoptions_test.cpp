// Options of "oisverify run": usage errors, the test-parameter property composed from
// --freq/--fps/--drop and the mode flags, the node's own reading of that property, the SR limit,
// the scenario the simulator gets, and what --calibrate writes for the node, the calibration
// service and the simulated module.
#include <gtest/gtest.h>

#include "cli/calibrationoptions.h"
#include "cli/runoptions.h"
#include "report/runreport.h"

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
        // Values the node or the device would take silently and run with something else.
        UsageCase{ { "--prop", "vendor.debug.camera.oisAlgoPara=garbage" },
                   "is 'garbage', not the node's colon-separated fields" },
        UsageCase{ { "--setting", "enableOISGyroGainCalibraton=TRUE" },
                   "unknown setting 'enableOISGyroGainCalibraton'; the device reads enableOISGyroGainCalibration, " },
        UsageCase{ { "--setting", "enableSystemLog=yes" }, "setting enableSystemLog needs TRUE, FALSE, 1 or 0, got 'yes'" },
        UsageCase{ { "--setting", "logInfoMask=0x1FFFFFFFF" }, "setting logInfoMask needs a decimal or 0x-hexadecimal" },
        UsageCase{ { "--limit", "-5" }, "--limit needs an SR in dB above 0.1 and up to 100" },
        UsageCase{ { "--limit", "0.1" }, "got '0.1'" },
        UsageCase{ { "--limit", "100.5" }, "got '100.5'" },
        UsageCase{ { "--reference", "--ois-off" }, "--reference measures an OIS-off session" },
        UsageCase{ { "--reference", "--calibrate" }, "no meaning with --calibrate" },
        UsageCase{ { "--reference", "--replay", "dir" }, "--reference describes the simulated module" },
        UsageCase{ { "--out", "a", "--out", "b" }, "given twice" },
        // The gain search.
        UsageCase{ { "--fuse-id", "M1" }, "--fuse-id belongs to the gain search; give --calibrate too" },
        UsageCase{ { "--search", "0.05,0.2" }, "--search belongs to the gain search" },
        UsageCase{ { "--single-axis", "x" }, "--single-axis belongs to the gain search" },
        UsageCase{ { "--wait", "5" }, "--wait belongs to the gain search" },
        UsageCase{ { "--service-wait", "5" }, "--service-wait belongs to the gain search" },
        UsageCase{ { "--replay", "dir", "--swap-axes" }, "no meaning with --replay" },
        UsageCase{ { "--calibrate", "--replay", "dir" }, "recorded frames (--replay)" },
        UsageCase{ { "--calibrate", "--debug-images" }, "no gain moves" },
        UsageCase{ { "--calibrate", "--prop", "vendor.debug.camera.oisAlgoPara=1:1:0:30" }, "no gain moves" },
        UsageCase{ { "--calibrate", "--ois-off" }, "with --ois-off no gain acts" },
        UsageCase{ { "--calibrate", "--search", "0.05" }, "--search needs STEP,LIMIT" },
        UsageCase{ { "--calibrate", "--search", "0,0.2" }, "got '0,0.2'" },
        UsageCase{ { "--calibrate", "--search", "0.05,1.5" }, "LIMIT from 0 to 0.9" },
        UsageCase{ { "--calibrate", "--single-axis", "z" }, "--single-axis needs x or y" },
        UsageCase{ { "--calibrate", "--wait", "-1" }, "--wait needs a whole number from 0 to 1000" },
        UsageCase{ { "--calibrate", "--service-wait", "soon" }, "--service-wait needs a whole number" },
        UsageCase{ { "--calibrate", "--fuse-id", "A,B" }, "--fuse-id needs 1 to 64 letters" },
        UsageCase{ { "--calibrate", "--fuse-id", std::string(65, 'A') }, "--fuse-id needs 1 to 64" },
        UsageCase{ { "--calibrate", "--search", "0.1,0.2", "--prop", "vendor.debug.camera.oisGainCalibrate=0:0:18" },
                   "give one or the other" },
        UsageCase{ { "--calibrate", "--fuse-id", "A", "--prop", "vendor.camera.sensor.w.fuseID=FUSE0001B" },
                   "give one or the other" },
        UsageCase{ { "--calibrate", "--setting", "enableOISGyroGainCalibration=TRUE" }, "leave out the --setting" },
        UsageCase{ { "--calibrate", "--prop", "vendor.debug.camera.oisGainCalibrate=1:0:18:0.05:0.2:10" },
                   "names camera role 1" },
        UsageCase{ { "--calibrate", "--prop", "vendor.debug.camera.oisGainCalibrate=0:0:18" },
                   "gain step of 0 (field 3): the node's search would never end" },
        UsageCase{ { "--calibrate", "--prop", "vendor.debug.camera.oisGainCalibrate=0:0:18:fine:0.2" },
                   "field 3 (gain step) is 'fine'" }));

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
        { "1:0:0:10:8", 0, 10, 8, 60 }, { "1:0:0:10:8:30", 0, 10, 8, 30 }, { "x:0:0:10:8:30", 0, 10, 8, 30 },
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
    // One field is all field 0, which the node skips: every parameter would silently default.
    oisverify::AlgoParams params;
    std::string           error;
    EXPECT_FALSE(oisverify::ParseAlgoPara("7", &params, &error));
    EXPECT_EQ(error, "vendor.debug.camera.oisAlgoPara is '7', not the node's colon-separated fields (e.g. "
                     "1:0:0:120:4:60): the node skips field 0 and would run with every other field defaulted");
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

struct CalibrationCase
{
    Words       words;
    const char* gainCalibrate; // the property the node reads its search from
    const char* fuseIdValue;   // the module's fuse-ID property
    const char* fuseId;        // the ID the simulated module answers to
    uint32_t    eepromFlag;
    bool        moduleSwapped;
    uint32_t    singleAxis;
    double      step, limit;
    uint32_t    settleFrames;
};

void PrintTo(const CalibrationCase& c, std::ostream* pOut) { *pOut << c.gainCalibrate; }

class CalibrationComposition : public ::testing::TestWithParam<CalibrationCase> {};

// The node's search, the module's fuse ID and the axis pairing agree with the simulated module.
TEST_P(CalibrationComposition, NodeServiceAndModuleAgree)
{
    const CalibrationCase& c = GetParam();
    RunConfig              config;
    std::string            error;
    ASSERT_TRUE(oisverify::ParseRunWords(c.words, &config, &error)) << error;
    const chihost::NameValueList& props = config.device.root.buildProperties;
    EXPECT_EQ(oisverify::EffectiveProperty(props, oisverify::kGainCalibrateProperty), c.gainCalibrate);
    EXPECT_EQ(oisverify::EffectiveProperty(props, oisverify::kFuseIdProperty), c.fuseIdValue);
    EXPECT_EQ(oisverify::EffectiveProperty(config.device.root.overrideSettings, "enableOISGyroGainCalibration"), "TRUE");
    const oisverify::CalibrationConfig& calibration = config.calibration;
    EXPECT_TRUE(calibration.enabled);
    EXPECT_EQ(calibration.fuseId, c.fuseId);
    ASSERT_EQ(config.device.host.eepromCustomInfo.size(), 1u) << "one flag, the user's or the composed one";
    EXPECT_EQ(config.device.host.eepromCustomInfo[0].second, c.eepromFlag);
    EXPECT_EQ(config.scenario.ois.swapGyroAxes, c.moduleSwapped);
    EXPECT_EQ(calibration.singleAxis, c.singleAxis);
    EXPECT_NEAR(calibration.stepFraction, c.step, 1e-7);
    EXPECT_NEAR(calibration.limitFraction, c.limit, 1e-7);
    EXPECT_EQ(calibration.settleFrames, c.settleFrames);
}

INSTANTIATE_TEST_SUITE_P(
    Table, CalibrationComposition,
    ::testing::Values(
        CalibrationCase{ { "--calibrate" }, "0:0:18:0.05:0.2:10", "FUSE0009ZKSIM0001", "ZKSIM0001", 0, false, 0, 0.05,
                         0.2, 10 },
        CalibrationCase{ { "--calibrate", "--swap-axes", "--fuse-id", "M-1", "--search", "0.1,0.3", "--single-axis", "y",
                           "--wait", "4", "--limit", "20" },
                         "0:2:20:0.1:0.3:4", "FUSE0003M-1", "M-1", 1, true, 2, 0.1, 0.3, 4 },
        // The user's property is read as the node reads it; the user's EEPROM flag stays, even wrong.
        CalibrationCase{ { "--calibrate", "--prop", "vendor.debug.camera.oisGainCalibrate=0:1:19.5:0.02:0.1:3.7" },
                         "0:1:19.5:0.02:0.1:3.7", "FUSE0009ZKSIM0001", "ZKSIM0001", 0, false, 1, 0.02, 0.1, 3 },
        CalibrationCase{ { "--calibrate", "--eeprom", "OISGyroGainAndSRMatch=1" }, "0:0:18:0.05:0.2:10",
                         "FUSE0009ZKSIM0001", "ZKSIM0001", 1, false, 0, 0.05, 0.2, 10 },
        CalibrationCase{ { "--calibrate", "--prop", "vendor.camera.sensor.w.fuseID=FUSE0004ABCDxyz" },
                         "0:0:18:0.05:0.2:10", "FUSE0004ABCDxyz", "ABCD", 0, false, 0, 0.05, 0.2, 10 }));

TEST(RunOptions, SwapAxesWithoutCalibrationOnlyShapesTheModule)
{
    RunConfig   config;
    std::string error;
    ASSERT_TRUE(oisverify::ParseRunWords({ "--swap-axes" }, &config, &error)) << error;
    EXPECT_TRUE(config.scenario.ois.swapGyroAxes);
    EXPECT_FALSE(config.calibration.enabled);
    EXPECT_TRUE(config.device.host.eepromCustomInfo.empty());
    EXPECT_TRUE(config.device.root.overrideSettings.empty());
    EXPECT_EQ(oisverify::EffectiveProperty(config.device.root.buildProperties, oisverify::kGainCalibrateProperty), "");
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

namespace
{

std::vector<std::string> WarningsOf(const Words& words)
{
    RunConfig   config;
    std::string error;
    EXPECT_TRUE(oisverify::ParseRunWords(words, &config, &error)) << error;
    return config.warnings;
}

// Accepted, but with a warning before the run: what the node will do with them.
TEST(RunWarnings, NameWhatTheNodeDoesWithAcceptedValues)
{
    EXPECT_EQ(WarningsOf({}), std::vector<std::string>{});
    EXPECT_EQ(WarningsOf({ "--limit", "18.01" }), std::vector<std::string>{});
    EXPECT_EQ(WarningsOf({ "--limit", "4" }),
              std::vector<std::string>{ "an SR limit of 4.00 dB passes a module without OIS (about 4 dB at the "
                                        "node's reference shake)" });
    EXPECT_EQ(WarningsOf({ "--prop", "vendor.debug.camera.oisGainCalibrate=0:0:-3" }),
              std::vector<std::string>{ "an SR limit of -3.00 dB passes a module without OIS (about 4 dB at the "
                                        "node's reference shake), and the node's calibration refuses it (error -20)" });
    EXPECT_EQ(WarningsOf({ "--prop", "vendor.debug.camera.oisAlgoPara=1:0:0:10:" }),
              std::vector<std::string>{ "vendor.debug.camera.oisAlgoPara has 4 of its 6 fields; the node skips field 0 "
                                        "and takes the missing ones as 0 or its defaults: drop 10 frames, 4 Hz, 60 fps" });
    EXPECT_EQ(WarningsOf({ "--prop", "vendor.debug.camera.oisAlgoPara=1:0:0:10:4:60" }), std::vector<std::string>{});
}

TEST(RunWarnings, ReferenceRunIsAskedFor)
{
    RunConfig   config;
    std::string error;
    ASSERT_TRUE(oisverify::ParseRunWords({ "--reference" }, &config, &error)) << error;
    EXPECT_TRUE(config.reference);
    ASSERT_TRUE(oisverify::ParseRunWords({}, &config, &error)) << error;
    EXPECT_FALSE(config.reference);
}

} // namespace

namespace
{

std::string Header(const Words& words)
{
    RunConfig   config;
    std::string error;
    EXPECT_TRUE(oisverify::ParseRunWords(words, &config, &error)) << error;
    char*  pText = nullptr;
    size_t size  = 0;
    FILE*  pOut  = open_memstream(&pText, &size);
    oisverify::PrintRunHeader(pOut, config);
    fclose(pOut);
    std::string text(pText, size);
    free(pText);
    return text;
}

// The node's fixed rules are named before the run, with the way out.
TEST(RunHeader, WarnsAboutTheNodesReferenceShakeAndTimeLimit)
{
    EXPECT_EQ(Header({}).find("warning"), std::string::npos) << Header({});
    EXPECT_NE(Header({ "--ois-off", "--amplitude", "0" })
                  .find("warning       no shake on either axis: the node's SR refers to a fixed 181.248 px shake, not "
                        "to the shake applied, so a still chart reads as a perfect module"),
              std::string::npos);
    EXPECT_NE(Header({ "--amplitude", "181.248,0" }).find("no shake on the vertical axis"), std::string::npos);
    EXPECT_NE(Header({ "--ois-off", "--amplitude", "90" })
                  .find("the shake is 90.00 x 90.00 px, not the node's fixed reference of 181.248 px: the node's SR "
                        "reads 10 log10(181.248 / shake) = +3.04 / +3.04 dB off"),
              std::string::npos);
    EXPECT_NE(Header({ "--fps", "24" }).find("warning       expect error -13: the node allows the 13 frame periods "
                                             "of a verdict 520 ms, so frames must come faster than 25 fps"),
              std::string::npos)
        << Header({ "--fps", "24" });
    EXPECT_NE(Header({ "--fps", "25" }).find("expect error -13"), std::string::npos);
    EXPECT_EQ(Header({ "--fps", "26" }).find("expect error -13"), std::string::npos);
    EXPECT_EQ(Header({ "--fps", "30" }).find("expect error -13"), std::string::npos);
    EXPECT_NE(Header({ "--reference" }).find("reference     the node measures an OIS-off session"), std::string::npos);
    EXPECT_NE(Header({ "--limit", "3" }).find("warning       an SR limit of 3.00 dB passes"), std::string::npos);
}

} // namespace
