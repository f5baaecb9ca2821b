// The persist file under faults: special files at its path, reads that fail part way, a writer
// that finds the file empty after writing it, a lock another writer keeps, lines longer than any
// record, and fuse IDs that would not read back. Whatever happens, every record already in the
// file stays byte for byte.
#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <filesystem>

#include "calibrationtestsupport.h"
#include "oiscalibrationfile.h"
#include "persistfileio.h"

namespace
{

using calibtest::CalibrationTest;
using calibtest::FuseIdValue;
using calibtest::kPersistFile;

const char kW[]      = "vendor.camera.sensor.w.fuseID";
const char kOthers[] = "1,AAAA,1.000000,1.000000,1\n0,BBBB,0.900000,0.900000,2\n1,CCCC,1.100000,1.100000,3\n";

// Reads fail with EIO once this many bytes were delivered (-1: never).
long g_readFaultAfter = -1;
// The first this-many writes report success without writing anything.
int g_silentWrites = 0;

ssize_t FaultyRead(int fd, void* pBuffer, size_t bytes)
{
    if (g_readFaultAfter == 0)
    {
        errno = EIO;
        return -1;
    }
    if (g_readFaultAfter > 0)
    {
        bytes = std::min(bytes, static_cast<size_t>(g_readFaultAfter));
    }
    ssize_t got = read(fd, pBuffer, bytes);
    if (g_readFaultAfter > 0 && got > 0)
    {
        g_readFaultAfter -= got;
    }
    return got;
}

ssize_t SilentWrite(int fd, const void* pBuffer, size_t bytes)
{
    if (g_silentWrites > 0)
    {
        g_silentWrites--;
        return static_cast<ssize_t>(bytes);
    }
    return write(fd, pBuffer, bytes);
}

const PersistFileIo kFaultyIo = { FaultyRead, SilentWrite, renameat };

class PersistFaultTest : public CalibrationTest
{
protected:
    void SetUp() override
    {
        CalibrationTest::SetUp();
        property_set(kW, FuseIdValue("W123").c_str());
        g_readFaultAfter = -1;
        g_silentWrites   = 0;
        SetPersistFileIo(&kFaultyIo);
    }
    void TearDown() override { SetPersistFileIo(nullptr); }

    // What ApplyGyroGain does: read, then overwrite the module's gains.
    bool Apply(float gain = 1.0f)
    {
        calibtest::HangGuard guard("a persist-file rewrite");
        m_file.ParsePersistFile();
        return m_file.OverwriteCalibrationData("0", gain, gain, 1);
    }

