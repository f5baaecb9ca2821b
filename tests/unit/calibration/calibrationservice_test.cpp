// The calibration service: what a load of the persist file applies and rejects, reloads on
// "gyrogain" only, and a listener that starts, stops and leaves no descriptor behind. Each test
// listens under a name of its own, so tests running in parallel do not meet.
#include <dirent.h>
#include <sys/socket.h>

#include <chrono>
#include <thread>

#include "calibrationtestsupport.h"
#include "chihost/services/calibrationservice.h"
#include "oiscalibrationfile.h"

namespace
{

using calibtest::CalibrationTest;
using namespace std::chrono_literals;

size_t OpenDescriptors()
{
    size_t count = 0;
    DIR*   pDir  = opendir("/proc/self/fd");
    while (pDir != nullptr && readdir(pDir) != nullptr)
    {
        count++;
    }
    closedir(pDir);
    return count;
}

// Connects, sends the bytes and closes, as the node does.
void Send(const std::string& name, const std::string& message)
{
    int fd = socket_local_client(name.c_str(), ANDROID_SOCKET_NAMESPACE_ABSTRACT, SOCK_STREAM);
    ASSERT_GE(fd, 0) << "no listener on " << name;
    ASSERT_EQ(send(fd, message.data(), message.size(), MSG_NOSIGNAL), static_cast<ssize_t>(message.size()));
    close(fd);
}

class CalibrationServiceTest : public CalibrationTest
{
protected:
    void Start()
    {
        m_options.socketName = "zelk.test.calibration." + std::to_string(getpid());
        std::string error;
        ASSERT_TRUE(m_service.Start(m_options, &error)) << error;
    }

    chihost::CalibrationServiceOptions m_options;
    chihost::CalibrationService        m_service;
};

TEST_F(CalibrationServiceTest, LoadAppliesGoodRecordsAndRejectsTheRest)
{
    WritePersist("1,ABCD,1.000000,1.000000,6915\n"
                 "1,EFGH,1.000000,1.000000,6915\n" // CRC of another record
                 "1,ABCD,1.000000,1.000000,6915\n" // second record of a module
                 "1,2,3\n"
                 "0,,x,y,22252\n");                // right CRC, gains no numbers
    chihost::CalibrationSnapshot snapshot = chihost::LoadCalibrationSnapshot(PersistPath(), 7);
    EXPECT_TRUE(snapshot.fileRead);
    EXPECT_EQ(snapshot.generation, 7u);
    ASSERT_EQ(snapshot.gains.size(), 1u);
    const chihost::ModuleGyroGain& gain = snapshot.gains["ABCD"];
    EXPECT_TRUE(gain.calibrated);
    EXPECT_EQ(gain.gainX, 1.0f);
    EXPECT_EQ(gain.line, 1);

    ASSERT_EQ(snapshot.rejected.size(), 4u);
    const std::pair<int, std::string> kRejected[] = {
        { 2, "crc 6915 stored, 6277 computed" }, { 3, "duplicate of line 1" },
        { 4, "3 columns, a record has 5" }, { 5, "gains \"x\", \"y\" are not numbers" },
    };
    for (size_t i = 0; i < 4; i++)
    {
        EXPECT_EQ(snapshot.rejected[i].line, kRejected[i].first);
        EXPECT_EQ(snapshot.rejected[i].reason, kRejected[i].second);
    }
    EXPECT_FALSE(chihost::LoadCalibrationSnapshot(PersistPath() + ".missing", 1).fileRead);
}

TEST_F(CalibrationServiceTest, ReloadsOnGyrogainOnlyAndReportsEachLoad)
{
    std::vector<uint64_t> loads;
    std::mutex            loadsMutex;
    m_options.onLoad = [&](const chihost::CalibrationSnapshot& snapshot) {
        std::lock_guard<std::mutex> lock(loadsMutex);
        loads.push_back(snapshot.generation);
    };
    Start();
    EXPECT_FALSE(m_service.Snapshot().fileRead); // started before any file exists

    WritePersist("1,ABCD,1.000000,1.000000,6915\n");
    for (const char* ignored : { "gyrogain\n", "gyrogai", "GYROGAIN", "" })
    {
        Send(m_options.socketName, ignored);
    }
    Send(m_options.socketName, "gyrogain");
    ASSERT_TRUE(m_service.WaitForReloadCount(1, 10s));
    EXPECT_EQ(m_service.IgnoredMessageCount(), 4u); // served one at a time, in order
    chihost::ModuleGyroGain gain;
    ASSERT_TRUE(m_service.GainsOf("ABCD", &gain));
    EXPECT_EQ(gain.gainY, 1.0f);
    EXPECT_FALSE(m_service.GainsOf("EFGH", &gain));
    EXPECT_EQ(m_service.Snapshot().generation, 2u);

    m_service.Stop();
    std::lock_guard<std::mutex> lock(loadsMutex);
    EXPECT_EQ(loads, std::vector<uint64_t>({ 1, 2 }));
}

TEST_F(CalibrationServiceTest, StopsPromptlyAndReleasesEverything)
{
    const size_t before = OpenDescriptors();
    Start();
    std::string error;
    EXPECT_FALSE(m_service.Start(m_options, &error));
    chihost::CalibrationService second;
    EXPECT_FALSE(second.Start(m_options, &error)); // the name is taken
    EXPECT_NE(error.find(m_options.socketName), std::string::npos) << error;

    // A client that connects and says nothing must not hold Stop up.
    int idle = socket_local_client(m_options.socketName.c_str(), ANDROID_SOCKET_NAMESPACE_ABSTRACT, SOCK_STREAM);
    ASSERT_GE(idle, 0);
    std::this_thread::sleep_for(50ms);
    const auto stopStart = std::chrono::steady_clock::now();
    m_service.Stop();
    EXPECT_LT(std::chrono::steady_clock::now() - stopStart, 500ms);
    close(idle);
    m_service.Stop();
    EXPECT_EQ(OpenDescriptors(), before);

    // The name is free again, for this service or another.
    std::string restartError;
    ASSERT_TRUE(second.Start(m_options, &restartError)) << restartError;
    Send(m_options.socketName, "gyrogain");
    EXPECT_TRUE(second.WaitForReloadCount(1, 10s));
}

} // namespace
