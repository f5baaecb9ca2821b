// A gain taking effect end to end: the node persists the gain pair and notifies the calibration
// service, which reads the new gains back. The node always uses the device's socket name, which
// every process on the machine shares, so each test first owns that name (with a socket of its
// own or with the service) and waits while another test holds it.
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <stddef.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <sys/stat.h>
#include <sys/socket.h>

#include <chrono>
#include <cmath>
#include <filesystem>
#include <memory>
#include <thread>

#include "calibrationtestsupport.h"
#include "chihost/services/calibrationservice.h"
#include "nodetestpeer.h"
#include "persistfileio.h"

namespace
{

using calibtest::CalibrationTest;
using calibtest::FuseIdValue;
using namespace std::chrono_literals;

const auto kNameWait = 120s;

// The device's socket name, bound by the test: listening (connections queue to be read) or not
// (connecting is refused, as when no service runs).
class OwnedSocketName
{
public:
    explicit OwnedSocketName(bool listening, int backlog = 4)
    {
        const auto deadline = std::chrono::steady_clock::now() + kNameWait;
        m_fd                = socket(AF_LOCAL, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        while (socket_local_server_bind(m_fd, chihost::kCalibrationServiceSocketName,
                                        ANDROID_SOCKET_NAMESPACE_ABSTRACT) < 0)
        {
            if (std::chrono::steady_clock::now() > deadline)
            {
                ADD_FAILURE() << "the socket name stays taken";
                return;
            }
            std::this_thread::sleep_for(50ms);
        }
        if (listening)
        {
            EXPECT_EQ(listen(m_fd, backlog), 0);
        }
    }
    ~OwnedSocketName()
    {
        for (int client : m_clients)
        {
            close(client);
        }
        close(m_fd);
    }

    // Queues connections of its own until the listener's queue is full: from then on a blocking
    // connect to the name waits until someone accepts, which this listener never does.
    void FillQueue()
    {
        for (int i = 0; i < 64; i++)
        {
            int client = socket(AF_LOCAL, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
            m_clients.push_back(client);
            if (socket_local_client_connect(client, chihost::kCalibrationServiceSocketName,
                                            ANDROID_SOCKET_NAMESPACE_ABSTRACT, SOCK_STREAM) < 0)
            {
                ASSERT_EQ(errno, EAGAIN);
                return;
            }
        }
        FAIL() << "the listener's queue never filled";
    }

    // Everything the next queued client sent before closing; "<no connection>" when none came.
    std::string NextMessage() const
    {
        int client = accept(m_fd, nullptr, nullptr);
        if (client < 0)
        {
            return "<no connection>";
        }
        fcntl(client, F_SETFL, 0);
        std::string message;
        char        chunk[64];
        ssize_t     got = 0;
        while ((got = read(client, chunk, sizeof(chunk))) > 0)
        {
            message.append(chunk, static_cast<size_t>(got));
        }
        close(client);
        return message;
    }

private:
    int              m_fd = -1;
    std::vector<int> m_clients;
};

class ApplyGyroGainTest : public CalibrationTest
{
protected:
    void SetUp() override
    {
        CalibrationTest::SetUp();
        property_set("vendor.camera.sensor.w.fuseID", FuseIdValue("ABCD").c_str());
        ChiOisVerifyNodeTestPeer::AdoptCalibFileManager(m_node, new OISCalibrationFile());
        m_node.SetOISVerifyState(StartState);
    }

    INT32 Apply(INT32 roleId, FLOAT gainX, FLOAT gainY)
    {
        return ChiOisVerifyNodeTestPeer::ApplyGyroGain(m_node, roleId, gainX, gainY);
    }

    ChiOisVerifyNode m_node;
};

enum class Refusal
{
    NoFileManager,
    GainOutOfRange,
    MissingDirectory,
};

class RefusedGain : public ApplyGyroGainTest, public ::testing::WithParamInterface<Refusal> {};

TEST_P(RefusedGain, ReturnsOneAndSendsNothing)
{
    OwnedSocketName listener(true);
    if (GetParam() == Refusal::NoFileManager)
    {
        ChiOisVerifyNodeTestPeer::AdoptCalibFileManager(m_node, nullptr);
    }
    if (GetParam() == Refusal::MissingDirectory)
    {
        std::filesystem::remove_all(m_root.Map(calibtest::kPersistDir));
    }
    EXPECT_EQ(Apply(0, (GetParam() == Refusal::GainOutOfRange) ? 5.0f : 1.0f, 1.0f), 1);
    EXPECT_TRUE(m_log.HasChiLine('E', (GetParam() == Refusal::NoFileManager)
                                          ? "m_pOisCalibFileManager is NULL, please check"
                                          : "Write gain to persist file fail, ret = 0"));
    EXPECT_EQ(CountLog(std::string("failed to open file ") + calibtest::kPersistFile + "\n"),
              (GetParam() == Refusal::MissingDirectory) ? 3u : 0u);
    EXPECT_FALSE(m_root.Exists(calibtest::kPersistFile));
    EXPECT_EQ(listener.NextMessage(), "<no connection>");
}

INSTANTIATE_TEST_SUITE_P(Causes, RefusedGain,
                         ::testing::Values(Refusal::NoFileManager, Refusal::GainOutOfRange, Refusal::MissingDirectory));

TEST_F(ApplyGyroGainTest, WithoutServiceTheFileIsStillWritten)
{
    OwnedSocketName notListening(false);
    calibtest::StreamCapture out(STDOUT_FILENO);
    EXPECT_EQ(Apply(0, 1.0f, 1.0f), 0);
    EXPECT_EQ(out.Text(), "socket init failed\n");
    EXPECT_EQ(ReadPersist(), "1,ABCD,1.000000,1.000000,6915\n");
    EXPECT_TRUE(m_log.HasChiLine('I', "Write gain success, changed state to 1"));
}

TEST_F(ApplyGyroGainTest, ServiceThatNeverAcceptsDoesNotHoldTheRequest)
{
    WritePersist("1,OTHER,1.000000,1.000000,5\n");
    OwnedSocketName stuck(true, 0);
    stuck.FillQueue();
    calibtest::StreamCapture out(STDOUT_FILENO);
    {
        calibtest::HangGuard guard("ApplyGyroGain with a full service queue");
        EXPECT_EQ(Apply(0, 1.0f, 1.0f), 0);
    }
    EXPECT_EQ(out.Text(), "socket init failed\n");
    EXPECT_EQ(ReadPersist(), "1,OTHER,1.000000,1.000000,5\n1,ABCD,1.000000,1.000000,6915\n");
    EXPECT_TRUE(m_log.HasChiLine('I', "Write gain success, changed state to 1"));
}

// Makes every send of this process fail with EPIPE, as when the service went away between the
// connect and the send, through a seccomp filter. For a forked child only: it cannot be undone.
bool FailEverySend()
{
    sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, __NR_sendto, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | (EPIPE & SECCOMP_RET_DATA)),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    sock_fprog program = { static_cast<unsigned short>(sizeof(filter) / sizeof(filter[0])), filter };
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

TEST_F(ApplyGyroGainTest, FailedSendIsPrintedAndTheGainStaysWritten)
{
    const int       kNoSeccomp = 77;
    OwnedSocketName listener(true);
    int             printed[2];
    ASSERT_EQ(pipe(printed), 0);
    fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0)
    {
        dup2(printed[1], STDOUT_FILENO);
        if (!FailEverySend())
        {
            _exit(kNoSeccomp);
        }
        const INT32 result = Apply(0, 1.0f, 1.0f);
        fflush(nullptr);
        _exit(result);
    }
    close(printed[1]);
    std::string text;
    char        chunk[256];
    ssize_t     got = 0;
    while ((got = read(printed[0], chunk, sizeof(chunk))) > 0)
    {
        text.append(chunk, static_cast<size_t>(got));
    }
    close(printed[0]);
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    ASSERT_TRUE(WIFEXITED(status));
    if (WEXITSTATUS(status) == kNoSeccomp)
    {
        GTEST_SKIP() << "no seccomp filters here (e.g. under an emulator)";
    }
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(text, "socket send failed\n");
    EXPECT_EQ(ReadPersist(), "1,ABCD,1.000000,1.000000,6915\n");
    EXPECT_EQ(listener.NextMessage(), ""); // connected, but nothing arrived
}

TEST_F(ApplyGyroGainTest, SendsExactlyTheReloadWord)
{
    OwnedSocketName listener(true);
    calibtest::StreamCapture out(STDOUT_FILENO);
    EXPECT_EQ(Apply(0, 1.0f, 1.0f), 0);
    EXPECT_EQ(listener.NextMessage(), "gyrogain");
    EXPECT_EQ(listener.NextMessage(), "<no connection>");
    EXPECT_EQ(out.Text(), "");
}

TEST_F(ApplyGyroGainTest, ServiceReadsBackEachNewGain)
{
    property_set("vendor.camera.sensor.t2.fuseID", FuseIdValue("TELE2").c_str());
    WritePersist("1,ZZZZ,1.000000,1.000000,1\n"); // another module, damaged
    chihost::CalibrationService        service;
    chihost::CalibrationServiceOptions options;
    std::string                        error;
    const auto                         deadline = std::chrono::steady_clock::now() + kNameWait;
    while (!service.Start(options, &error))
    {
        ASSERT_LT(std::chrono::steady_clock::now(), deadline) << error;
        std::this_thread::sleep_for(50ms);
    }

    const std::pair<float, float> kGains[] = { { 1.0f, 1.25f }, { 2500.0f, 0.75f } };
    uint64_t                      reloads  = 0;
    for (const auto& gains : kGains)
    {
        ASSERT_EQ(Apply(20, gains.first, gains.second), 0); // role 20 falls back to t2's fuse ID
        ASSERT_TRUE(service.WaitForReloadCount(++reloads, 10s));
        chihost::ModuleGyroGain applied;
        ASSERT_TRUE(service.GainsOf("TELE2", &applied));
        EXPECT_TRUE(applied.calibrated);
        EXPECT_EQ(applied.gainX, gains.first);
        EXPECT_EQ(applied.gainY, gains.second);
        EXPECT_FALSE(service.GainsOf("ZZZZ", &applied)); // its CRC is wrong: never applied
    }
    EXPECT_EQ(service.ReloadCount(), 2u);
    EXPECT_EQ(service.Snapshot().rejected.size(), 1u);
}

// A whole gain search whose SR peaks at the base gain: the persist file's records decide how it
// ends. Every other record stays as it was.
class GainSearchTest : public ApplyGyroGainTest
{
protected:
    static FLOAT PeakAtOne(FLOAT gainX, FLOAT gainY) { return 30.0f - 10.0f * (std::abs(gainX - 1.0f) + std::abs(gainY - 1.0f)); }

