// Several writers on one persist file of thousands of records: two cameras in one process, two
// calibrating processes, and writers killed at chosen points of a rewrite. After all of it every
// other module's record is still there byte for byte, exactly once, and each writer's module has
// one record holding its last gains.
#include <signal.h>
#include <sys/wait.h>

#include <random>
#include <set>
#include <sstream>
#include <thread>

#include "calibrationtestsupport.h"
#include "oiscalibrationfile.h"
#include "persistfileio.h"

namespace
{

using calibtest::CalibrationTest;
using calibtest::FuseIdValue;

const int  kOtherRecords = 5000;
const int  kRewrites     = 12; // per writer
const int  kKills        = 20;
const char kWProperty[]  = "vendor.camera.sensor.w.fuseID";
const char kFProperty[]  = "vendor.camera.sensor.f.fuseID";

std::string RecordLine(const std::string& flag, const std::string& fuseId, float gainX, float gainY)
{
    OISCalData record = { flag, fuseId, std::to_string(gainX), std::to_string(gainY), 0 };
    record.crc        = OISCalibrationFile::GetCrc(&record);
    return OISCalibrationFile::FormatRecordLine(record);
}

std::string OtherRecords()
{
    std::string text;
    for (int i = 0; i < kOtherRecords; i++)
    {
        char fuseId[16];
        snprintf(fuseId, sizeof(fuseId), "MOD%05d", i);
        text += RecordLine((i % 3 == 0) ? "0" : "1", fuseId, 1.0f + 0.0001f * static_cast<float>(i % 997), 0.75f);
    }
    return text;
}

float GainOf(int writer, int rewrite)
{
    return 0.8f + 0.05f * static_cast<float>(rewrite % 9) + 0.01f * static_cast<float>(writer);
}

// What one calibrating camera does for each gain target: read the file, overwrite its gains.
bool CalibrateRole(int role, int writer)
{
    OISCalibrationFile file;
    for (int rewrite = 0; rewrite < kRewrites; rewrite++)
    {
        file.ParsePersistFile();
        if (!file.OverwriteCalibrationData(std::to_string(role), GainOf(writer, rewrite), GainOf(writer, rewrite), 1))
        {
            return false;
        }
    }
    return true;
}

// Kill points of a rewrite: after `budget` bytes of the temporary file, or at the rename.
enum class KillAt { Write, BeforeRename, AfterRename };
KillAt g_killAt     = KillAt::Write;
long   g_killBudget = 0;

ssize_t WriteThenDie(int fd, const void* pBuffer, size_t bytes)
{
    if (g_killAt == KillAt::Write && static_cast<long>(bytes) > g_killBudget)
    {
        if (g_killBudget > 0 && write(fd, pBuffer, static_cast<size_t>(g_killBudget)) < 0)
        {
            _exit(4);
        }
        raise(SIGKILL);
    }
    g_killBudget -= static_cast<long>(bytes);
    return write(fd, pBuffer, bytes);
}

int RenameThenDie(int fromFd, const char* pFrom, int toFd, const char* pTo)
{
    if (g_killAt == KillAt::BeforeRename)
    {
        raise(SIGKILL);
    }
    int result = renameat(fromFd, pFrom, toFd, pTo);
    raise(SIGKILL);
    return result;
}

const PersistFileIo kDyingIo = { read, WriteThenDie, RenameThenDie };

class PersistConcurrencyTest : public CalibrationTest
{
protected:
    void SetUp() override
    {
        CalibrationTest::SetUp();
        __android_log_set_minimum_priority(ANDROID_LOG_WARN); // thousands of records per rewrite
        property_set(kWProperty, FuseIdValue("CAMW").c_str());
        property_set(kFProperty, FuseIdValue("CAMF").c_str());
        m_others = OtherRecords();
        WritePersist(m_others);
    }

