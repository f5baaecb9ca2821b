// Creating and destroying nodes through the host's callbacks: test parameters from system
// properties (both index rules, defaults, derived frame count and time limit), node properties,
// calibration mode, library bindings and their failures, and what destruction releases.
#include <dlfcn.h>
#include <string.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "chihost/emulator/logcapture.h"
#include "nodeharness.h"

namespace
{

using testsupport::kRole0GainProperty;

const char kAlgoParaProperty[]  = "vendor.debug.camera.oisAlgoPara";
const char kCalibParaProperty[] = "vendor.debug.camera.oisGainCalibrate";
const char kAlgoLibrary[]       = "vendor/lib64/libOISHighFPS.so";
const char kTableLibrary[]      = "odm/lib64/camera/libchxlogicalcameratable.so";

bool IsLoaded(const char* pPath)
{
    void* handle = dlopen(pPath, RTLD_NOW | RTLD_NOLOAD);
    if (handle != nullptr)
    {
        dlclose(handle);
    }
    return handle != nullptr;
}

class NodeSetupTest : public ::testing::Test
{
protected:
    void Open(testsupport::HarnessOptions options = testsupport::HarnessOptions())
    {
        chihost::Status status = m_harness.Open(options);
        ASSERT_TRUE(status) << status.Message();
    }

    // Creates a node that must succeed; destroyed at the end of the test.
    CHIHANDLE CreateNode(const chihost::NodePropertyList& properties = {})
    {
        chihost::NodeCreateOutcome outcome = m_harness.Create(properties);
        EXPECT_EQ(outcome.result, CDKResultSuccess);
        EXPECT_NE(outcome.hNode, nullptr);
        return outcome.hNode;
    }

