// Whole verification sessions: simulator frames through the emulator into the node until a
// verdict, compared with the simulator's ground truth, and the ways a session ends in an error.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "chihost/emulator/logcapture.h"
#include "chihost/emulator/nodesession.h"
#include "sim/debugimages.h"
#include "simframesource.h"

namespace
{

const char kGainProperty[]  = "persist.vendor.camera.oisgyrogain.w";
const char kAlgoPara[]      = "vendor.debug.camera.oisAlgoPara";
const UINT32 kDropFrames    = 10;
const UINT32 kRingFrames    = 31; // frames for a verdict at 4 Hz and 60 fps
const UINT64 kMaxRequests   = 400;

chihost::NodeSessionOptions Options(const std::string& algoPara = "1:0:0:10:4:60")
{
    chihost::NodeSessionOptions options;
    options.nodeLibraryPath      = ZELK_NODE_LIBRARY;
    options.root.buildProperties = { { kGainProperty, "1.0,1.0" }, { kAlgoPara, algoPara } };
    return options;
}

class VerificationTest : public ::testing::Test
{
protected:
    void Open(const chihost::NodeSessionOptions& options, simsource::SimFrameSource* pSource)
    {
        chihost::Status status = m_session.Open(options);
        ASSERT_TRUE(status) << status.Message();
        if (pSource != nullptr)
        {
            m_session.SetInputProvider(pSource->Provider());
        }
    }

    INT32 FinalState(const std::vector<chihost::RequestRecord>& records)
    {
        return records.empty() ? 0 : records.back().published.state;
    }

