// The gyro-gain calibration closed for real: the node writes each gain target to the persist
// file and tells the calibration service, the service reloads the file, the simulated module's
// OIS runs on the new gains from the next frame, and the node measures what they give.
#include <gtest/gtest.h>

#include <fstream>
#include <thread>

#include "chihost/emulator/logcapture.h"
#include "chihost/emulator/nodesession.h"
#include "closedloopmodule.h"

namespace
{

const char kFuseId[]       = "ZK0042A7";
const char kPersistFile[]  = "/mnt/vendor/persist/camera/com.zelk.oiscal.bin";
const char kAlgoPara[]     = "vendor.debug.camera.oisAlgoPara";
const char kCalibPara[]    = "vendor.debug.camera.oisGainCalibrate";
const UINT64 kMaxRequests  = 3000;

struct LoopSetup
{
    double      idealX      = 1.0;
    double      idealY      = 1.0;
    bool        swapAxes    = false;
    std::string calibPara   = "0:0:18.0:0.05:0.2:10";
    std::string algoPara    = "1:0:0:10:4:60";
    double      shakeHz     = 4.0;
    bool        withFuseId  = true;
};

class CalibrationLoopTest : public ::testing::Test
{
protected:
    void Open(const LoopSetup& setup, chihost::AppPolicy app = nullptr)
    {
        sim::Scenario scenario     = sim::OisOnScenario(1.0, 1.0);
        scenario.ois.idealGainX    = setup.idealX;
        scenario.ois.idealGainY    = setup.idealY;
        scenario.ois.swapGyroAxes  = setup.swapAxes;
        scenario.shake.frequencyHz = setup.shakeHz;
        m_source.reset(new simsource::SimFrameSource(scenario));
        m_module.reset(new simsource::ClosedLoopModule(*m_source, kFuseId));

        chihost::NodeSessionOptions options;
        options.nodeLibraryPath      = ZELK_NODE_LIBRARY;
        options.root.buildProperties = { { "persist.vendor.camera.oisgyrogain.w", "1.000000,1.000000" },
                                         { kAlgoPara, setup.algoPara },
                                         { kCalibPara, setup.calibPara } };
        if (setup.withFuseId)
        {
            options.root.buildProperties.push_back({ "vendor.camera.sensor.w.fuseID",
                                                     simsource::FuseIdPropertyValue(kFuseId) });
        }
        options.root.overrideSettings = { { "enableOISGyroGainCalibration", "TRUE" } };
        options.host.eepromCustomInfo = { { "OISGyroGainAndSRMatch", setup.swapAxes ? 1u : 0u } };
        options.app                   = app;
        chihost::Status status        = m_session.Open(options);
        ASSERT_TRUE(status) << status.Message();
        StartService();
        m_session.SetInputProvider(m_module->Provider());
    }

