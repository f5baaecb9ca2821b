// Set-up steps that fail on the device: the dump folder that cannot be renewed (and the chain of
// messages up to Initialize's), and a calibration log that cannot be created.
#include <gtest/gtest.h>

#include "enginerig.h"

namespace
{

using enginerig::EngineRig;
using enginerig::RigOptions;
using enginerig::Shifted;

const char kDumpDir[] = "data/vendor/camera/oisverify/dumpImage/";

struct DumpCase
{
    const char*                                      name;
    std::vector<std::pair<std::string, std::string>> files;
    std::vector<std::pair<char, std::string>>        lines; // in this order, each from PrepareDumpImage
    bool                                             reportedToInitialize;
};

void PrintTo(const DumpCase& c, std::ostream* pOut) { *pOut << c.name; }

class DumpFolder : public ::testing::TestWithParam<DumpCase> {};

// The working folder always exists by then (the rig's device has it), so the folder flag starts
// set; only a dump folder that opens but cannot be made again keeps it set.
TEST_P(DumpFolder, RenewalMessagesAndTheirOutcome)
{
    RigOptions options;
    options.algoPara = "1:1:1:0:4:60";
    options.files    = GetParam().files;
    options.files.push_back({ "/data/vendor/camera/oisverify/.keep", "" });
    EngineRig rig(options);

    std::vector<std::pair<char, std::string>> renewal;
    for (const chihost::CapturedLine& line : rig.Log().Lines())
    {
        if ((line.sink == chihost::CapturedLine::ChiLog) && (line.function == "PrepareDumpImage") &&
            (line.message.find("dumpImage") != std::string::npos))
        {
            renewal.push_back({ line.level, line.message });
        }
    }
    EXPECT_EQ(renewal, GetParam().lines);
    auto failure = rig.Log().ChiLines("prepare dump image folder fail, please check");
    ASSERT_EQ(failure.size(), GetParam().reportedToInitialize ? 1u : 0u);
    if (!failure.empty())
    {
        EXPECT_EQ(failure[0].level, 'E');
        EXPECT_EQ(failure[0].function, "Initialize");
    }
}

const std::string kDump = kDumpDir;

INSTANTIATE_TEST_SUITE_P(
    Folders, DumpFolder,
    ::testing::Values(
        DumpCase{ "Absent", {},
                  { { 'I', "open dir fail errno = 2 " + kDump + ", do not need delete old files" },
                    { 'I', "create dir " + kDump } },
                  false },
        DumpCase{ "OldDumpsRemoved", { { "/" + kDump + "old.yuv", "x" } },
                  { { 'I', "rm " + kDump + "old.yuv " }, { 'I', "rm " + kDump + " " }, { 'I', "create dir " + kDump } },
                  false },
        DumpCase{ "FolderInsideStays", { { "/" + kDump + "keep/inner.yuv", "x" } },
                  { { 'E', "rm " + kDump + "keep fail" }, { 'E', "create dir " + kDump + " fail" } },
                  true }),
    [](const ::testing::TestParamInfo<DumpCase>& info) { return std::string(info.param.name); });

// A directory where the calibration log should be: the error names Initialize, no banner is
// written, and the gain search still records its measurements.
TEST(CalibrationLog, FailingToOpenIsLoggedAndTheSearchGoesOn)
{
    RigOptions options;
    options.calibrate = true;
    options.files     = { { "/data/vendor/camera/oisverify/oisGyroGainCalibrate.txt/inner", "" } };
    EngineRig rig(options);
    auto failure = rig.Log().ChiLines("create file /data/vendor/camera/oisverify/oisGyroGainCalibrate.txt fail");
    ASSERT_EQ(failure.size(), 1u);
    EXPECT_EQ(failure[0].level, 'E');
    EXPECT_EQ(failure[0].function, "Initialize");
    EXPECT_FALSE(rig.Log().HasChiLine("create file /data/vendor/camera/oisverify/oisGyroGainCalibrate.txt"));

    rig.StartVerifying();
    rig.Script({ Shifted(0.0, 0.0), Shifted(50.0, 50.0), Shifted(0.0, 0.0), Shifted(50.0, 50.0), Shifted(0.0, 0.0) });
    rig.Script({ Shifted(0.0, 0.0), Shifted(1.0, 1.0), Shifted(0.0, 0.0), Shifted(1.0, 1.0), Shifted(0.0, 0.0) });
    for (int i = 0; i < 13; i++)
    {
        rig.Request();
    }
    ASSERT_EQ(ChiOisVerifyNodeTestPeer::GainRecords(rig.Node()).size(), 1u);
    EXPECT_TRUE(rig.Root().Exists("/data/vendor/camera/oisverify/oisGyroGainCalibrate.txt/inner"));
}

} // namespace
