// The report's text byte for byte in calibration mode (after a search, and when the verification
// passed so no search ran), unsigned parameters shown as unsigned, and the frame rate as the
// float's own decimal text.
#include <gtest/gtest.h>

#include "enginerig.h"

namespace
{

const char kReport[] = "/data/vendor/camera/oisverify/oisVerify.json";

ChiOisVerifyNodeTestPeer::Measurement Measured()
{
    ChiOisVerifyNodeTestPeer::Measurement m = {};
    m.cropLength    = 720;
    m.algoFps       = 59.94f;
    m.dumpImageProp = 0;
    m.debugMode     = 1;
    m.dropFrameNum  = 10;
    m.testFreq      = 4;
    m.minFrameCount = 31;
    m.maxVerifyTime = 688;
    m.skipFrames    = 0;
    m.algoReturn    = 0;
    m.horSR         = 17.5f;
    m.verSR         = 19.25f;
    m.horBlur       = 3.0f;
    m.verBlur       = 2.125f;
    m.baseGainX     = 1.0f;
    m.baseGainY     = 1.0f;
    return m;
}

// Written out by hand: the values above with the selected record {0.85, 1.1, 23.5, 21}. The rate
// 59.94f is the float 59.939998626..., widened and printed with six decimals.
const char kCalibrationReport[] =
    "{\n"
    "\t\"Version\":\t{\n"
    "\t\t\"version\":\t\"V1.0\"\n"
    "\t},\n"
    "\t\"AlgoRunningEnvInfo\":\t{\n"
    "\t\t\"algoInput\":\t{\n"
    "\t\t\t\"width\":\t720,\n"
    "\t\t\t\"height\":\t720,\n"
    "\t\t\t\"algoExecFPS\":\t59.939999\n"
    "\t\t},\n"
    "\t\t\"InitParam\":\t{\n"
    "\t\t\t\"isDumpImage\":\t0,\n"
    "\t\t\t\"isDebugMode\":\t1,\n"
    "\t\t\t\"dropFrameNum\":\t10,\n"
    "\t\t\t\"oisStationFreq\":\t4,\n"
    "\t\t\t\"minFrameLimit\":\t31,\n"
    "\t\t\t\"maxExecTime\":\t688\n"
    "\t\t}\n"
    "\t},\n"
    "\t\"Result\":\t{\n"
    "\t\t\"SR\":\t{\n"
    "\t\t\t\"oisVerifyState\":\t4,\n"
    "\t\t\t\"skipAlgoFrameNum\":\t0,\n"
    "\t\t\t\"algoReturnValue\":\t0,\n"
    "\t\t\t\"horSR\":\t23.500000,\n"
    "\t\t\t\"verSR\":\t21,\n"
    "\t\t\t\"horBlur\":\t3,\n"
    "\t\t\t\"verBlur\":\t2.125000\n"
    "\t\t},\n"
    "\t\t\"GyroGainCalibrate\":\t{\n"
    "\t\t\t\"isGyroGainCalibrate\":\t1,\n"
    "\t\t\t\"horGain\":\t0.850000,\n"
    "\t\t\t\"verGain\":\t1.100000\n"
    "\t\t}\n"
    "\t}\n"
    "}";

class ReportTextTest : public ::testing::Test
{
protected:
    void SetUp() override { m_root.MakeDirs("/data/vendor/camera/oisverify"); }

    void Finish()
    {
        m_node.SetOISVerifyState(StartState);
        m_node.SetOISVerifyState(VerifyingState);
        m_node.SetOISVerifyState(VerifyDoneState);
    }

    // The line of one key, without its trailing comma.
    std::string Item(const std::string& key)
    {
        const std::string text  = m_root.ReadFile(kReport);
        const size_t      start = text.find("\"" + key + "\":\t");
        if (start == std::string::npos)
        {
            return "<missing>";
        }
        const size_t end  = text.find('\n', start);
        std::string  line = text.substr(start, end - start);
        return (line.back() == ',') ? line.substr(0, line.size() - 1) : line;
    }