    INT32 Search()
    {
        calibtest::HangGuard guard("a gain search");
        return ChiOisVerifyNodeTestPeer::RunGainSearch(m_node, 0, 1.0f, PeakAtOne);
    }

    const std::string m_others = "1,OTHER,1.000000,1.000000,5\n0,MORE,0.900000,0.900000,7\n";
};

TEST_F(GainSearchTest, EndsWithTheBestGainPersisted)
{
    WritePersist(m_others);
    OwnedSocketName notListening(false);
    calibtest::StreamCapture out(STDOUT_FILENO);
    EXPECT_EQ(Search(), VerifyDoneState);
    EXPECT_EQ(ReadPersist(), m_others + "1,ABCD,1.000000,1.000000,6915\n");
}

TEST_F(GainSearchTest, FifoAtThePersistPathEndsInMinus21WithoutBlocking)
{
    std::filesystem::remove(PersistPath());
    ASSERT_EQ(mkfifo(PersistPath().c_str(), 0644), 0);
    EXPECT_EQ(Search(), ErrorStateApplyGain);
    EXPECT_TRUE(m_log.HasChiLine('E', "Write gain to persist file fail, ret = 0"));
    EXPECT_EQ(CountLog(std::string("persist file ") + calibtest::kPersistFile + " is not a regular file; not read\n"), 2u);
    EXPECT_TRUE(std::filesystem::is_fifo(PersistPath()));
}

TEST_F(GainSearchTest, FuseIdThatWouldNotReadBackEndsInMinus21)
{
    WritePersist(m_others);
    property_set("vendor.camera.sensor.w.fuseID", FuseIdValue("AB,CD").c_str());
    calibtest::StreamCapture out(STDOUT_FILENO);
    EXPECT_EQ(Search(), ErrorStateApplyGain);
    EXPECT_EQ(CountLog("fuse id \"AB,CD\" of camera[0] cannot be stored: the record would not read back as written"), 1u);
    EXPECT_TRUE(m_log.HasChiLine('E', "Write gain to persist file fail, ret = 0"));
    EXPECT_EQ(ReadPersist(), m_others);
    EXPECT_EQ(out.Text(), std::string("fuse id \"AB,CD\" of camera[0] cannot be stored in ") + calibtest::kPersistFile + "\n");
}

// Renames (completed rewrites) allowed before every write fails.
int g_renamesLeft = 0;

int CountedRename(int fromFd, const char* pFrom, int toFd, const char* pTo)
{
    if (g_renamesLeft-- <= 0)
    {
        errno = EROFS;
        return -1;
    }
    return renameat(fromFd, pFrom, toFd, pTo);
}

const PersistFileIo kCountedIo = { read, write, CountedRename };

// The nine search writes succeed; the final write of the selected pair is refused.
TEST_F(GainSearchTest, FinalWriteRefusedAfterEverySearchWriteEndsInMinus21)
{
    WritePersist(m_others);
    OwnedSocketName notListening(false);
    calibtest::StreamCapture out(STDOUT_FILENO);
    g_renamesLeft = 9;
    SetPersistFileIo(&kCountedIo);
    const INT32 state = Search();
    SetPersistFileIo(nullptr);
    EXPECT_EQ(state, ErrorStateApplyGain);
    EXPECT_EQ(CountLog(std::string("failed to replace ") + calibtest::kPersistFile + ": Read-only file system\n"), 3u);
    EXPECT_TRUE(m_log.HasChiLine('E', "Write gain to persist file fail, ret = 0"));
    // The last search target (1.20, 1.20) is what the file keeps; no temporary file is left.
    EXPECT_EQ(ReadPersist(), m_others + "1,ABCD,1.200000,1.200000," +
                                 std::to_string(OISCalibrationFile::GetCrc(
                                     std::make_unique<OISCalData>(OISCalData{ "1", "ABCD", "1.200000", "1.200000", 0 }).get())) +
                                 "\n");
    EXPECT_FALSE(m_root.Exists(std::string(calibtest::kPersistFile) + ".tmp"));
}

} // namespace
