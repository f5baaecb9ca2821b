// Test and calibration parameters the node derives from its two system properties, read back from
// the line the node logs at creation. The texts aim at what differs between CPUs when left to the
// compiler: float to integer conversions of negative, huge and not-a-number values (x86-64 and
// aarch64 disagree on them natively), float parsing, and the frame count and time limit derived
// in float and double.
#include <gtest/gtest.h>

#include <string>

#include "chihost/emulator/logcapture.h"
#include "nodeharness.h"

namespace
{

struct ParameterCase
{
    const char* name;
    const char* property;
    const char* text;
    const char* line; // the whole line the node logs, as logged on x86-64
};

void PrintTo(const ParameterCase& param, std::ostream* pOut) { *pOut << param.text; }

const char kAlgoPara[]  = "vendor.debug.camera.oisAlgoPara";
const char kCalibPara[] = "vendor.debug.camera.oisGainCalibrate";

class ParsedParameters : public ::testing::TestWithParam<ParameterCase> {};

TEST_P(ParsedParameters, MatchTheLineLoggedOnX86)
{
    const ParameterCase&     param = GetParam();
    chihost::LogCapture      log;
    testsupport::NodeHarness harness;
    const chihost::Status    status = harness.Open({ { { param.property, param.text } }, {}, {}, "" });
    ASSERT_TRUE(status) << status.Message();
    const chihost::NodeCreateOutcome outcome = harness.Create();
    ASSERT_EQ(outcome.result, CDKResultSuccess);

    const std::string expected = param.line;
    const auto        lines    = log.ChiLinesStartingWith(expected.substr(0, expected.find(' ') + 1));
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].message, expected);
    EXPECT_EQ(harness.Destroy(outcome.hNode), CDKResultSuccess);
}

INSTANTIATE_TEST_SUITE_P(
    AlgoPara, ParsedParameters,
    ::testing::Values(
        ParameterCase{ "Default", kAlgoPara, "1:0:0:120:4:60",
                       "algoParaInfo: 1:0:0:120:4:60 m_isDebugMode 0 m_DumpImageProp 0 m_dropFrameNum 120 "
                       "m_oisTestFreq 4 m_minFrameCount 31 m_targetFps 60 m_maxVerifyTime 688" },
        ParameterCase{ "SevenHertzAt59Fps", kAlgoPara, "1:0:0:120:7:59",
                       "algoParaInfo: 1:0:0:120:7:59 m_isDebugMode 0 m_DumpImageProp 0 m_dropFrameNum 120 "
                       "m_oisTestFreq 7 m_minFrameCount 17 m_targetFps 59 m_maxVerifyTime 680" },
        ParameterCase{ "NegativeRateGivesNoFrames", kAlgoPara, "1:0:0:120:4:-60",
                       "algoParaInfo: 1:0:0:120:4:-60 m_isDebugMode 0 m_DumpImageProp 0 m_dropFrameNum 120 "
                       "m_oisTestFreq 4 m_minFrameCount 0 m_targetFps -60 m_maxVerifyTime 0" },
        ParameterCase{ "NegativeFrequencyIsHugeUnsigned", kAlgoPara, "1:0:0:120:-3:60",
                       "algoParaInfo: 1:0:0:120:-3:60 m_isDebugMode 0 m_DumpImageProp 0 m_dropFrameNum 120 "
                       "m_oisTestFreq -3 m_minFrameCount 1 m_targetFps 60 m_maxVerifyTime 22" },
        ParameterCase{ "LongWindowAtHighRate", kAlgoPara, "1:0:0:0:1:1000",
                       "algoParaInfo: 1:0:0:0:1:1000 m_isDebugMode 0 m_DumpImageProp 0 m_dropFrameNum 0 "
                       "m_oisTestFreq 1 m_minFrameCount 2001 m_targetFps 1000 m_maxVerifyTime 80040" }),
    [](const ::testing::TestParamInfo<ParameterCase>& info) { return std::string(info.param.name); });

INSTANTIATE_TEST_SUITE_P(
    CalibPara, ParsedParameters,
    ::testing::Values(
        ParameterCase{ "Default", kCalibPara, "0:0:18.0:0.05:0.2:10",
                       "oisPropInfo = 0:0:18.0:0.05:0.2:10 m_oisCalibPara.roleId 0 calibSingleAxis 0 "
                       "oisSpec 18.00 oisCalibGainStep 0.05 oisCalibGainLimit 0.20 waitApplyFrameCnt 10" },
        ParameterCase{ "HugeWaitSaturatesHigh", kCalibPara, "0:1:20.5:0.1:0.3:1e10",
                       "oisPropInfo = 0:1:20.5:0.1:0.3:1e10 m_oisCalibPara.roleId 0 calibSingleAxis 1 "
                       "oisSpec 20.50 oisCalibGainStep 0.10 oisCalibGainLimit 0.30 waitApplyFrameCnt 2147483647" },
        ParameterCase{ "HugeNegativeWaitSaturatesLow", kCalibPara, "0:2:17.25:0.025:0.15:-1e10",
                       "oisPropInfo = 0:2:17.25:0.025:0.15:-1e10 m_oisCalibPara.roleId 0 calibSingleAxis 2 "
                       "oisSpec 17.25 oisCalibGainStep 0.03 oisCalibGainLimit 0.15 waitApplyFrameCnt -2147483648" },
        ParameterCase{ "NotANumberAndInfinities", kCalibPara, "0:0:nan:inf:-inf:nan",
                       "oisPropInfo = 0:0:nan:inf:-inf:nan m_oisCalibPara.roleId 0 calibSingleAxis 0 "
                       "oisSpec nan oisCalibGainStep inf oisCalibGainLimit -inf waitApplyFrameCnt 0" },
        // Decimal halves that a float holds just below: the parsed value decides the printed digit.
        ParameterCase{ "ValuesNearRoundingHalves", kCalibPara, "0:0:18.125:0.005:0.015:3.99999",
                       "oisPropInfo = 0:0:18.125:0.005:0.015:3.99999 m_oisCalibPara.roleId 0 calibSingleAxis 0 "
                       "oisSpec 18.12 oisCalibGainStep 0.00 oisCalibGainLimit 0.01 waitApplyFrameCnt 3" }),
    [](const ::testing::TestParamInfo<ParameterCase>& info) { return std::string(info.param.name); });

} // namespace