    testsupport::TempDeviceRoot m_root;
    chihost::LogCapture         m_log;
    ChiOisVerifyNode            m_node;
};

TEST_F(ReportTextTest, CalibrationReportMatchesTheReferenceByteForByte)
{
    ChiOisVerifyNodeTestPeer::SetMeasurement(m_node, Measured());
    ChiOisVerifyNodeTestPeer::SetCalibration(m_node, 1, { 0.85f, 1.1f, 23.5f, 21.0f });
    Finish();
    EXPECT_EQ(m_root.ReadFile(kReport), kCalibrationReport);
    EXPECT_TRUE(m_log.HasChiLine('I', "Generate json file, m_isGyroGainCalib = 1,  SR[23.50, 21.00]"));
}

// Calibration on and the verification passed: no record was selected, and the report shows the
// empty selection (zeros), not the measured SR or the gains in force.
TEST_F(ReportTextTest, CalibrationModeWithAPassingVerificationShowsTheEmptySelection)
{
    ChiOisVerifyNodeTestPeer::SetMeasurement(m_node, Measured());
    ChiOisVerifyNodeTestPeer::SetCalibration(m_node, 1, { 0.0f, 0.0f, 0.0f, 0.0f });
    Finish();
    std::string expected = kCalibrationReport;
    for (const auto& swap : std::vector<std::pair<std::string, std::string>>{
             { "\"horSR\":\t23.500000", "\"horSR\":\t0" }, { "\"verSR\":\t21", "\"verSR\":\t0" },
             { "\"horGain\":\t0.850000", "\"horGain\":\t0" }, { "\"verGain\":\t1.100000", "\"verGain\":\t0" } })
    {
        expected.replace(expected.find(swap.first), swap.first.size(), swap.second);
    }
    EXPECT_EQ(m_root.ReadFile(kReport), expected);
    EXPECT_TRUE(m_log.HasChiLine('I', "Generate json file, m_isGyroGainCalib = 1,  SR[0.00, 0.00]"));
}

struct UnsignedCase
{
    UINT32      testFreq;
    UINT32      minFrameCount;
    UINT32      maxVerifyTime;
    const char* freqText;
    const char* minText;
    const char* maxText;
};

void PrintTo(const UnsignedCase& c, std::ostream* pOut) { *pOut << c.freqText; }

class UnsignedParameters : public ReportTextTest, public ::testing::WithParamInterface<UnsignedCase> {};

TEST_P(UnsignedParameters, ShowAsUnsignedNumbers)
{
    ChiOisVerifyNodeTestPeer::Measurement m = Measured();
    m.testFreq      = GetParam().testFreq;
    m.minFrameCount = GetParam().minFrameCount;
    m.maxVerifyTime = GetParam().maxVerifyTime;
    ChiOisVerifyNodeTestPeer::SetMeasurement(m_node, m);
    Finish();
    EXPECT_EQ(Item("oisStationFreq"), std::string("\"oisStationFreq\":\t") + GetParam().freqText);
    EXPECT_EQ(Item("minFrameLimit"), std::string("\"minFrameLimit\":\t") + GetParam().minText);
    EXPECT_EQ(Item("maxExecTime"), std::string("\"maxExecTime\":\t") + GetParam().maxText);
}

INSTANTIATE_TEST_SUITE_P(
    Values, UnsignedParameters,
    ::testing::Values(UnsignedCase{ 4294967292u, 2147483648u, 4294967295u, "4294967292", "2147483648", "4294967295" },
                      UnsignedCase{ 2147483647u, 1u, 0u, "2147483647", "1", "0" }));

// The property text "-4" becomes the unsigned frequency 4294967292; two periods at 60 fps are
// then less than a frame, so a verdict needs 1 result within 1000 / 45 ms.
TEST(UnsignedFrequency, NegativePropertyTextReportsTheUnsignedValue)
{
    enginerig::RigOptions options;
    options.algoPara = "1:1:0:0:-4:60";
    enginerig::EngineRig rig(options);
    ASSERT_TRUE(rig.Log().HasChiLine('I', "algoParaInfo: 1:1:0:0:-4:60 m_isDebugMode 1 m_DumpImageProp 0 "
                                          "m_dropFrameNum 0 m_oisTestFreq -4 m_minFrameCount 1 m_targetFps 60 "
                                          "m_maxVerifyTime 22"));
    ChiOisVerifyNodeTestPeer::SetVerdictLimits(rig.Node(), 1, 22);
    rig.StartVerifying();
    rig.Node().SetOISVerifyState(VerifyDoneState);
    const std::string report = rig.Report();
    EXPECT_NE(report.find("\"oisStationFreq\":\t4294967292,\n"), std::string::npos) << report;
    EXPECT_NE(report.find("\"minFrameLimit\":\t1,\n"), std::string::npos) << report;
    EXPECT_NE(report.find("\"maxExecTime\":\t22\n"), std::string::npos) << report;
}

} // namespace
