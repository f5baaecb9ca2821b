// The gyro-gain search on the node's own code, request by request: how long a gain settles, the
// persisted text of every target from bases other than 1.0 (which pins the single-precision order
// of the target formula), which record wins a tie, and the calibration log's lines.
#include <gtest/gtest.h>

#include "enginerig.h"

namespace
{

using enginerig::EngineRig;
using enginerig::RigOptions;
using enginerig::Run;
using enginerig::Shifted;

// Runs that end a measurement with the given horizontal and vertical blur: the verdict falls on
// the fifth success and the ring of four then holds runs 2 to 5.
std::vector<Run> Measurement(DOUBLE horBlur, DOUBLE verBlur)
{
    return { Shifted(0.0, 0.0), Shifted(horBlur, verBlur), Shifted(0.0, 0.0), Shifted(horBlur, verBlur),
             Shifted(0.0, 0.0) };
}

// A verification at 9.59 dB, below the default limit of 18 dB, then one measurement per target.
void ScriptSearch(EngineRig& rig, const std::vector<std::pair<DOUBLE, DOUBLE>>& targetBlurs)
{
    rig.Script(Measurement(50.0, 50.0));
    for (const auto& blur : targetBlurs)
    {
        rig.Script(Measurement(blur.first, blur.second));
    }
}

// "gainX,gainY" of the module's record after every request on which the persist file changed.
std::vector<std::string> RunCollectingPersistedGains(EngineRig& rig)
{
    std::vector<std::string> gains;
    std::string              last;
    for (int i = 0; (i < 500) && (rig.Node().GetOISVerifyState() != VerifyDoneState) &&
                    (rig.Node().GetOISVerifyState() >= 0);
         i++)
    {
        rig.Request();
        const std::string text = rig.PersistFile();
        if (text != last)
        {
            last = text;
            const std::string prefix = "1,RIG00001,";
            EXPECT_EQ(text.rfind(prefix, 0), 0u) << text;
            const std::string rest = text.substr(prefix.size());
            gains.push_back(rest.substr(0, rest.rfind(',')));
        }
    }
    return gains;
}

struct SettleCase
{
    const char*        calibPara;
    std::vector<INT32> published; // from the request that publishes 21
};

void PrintTo(const SettleCase& c, std::ostream* pOut) { *pOut << c.calibPara; }

class SettleCount : public ::testing::TestWithParam<SettleCase> {};

// The request that applies a gain publishes 21; the wait's requests publish 22, the last of them
// moves to 23, and measuring starts on the request after it.
TEST_P(SettleCount, WaitsTheGivenNumberOfRequests)
{
    RigOptions options;
    options.calibrate = true;
    options.calibPara = GetParam().calibPara;
    EngineRig rig(options);
    rig.StartVerifying();
    ScriptSearch(rig, { { 1.0, 1.0 } });
    for (int i = 0; i < 16; i++)
    {
        rig.Request();
    }
    const std::vector<INT32>& published = rig.Published();
    auto first21 = std::find(published.begin(), published.end(), SetGainTargetState);
    ASSERT_NE(first21, published.end());
    ASSERT_GE(published.end() - first21, static_cast<ptrdiff_t>(GetParam().published.size()));
    EXPECT_EQ(std::vector<INT32>(first21, first21 + GetParam().published.size()), GetParam().published);
    // Nothing of the measurement was used while waiting: all five runs went to the one target.
    EXPECT_EQ(rig.ScriptLeft(), 0u);
    EXPECT_EQ(ChiOisVerifyNodeTestPeer::GainRecords(rig.Node()).size(), 1u);
}

INSTANTIATE_TEST_SUITE_P(Waits, SettleCount,
                         ::testing::Values(SettleCase{ "0:0:18.0:0.05:0.2:2", { 21, 22, 22, 23, 23 } },
                                           SettleCase{ "0:0:18.0:0.05:0.2:1", { 21, 22, 23, 23 } },
                                           SettleCase{ "0:0:18.0:0.05:0.2:3", { 21, 22, 22, 22, 23 } }));

struct SearchCase
{
    const char*              name;
    FLOAT                    baseX;
    FLOAT                    baseY;
    std::vector<std::string> persisted; // each target, then the selected pair
};

void PrintTo(const SearchCase& c, std::ostream* pOut) { *pOut << c.name; }

class GainTargets : public ::testing::TestWithParam<SearchCase> {};

// Target n = (base × step) × n + base × (1 − limit) in single precision. Computing base × (1 −
// limit + step × n) instead moves 7200 to 7200.000488 and 11727.75 to 11727.750977. Every
// target measures the same, so the first one is selected and written last.
TEST_P(GainTargets, PersistTheSinglePrecisionTargets)
{
    RigOptions options;
    options.calibrate = true;
    options.baseGainX = GetParam().baseX;
    options.baseGainY = GetParam().baseY;
    EngineRig rig(options);
    rig.StartVerifying();
    ScriptSearch(rig, std::vector<std::pair<DOUBLE, DOUBLE>>(9, { 1.0, 1.0 }));
    EXPECT_EQ(RunCollectingPersistedGains(rig), GetParam().persisted);
    EXPECT_EQ(rig.Node().GetOISVerifyState(), VerifyDoneState);
    EXPECT_EQ(ChiOisVerifyNodeTestPeer::CalibCount(rig.Node()), 10);
    EXPECT_EQ(rig.Log().ChiLinesStartingWith("Set gain target oisCalibCnt = ").size(), 10u);
}

INSTANTIATE_TEST_SUITE_P(
    Bases, GainTargets,
    ::testing::Values(
        SearchCase{ "Base1p25And8000", 1.25f, 8000.0f,
                    { "1.000000,6400.000000", "1.062500,6800.000000", "1.125000,7200.000000",
                      "1.187500,7600.000000", "1.250000,8000.000000", "1.312500,8400.000000",
                      "1.375000,8800.000000", "1.437500,9200.000000", "1.500000,9600.000000",
                      "1.000000,6400.000000" } },
        SearchCase{ "Base12345And0p98", 12345.0f, 0.98f,
                    { "9876.000000,0.784000", "10493.250000,0.833000", "11110.500000,0.882000",
                      "11727.750000,0.931000", "12345.000000,0.980000", "12962.250000,1.029000",
                      "13579.500000,1.078000", "14196.750000,1.127000", "14814.000000,1.176000",
                      "9876.000000,0.784000" } }),
    [](const ::testing::TestParamInfo<SearchCase>& info) { return std::string(info.param.name); });

class GainSelection : public ::testing::Test
{
protected:
    // Horizontal blur 2 px (the best) first at target 1 and again at 2; vertical 1 px first at
    // target 4 and again at 6.
    void RunSearch(INT32 gyroGainAndSRMatch)
    {
        RigOptions options;
        options.calibrate          = true;
        options.gyroGainAndSRMatch = gyroGainAndSRMatch;
        m_rig.reset(new EngineRig(options));
        m_rig->StartVerifying();
        ScriptSearch(*m_rig,
                     { { 4, 3 }, { 2, 3 }, { 2, 3 }, { 3, 3 }, { 5, 1 }, { 5, 6 }, { 5, 1 }, { 5, 6 }, { 5, 6 } });
        ASSERT_EQ(m_rig->RunToEnd(), VerifyDoneState);
    }