    OISCalibrationFile m_file;
};

const char kW123Line[] = "1,W123,1.000000,1.000000,";

TEST_F(PersistFaultTest, FifoAtThePathIsRefusedWithoutBlocking)
{
    ASSERT_EQ(mkfifo(PersistPath().c_str(), 0644), 0);
    EXPECT_FALSE(Apply());
    EXPECT_EQ(CountLog(std::string("persist file ") + kPersistFile + " is not a regular file; not read\n"), 2u);
    EXPECT_EQ(CountLog(std::string("persist file ") + kPersistFile + " not rewritten: it cannot be read in full\n"), 1u);
    struct stat status = {};
    ASSERT_EQ(lstat(PersistPath().c_str(), &status), 0);
    EXPECT_TRUE(S_ISFIFO(status.st_mode));
    ASSERT_EQ(m_file.Records().size(), 1u); // the change stays in memory only
    EXPECT_EQ(m_file.Records()[0].fuseId, "W123");
}

TEST_F(PersistFaultTest, SymbolicLinkAtThePathIsNeitherFollowedNorReplaced)
{
    m_root.WriteFile("/mnt/vendor/persist/camera/elsewhere", kOthers);
    ASSERT_EQ(symlink("elsewhere", PersistPath().c_str()), 0);
    EXPECT_FALSE(Apply());
    EXPECT_EQ(m_root.ReadFile("/mnt/vendor/persist/camera/elsewhere"), kOthers);
    EXPECT_TRUE(std::filesystem::is_symlink(PersistPath()));
}

// A read error after some of the file arrived must not leave a file of the part read.
TEST_F(PersistFaultTest, ReadErrorPartWayAbortsTheRewrite)
{
    for (long after : { 0L, 10L, 40L, static_cast<long>(strlen(kOthers)) - 1 })
    {
        WritePersist(kOthers);
        m_log.Clear();
        g_readFaultAfter = after;
        m_file.ParsePersistFile();
        EXPECT_TRUE(m_file.Records().empty()) << after;
        g_readFaultAfter = after;
        EXPECT_FALSE(m_file.OverwriteCalibrationData("0", 1.0f, 1.0f, 1)) << after;
        EXPECT_EQ(ReadPersist(), kOthers) << after;
        EXPECT_EQ(CountLog(std::string("persist file ") + kPersistFile + " not rewritten: it cannot be read in full\n"),
                  1u);
        EXPECT_EQ(CountLog(std::string("cannot read persist file ") + kPersistFile +
                           ": Input/output error; read stopped after " + std::to_string(after / 27) + " lines\n"),
                  2u)
            << after;
    }
    g_readFaultAfter = -1;
    EXPECT_TRUE(Apply());
    EXPECT_EQ(ReadPersist().rfind(std::string(kOthers) + kW123Line, 0), 0u);
}

TEST_F(PersistFaultTest, FileFoundEmptyAfterWritingIsWrittenAgain)
{
    __android_log_set_minimum_priority(ANDROID_LOG_DEBUG);
    WritePersist(kOthers);
    g_silentWrites = 1;
    EXPECT_TRUE(Apply());
    const std::string expected = std::string(kOthers) + kW123Line + "63342\n";
    EXPECT_EQ(ReadPersist(), expected);
    EXPECT_EQ(CountLog(std::string(kPersistFile) + " file size = 0\n"), 1u);
    EXPECT_EQ(CountLog(std::string(kPersistFile) + " file size = " + std::to_string(expected.size()) + "\n"), 1u);
    EXPECT_EQ(CountLog("write data: 1,AAAA,1.000000,1.000000,1\n"), 2u);

    // Three empty files in a row: false, and the old file is still there as it was.
    WritePersist(kOthers);
    g_silentWrites = 3;
    EXPECT_FALSE(Apply(1.5f));
    EXPECT_EQ(ReadPersist(), kOthers);
    EXPECT_FALSE(m_root.Exists(std::string(kPersistFile) + ".tmp"));
}

TEST_F(PersistFaultTest, LockKeptByAnotherWriterFailsEachAttemptWithoutWaitingForIt)
{
    WritePersist(kOthers);
    int holder = open(m_root.Map(calibtest::kPersistDir).c_str(), O_RDONLY | O_DIRECTORY);
    ASSERT_EQ(flock(holder, LOCK_EX), 0);
    EXPECT_FALSE(Apply());
    EXPECT_EQ(CountLog(std::string("persist file ") + kPersistFile + " stays locked by another writer; attempt failed\n"),
              3u);
    EXPECT_EQ(ReadPersist(), kOthers);
    close(holder);
    EXPECT_TRUE(Apply());
}

TEST_F(PersistFaultTest, LineLongerThanAnyRecordIsReportedNotKept)
{
    const std::string longLine = "1,LONG," + std::string(3 * kMaxPersistLineBytes, '7') + ",1.0,5\n";
    WritePersist("1,AAAA,1.000000,1.000000,1\n" + longLine + "0,BBBB,0.900000,0.900000,2\n");
    m_file.ParsePersistFile();
    ASSERT_EQ(m_file.Records().size(), 2u);
    EXPECT_EQ(m_file.Records()[1].fuseId, "BBBB");
    EXPECT_EQ(CountLog("persist file line 2 is longer than 1024 bytes; not a record"), 1u);

    std::vector<OISPersistLine> lines;
    FILE*                       pFile = fopen(PersistPath().c_str(), "rb");
    ASSERT_TRUE(OISCalibrationFile::ReadPersistLines(pFile, &lines));
    fclose(pFile);
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_TRUE(lines[1].tooLong);
    EXPECT_EQ(lines[1].text.size(), kMaxPersistLineBytes);
    EXPECT_EQ(lines[2].text, "0,BBBB,0.900000,0.900000,2");
}

TEST_F(PersistFaultTest, FileLargerThanAnyPersistFileIsNotRewritten)
{
    std::string huge;
    while (huge.size() <= kMaxPersistFileBytes)
    {
        huge += "1,AAAA,1.000000,1.000000,1\n";
    }
    WritePersist(huge);
    EXPECT_FALSE(Apply());
    EXPECT_EQ(CountLog(std::string("persist file ") + kPersistFile + " is larger than 4194304 bytes; not read\n"), 2u);
    EXPECT_EQ(ReadPersist(), huge);
}

struct FuseIdRoundTrip
{
    const char* name;
    std::string fuseId;
    const char* shown; // nullptr: stored and read back
};

void PrintTo(const FuseIdRoundTrip& c, std::ostream* pOut) { *pOut << c.name; }

class FuseIdSeparators : public CalibrationTest, public ::testing::WithParamInterface<FuseIdRoundTrip> {};

TEST_P(FuseIdSeparators, StoredOnlyIfItReadsBack)
{
    WritePersist(kOthers);
    property_set(kW, FuseIdValue(GetParam().fuseId).c_str());
    OISCalibrationFile       file;
    calibtest::StreamCapture out(STDOUT_FILENO);
    file.ParsePersistFile();
    const bool written = file.OverwriteCalibrationData("0", 1.0f, 1.0f, 1);
    if (GetParam().shown == nullptr)
    {
        EXPECT_TRUE(written);
        file.ParsePersistFile();
        ASSERT_EQ(file.Records().size(), 4u);
        EXPECT_EQ(file.Records()[3].fuseId, GetParam().fuseId);
        return;
    }
    EXPECT_FALSE(written);
    EXPECT_EQ(ReadPersist(), kOthers);
    EXPECT_EQ(CountLog(std::string("fuse id \"") + GetParam().shown +
                       "\" of camera[0] cannot be stored: the record would not read back as written"),
              1u);
    EXPECT_EQ(out.Text(), std::string("fuse id \"") + GetParam().shown + "\" of camera[0] cannot be stored in " +
                              kPersistFile + "\n");
}

INSTANTIATE_TEST_SUITE_P(
    Ids, FuseIdSeparators,
    ::testing::Values(FuseIdRoundTrip{ "Comma", "AB,CD", "AB,CD" },
                      FuseIdRoundTrip{ "LineFeed", "AB\nCD", "AB\\x0ACD" },
                      FuseIdRoundTrip{ "LeadingBlank", " ABCD", " ABCD" },
                      FuseIdRoundTrip{ "TrailingBlank", "ABCD ", "ABCD " },
                      FuseIdRoundTrip{ "TrailingTab", "ABCD\t", "ABCD\\x09" },
                      FuseIdRoundTrip{ "InnerBlank", "AB CD", nullptr },
                      FuseIdRoundTrip{ "InnerCarriageReturn", "AB\rCD", nullptr }),
    [](const ::testing::TestParamInfo<FuseIdRoundTrip>& info) { return std::string(info.param.name); });

} // namespace