    chihost::LogCapture  m_log;
    testsupport::NodeHarness m_harness;
};

TEST_F(NodeSetupTest, DefaultPropertiesGiveTheDocumentedParameters)
{
    Open();
    CreateNode();
    EXPECT_TRUE(m_log.HasChiLine('I', "algoParaInfo: 1:0:0:120:4:60 m_isDebugMode 0 m_DumpImageProp 0 "
                                      "m_dropFrameNum 120 m_oisTestFreq 4 m_minFrameCount 31 m_targetFps 60 "
                                      "m_maxVerifyTime 688"));
    EXPECT_TRUE(m_log.HasChiLine('I', "oisPropInfo = 0:0:18.0:0.05:0.2:10 m_oisCalibPara.roleId 0 "
                                      "calibSingleAxis 0 oisSpec 18.00 oisCalibGainStep 0.05 "
                                      "oisCalibGainLimit 0.20 waitApplyFrameCnt 10"));
    EXPECT_TRUE(m_log.HasChiLine('I', "Initialzie ringbuffer size = 31"));
    EXPECT_TRUE(m_log.HasChiLine('I', "Create ChiOisVerifyNode"));
    EXPECT_TRUE(m_log.HasChiLine('I', "m_oisVerifyState from 0 changed to = 1"));
    EXPECT_TRUE(m_log.HasChiLine('I', "OisVerify node Opened OisHighFpsAlgo library"));
    EXPECT_TRUE(m_log.HasChiLine('I', std::string("Get gain prop info ") + kRole0GainProperty +
                                          ":1.000000,1.000000 gainX = 1.00 gainY = 1.00"));
    EXPECT_EQ(access(m_harness.Root().Map("/data/vendor/camera/oisverify/oisVerify_point_position.txt").c_str(), F_OK), 0);
    EXPECT_FALSE(m_log.HasChiLine("create file /data/vendor/camera/oisverify/oisGyroGainCalibrate.txt"));
    EXPECT_EQ(m_log.ChiLines("Create ChiOisVerifyNode")[0].function, "ChiOisVerifyNode");
}

struct AlgoParaCase
{
    const char* name;
    const char* text;
    const char* expected; // the values part of the "algoParaInfo" line
};

void PrintTo(const AlgoParaCase& param, std::ostream* pOut) { *pOut << param.text; }

class AlgoParaParsing : public NodeSetupTest, public ::testing::WithParamInterface<AlgoParaCase> {};

TEST_P(AlgoParaParsing, ReadsEachValueOneFieldPastItsGuard)
{
    Open({ { { kAlgoParaProperty, GetParam().text } }, {}, {}, "" });
    CreateNode();
    EXPECT_TRUE(m_log.HasChiLine('I', std::string("algoParaInfo: ") + GetParam().text + " " + GetParam().expected))
        << "no line for " << GetParam().text;
}

INSTANTIATE_TEST_SUITE_P(
    Texts, AlgoParaParsing,
    ::testing::Values(
        AlgoParaCase{ "DebugAt30Fps", "1:1:0:30:2:30",
                      "m_isDebugMode 1 m_DumpImageProp 0 m_dropFrameNum 30 m_oisTestFreq 2 m_minFrameCount 31 "
                      "m_targetFps 30 m_maxVerifyTime 1240" },
        AlgoParaCase{ "ZeroFrequencyKeepsSixtyFrames", "1:0:0:120:0:60",
                      "m_isDebugMode 0 m_DumpImageProp 0 m_dropFrameNum 120 m_oisTestFreq 0 m_minFrameCount 60 "
                      "m_targetFps 60 m_maxVerifyTime 1333" },
        AlgoParaCase{ "ThreeHertz", "1:0:0:120:3:60",
                      "m_isDebugMode 0 m_DumpImageProp 0 m_dropFrameNum 120 m_oisTestFreq 3 m_minFrameCount 41 "
                      "m_targetFps 60 m_maxVerifyTime 911" },
        AlgoParaCase{ "OneFieldOnlyDropsToZero", "7",
                      "m_isDebugMode 0 m_DumpImageProp 0 m_dropFrameNum 0 m_oisTestFreq 4 m_minFrameCount 31 "
                      "m_targetFps 60 m_maxVerifyTime 688" },
        AlgoParaCase{ "FourFieldsKeepDefaultFrequency", "9:0:0:50",
                      "m_isDebugMode 0 m_DumpImageProp 0 m_dropFrameNum 50 m_oisTestFreq 4 m_minFrameCount 31 "
                      "m_targetFps 60 m_maxVerifyTime 688" },
        AlgoParaCase{ "TrailingColonAddsNoField", "1:0:0:120:4:",
                      "m_isDebugMode 0 m_DumpImageProp 0 m_dropFrameNum 120 m_oisTestFreq 4 m_minFrameCount 31 "
                      "m_targetFps 60 m_maxVerifyTime 688" },
        AlgoParaCase{ "ExtraFieldsIgnored", "1:0:0:10:4:30:99",
                      "m_isDebugMode 0 m_DumpImageProp 0 m_dropFrameNum 10 m_oisTestFreq 4 m_minFrameCount 16 "
                      "m_targetFps 30 m_maxVerifyTime 640" },
        AlgoParaCase{ "DigitsStopAtFirstNonDigit", "1:0:0:12x:4:60",
                      "m_isDebugMode 0 m_DumpImageProp 0 m_dropFrameNum 12 m_oisTestFreq 4 m_minFrameCount 31 "
                      "m_targetFps 60 m_maxVerifyTime 688" }),
    [](const ::testing::TestParamInfo<AlgoParaCase>& info) { return std::string(info.param.name); });

struct CalibParaCase
{
    const char* name;
    const char* text;
    const char* expected; // the values part of the "oisPropInfo" line
};

void PrintTo(const CalibParaCase& param, std::ostream* pOut) { *pOut << param.text; }

class CalibParaParsing : public NodeSetupTest, public ::testing::WithParamInterface<CalibParaCase> {};

TEST_P(CalibParaParsing, ReadsEachValueAtItsOwnIndex)
{
    // Role 1's gains must be readable for the node to be created.
    Open({ { { kCalibParaProperty, GetParam().text }, { "persist.vendor.camera.oisgyrogain.f", "1.0,1.0" } },
           {}, {}, "" });
    CreateNode();
    EXPECT_TRUE(m_log.HasChiLine('I', std::string("oisPropInfo = ") + GetParam().text + " " + GetParam().expected))
        << "no line for " << GetParam().text;
}

INSTANTIATE_TEST_SUITE_P(
    Texts, CalibParaParsing,
    ::testing::Values(
        CalibParaCase{ "TwoFields", "1:1",
                       "m_oisCalibPara.roleId 1 calibSingleAxis 1 oisSpec 0.00 oisCalibGainStep 0.00 "
                       "oisCalibGainLimit 0.00 waitApplyFrameCnt 0" },
        CalibParaCase{ "WaitTruncatesTowardZero", "0:2:20.5:0.1:0.3:7.9",
                       "m_oisCalibPara.roleId 0 calibSingleAxis 2 oisSpec 20.50 oisCalibGainStep 0.10 "
                       "oisCalibGainLimit 0.30 waitApplyFrameCnt 7" },
        CalibParaCase{ "NegativeWaitTruncatesTowardZero", "0:0:18.0:0.05:0.2:-3.7",
                       "m_oisCalibPara.roleId 0 calibSingleAxis 0 oisSpec 18.00 oisCalibGainStep 0.05 "
                       "oisCalibGainLimit 0.20 waitApplyFrameCnt -3" }),
    [](const ::testing::TestParamInfo<CalibParaCase>& info) { return std::string(info.param.name); });

TEST_F(NodeSetupTest, EmptyFieldIsAConversionFailureThatEndsTheProcess)
{
    Open({ { { kAlgoParaProperty, "1::0:120:4:60" } }, {}, {}, "" });
    // The node does not catch it; a host that does not either (the camera provider) terminates.
    EXPECT_DEATH([this]() noexcept { m_harness.Create(); }(), "invalid_argument");
}

TEST_F(NodeSetupTest, RingBufferLargerThanAnyTestIsRefusedLikeAnEmptyOne)
{
    Open({ { { kAlgoParaProperty, "1:0:0:0:1:100000" } }, {}, {}, "" });
    CreateNode();
    EXPECT_TRUE(m_log.HasChiLine('E', "Initialzie m_algoResultBuffer failed, bufferSize = 200001"));
}

TEST_F(NodeSetupTest, LargeButPlausibleRingBufferIsKept)
{
    Open({ { { kAlgoParaProperty, "1:0:0:0:1:30000" } }, {}, {}, "" });
    CreateNode();
    EXPECT_TRUE(m_log.HasChiLine('I', "Initialzie ringbuffer size = 60001"));
    EXPECT_TRUE(m_log.ChiLinesStartingWith("Initialzie m_algoResultBuffer failed").empty());
}

TEST_F(NodeSetupTest, NodePropertyWithBit11AsksForDelayedProcessingNotification)
{
    Open();
    chihost::NodeCreateOutcome plain = m_harness.Create({ { 1, "2047" }, { 2, "0" } });
    ASSERT_EQ(plain.result, CDKResultSuccess);
    EXPECT_EQ(plain.createInfo.nodeFlags & 0x80u, 0u);
    EXPECT_FALSE(m_log.HasChiLine("Delayed processing notifying enabled"));

    chihost::NodeCreateOutcome delayed = m_harness.Create({ { 7, "2048" } });
    ASSERT_EQ(delayed.result, CDKResultSuccess);
    EXPECT_EQ(delayed.createInfo.nodeFlags & 0x80u, 0x80u);
    EXPECT_TRUE(m_log.HasChiLine('I', "Delayed processing notifying enabled"));
}

TEST_F(NodeSetupTest, WorkingDirectoryMessagesFollowTheCreationResult)
{
    Open();
    CreateNode();
    EXPECT_TRUE(m_log.HasChiLine('I', "do not need create dir data/vendor/camera/oisverify/"));

    ASSERT_EQ(system(("rm -rf " + m_harness.Root().Map("/data/vendor/camera/oisverify")).c_str()), 0);
    m_log.Clear();
    CreateNode();
    EXPECT_TRUE(m_log.HasChiLine('I', "create dir data/vendor/camera/oisverify/"));
}

struct BindingCase
{
    const char* name;
    const char* gainText;       // nullptr: property not set
    const char* calibText;      // nullptr: default
    bool        removeAlgo;
    bool        algoWithoutEntry;
    CDKResult   result;
    const char* expectedLine;
};

void PrintTo(const BindingCase& param, std::ostream* pOut) { *pOut << param.name; }

class BindingFailures : public NodeSetupTest, public ::testing::WithParamInterface<BindingCase> {};

TEST_P(BindingFailures, LeaveNoNodeAndNoLibraryBehind)
{
    const BindingCase& param = GetParam();
    testsupport::HarnessOptions options;
    if (param.gainText != nullptr)
    {
        options.buildProperties.push_back({ kRole0GainProperty, param.gainText });
    }
    else
    {
        options.buildProperties.push_back({ kRole0GainProperty, "" });
    }
    if (param.calibText != nullptr)
    {
        options.buildProperties.push_back({ kCalibParaProperty, param.calibText });
    }
    if (param.algoWithoutEntry)
    {
        options.oisLibrarySource = ZELK_FAKE_ALGO_NOENTRY;
    }
    Open(options);
    if (param.removeAlgo)
    {
        ASSERT_EQ(remove(m_harness.Root().Map(std::string("/") + kAlgoLibrary).c_str()), 0);
    }

    chihost::NodeCreateOutcome outcome = m_harness.Create();
    EXPECT_EQ(outcome.result, param.result);
    EXPECT_EQ(outcome.hNode, nullptr);
    EXPECT_TRUE(m_log.HasChiLine('E', param.expectedLine)) << param.expectedLine;
    EXPECT_FALSE(IsLoaded(kAlgoLibrary));
    EXPECT_FALSE(IsLoaded(kTableLibrary));
}

INSTANTIATE_TEST_SUITE_P(
    Cases, BindingFailures,
    ::testing::Values(
        BindingCase{ "GainPropertyUnset", nullptr, nullptr, false, false, 3, "Get gain prop  fail, please check!" },
        BindingCase{ "GainWithoutComma", "1.25", nullptr, false, false, 3, "Get gain prop 1.25 fail, please check!" },
        BindingCase{ "RoleNotInTable", "1.0,1.0", "8:0:18.0:0.05:0.2:10", false, false, 3,
                     "Get gain prop fail, please check!" },
        BindingCase{ "AlgoLibraryMissing", "1.0,1.0", nullptr, true, false, 5, "m_pOisHighFpsAlgo library open failed" },
        BindingCase{ "AlgoEntryMissing", "1.0,1.0", nullptr, false, true, 5, "m_pOisHighFpsAlgo library import failed" },
        BindingCase{ "BothFailAlgoResultWins", "", nullptr, true, false, 5, "Get gain prop fail, please check!" }),
    [](const ::testing::TestParamInfo<BindingCase>& info) { return std::string(info.param.name); });

TEST_F(NodeSetupTest, GainTextStopsAtTheSecondComma)
{
    Open({ { { kRole0GainProperty, "1.25,0.98,7" } }, {}, {}, "" });
    CreateNode();
    EXPECT_TRUE(m_log.HasChiLine('I', std::string("Get gain prop info ") + kRole0GainProperty +
                                          ":1.25,0.98,7 gainX = 1.25 gainY = 0.98"));
}

TEST_F(NodeSetupTest, DestroyReleasesBothLibrariesAndRefusesShortRecords)
{
    Open();
    // Created outside the session's bookkeeping so the test can destroy it through the callback.
    CHINODECREATEINFO create;
    memset(&create, 0, sizeof(create));
    create.size        = sizeof(create);
    create.hChiSession = m_harness.Session().Handle();
    ASSERT_EQ(m_harness.Callbacks().pCreate(&create), 0);
    CHIHANDLE hNode = create.phNodeSession;
    ASSERT_NE(hNode, nullptr);
    EXPECT_TRUE(IsLoaded(kAlgoLibrary));
    EXPECT_TRUE(IsLoaded(kTableLibrary));

    CHINODEDESTROYINFO shortInfo = { 15, hNode };
    EXPECT_EQ(m_harness.Callbacks().pDestroy(&shortInfo), 1);
    EXPECT_TRUE(m_log.HasChiLine('E', "CHINODEDESTROYINFO is smaller than expected"));
    EXPECT_EQ(shortInfo.hNodeSession, hNode);
    EXPECT_TRUE(IsLoaded(kAlgoLibrary));

    CHINODEDESTROYINFO info = { sizeof(CHINODEDESTROYINFO), hNode };
    EXPECT_EQ(m_harness.Callbacks().pDestroy(&info), 0);
    EXPECT_EQ(info.hNodeSession, nullptr);
    EXPECT_FALSE(IsLoaded(kAlgoLibrary));
    EXPECT_FALSE(IsLoaded(kTableLibrary));
}

TEST_F(NodeSetupTest, FlushAnswersFiveMillisecondsAndOnlyLogs)
{
    Open();
    CHIHANDLE           hNode = CreateNode();
    CHINODERESPONSEINFO response = { sizeof(CHINODERESPONSEINFO), hNode, 0 };
    EXPECT_EQ(m_harness.Callbacks().pGetFlushResponse(&response), 0);
    EXPECT_EQ(response.responseTimeInMillisec, 5u);

    CHINODEFLUSHREQUESTINFO flush = { sizeof(CHINODEFLUSHREQUESTINFO), hNode, 42 };
    EXPECT_EQ(m_harness.Callbacks().pFlushRequest(&flush), 0);
    EXPECT_TRUE(m_log.HasChiLine('I', "Flush request Id 42 from node"));
}

TEST_F(NodeSetupTest, CalibrationModeOpensItsLogAndReadsTheEepromFlag)
{
    testsupport::HarnessOptions options;
    options.overrideSettings = { { "enableOISGyroGainCalibration", "TRUE" } };
    options.eepromCustomInfo = { { "OtherFlag", 7 }, { "OISGyroGainAndSRMatch", 1 } };
    Open(options);
    EXPECT_EQ(m_harness.Destroy(CreateNode()), CDKResultSuccess);
    EXPECT_TRUE(m_log.HasChiLine('I', "create file /data/vendor/camera/oisverify/oisGyroGainCalibrate.txt"));
    EXPECT_TRUE(m_log.HasChiLine('I', "get OISGyroGainAndSRMatch = 1 from eeprom xml"));
    std::string banner;
    FILE* pFile = fopen(m_harness.Root().Map("/data/vendor/camera/oisverify/oisGyroGainCalibrate.txt").c_str(), "r");
    ASSERT_NE(pFile, nullptr);
    char line[256] = {};
    ASSERT_NE(fgets(line, sizeof(line), pFile), nullptr);
    fclose(pFile);
    EXPECT_STREQ(line, "///////////////// zelk OIS gyro gain calibrate /////////////////\n");
}

TEST_F(NodeSetupTest, CalibrationModeWithoutTheEepromEntryKeepsZeroSilently)
{
    testsupport::HarnessOptions options;
    options.overrideSettings = { { "enableOISGyroGainCalibration", "TRUE" } };
    options.eepromCustomInfo = { { "OISGyroGainAndSRMatchX", 1 } };
    Open(options);
    CreateNode();
    EXPECT_FALSE(m_log.HasChiLine("can not get eeprom custom info OISGyroGainAndSRMatch"));
    EXPECT_TRUE(m_log.ChiLinesStartingWith("get OISGyroGainAndSRMatch").empty());
}

TEST_F(NodeSetupTest, CalibrationModeWithoutEepromRecordLogsAndCarriesOn)
{
    testsupport::HarnessOptions options;
    options.overrideSettings = { { "enableOISGyroGainCalibration", "TRUE" } };
    options.publishEeprom    = false;
    Open(options);
    CreateNode();
    EXPECT_TRUE(m_log.HasChiLine('E', "can not get eeprom custom info OISGyroGainAndSRMatch"));
}

TEST_F(NodeSetupTest, SetNodeInterfaceLogsTheSectionBase)
{
    Open();
    ASSERT_EQ(m_harness.Session().NodeSectionBases().size(), 1u);
    char expected[80];
    snprintf(expected, sizeof(expected), "OisVerifyNodeSetNodeInterface g_vendorTagBase = %d",
             static_cast<int>(m_harness.Session().NodeSectionBases()[0]));
    EXPECT_TRUE(m_log.HasChiLine('I', expected));
}

TEST_F(NodeSetupTest, DumpModeRenewsTheDumpDirectory)
{
    Open({ { { kAlgoParaProperty, "1:0:1:120:4:60" } }, {}, {}, "" });
    const std::string dumpDir = m_harness.Root().Map("/data/vendor/camera/oisverify/dumpImage");
    ASSERT_EQ(system(("mkdir -p " + dumpDir + " && touch " + dumpDir + "/old.yuv").c_str()), 0);
    CreateNode();
    EXPECT_TRUE(m_log.HasChiLine('I', "rm data/vendor/camera/oisverify/dumpImage/old.yuv "));
    EXPECT_TRUE(m_log.HasChiLine('I', "rm data/vendor/camera/oisverify/dumpImage/ "));
    EXPECT_TRUE(m_log.HasChiLine('I', "create dir data/vendor/camera/oisverify/dumpImage/"));
    EXPECT_FALSE(m_log.HasChiLine("prepare dump image folder fail, please check"));
    EXPECT_NE(access(dumpDir.c_str(), F_OK), -1);
    EXPECT_EQ(access((dumpDir + "/old.yuv").c_str(), F_OK), -1);
}

TEST_F(NodeSetupTest, WithoutDumpModeOldDumpsStay)
{
    Open();
    const std::string dumpDir = m_harness.Root().Map("/data/vendor/camera/oisverify/dumpImage");
    ASSERT_EQ(system(("mkdir -p " + dumpDir + " && touch " + dumpDir + "/old.yuv").c_str()), 0);
    CreateNode();
    EXPECT_EQ(access((dumpDir + "/old.yuv").c_str(), F_OK), 0);
}

TEST_F(NodeSetupTest, DebugModeReadsAcceptedImagesInByteOrder)
{
    Open({ { { kAlgoParaProperty, "1:1:0:30:4:60" } }, {}, {}, "" });
    const std::string imageDir = m_harness.Root().Map("/data/vendor/camera/ois");
    for (const char* pName : { "b.yuv", "a.YUV420NV12", "c.YUV", "d.yuv.bak", "e.nv12", "noextension" })
    {
        FILE* pFile = fopen((imageDir + "/" + pName).c_str(), "wb");
        ASSERT_NE(pFile, nullptr);
        fputs("luma", pFile);
        fclose(pFile);
    }
    CreateNode();
    EXPECT_TRUE(m_log.HasChiLine('I', "file vector size 2"));
    auto reads = m_log.ChiLinesStartingWith("read file ");
    ASSERT_EQ(reads.size(), 2u);
    EXPECT_EQ(reads[0].message.rfind("read file /data/vendor/camera/ois/a.YUV420NV12  iamge = ", 0), 0u);
    EXPECT_NE(reads[0].message.find("imageSize = 4"), std::string::npos);
    EXPECT_EQ(reads[1].message.rfind("read file /data/vendor/camera/ois/b.yuv  iamge = ", 0), 0u);
}

TEST_F(NodeSetupTest, DebugModeWithoutImageFolderStillCreatesTheNode)
{
    Open({ { { kAlgoParaProperty, "1:1:0:30:4:60" } }, {}, {}, "" });
    ASSERT_EQ(system(("rm -rf " + m_harness.Root().Map("/data/vendor/camera/ois")).c_str()), 0);
    CreateNode();
    EXPECT_TRUE(m_log.HasChiLine('E', "open dir failed errno = 2"));
    EXPECT_TRUE(m_log.HasChiLine('E', "ReadDebugImage failed, please check data/vendor/camera/ois path"));
}

} // namespace
