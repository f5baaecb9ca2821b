// Faults a device meets on the factory line: a measurement library returning garbage, working
// folders missing or unusable, the persist partition read-only or full, the calibration service
// gone. Each ends in the node's defined state and message, never a crash, and the persist file
// keeps every record it had unless the node managed to rewrite it whole.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <fstream>
#include <thread>

#include "chihost/emulator/logcapture.h"
#include "chihost/emulator/nodesession.h"
#include "closedloopmodule.h"

namespace
{

const char   kFuseId[]      = "ZK0042A7";
const char   kPersistDir[]  = "/mnt/vendor/persist";
const char   kPersistFile[] = "/mnt/vendor/persist/camera/com.zelk.oiscal.bin";
const UINT64 kMaxRequests   = 3000;

std::string ReadAll(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

class FaultsTest : public ::testing::Test
{
protected:
    void TearDown() override
    {
        m_session.Close();
        if (!m_mounted.empty())
        {
            umount(m_mounted.c_str());
        }
    }

    chihost::NodeSessionOptions Options(bool calibrate)
    {
        chihost::NodeSessionOptions options;
        options.nodeLibraryPath      = ZELK_NODE_LIBRARY;
        options.root.buildProperties = { { "persist.vendor.camera.oisgyrogain.w", "1.0,1.0" },
                                         { "vendor.debug.camera.oisAlgoPara", "1:0:0:10:8:60" },
                                         { "vendor.debug.camera.oisGainCalibrate", "0:0:18.0:0.05:0.2:2" },
                                         { "vendor.camera.sensor.w.fuseID", simsource::FuseIdPropertyValue(kFuseId) } };
        if (calibrate)
        {
            options.root.overrideSettings = { { "enableOISGyroGainCalibration", "TRUE" } };
        }
        return options;
    }

    // Opens the session over a module whose OIS is 13 % off, with the calibration service.
    void OpenCalibrating(const chihost::NodeSessionOptions& options)
    {
        sim::Scenario scenario     = sim::OisOnScenario(1.0, 1.0);
        scenario.ois.idealGainX    = 0.87;
        scenario.shake.frequencyHz = 8.0;
        m_source.reset(new simsource::SimFrameSource(scenario));
        m_module.reset(new simsource::ClosedLoopModule(*m_source, kFuseId));
        chihost::Status status = m_session.Open(options);
        ASSERT_TRUE(status) << status.Message();
        std::string error;
        for (int attempt = 0; attempt < 1200 && !m_module->Start(&error); attempt++)
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        ASSERT_TRUE(m_module->Service().IsRunning()) << error;
        m_session.SetInputProvider(m_module->Provider());
    }

    // A small partition of its own at the persist mount point, holding `content` as the persist
    // file; false (and the test is skipped) where this process may not mount.
    bool MountPersistPartition(chihost::DeviceRoot& root, const std::string& sizeOption, const std::string& content)
    {
        m_mounted = root.Map(kPersistDir);
        if (mount("tmpfs", m_mounted.c_str(), "tmpfs", 0, sizeOption.c_str()) != 0)
        {
            m_mounted.clear();
            return false;
        }
        mkdir((m_mounted + "/camera").c_str(), 0755);
        std::ofstream(root.Map(kPersistFile), std::ios::binary) << content;
        return true;
    }

    chihost::LogCapture                          m_log;
    std::unique_ptr<simsource::SimFrameSource>   m_source;
    std::unique_ptr<simsource::ClosedLoopModule> m_module;
    chihost::NodeSession                         m_session;
    std::string                                  m_mounted;
};

class GarbageCoordinates : public FaultsTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(GarbageCoordinates, EndTheVerificationWithoutACrash)
{
    setenv("ZELK_FAKE_ALGO_GARBAGE", GetParam(), 1);
    chihost::NodeSessionOptions options = Options(false);
    options.root.oisLibrarySource       = ZELK_FAKE_ALGO_GARBAGE;
    ASSERT_TRUE(m_session.Open(options));
    simsource::SimFrameSource source(sim::OisOnScenario(1.0, 1.0));
    m_session.SetInputProvider(source.Provider());
    auto records = m_session.Run(kMaxRequests);
    EXPECT_EQ(records.back().published.state, 4);
    EXPECT_NE(m_session.ReadReport().find("\"horSR\":"), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(Values, GarbageCoordinates, ::testing::Values("nan", "inf", "huge"));

TEST_F(FaultsTest, MissingWorkingFoldersOnlyCostTheFiles)
{
    chihost::NodeSessionOptions options = Options(false);
    options.prepareRoot                 = [](chihost::DeviceRoot& root) {
        return system(("rm -rf " + root.Map("/data/vendor/camera")).c_str()) == 0
                   ? chihost::Status::Ok()
                   : chihost::Status::Error("cannot remove the working folders");
    };
    ASSERT_TRUE(m_session.Open(options));
    simsource::SimFrameSource source(sim::OisOnScenario(1.0, 1.0));
    m_session.SetInputProvider(source.Provider());
    auto records = m_session.Run(kMaxRequests);
    EXPECT_EQ(records.back().published.state, 4);
    EXPECT_TRUE(m_session.ReadReport().empty());
    EXPECT_TRUE(m_log.HasChiLine('I', "do not need create dir data/vendor/camera/oisverify/"));
}

TEST_F(FaultsTest, DebugImageFolderThatIsAFileGivesNoImages)
{
    chihost::NodeSessionOptions options = Options(false);
    options.root.buildProperties[1].second = "1:1:0:10:8:60";
    options.prepareRoot = [](chihost::DeviceRoot& root) {
        const std::string folder = root.Map("/data/vendor/camera/ois");
        return system(("rm -rf " + folder + " && touch " + folder).c_str()) == 0
                   ? chihost::Status::Ok()
                   : chihost::Status::Error("cannot replace the image folder");
    };
    ASSERT_TRUE(m_session.Open(options));
    simsource::SimFrameSource source(sim::OisOnScenario(1.0, 1.0));
    m_session.SetInputProvider(source.Provider());
    auto records = m_session.Run(kMaxRequests);
    EXPECT_TRUE(m_log.HasChiLine('E', "open dir failed errno = 20"));
    EXPECT_EQ(records.back().published.state, -12);
}

TEST_F(FaultsTest, ReadOnlyPersistPartitionKeepsEveryRecord)
{
    chihost::NodeSessionOptions options = Options(true);
    const std::string           others  = "1,OTHERMOD,1.050000,0.950000,12345\n0,SPARE,1.000000,1.000000,777\n";
    options.prepareRoot = [&](chihost::DeviceRoot& root) {
        if (!MountPersistPartition(root, "size=64k", others))
        {
            return chihost::Status::Ok();
        }
        return mount(nullptr, m_mounted.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) == 0
                   ? chihost::Status::Ok()
                   : chihost::Status::Error("cannot make the persist partition read-only");
    };
    OpenCalibrating(options);
    if (m_mounted.empty())
    {
        GTEST_SKIP() << "this process may not mount a partition";
    }
    auto records = m_session.Run(kMaxRequests);
    EXPECT_EQ(records.back().published.state, -21);
    EXPECT_EQ(ReadAll(m_session.Root().Map(kPersistFile)), others);
    EXPECT_EQ(m_module->Service().ReloadCount(), 0u);
}

TEST_F(FaultsTest, FullPersistPartitionRefusesAGrowingRewriteAndKeepsEveryRecord)
{
    chihost::NodeSessionOptions options = Options(true);
    // One full page of other modules' records: appending this module's record needs a second.
    std::string others;
    for (int i = 0; others.size() < 4060; i++)
    {
        others += "1,MODULE" + std::to_string(1000 + i) + ",1.000000,1.000000,4242\n";
    }
    options.prepareRoot = [&](chihost::DeviceRoot& root) {
        if (MountPersistPartition(root, "size=16k", others))
        {
            std::ofstream filler(m_mounted + "/filler", std::ios::binary);
            const std::string block(4096, 'f');
            while (filler.write(block.data(), block.size()) && filler.flush()) {}
        }
        return chihost::Status::Ok();
    };
    OpenCalibrating(options);
    if (m_mounted.empty())
    {
        GTEST_SKIP() << "this process may not mount a partition";
    }
    auto records = m_session.Run(kMaxRequests);
    EXPECT_EQ(records.back().published.state, -21);
    EXPECT_EQ(ReadAll(m_session.Root().Map(kPersistFile)), others);
    bool refused = false;
    for (const std::string& text : m_log.AndroidTexts())
    {
        refused = refused || (text.find("not enough space to rewrite") != std::string::npos);
    }
    EXPECT_TRUE(refused);
}

TEST_F(FaultsTest, CalibrationServiceGoneMidSearchLeavesTheSearchToFinish)
{
    OpenCalibrating(Options(true));
    testing::internal::CaptureStdout();
    auto records = m_session.Run(kMaxRequests, [this](const chihost::RequestRecord&) {
        if (m_module->Applied().size() >= 2 && m_module->Service().IsRunning())
        {
            m_module->Stop();
        }
        return true;
    });
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_EQ(records.back().published.state, 4);
    EXPECT_NE(printed.find("socket init failed\n"), std::string::npos);
    EXPECT_NE(ReadAll(m_session.Root().Map(kPersistFile)).find(kFuseId), std::string::npos);
}

} // namespace
