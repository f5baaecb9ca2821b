// The JSON report: the whole text against a reference written out by hand for the same values,
// the report's number forms, the calibration-mode sources, and that the printed text parses.
#include <math.h>

#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include "chihost/emulator/logcapture.h"
#include "nodetestpeer.h"
#include "tempdeviceroot.h"

namespace
{

const char kReport[] = "/data/vendor/camera/oisverify/oisVerify.json";

ChiOisVerifyNodeTestPeer::Measurement Verification()
{
    ChiOisVerifyNodeTestPeer::Measurement m = {};
    m.cropLength    = 540;
    m.algoFps       = 59.5f;
    m.dumpImageProp = 3;
    m.debugMode     = 0;
    m.dropFrameNum  = 120;
    m.testFreq      = 4;
    m.minFrameCount = 31;
    m.maxVerifyTime = 688;
    m.skipFrames    = 2;
    m.algoReturn    = -100;
    m.horSR         = 0.85f;
    m.verSR         = 0.9f;
    m.horBlur       = 150.25f;
    m.verBlur       = 147.0f;
    m.baseGainX     = 1.25f;
    m.baseGainY     = 0.98f;
    return m;
}

// The report as the factory line reads it, written out independently of the node's code.
const char kVerificationReport[] =
    "{\n"
    "\t\"Version\":\t{\n"
    "\t\t\"version\":\t\"V1.0\"\n"
    "\t},\n"
    "\t\"AlgoRunningEnvInfo\":\t{\n"
    "\t\t\"algoInput\":\t{\n"
    "\t\t\t\"width\":\t540,\n"
    "\t\t\t\"height\":\t540,\n"
    "\t\t\t\"algoExecFPS\":\t59.500000\n"
    "\t\t},\n"
    "\t\t\"InitParam\":\t{\n"
    "\t\t\t\"isDumpImage\":\t1,\n"
    "\t\t\t\"isDebugMode\":\t0,\n"
    "\t\t\t\"dropFrameNum\":\t120,\n"
    "\t\t\t\"oisStationFreq\":\t4,\n"
    "\t\t\t\"minFrameLimit\":\t31,\n"
    "\t\t\t\"maxExecTime\":\t688\n"
    "\t\t}\n"
    "\t},\n"
    "\t\"Result\":\t{\n"
    "\t\t\"SR\":\t{\n"
    "\t\t\t\"oisVerifyState\":\t4,\n"
    "\t\t\t\"skipAlgoFrameNum\":\t2,\n"
    "\t\t\t\"algoReturnValue\":\t-100,\n"
    "\t\t\t\"horSR\":\t0.850000,\n"
    "\t\t\t\"verSR\":\t0.900000,\n"
    "\t\t\t\"horBlur\":\t150.250000,\n"
    "\t\t\t\"verBlur\":\t147\n"
    "\t\t},\n"
    "\t\t\"GyroGainCalibrate\":\t{\n"
    "\t\t\t\"isGyroGainCalibrate\":\t0,\n"
    "\t\t\t\"horGain\":\t1.250000,\n"
    "\t\t\t\"verGain\":\t0.980000\n"
    "\t\t}\n"
    "\t}\n"
    "}";

class ReportTest : public ::testing::Test
{
protected:
    void SetUp() override { m_root.MakeDirs("/data/vendor/camera/oisverify"); }

    void FinishVerification()
    {
        m_node.SetOISVerifyState(StartState);
        m_node.SetOISVerifyState(VerifyingState);
        m_node.SetOISVerifyState(VerifyDoneState);
    }

