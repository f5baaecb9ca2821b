// Rewriting the persist file: which module a camera role is (fuse-ID properties and their
// fallbacks, the value layout, values that are no fuse ID), the two gain intervals, replacing
// and appending records, the file's mode and owner, and the three write attempts.
#include <linux/capability.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <filesystem>

#include "calibrationtestsupport.h"
#include "oiscalibrationfile.h"

namespace
{

using calibtest::CalibrationTest;
using calibtest::FuseIdValue;
using calibtest::kPersistFile;

struct FuseIdCase
{
    const char*                                      name;
    int                                              role;
    std::vector<std::pair<const char*, std::string>> properties;
    const char*                                      fuseId; // nullptr: the module has none
};

void PrintTo(const FuseIdCase& c, std::ostream* pOut) { *pOut << c.name; }

class FuseIdLookup : public CalibrationTest, public ::testing::WithParamInterface<FuseIdCase> {};

TEST_P(FuseIdLookup, WritesTheModulesRecordOrRefuses)
{
    for (const auto& property : GetParam().properties)
    {
        ASSERT_EQ(property_set(property.first, property.second.c_str()), 0);
    }
    OISCalibrationFile       file;
    calibtest::StreamCapture out(STDOUT_FILENO);
    bool written = file.OverwriteCalibrationData(std::to_string(GetParam().role), 1.0f, 1.0f, 1);
    if (GetParam().fuseId != nullptr)
    {
        EXPECT_TRUE(written);
        EXPECT_EQ(ReadPersist().rfind(std::string("1,") + GetParam().fuseId + ",1.000000,1.000000,", 0), 0u);
    }
    else
    {
        EXPECT_FALSE(written);
        EXPECT_FALSE(m_root.Exists(kPersistFile));
        EXPECT_EQ(out.Text(), "can't find camera[" + std::to_string(GetParam().role) + "] fuseid\n");
    }
}

const char kT[]  = "vendor.camera.sensor.t.fuseID";
const char kT2[] = "vendor.camera.sensor.t2.fuseID";
const char kT3[] = "vendor.camera.sensor.t3.fuseID";
const char kW[]  = "vendor.camera.sensor.w.fuseID";

INSTANTIATE_TEST_SUITE_P(
    Roles, FuseIdLookup,
    ::testing::Values(
        FuseIdCase{ "OwnProperty", 0, { { kW, FuseIdValue("W123") } }, "W123" },
        FuseIdCase{ "OwnBeforeFallback", 20, { { kT, FuseIdValue("TELE") }, { kT2, FuseIdValue("TWO") } }, "TELE" },
        FuseIdCase{ "FirstFallback", 20, { { kT2, FuseIdValue("TWO") }, { kT3, FuseIdValue("THREE") } }, "TWO" },
        FuseIdCase{ "SecondFallback", 20, { { kT3, FuseIdValue("THREE") } }, "THREE" },
        FuseIdCase{ "Tele4xFallsBackToTa", 23, { { "vendor.camera.sensor.ta.fuseID", FuseIdValue("TA") } }, "TA" },
        FuseIdCase{ "LengthLimitsTheId", 0, { { kW, "abcd0004ABCDEFGH" } }, "ABCD" },
        FuseIdCase{ "ValueEndsFirst", 0, { { kW, "abcd0010ABC" } }, "ABC" },
        FuseIdCase{ "LengthWithBlanks", 0, { { kW, "abcd 3  XYZW" } }, "XYZ" },
        FuseIdCase{ "NoFallbackForRole0", 0, {}, nullptr },
        FuseIdCase{ "UnknownRole", 5, { { kW, FuseIdValue("W123") } }, nullptr },
        FuseIdCase{ "FallbacksNotUsedTheOtherWay", 26, { { kT, FuseIdValue("TELE") } }, nullptr },
        FuseIdCase{ "ZeroLength", 0, { { kW, "abcd0000ABCD" } }, nullptr },
        FuseIdCase{ "ShorterThanItsLengthField", 0, { { kW, "abcd12" } }, nullptr },
        FuseIdCase{ "LengthNotANumber", 0, { { kW, "abcdWXYZABCD" } }, nullptr },
        FuseIdCase{ "NegativeLength", 0, { { kW, "abcd-001ABCD" } }, nullptr }),
    [](const ::testing::TestParamInfo<FuseIdCase>& info) { return std::string(info.param.name); });

TEST_F(CalibrationTest, GainsMustLieInOneOfTheTwoIntervals)
{
    property_set(kW, FuseIdValue("W123").c_str());
    const struct { float x; float y; bool accepted; const char* shown; } kCases[] = {
        { 0.5f, 17000.0f, true, "" }, { 2.0f, 2000.0f, true, "" }, { 1.0f, 3000.0f, true, "" },
        { 0.49f, 1.0f, false, "0.490000, 1.000000" }, { 1.0f, 2.01f, false, "1.000000, 2.010000" },
        { 1999.9f, 1.0f, false, "1999.900024, 1.000000" }, { 1.0f, 17000.1f, false, "1.000000, 17000.099609" },
        { 0.0f, 1.0f, false, "0.000000, 1.000000" }, { -1.0f, -1.0f, false, "-1.000000, -1.000000" },
    };
    for (const auto& c : kCases)
    {
        WritePersist("0,OTHER,1.0,1.0,5\n");
        m_log.Clear();
        OISCalibrationFile       file;
        calibtest::StreamCapture out(STDOUT_FILENO);
        EXPECT_EQ(file.OverwriteCalibrationData("0", c.x, c.y, 1), c.accepted) << c.x << ", " << c.y;
        if (c.accepted)
        {
            continue;
        }
        const std::string message = std::string("ois gain is not in the valid range : ") + c.shown +
                                    " (range: 0.500000 -- 2.000000, 2000.000000 -- 17000.000000)";
        EXPECT_EQ(out.Text(), message + "\n");
        EXPECT_EQ(CountLog(message), 1u);
        EXPECT_EQ(ReadPersist(), "0,OTHER,1.0,1.0,5\n");
    }
    // Without enable neither check runs: no fuse ID and any gain are written, flagged "0".
    OISCalibrationFile file;
    file.ParsePersistFile();
    EXPECT_TRUE(file.OverwriteCalibrationData("1", 5.0f, -3.0f, 0));
    const OISCalData expected = { "0", "", "5.000000", "-3.000000", 0 };
    EXPECT_EQ(ReadPersist(), "0,OTHER,1.0,1.0,5\n0,,5.000000,-3.000000," +
                                 std::to_string(OISCalibrationFile::GetCrc(&expected)) + "\n");
}

TEST_F(CalibrationTest, ReplacesTheFirstRecordOfTheModuleInPlaceOrAppends)
{
    __android_log_set_minimum_priority(ANDROID_LOG_DEBUG);
    WritePersist("1 , AAAA , 1.1,1.1,9\n"      // blanks go, text and stored CRC stay
                 "1,W123,0.9,0.9,3\n"
                 "1,BAD,1.0,1.0,1\n"           // wrong CRC, not this module: written back as it is
                 "0,W123,0.8,0.8,4\n");        // a second record of the module: untouched
    property_set(kW, FuseIdValue("W123").c_str());
    OISCalibrationFile file;
    file.ParsePersistFile();
    ASSERT_TRUE(file.OverwriteCalibrationData("0", 1.0f, 1.25f, 1));
    const OISCalData changed = { "1", "W123", "1.000000", "1.250000", 0 };
    const std::string changedLine =
        "1,W123,1.000000,1.250000," + std::to_string(OISCalibrationFile::GetCrc(&changed)) + "\n";
    EXPECT_EQ(ReadPersist(), "1,AAAA,1.1,1.1,9\n" + changedLine + "1,BAD,1.0,1.0,1\n0,W123,0.8,0.8,4\n");
    EXPECT_EQ(CountLog("write data: " + changedLine), 1u);

    property_set(kW, FuseIdValue("NEW1").c_str());
    file.ParsePersistFile();
    ASSERT_TRUE(file.OverwriteCalibrationData("0", 1.0f, 1.0f, 1));
    EXPECT_EQ(ReadPersist(), "1,AAAA,1.1,1.1,9\n" + changedLine + "1,BAD,1.0,1.0,1\n0,W123,0.8,0.8,4\n" +
                                 "1,NEW1,1.000000,1.000000,23085\n");
    EXPECT_EQ(CountLog(std::string(kPersistFile) + " file size = " + std::to_string(ReadPersist().size()) + "\n"), 1u);
}

// Takes capabilities out of this thread's effective set, as an unprivileged camera process lacks
// them, and puts them back when it goes. A no-op when not root (they are absent already).
class CapabilityDrop
{
public:
    explicit CapabilityDrop(std::initializer_list<int> capabilities)
    {
        syscall(SYS_capget, &m_header, m_saved);
        __user_cap_data_struct dropped[2] = { m_saved[0], m_saved[1] };
        for (int capability : capabilities)
        {
            dropped[capability / 32].effective &= ~(1u << (capability % 32));
        }
        syscall(SYS_capset, &m_header, dropped);
    }
    ~CapabilityDrop() { syscall(SYS_capset, &m_header, m_saved); }

private:
    __user_cap_header_struct m_header   = { _LINUX_CAPABILITY_VERSION_3, 0 };
    __user_cap_data_struct   m_saved[2] = {};
};

TEST_F(CalibrationTest, FileIsMode0644AndOwnedBySystemOrSaysWhyNot)
{
    property_set(kW, FuseIdValue("W123").c_str());
    WritePersist("");
    ASSERT_EQ(chmod(PersistPath().c_str(), 0600), 0);
    OISCalibrationFile file;
    {
        calibtest::StreamCapture err(STDERR_FILENO);
        ASSERT_TRUE(file.OverwriteCalibrationData("0", 1.0f, 1.0f, 1));
        struct stat status = {};
        ASSERT_EQ(stat(PersistPath().c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777, 0644u);
        const bool owned = (status.st_uid == 1000u && status.st_gid == 1000u);
        EXPECT_TRUE(owned || geteuid() != 0);
        EXPECT_EQ(err.Text(), owned ? "" : std::string("Error changing group ownership of ") + kPersistFile +
                                               " to 1000: Operation not permitted");
    }
    // Without the right to change owners (an unprivileged camera process), the write still
    // succeeds and the failure is printed, without a line feed. The mode is set all the same:
    // the new file is the writer's own, whoever owned the old one.
    if (geteuid() != 0)
    {
        GTEST_SKIP() << "a file of another owner needs root to set up";
    }
    CapabilityDrop           unprivileged({ CAP_CHOWN, CAP_FOWNER });
    calibtest::StreamCapture out(STDOUT_FILENO);
    calibtest::StreamCapture err(STDERR_FILENO);
    EXPECT_TRUE(file.OverwriteCalibrationData("0", 1.5f, 1.5f, 1));
    const std::string denied = ": Operation not permitted";
    EXPECT_EQ(err.Text(), std::string("Error changing group ownership of ") + kPersistFile + " to 1000" + denied);
    EXPECT_EQ(out.Text(), "");
    struct stat status = {};
    ASSERT_EQ(stat(PersistPath().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0644u);
}

class UnwritablePersistFile : public CalibrationTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(UnwritablePersistFile, ThreeAttemptsThenFalse)
{
    std::filesystem::remove_all(m_root.Map("/mnt/vendor/persist"));
    if (GetParam()[0] != '\0')
    {
        m_root.WriteFile(GetParam(), "not a directory");
    }
    property_set(kW, FuseIdValue("W123").c_str());
    OISCalibrationFile file;
    EXPECT_FALSE(file.OverwriteCalibrationData("0", 1.0f, 1.0f, 1));
    EXPECT_EQ(CountLog(std::string("failed to open file ") + kPersistFile + "\n"), 3u);
    ASSERT_EQ(file.Records().size(), 1u); // the change stays in memory
    EXPECT_EQ(file.Records()[0].fuseId, "W123");
}

// A missing directory, and a path component that is a file (root may write anywhere else).
INSTANTIATE_TEST_SUITE_P(Paths, UnwritablePersistFile, ::testing::Values("", "/mnt/vendor/persist"));

TEST_F(CalibrationTest, SaysWhichTextIsNoNumber)
{
    OISCalibrationFile file;
    EXPECT_FALSE(file.OverwriteCalibrationData("tele", 1.0f, 1.0f, 0));
    EXPECT_EQ(CountLog("camera id is not a number: tele"), 1u);
    property_set(kW, "abcdWXYZABCD");
    EXPECT_TRUE(file.OverwriteCalibrationData("0", 1.0f, 1.0f, 0)); // treated as no fuse ID
    EXPECT_EQ(CountLog(std::string("fuse id property ") + kW + " has an unexpected value: abcdWXYZABCD"), 1u);
    EXPECT_EQ(file.Records().at(0).fuseId, "");
}

} // namespace