    // The service's socket name is the device's, shared by every process: wait for it if another
    // test holds it.
    void StartService()
    {
        std::string error;
        for (int attempt = 0; attempt < 1200; attempt++)
        {
            if (m_module->Start(&error))
            {
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        FAIL() << error;
    }

    std::vector<chihost::RequestRecord> RunToVerdict() { return m_session.Run(kMaxRequests); }

    std::string PersistFile()
    {
        std::ifstream in(m_session.Root().Map(kPersistFile), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }

    chihost::LogCapture                          m_log;
    std::unique_ptr<simsource::SimFrameSource>   m_source;
    std::unique_ptr<simsource::ClosedLoopModule> m_module;
    chihost::NodeSession                         m_session;
};

struct IdealCase
{
    double      idealX;
    double      idealY;
    bool        swapAxes;
    const char* selected; // the "select Gain" line's gains
};

void PrintTo(const IdealCase& c, std::ostream* pOut)
{
    *pOut << "ideal " << c.idealX << "," << c.idealY << (c.swapAxes ? " swapped" : "");
}

class NearestStep : public CalibrationLoopTest, public ::testing::WithParamInterface<IdealCase> {};

TEST_P(NearestStep, SelectsTheSearchStepNearestTheIdealGainPerAxis)
{
    LoopSetup setup;
    setup.idealX   = GetParam().idealX;
    setup.idealY   = GetParam().idealY;
    setup.swapAxes = GetParam().swapAxes;
    Open(setup);
    auto records = RunToVerdict();
    ASSERT_EQ(records.back().published.state, 4);
    auto selected = m_log.ChiLinesStartingWith("select Gain write to persist, vertorSize = 9 Gain[");
    ASSERT_EQ(selected.size(), 1u);
    EXPECT_NE(selected[0].message.find(std::string("Gain[") + GetParam().selected + "]"), std::string::npos)
        << selected[0].message;
    EXPECT_NE(PersistFile().find(std::string("1,") + kFuseId + ","), std::string::npos) << PersistFile();
    EXPECT_TRUE(m_log.HasChiLine('I', "Generate json file, m_isGyroGainCalib = 1,  SR[" +
                                          selected[0].message.substr(selected[0].message.find("SR[") + 3)));
}

INSTANTIATE_TEST_SUITE_P(Ideals, NearestStep,
                         ::testing::Values(IdealCase{ 0.87, 1.12, false, "0.85, 1.10" },
                                           IdealCase{ 0.93, 1.04, false, "0.95, 1.05" },
                                           IdealCase{ 0.87, 1.12, true, "0.85, 1.10" }));

TEST_F(CalibrationLoopTest, DefaultSearchTriesNineTargetsAndEndsAtCountTen)
{
    LoopSetup setup;
    setup.idealX = 0.9;
    setup.idealY = 0.9;
    Open(setup);
    auto records = RunToVerdict();
    ASSERT_EQ(records.back().published.state, 4);
    auto targets = m_log.ChiLinesStartingWith("Set gain target oisCalibCnt = ");
    ASSERT_EQ(targets.size(), 10u);
    const char* expected[] = { "0.80", "0.85", "0.90", "0.95", "1.00", "1.05", "1.10", "1.15", "1.20", "1.25" };
    for (size_t i = 0; i < targets.size(); i++)
    {
        EXPECT_EQ(targets[i].message, "Set gain target oisCalibCnt = " + std::to_string(i) + " gainXTarget = " +
                                          expected[i] + " gainYTarget = " + expected[i]);
    }
    EXPECT_TRUE(m_log.HasChiLine('I', "Search complete, changed state to 24"));
    EXPECT_EQ(m_module->Applied().size(), 10u); // nine targets and the final choice
}

TEST_F(CalibrationLoopTest, SingleAxisHoldsTheOtherAxisAndNeverEndsEarly)
{
    LoopSetup setup;
    setup.idealX    = 0.87;
    setup.calibPara = "0:1:18.0:0.05:0.2:2";
    setup.algoPara  = "1:0:0:10:8:60";
    setup.shakeHz   = 8.0;
    Open(setup);
    auto records = RunToVerdict();
    EXPECT_EQ(records.back().published.state, -21);
    for (const simsource::AppliedGain& gain : m_module->Applied())
    {
        EXPECT_EQ(gain.gainY, 1.0);
    }
    // Past the bound of 1.20 the X targets go on until the persist file refuses one above 2.0.
    EXPECT_TRUE(m_log.HasChiLine('I', "Set gain target oisCalibCnt = 24 gainXTarget = 2.00 gainYTarget = 1.00"));
    EXPECT_FALSE(m_log.HasChiLine("Search complete, changed state to 24"));
}

TEST_F(CalibrationLoopTest, ModuleWithinTheLimitNeverStartsASearch)
{
    Open(LoopSetup());
    auto records = RunToVerdict();
    EXPECT_EQ(records.back().published.state, 4);
    EXPECT_TRUE(m_log.ChiLinesStartingWith("Set gain target").empty());
    EXPECT_TRUE(m_module->Applied().empty());
}

TEST_F(CalibrationLoopTest, LimitOfPointOneStopsWithoutReport)
{
    LoopSetup setup;
    setup.calibPara = "0:0:0.1:0.05:0.2:10";
    // The app itself asks for calibration once verifying.
    Open(setup, [](UINT64 index, const chihost::PublishedInfo&) {
        chihost::AppRequest request;
        request.state = (index == 0) ? 1 : (index == 1) ? 3 : 20;
        return request;
    });
    auto records = m_session.Run(10);
    EXPECT_EQ(records.back().published.state, -20);
    EXPECT_TRUE(m_log.HasChiLine('I', "oisVerifyState is 20 and will not be changed. please check: oisSpec = 0.10"));
    EXPECT_TRUE(m_session.ReadReport().empty());
}

TEST_F(CalibrationLoopTest, FailedPersistWriteEndsInMinus21)
{
    LoopSetup setup;
    setup.idealX     = 0.87;
    setup.withFuseId = false;
    Open(setup);
    auto records = RunToVerdict();
    EXPECT_EQ(records.back().published.state, -21);
    EXPECT_TRUE(m_log.HasChiLine('E', "Write gain to persist file fail, ret = 0"));
    EXPECT_EQ(m_module->Service().ReloadCount(), 0u);
}

} // namespace