    testsupport::TempDeviceRoot m_root;
    chihost::LogCapture         m_log;
    ChiOisVerifyNode            m_node;
};

TEST_F(ReportTest, VerificationReportMatchesTheReferenceByteForByte)
{
    ChiOisVerifyNodeTestPeer::SetMeasurement(m_node, Verification());
    FinishVerification();
    const std::string text = m_root.ReadFile(kReport);
    EXPECT_EQ(text, kVerificationReport);

    cJSON* pParsed = cJSON_Parse(text.c_str());
    ASSERT_NE(pParsed, nullptr) << "the report is not valid JSON";
    const cJSON* pSR = cJSON_GetObjectItem(cJSON_GetObjectItem(pParsed, "Result"), "SR");
    EXPECT_NEAR(cJSON_GetObjectItem(pSR, "horSR")->valuedouble, 0.85, 1e-6);
    cJSON_Delete(pParsed);
    EXPECT_TRUE(m_log.HasChiLine('I', "Generate json file, m_isGyroGainCalib = 0,  SR[0.85, 0.90]"));
}

TEST_F(ReportTest, CalibrationModeReportsTheSelectedGainsAndTheirSR)
{
    ChiOisVerifyNodeTestPeer::SetMeasurement(m_node, Verification());
    ChiOisVerifyNodeTestPeer::SetCalibration(m_node, 1, { 1.1f, 0.9f, 21.5f, 19.25f });
    FinishVerification();
    cJSON* pParsed = cJSON_Parse(m_root.ReadFile(kReport).c_str());
    ASSERT_NE(pParsed, nullptr);
    const cJSON* pResult = cJSON_GetObjectItem(pParsed, "Result");
    const cJSON* pSR     = cJSON_GetObjectItem(pResult, "SR");
    const cJSON* pGain   = cJSON_GetObjectItem(pResult, "GyroGainCalibrate");
    EXPECT_NEAR(cJSON_GetObjectItem(pSR, "horSR")->valuedouble, 21.5, 1e-6);
    EXPECT_NEAR(cJSON_GetObjectItem(pSR, "verSR")->valuedouble, 19.25, 1e-6);
    EXPECT_NEAR(cJSON_GetObjectItem(pSR, "horBlur")->valuedouble, 150.25, 1e-6);
    EXPECT_NEAR(cJSON_GetObjectItem(pGain, "horGain")->valuedouble, 1.1, 1e-6);
    EXPECT_NEAR(cJSON_GetObjectItem(pGain, "verGain")->valuedouble, 0.9, 1e-6);
    EXPECT_EQ(cJSON_GetObjectItem(pGain, "isGyroGainCalibrate")->valueint, 1);
    cJSON_Delete(pParsed);
}

struct NumberCase
{
    float       value;
    const char* text;
};

void PrintTo(const NumberCase& c, std::ostream* pOut) { *pOut << c.text; }

class ReportNumbers : public ReportTest, public ::testing::WithParamInterface<NumberCase> {};

// The blur is a float the node never rounds, so it shows every number form.
TEST_P(ReportNumbers, UseTheReportsTextForms)
{
    ChiOisVerifyNodeTestPeer::Measurement m = Verification();
    m.horBlur = GetParam().value;
    ChiOisVerifyNodeTestPeer::SetMeasurement(m_node, m);
    FinishVerification();
    const std::string text     = m_root.ReadFile(kReport);
    const std::string expected = std::string("\"horBlur\":\t") + GetParam().text + ",\n";
    EXPECT_NE(text.find(expected), std::string::npos) << text;
}

INSTANTIATE_TEST_SUITE_P(
    Forms, ReportNumbers,
    ::testing::Values(NumberCase{ 0.0f, "0" }, NumberCase{ -0.0f, "0" }, NumberCase{ 181.0f, "181" },
                      NumberCase{ -7.0f, "-7" }, NumberCase{ 3.0e9f, "3000000000" },
                      NumberCase{ 0.5f, "0.500000" }, NumberCase{ 1.0e-7f, "1.000000e-07" },
                      NumberCase{ 1.5e9f, "1500000000" }, NumberCase{ 1.25e9f + 0.5f, "1250000000" },
                      NumberCase{ 4.5e-6f, "0.000005" }, NumberCase{ INFINITY, "inf" },
                      NumberCase{ 1.0e38f, "99999996802856924650656260769173209088" }));

} // namespace
