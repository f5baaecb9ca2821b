// Blur, SR and verdict on the node's own code: the SR formula to the last bit of its float, an SR
// exactly at the limit, the time limit hit exactly, failed runs counted in total and taking part
// in the blur, and the first blur on the save after the ring filled.
#include <gtest/gtest.h>

#include "enginerig.h"

namespace
{

using enginerig::EngineRig;
using enginerig::RigOptions;
using enginerig::Run;
using enginerig::Shifted;

struct SRCase
{
    FLOAT       blur;
    FLOAT       sr;      // the float the node must store, bit for bit
    const char* logLine; // its "Calculate SR" line
};

void PrintTo(const SRCase& c, std::ostream* pOut) { *pOut << "blur " << c.blur; }

class SRFormula : public ::testing::TestWithParam<SRCase>
{
protected:
    chihost::LogCapture m_log;
    ChiOisVerifyNode    m_node;
};

// The values are those of 10 log10(181.248 / blur) + 4 in double precision, stored as float; a
// float computation, another constant or another offset changes at least one of them.
TEST_P(SRFormula, StoresTheDoublePrecisionResultAsFloat)
{
    const FLOAT  b    = GetParam().blur;
    OISPointBlur blur = { { b, 99.0f }, { b, 99.0f }, { 99.0f, b }, { 99.0f, b } };
    ChiOisVerifyNodeTestPeer::SetPointBlur(m_node, blur);
    ChiOisVerifyNodeTestPeer::CalculateSR(m_node);
    const OISVerifyResult result = ChiOisVerifyNodeTestPeer::VerifyResult(m_node);
    EXPECT_EQ(result.horSR, GetParam().sr);
    EXPECT_EQ(result.verSR, GetParam().sr);
    EXPECT_EQ(result.horBlur, b);
    EXPECT_EQ(result.verBlur, b);
    auto lines = m_log.ChiLines(GetParam().logLine);
    ASSERT_EQ(lines.size(), 1u) << GetParam().logLine;
    EXPECT_EQ(lines[0].function, "CalculateSR");
}

INSTANTIATE_TEST_SUITE_P(
    Blurs, SRFormula,
    ::testing::Values(
        SRCase{ 1.81248f, 0x1.8p+4f, "Calculate SR horSR = 24.00 horBlur = 1.81 verSR = 24.00 verBlur = 1.81 " },
        SRCase{ 1.0f, 0x1.a952ep+4f, "Calculate SR horSR = 26.58 horBlur = 1.00 verSR = 26.58 verBlur = 1.00 " },
        SRCase{ 10.0f, 0x1.0952ep+4f, "Calculate SR horSR = 16.58 horBlur = 10.00 verSR = 16.58 verBlur = 10.00 " },
        SRCase{ 21.3f, 0x1.a990e2p+3f, "Calculate SR horSR = 13.30 horBlur = 21.30 verSR = 13.30 verBlur = 21.30 " }));

TEST(SRFormulaAxes, HorizontalFromUpperAndLowerXVerticalFromLeftAndRightY)
{
    chihost::LogCapture log;
    ChiOisVerifyNode    node;
    // Only the four spreads that count differ from 1000; their means are 1.5 and 3.0.
    OISPointBlur blur = { { 1.0f, 1000.0f }, { 2.0f, 1000.0f }, { 1000.0f, 2.5f }, { 1000.0f, 3.5f } };
    ChiOisVerifyNodeTestPeer::SetPointBlur(node, blur);
    ChiOisVerifyNodeTestPeer::CalculateSR(node);
    EXPECT_EQ(ChiOisVerifyNodeTestPeer::VerifyResult(node).horBlur, 1.5f);
    EXPECT_EQ(ChiOisVerifyNodeTestPeer::VerifyResult(node).verBlur, 3.0f);
}

// Five runs whose x and y alternate between 0 and the blur: the last four span exactly the blur.
std::vector<Run> Measurement(DOUBLE blur, UINT32 runs = 5)
{
    std::vector<Run> script;
    for (UINT32 i = 0; i < runs; i++)
    {
        script.push_back((i % 2 == 0) ? Shifted(0.0, 0.0) : Shifted(blur, blur));
    }
    return script;
}

struct LimitCase
{
    const char* calibPara;
    INT32       expected; // 4: passed, 20: calibration starts
};

void PrintTo(const LimitCase& c, std::ostream* pOut) { *pOut << c.calibPara; }

class SRAtTheLimit : public ::testing::TestWithParam<LimitCase> {};

// A blur of 1.81248 px gives exactly 24.0 dB on both axes.
TEST_P(SRAtTheLimit, PassesOnlyWhenNotBelow)
{
    RigOptions options;
    options.calibrate = true;
    options.calibPara = GetParam().calibPara;
    EngineRig rig(options);
    rig.StartVerifying();
    rig.Script(Measurement(1.81248));
    for (int i = 0; i < 5; i++)
    {
        rig.Request();
    }
    ASSERT_EQ(ChiOisVerifyNodeTestPeer::VerifyResult(rig.Node()).horSR, 24.0f);
    EXPECT_EQ(rig.Published().back(), GetParam().expected);
    if (GetParam().expected == VerifyDoneState)
    {
        EXPECT_EQ(rig.Node().GetOISVerifyState(), VerifyDoneState);
        rig.Request();
        EXPECT_TRUE(rig.Log().ChiLinesStartingWith("Set gain target").empty());
        EXPECT_TRUE(rig.PersistFile().empty());
    }
    else
    {
        EXPECT_EQ(rig.Node().GetOISVerifyState(), SetGainTargetState);
    }
}

INSTANTIATE_TEST_SUITE_P(Limits, SRAtTheLimit,
                         ::testing::Values(LimitCase{ "0:0:24.0:0.05:0.2:2", 4 },
                                           LimitCase{ "0:0:24.000002:0.05:0.2:2", 20 }));

struct DurationCase
{
    UINT64 lastStepNs; // clock step of each of the four runs after the first success
    INT32  expected;
    INT32  durationMs;
};

void PrintTo(const DurationCase& c, std::ostream* pOut) { *pOut << c.lastStepNs << " ns steps"; }

class TimeLimit : public ::testing::TestWithParam<DurationCase> {};

// The limit is 1000 ms; the verdict falls on the fifth success, four steps after the first.
TEST_P(TimeLimit, EndsInMinus13FromTheLimitOn)
{
    EngineRig rig;
    rig.StartVerifying();
    rig.Script(Measurement(1.0));
    rig.Request();
    for (int i = 0; i < 4; i++)
    {
        rig.Request(GetParam().lastStepNs);
    }
    EXPECT_EQ(ChiOisVerifyNodeTestPeer::VerifyDurationMs(rig.Node()), GetParam().durationMs);
    EXPECT_EQ(rig.Node().GetOISVerifyState(), GetParam().expected);
    const std::string limitLine =
        "verify duration time " + std::to_string(GetParam().durationMs) + " ms is bigger than limit";
    EXPECT_EQ(rig.Log().HasChiLine('E', limitLine), GetParam().expected == ErrorStateTimeout);
}

INSTANTIATE_TEST_SUITE_P(Durations, TimeLimit,
                         ::testing::Values(DurationCase{ 250000000, -13, 1000 }, DurationCase{ 249750000, 4, 999 },
                                           DurationCase{ 400000000, -13, 1600 }));

struct SkipCase
{
    const char* name;
    std::string pattern; // per request: 'o' success, 'f' failure (-100)
    INT32       expected;
};

void PrintTo(const SkipCase& c, std::ostream* pOut) { *pOut << c.name; }

class SkippedFrames : public ::testing::TestWithParam<SkipCase> {};

// A verdict needs nine successes here, so six failures can fall between them.
TEST_P(SkippedFrames, SixFailuresInTotalEndTheMeasurement)
{
    RigOptions options;
    options.minFrameCount = 8;
    EngineRig rig(options);
    rig.StartVerifying();
    for (char c : GetParam().pattern)
    {
        rig.Script(Shifted(0.0, 0.0, (c == 'o') ? 0 : -100));
    }
    for (size_t i = 0; i < GetParam().pattern.size(); i++)
    {
        rig.Request();
    }
    EXPECT_EQ(rig.Node().GetOISVerifyState(), GetParam().expected);
    EXPECT_EQ(rig.Log().HasChiLine('E', "m_skipAlgoFrameNum: 6 m_algoReturn: -100 too many skip algo frame"),
              GetParam().expected == ErrorStateTooManySkips);
}

INSTANTIATE_TEST_SUITE_P(
    Patterns, SkippedFrames,
    ::testing::Values(SkipCase{ "SixApart", "ofofofofofof", -12 }, SkipCase{ "SixInARow", "offffff", -12 },
                      SkipCase{ "FiveApart", "ofofofofofooooo", 4 }),
    [](const ::testing::TestParamInfo<SkipCase>& info) { return std::string(info.param.name); });

TEST(FailedRuns, TakePartInTheBlur)
{
    EngineRig rig;
    rig.StartVerifying();
    // Successes all at 0; one failed run in the last four saves sits 5 px away on both axes.
    rig.Script({ Shifted(0.0, 0.0), Shifted(0.0, 0.0), Shifted(5.0, 5.0, -100), Shifted(0.0, 0.0),
                 Shifted(0.0, 0.0), Shifted(0.0, 0.0) });
    for (int i = 0; i < 6; i++)
    {
        rig.Request();
    }
    ASSERT_EQ(rig.Node().GetOISVerifyState(), VerifyDoneState);
    EXPECT_EQ(ChiOisVerifyNodeTestPeer::VerifyResult(rig.Node()).horBlur, 5.0f);
    EXPECT_EQ(ChiOisVerifyNodeTestPeer::VerifyResult(rig.Node()).verBlur, 5.0f);
    EXPECT_EQ(ChiOisVerifyNodeTestPeer::SkippedFrames(rig.Node()), 1u);
}

TEST(RingBuffer, FirstBlurOnTheSaveAfterTheRingFilled)
{
    EngineRig rig; // ring of 4
    rig.StartVerifying();
    rig.Script({ Shifted(0.0, 0.0), Shifted(1.0, 2.0), Shifted(0.0, 0.0), Shifted(3.0, 0.0), Shifted(0.5, 0.5) });
    for (int i = 0; i < 4; i++)
    {
        rig.Request();
    }
    EXPECT_EQ(ChiOisVerifyNodeTestPeer::BlurValid(rig.Node()), 0);
    EXPECT_TRUE(rig.Log().ChiLinesStartingWith("upBlur[").empty());

    rig.Request();
    EXPECT_EQ(ChiOisVerifyNodeTestPeer::BlurValid(rig.Node()), 1);
    // Over saves 2 to 5 (the first was overwritten): x spans 0..3, y spans 0..2.
    auto lines = rig.Log().ChiLinesStartingWith("upBlur[");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].message, "upBlur[3.00, 0.00] downBlur[3.00, 0.00] leftBlur[0.00, 2.00] rightBlur[0.00, 2.00]");
    EXPECT_EQ(lines[0].function, "CalculatePointBlur");
}

TEST(PointPositionLog, OneLinePerSavedResult)
{
    EngineRig rig;
    rig.StartVerifying();
    rig.Script({ Shifted(0.0, 0.0), Shifted(1.25, -0.5, -1) });
    rig.Request();
    rig.Request();
    ChiOisVerifyNodeTestPeer::FlushTextLogs(rig.Node());
    const std::string expected =
        "frameNum = 0 index = 0 algoReturn = 0 up[360.00,180.00] down[360.00,540.00] left[180.00,360.00] "
        "right[540.00,360.00]  \n"
        "frameNum = 1 index = 1 algoReturn = -1 up[361.25,180.00] down[361.25,540.00] left[180.00,359.50] "
        "right[540.00,359.50]  \n";
    EXPECT_EQ(rig.Root().ReadFile("/data/vendor/camera/oisverify/oisVerify_point_position.txt"), expected);
}

} // namespace
