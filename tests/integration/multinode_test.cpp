// Several cameras at once, as on a multi-camera device: one node library, one node per camera
// session, each streamed on its own thread with its own module, while the calibration service is
// notified from yet another thread. Each node must publish its own module's SR and state, with
// nothing crossing over, and the service must count every notification.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include <cutils/sockets.h>
#include <unistd.h>

#include "chihost/emulator/logcapture.h"
#include "chihost/hostclock.h"
#include "chihost/emulator/nodesession.h"
#include "chihost/services/calibrationservice.h"
#include "simframesource.h"

namespace
{

const int    kCameras     = 4;
const UINT64 kMaxRequests = 200;
const UINT32 kDropFrames  = 10;
const UINT32 kRingFrames  = 31;
// The simulated clock is the process's: every camera's request moves it on for all of them, so
// each node sees at most kCameras steps per frame, well inside its time limit however slowly
// the threads run.
const UINT64 kClockStepNs = 2000000;

struct Camera
{
    std::unique_ptr<simsource::SimFrameSource> source;
    std::unique_ptr<chihost::HostSession>      session;
    CHIHANDLE                                  hNode = nullptr;
    std::vector<chihost::RequestRecord>        records;
};

// Sends the reload word the way the node does: connect, write, close.
bool Notify(const std::string& socketName)
{
    int fd = socket_local_client(socketName.c_str(), ANDROID_SOCKET_NAMESPACE_ABSTRACT, SOCK_STREAM);
    if (fd < 0)
    {
        return false;
    }
    bool sent = (write(fd, "gyrogain", 8) == 8);
    close(fd);
    return sent;
}

class MultiNodeTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        chihost::DeviceRootOptions root;
        root.buildProperties = { { "persist.vendor.camera.oisgyrogain.w", "1.0,1.0" },
                                 { "vendor.debug.camera.oisAlgoPara", "1:0:0:10:4:60" } };
        chihost::Status status = m_root.Open(root);
        ASSERT_TRUE(status) << status.Message();
        for (int i = 0; i < kCameras; i++)
        {
            Camera camera;
            camera.source.reset(new simsource::SimFrameSource(sim::OisOnScenario(0.8 + 0.05 * i, 1.0 - 0.05 * i)));
            camera.session.reset(new chihost::HostSession());
            status = camera.session->Open(ZELK_NODE_LIBRARY, chihost::HostSessionOptions());
            ASSERT_TRUE(status) << status.Message();
            m_cameras.push_back(std::move(camera));
        }
    }

    void TearDown() override
    {
        for (Camera& camera : m_cameras)
        {
            camera.session->Close();
        }
        m_root.Close();
    }

    // Create, stream to a verdict and destroy, all on the calling thread.
    static void Stream(Camera* pCamera)
    {
        chihost::NodeCreateOutcome created = pCamera->session->CreateNode({}, 0, 0, 0);
        if (created.result != CDKResultSuccess)
        {
            return;
        }
        pCamera->hNode = created.hNode;
        chihost::NegotiateBuffers(*pCamera->session, created.hNode, 1440, 1080);
        chihost::RequestDriver driver(*pCamera->session, created.hNode);
        driver.SetInputProvider(pCamera->source->Provider());
        driver.AdvanceClockPerRequest(kClockStepNs);
        pCamera->records = driver.Run(kMaxRequests, [](const chihost::RequestRecord& record) {
            return chihost::IsFinalState(record.published.state);
        });
        pCamera->session->DestroyNode(created.hNode);
    }

    chihost::LogCapture m_log;
    chihost::DeviceRoot m_root;
    std::vector<Camera> m_cameras;
};

TEST_F(MultiNodeTest, CamerasStreamedInParallelKeepTheirOwnResults)
{
    chihost::CalibrationService        service;
    chihost::CalibrationServiceOptions options;
    options.socketName = "com.zelk.test.multinode." + std::to_string(getpid());
    std::string error;
    ASSERT_TRUE(service.Start(options, &error)) << error;

    ChiHostClockUseSimulated(1, 1000000000ull);
    std::atomic<bool> streaming(true);
    int               notified = 0;
    std::thread       notifier([&]() {
        while (streaming.load())
        {
            notified += Notify(options.socketName) ? 1 : 0;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    std::vector<std::thread> threads;
    for (Camera& camera : m_cameras)
    {
        threads.emplace_back(&MultiNodeTest::Stream, &camera);
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    streaming.store(false);
    notifier.join();
    EXPECT_TRUE(service.WaitForReloadCount(static_cast<uint64_t>(notified), std::chrono::seconds(10)));
    EXPECT_EQ(service.ReloadCount(), static_cast<uint64_t>(notified));
    service.Stop();

    for (int i = 0; i < kCameras; i++)
    {
        const Camera& camera = m_cameras[i];
        ASSERT_FALSE(camera.records.empty()) << "camera " << i;
        const chihost::PublishedInfo& last  = camera.records.back().published;
        sim::BlurSr                   truth = camera.source->Simulator().TrueBlurSr(kDropFrames + 1, kRingFrames);
        EXPECT_EQ(last.state, 4) << "camera " << i;
        EXPECT_NEAR(last.horSR, truth.horSrDb, 0.1) << "camera " << i;
        EXPECT_NEAR(last.verSR, truth.verSrDb, 0.1) << "camera " << i;
        EXPECT_EQ(camera.records.size(), kDropFrames + kRingFrames + 1) << "camera " << i;
    }
}

} // namespace
