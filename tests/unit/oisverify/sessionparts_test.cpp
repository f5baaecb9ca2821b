// The parts of a session that need no node: reading the node's log lines and point-position file,
// the progress line, and recorded frames (a folder that cannot be replayed is refused before the
// node is even loaded).
#include <gtest/gtest.h>

#include <stdio.h>

#include "clitestsupport.h"
#include "session/framesources.h"
#include "session/nodeevents.h"
#include "cli/runoptions.h"
#include "report/runreport.h"
#include "session/runsession.h"

namespace
{

TEST(NodeLog, EventsFromTheNodesLines)
{
    oisverify::NodeEvents events;
    const std::pair<char, const char*> lines[] = {
        { 'I', "algo return = 0" },
        { 'I', "algo return = 0" },
        { 'I', "algo return = -100" },
        { 'E', "four circles were not found in the input image" },
        { 'I', "algo return = 0" },
        { 'I', "Calculate SR horSR = 24.79 horBlur = 1.51 verSR = 23.77 verBlur = 1.91 " },
        { 'I', "algo exec fps 60.08 duration time = 516 ms m_execTimestamp = 1 timestamp = 2" },
        { 'I', "put frameNum = 120 data to m_algoResultBuffer" },
        { 'I', "the algo return = 5 was not" }, // not an event: only whole prefixes count
    };
    for (const auto& line : lines)
    {
        oisverify::NoteLogLine(line.first, line.second, &events);
    }
    EXPECT_EQ(events.measured, 3u);
    EXPECT_EQ(events.failed, 1u);
    EXPECT_EQ(events.lastAlgoReturn, -100);
    ASSERT_TRUE(events.hasSr);
    EXPECT_FLOAT_EQ(events.horSrDb, 24.79f);
    EXPECT_FLOAT_EQ(events.verBlurPx, 1.91f);
    EXPECT_EQ(events.durationMs, 516);
    EXPECT_EQ(events.errors, std::vector<std::string>{ "four circles were not found in the input image" });
}

TEST(NodeLog, PointPositionLinesAndNothingElse)
{
    const std::string text =
        "frameNum = 120 index = 0 algoReturn = 0 up[272.37,195.43] down[272.38,433.43] left[153.37,314.42] "
        "right[391.37,314.42]  \n"
        "garbage line\n"
        "frameNum = 121 index = 1 algoReturn = -100 up[0.00,0.00] down[0.00,0.00] left[0.00,0.00] right[1.50,-2.25]  \n"
        "frameNum = 122 index = 2 algoReturn = 0 up[1.00,2.00]\n";
    const std::vector<oisverify::MeasuredFrame> frames = oisverify::ParsePointPositions(text);
    ASSERT_EQ(frames.size(), 2u);
    EXPECT_EQ(frames[0].frameNum, 120u);
    EXPECT_DOUBLE_EQ(frames[0].centres.down.y, 433.43);
    EXPECT_DOUBLE_EQ(frames[0].centres.left.x, 153.37);
    EXPECT_EQ(frames[1].ringSlot, 1u);
    EXPECT_EQ(frames[1].algoReturn, -100);
    EXPECT_DOUBLE_EQ(frames[1].centres.right.y, -2.25);
}

oisverify::ProgressInfo Progress(uint64_t frame, uint32_t measured, uint32_t failed, bool hasSr)
{
    oisverify::ProgressInfo info;
    info.frameNum   = frame;
    info.state      = hasSr ? 4 : 3;
    info.dropFrames = 120;
    info.measured   = measured;
    info.needed     = 32;
    info.failed     = failed;
    info.hasSr      = hasSr;
    info.horSrDb    = 24.131f;
    info.verSrDb    = 24.05f;
    return info;
}

TEST(ProgressLine, ShowsDroppingThenMeasuringThenSr)
{
    EXPECT_NE(oisverify::FormatProgress(Progress(45, 0, 0, false)).find("verifying       dropping 46/120"),
              std::string::npos);
    EXPECT_NE(oisverify::FormatProgress(Progress(140, 20, 1, false)).find("measured 20/32  failed 1"), std::string::npos);
    EXPECT_NE(oisverify::FormatProgress(Progress(151, 32, 1, true)).find("done            measured 32/32  failed 1  SR "
                                                                      "24.13 / 24.05 dB"),
              std::string::npos);
}

// During a gain search the line names the target (counted from 0 as the node does) and counts its
// own measurement; once the search is over it counts the pairs measured.
TEST(ProgressLine, FollowsTheGainSearch)
{
    oisverify::ProgressInfo info = Progress(300, 12, 0, true);
    info.state                   = 23;
    info.targets                 = 3;
    info.targetGainX             = 0.9f;
    info.targetGainY             = 1.0f;
    EXPECT_NE(oisverify::FormatProgress(info).find("verifying gain  target 2 gain 0.90,1.00  measured 12/32"),
              std::string::npos)
        << oisverify::FormatProgress(info);
    // The SR of the target measured last is shown under its own number, not as this target's.
    info.hasSr           = false;
    info.measuredTarget  = 1;
    info.measuredHorSrDb = 10.744f;
    info.measuredVerSrDb = 10.73f;
    EXPECT_EQ(oisverify::FormatProgress(info),
              "  frame 300    verifying gain  target 2 gain 0.90,1.00  measured 12/32  failed 0  target 1: SR 10.74 / "
              "10.73 dB");
    info               = Progress(532, 320, 0, true);
    info.measuredPairs = 9;
    EXPECT_NE(oisverify::FormatProgress(info).find("done            gain search over, 9 pairs measured"),
              std::string::npos)
        << oisverify::FormatProgress(info);
}

std::string Printed(bool rewrite, uint32_t every, uint64_t frames)
{
    char*  pText = nullptr;
    size_t size  = 0;
    FILE*  pOut  = open_memstream(&pText, &size);
    oisverify::ProgressPrinter printer(pOut, rewrite, every);
    for (uint64_t frame = 0; frame < frames; frame++)
    {
        printer(Progress(frame, 0, 0, false), frame + 1 == frames);
    }
    fclose(pOut);
    std::string text(pText, size);
    free(pText);
    return text;
}

TEST(ProgressLine, RewritesOnATerminalAndPrintsEveryNFramesOtherwise)
{
    const std::string terminal = Printed(true, 30, 10);
    EXPECT_EQ(clitest::CountOf(terminal, "\r"), 10u);
    EXPECT_EQ(clitest::CountOf(terminal, "\n"), 1u);
    EXPECT_EQ(terminal.back(), '\n');

    const std::string log = Printed(false, 30, 100); // frames 29, 59, 89 and the last, 99
    EXPECT_EQ(clitest::CountOf(log, "\n"), 4u);
    EXPECT_EQ(clitest::CountOf(log, "\r"), 0u);
    EXPECT_NE(log.find("frame 99 "), std::string::npos);
    EXPECT_EQ(Printed(false, 0, 100), "");
}

class ReplayFolder : public ::testing::Test
{
protected:
    oisverify::FrameLayout Layout() const
    {
        oisverify::FrameLayout layout;
        layout.width  = 64;
        layout.height = 48;
        layout.stride = 80;
        return layout;
    }
    std::string Frame(const char* pName) const { return m_folder / pName; }