    std::unique_ptr<EngineRig> m_rig;
};

TEST_F(GainSelection, EarlierRecordWinsATiePerAxis)
{
    RunSearch(0);
    auto lines = m_rig->Log().ChiLinesStartingWith("select Gain write to persist");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].message, "select Gain write to persist, vertorSize = 9 Gain[0.85, 1.00]  SR[23.57, 26.58]");
    EXPECT_EQ(lines[0].function, "OISCalibrate");
    EXPECT_EQ(m_rig->PersistFile().rfind("1,RIG00001,0.850000,1.000000,", 0), 0u) << m_rig->PersistFile();
}

// With the EEPROM pairing 1 the X gain follows the vertical SR and Y the horizontal one.
TEST_F(GainSelection, SwappedPairingSelectsByTheOtherAxis)
{
    RunSearch(1);
    auto lines = m_rig->Log().ChiLinesStartingWith("select Gain write to persist");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].message, "select Gain write to persist, vertorSize = 9 Gain[1.00, 0.85]  SR[26.58, 23.57]");
}

TEST_F(GainSelection, CalibrationLogHasOneLinePerMeasuredTarget)
{
    RunSearch(0);
    ChiOisVerifyNodeTestPeer::FlushTextLogs(m_rig->Node());
    const std::string log = m_rig->Root().ReadFile("/data/vendor/camera/oisverify/oisGyroGainCalibrate.txt");
    // Frames 0-4 verify; 5 applies the first target, 6 and 7 wait, 8-12 measure it. The request
    // that completes a measurement also applies the next target (its calibration step runs after
    // the verdict), so each further target takes seven frames.
    const std::string expectedStart =
        "///////////////// zelk OIS gyro gain calibrate /////////////////\n"
        "Verify Done frameNum = 12 oisCalibCnt = 0 m_OISGyroGainAndSRMatch = 0 Gain[0.80, 0.80] SR[20.56, 21.81] "
        "Blur[4.00, 3.00]\n"
        "Verify Done frameNum = 19 oisCalibCnt = 1 m_OISGyroGainAndSRMatch = 0 Gain[0.85, 0.85] SR[23.57, 21.81] "
        "Blur[2.00, 3.00]\n";
    EXPECT_EQ(log.substr(0, expectedStart.size()), expectedStart);
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 10);
    const std::string last = "Verify Done frameNum = 68 oisCalibCnt = 8 m_OISGyroGainAndSRMatch = 0 Gain[1.20, 1.20] "
                             "SR[19.59, 18.80] Blur[5.00, 6.00]\n";
    EXPECT_EQ(log.substr(log.size() - last.size()), last);
}

} // namespace