    // The file must be the other records, unchanged and in order, followed by one record per
    // module in `expected` (in any order) and nothing else.
    void ExpectOthersAnd(const std::set<std::string>& expected)
    {
        const std::string text = ReadPersist();
        ASSERT_EQ(text.compare(0, m_others.size(), m_others), 0) << "another module's record changed";
        std::set<std::string> tail;
        std::istringstream    rest(text.substr(m_others.size()));
        for (std::string line; std::getline(rest, line);)
        {
            EXPECT_TRUE(tail.insert(line + "\n").second) << "duplicate line " << line;
        }
        EXPECT_EQ(tail, expected);
    }

    std::string m_others;
};

TEST_F(PersistConcurrencyTest, TwoCamerasInOneProcessKeepEveryRecord)
{
    calibtest::HangGuard guard("two writer threads");
    bool                 results[2] = { false, false };
    std::thread          w([&] { results[0] = CalibrateRole(0, 0); });
    std::thread          f([&] { results[1] = CalibrateRole(1, 1); });
    w.join();
    f.join();
    EXPECT_TRUE(results[0]);
    EXPECT_TRUE(results[1]);
    const float last[2] = { GainOf(0, kRewrites - 1), GainOf(1, kRewrites - 1) };
    ExpectOthersAnd({ RecordLine("1", "CAMW", last[0], last[0]), RecordLine("1", "CAMF", last[1], last[1]) });
}

// Runs CalibrateRole in a child process; its pid.
pid_t ForkCalibration(int role, int writer)
{
    fflush(nullptr);
    pid_t pid = fork();
    if (pid == 0)
    {
        _exit(CalibrateRole(role, writer) ? 0 : 1);
    }
    return pid;
}

int ExitStatus(pid_t pid)
{
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// Twenty writers killed at seeded points of their rewrite, each leaving the old file or the new
// one; then two calibrating processes at once.
TEST_F(PersistConcurrencyTest, SurvivesKilledWritersAndTwoCalibratingProcesses)
{
    calibtest::HangGuard guard("killed and concurrent writers");
    std::mt19937         random(20261123);
    const std::string    base = m_others; // the other modules' records
    for (int kill = 0; kill < kKills; kill++)
    {
        const float       gain    = GainOf(2, kill);
        const std::string line    = RecordLine("1", "CAMW", gain, gain);
        const std::string current = ReadPersist();
        const std::string updated = base + line;
        const int         kind    = static_cast<int>(random() % 4);
        g_killAt     = (kind == 3) ? KillAt::AfterRename : (kind == 2) ? KillAt::BeforeRename : KillAt::Write;
        g_killBudget = static_cast<long>(random() % updated.size());
        fflush(nullptr);
        pid_t pid = fork();
        if (pid == 0)
        {
            SetPersistFileIo(&kDyingIo);
            OISCalibrationFile file;
            file.ParsePersistFile();
            file.OverwriteCalibrationData("0", gain, gain, 1);
            _exit(5); // not killed: the kill point was never reached
        }
        ASSERT_EQ(ExitStatus(pid), 128 + SIGKILL) << "kill " << kill;
        const std::string after = ReadPersist();
        ASSERT_TRUE(after == current || after == updated) << "kill " << kill << " left a file of " << after.size()
                                                          << " bytes";
        // The next rewrite goes through and clears what the killed one left.
        OISCalibrationFile file;
        file.ParsePersistFile();
        ASSERT_TRUE(file.OverwriteCalibrationData("0", gain, gain, 1));
        ASSERT_EQ(ReadPersist(), updated);
        ASSERT_FALSE(m_root.Exists(std::string(calibtest::kPersistFile) + ".tmp"));
    }

    const pid_t w = ForkCalibration(0, 0);
    const pid_t f = ForkCalibration(1, 1);
    EXPECT_EQ(ExitStatus(w), 0);
    EXPECT_EQ(ExitStatus(f), 0);
    const float last[2] = { GainOf(0, kRewrites - 1), GainOf(1, kRewrites - 1) };
    ExpectOthersAnd({ RecordLine("1", "CAMW", last[0], last[0]), RecordLine("1", "CAMF", last[1], last[1]) });
}

} // namespace