    clitest::TempFolder m_folder;
};

TEST_F(ReplayFolder, TakesFilesInNameOrderAndHandsOutEachAsAFrame)
{
    const size_t bytes = oisverify::Nv12FrameBytes(Layout());
    ASSERT_EQ(bytes, 80u * 72u);
    clitest::WriteBytes(Frame("f10.yuv"), bytes, 2);
    clitest::WriteBytes(Frame("f09.yuv"), bytes, 1);
    clitest::WriteBytes(Frame(".hidden"), 3);
    oisverify::ReplayFrames frames;
    chihost::Status         status = frames.Open(m_folder.Path(), Layout());
    ASSERT_TRUE(status) << status.Message();
    ASSERT_EQ(frames.Count(), 2u);
    EXPECT_NE(frames.Files()[0].find("f09.yuv"), std::string::npos);
    chihost::InputProvider provider = frames.Provider();
    auto                   inputs   = provider(1);
    ASSERT_EQ(inputs.size(), 1u);
    EXPECT_EQ(inputs[0]->format.width, 64u);
    EXPECT_EQ(inputs[0]->format.formatParams.yuvFormat[0].planeStride, 80u);
    EXPECT_EQ(inputs[0]->pImageList[0].pAddr[0][0], 2) << "frame 1 is the second file by name";
    EXPECT_TRUE(provider(2).empty());
}

TEST_F(ReplayFolder, RefusesAWrongSizedFileNamingItAndBothSizes)
{
    clitest::WriteBytes(Frame("a.yuv"), oisverify::Nv12FrameBytes(Layout()));
    clitest::WriteBytes(Frame("b.yuv"), 1000);
    oisverify::ReplayFrames frames;
    chihost::Status         status = frames.Open(m_folder.Path(), Layout());
    ASSERT_FALSE(status);
    EXPECT_NE(status.Message().find("b.yuv holds 1000 bytes, but one NV12 frame of 64x48 (stride 80, scanline 48) "
                                    "holds 5760 bytes"),
              std::string::npos)
        << status.Message();
}

TEST_F(ReplayFolder, RefusesAnEmptyOrMissingFolder)
{
    oisverify::ReplayFrames frames;
    EXPECT_NE(frames.Open(m_folder.Path(), Layout()).Message().find("holds no frame files"), std::string::npos);
    EXPECT_NE(frames.Open(m_folder / "none", Layout()).Message().find("is not a directory"), std::string::npos);
}

TEST_F(ReplayFolder, SessionRefusesTooFewFramesForAVerdict)
{
    oisverify::FrameLayout layout;
    layout.width  = 720;
    layout.height = 540;
    for (const char* pName : { "0.yuv", "1.yuv", "2.yuv" })
    {
        clitest::WriteBytes(Frame(pName), oisverify::Nv12FrameBytes(layout));
    }
    oisverify::RunConfig config;
    std::string          error;
    ASSERT_TRUE(oisverify::ParseRunWords({ "--replay", m_folder.Path(), "--size", "720x540", "--drop", "2", "--fps",
                                           "30", "--freq", "5", "--out", m_folder / "out" },
                                         &config, &error))
        << error;
    oisverify::RunResult result;
    chihost::Status      status = oisverify::RunVerification(config, nullptr, &result);
    ASSERT_FALSE(status);
    EXPECT_NE(status.Message().find("holds 3 frames, but the node measures from frame 2 on and needs 14 measured "
                                    "frames: at least 16 frames"),
              std::string::npos)
        << status.Message();
}

// The session checks the frames before it loads the node, so the message is about the input.
TEST_F(ReplayFolder, SessionFailsBeforeTheNodeWithTheFilesProblem)
{
    clitest::WriteBytes(Frame("000.yuv"), 12345);
    oisverify::RunConfig config;
    std::string          error;
    ASSERT_TRUE(oisverify::ParseRunWords({ "--replay", m_folder.Path(), "--out", m_folder / "out", "--node",
                                           "/no/such/node.so" },
                                         &config, &error))
        << error;
    oisverify::RunResult result;
    chihost::Status      status = oisverify::RunVerification(config, nullptr, &result);
    ASSERT_FALSE(status);
    EXPECT_NE(status.Message().find("000.yuv holds 12345 bytes"), std::string::npos) << status.Message();
}

} // namespace