    chihost::LogCapture  m_log;
    chihost::NodeSession m_session;
};

struct SweepCase
{
    double gain; // gyro gain against the ideal 1.0; 0 switches the OIS off
};

void PrintTo(const SweepCase& c, std::ostream* pOut) { *pOut << "gain " << c.gain; }

class ResidualSweep : public VerificationTest, public ::testing::WithParamInterface<SweepCase> {};

// The ring holds the last 31 measured frames when the verdict falls: 32 successful runs from the
// first measured frame, so frames drop + 1 .. drop + 31.
TEST_P(ResidualSweep, MeasuredSRMatchesTheTruth)
{
    sim::Scenario scenario = (GetParam().gain == 0.0) ? sim::OisOffScenario()
                                                       : sim::OisOnScenario(GetParam().gain, GetParam().gain);
    simsource::SimFrameSource source(scenario);
    Open(Options(), &source);
    auto records = m_session.Run(kMaxRequests);
    ASSERT_EQ(FinalState(records), 4) << "the session did not pass verification";
    ASSERT_EQ(records.size(), kDropFrames + kRingFrames + 1);

    sim::BlurSr truth = source.Simulator().TrueBlurSr(kDropFrames + 1, kRingFrames);
    const chihost::PublishedInfo& published = records.back().published;
    ASSERT_GE(std::min(truth.horBlurPx, truth.verBlurPx), 1.0f);
    EXPECT_NEAR(published.horSR, truth.horSrDb, 0.1) << "true blur " << truth.horBlurPx << " px";
    EXPECT_NEAR(published.verSR, truth.verSrDb, 0.1) << "true blur " << truth.verBlurPx << " px";
    if (GetParam().gain == 0.0)
    {
        EXPECT_NEAR(published.horSR, 4.0, 0.3);
        EXPECT_NEAR(published.verSR, 4.0, 0.3);
    }
}

INSTANTIATE_TEST_SUITE_P(Gains, ResidualSweep,
                         ::testing::Values(SweepCase{ 0.0 }, SweepCase{ 0.5 }, SweepCase{ 0.8 }, SweepCase{ 0.9 },
                                           SweepCase{ 0.95 }, SweepCase{ 0.98 }, SweepCase{ 1.0 },
                                           SweepCase{ 1.1 }));

// A frame without the chart: flat mid grey.
class FlatFrames
{
public:
    FlatFrames() : m_pixels(1440 * 1080 * 3 / 2, 128) {}
    chihost::InputProvider Provider()
    {
        return [this](UINT64) {
            chihost::Nv12View view{ 1440, 1080, 1440, 1080, m_pixels.data(), m_pixels.data() + 1440 * 1080 };
            m_buffer.Wrap(view, 0);
            return std::vector<CHINODEBUFFERHANDLE>{ m_buffer.Handle() };
        };
    }

private:
    std::vector<uint8_t> m_pixels;
    chihost::ImageBuffer m_buffer;
};

TEST_F(VerificationTest, MissingChartEndsAfterSixFailedFrames)
{
    FlatFrames frames;
    Open(Options(), nullptr);
    m_session.SetInputProvider(frames.Provider());
    auto records = m_session.Run(kMaxRequests);
    EXPECT_EQ(FinalState(records), -12);
    EXPECT_EQ(records.size(), kDropFrames + 6);
    EXPECT_TRUE(m_log.HasChiLine('E', "m_skipAlgoFrameNum: 6 m_algoReturn: -100 too many skip algo frame"));
    EXPECT_EQ(m_log.ChiLines("four circles were not found in the input image").size(), 6u);
}

TEST_F(VerificationTest, WrongInputFormatIsAnError)
{
    simsource::SimFrameSource source(sim::OisOnScenario(1.0, 1.0));
    source.SetFormat(ChiFormatYUV420NV21);
    Open(Options(), &source);
    auto records = m_session.Run(kMaxRequests);
    EXPECT_EQ(FinalState(records), -11);
    EXPECT_EQ(records.size(), 1u);
    EXPECT_TRUE(m_log.HasChiLine('E', "failed to get correct format, format 4"));
}

TEST_F(VerificationTest, SlowFramesExceedTheTimeLimit)
{
    simsource::SimFrameSource   source(sim::OisOnScenario(1.0, 1.0));
    chihost::NodeSessionOptions options = Options();
    options.frameRateHz                 = 40.0; // 31 intervals of 25 ms: 775 ms against 688 ms
    Open(options, &source);
    auto records = m_session.Run(kMaxRequests);
    EXPECT_EQ(FinalState(records), -13);
    EXPECT_TRUE(m_log.HasChiLine('E', "verify duration time 775 ms is bigger than limit"));
}

TEST_F(VerificationTest, FramesBelowTheDropCountAreNeverMeasured)
{
    simsource::SimFrameSource source(sim::OisOnScenario(1.0, 1.0));
    Open(Options(), &source);
    m_session.Run(kMaxRequests);
    auto puts = m_log.ChiLinesStartingWith("put frameNum = ");
    ASSERT_FALSE(puts.empty());
    EXPECT_EQ(puts.front().message, "put frameNum = 10 data to m_algoResultBuffer");
    EXPECT_EQ(m_log.ChiLinesStartingWith("algoInput.imgBuffer").size(), kRingFrames + 1);
}

TEST_F(VerificationTest, FlushChangesNothing)
{
    simsource::SimFrameSource source(sim::OisOnScenario(1.0, 1.0));
    Open(Options(), &source);
    m_session.Run(15);
    CHINODEFLUSHREQUESTINFO flush = { sizeof(CHINODEFLUSHREQUESTINFO), m_session.Node(), 14 };
    EXPECT_EQ(m_session.Host().Callbacks().pFlushRequest(&flush), 0);
    auto records = m_session.Run(kMaxRequests);
    EXPECT_EQ(FinalState(records), 4);
    EXPECT_EQ(records.back().frameNum, kDropFrames + kRingFrames);
}

TEST_F(VerificationTest, DebugModeCyclesItsImages)
{
    chihost::NodeSessionOptions options = Options("1:1:0:10:4:60");
    options.prepareRoot = [](chihost::DeviceRoot& root) {
        bool written = sim::WriteDebugImages(sim::OisOnScenario(1.0, 1.0), root.Map("/data/vendor/camera/ois"), 0, 3);
        return written ? chihost::Status::Ok() : chihost::Status::Error("cannot write debug images");
    };
    simsource::SimFrameSource source(sim::OisOnScenario(1.0, 1.0));
    Open(options, &source);
    m_session.Run(kDropFrames + 7);
    auto reads = m_log.ChiLinesStartingWith("read image from imageVector[");
    ASSERT_EQ(reads.size(), 7u);
    const char* expected[] = { "0", "1", "2", "0", "1", "2", "0" };
    for (size_t i = 0; i < reads.size(); i++)
    {
        EXPECT_EQ(reads[i].message, std::string("read image from imageVector[") + expected[i] + "]");
    }
    EXPECT_TRUE(m_log.HasChiLine('I', "file vector size 3"));
}

} // namespace
