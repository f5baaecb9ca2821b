// Replaying the node's own dumps: a run with --dump-images, then --replay of its dump folder,
// measures the same pixels on the same requests and so gives the same SR.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "clitestsupport.h"
#include "cli/runoptions.h"
#include "session/runconfig.h"
#include "session/runsession.h"

namespace
{

oisverify::RunResult RunSessionOf(std::vector<std::string> words, const std::string& out, oisverify::RunConfig* pConfig)
{
    words.insert(words.end(), { "--out", out });
    std::string error;
    EXPECT_TRUE(oisverify::ParseRunWords(words, pConfig, &error)) << error;
    pConfig->device.nodeLibraryPath = ZELK_NODE_LIBRARY;
    oisverify::RunResult  result;
    const chihost::Status status = oisverify::RunVerification(*pConfig, nullptr, &result);
    EXPECT_TRUE(status) << status.Message();
    return result;
}

struct RoundTripCase
{
    std::vector<std::string> live;
    uint32_t                 expectedDrop;
};

class DumpRoundTrip : public ::testing::TestWithParam<RoundTripCase>
{
};

TEST_P(DumpRoundTrip, ReplayOfTheDumpFolderGivesTheSameSr)
{
    clitest::TempFolder  folder;
    oisverify::RunConfig liveConfig;
    std::vector<std::string> live = GetParam().live;
    live.push_back("--dump-images");
    const oisverify::RunResult first = RunSessionOf(live, folder / "live", &liveConfig);
    ASSERT_EQ(first.finalState, 4);

    oisverify::RunConfig       replayConfig;
    const oisverify::RunResult second = RunSessionOf({ "--replay", folder / "live/dumpImage" }, folder / "replay", &replayConfig);
    EXPECT_EQ(replayConfig.params.dropFrames, GetParam().expectedDrop);
    EXPECT_EQ(replayConfig.layout.width, liveConfig.layout.height * 4 / 3);
    EXPECT_NE(replayConfig.replayDescription.find("node crop dumps"), std::string::npos);
    EXPECT_EQ(second.finalState, 4);
    EXPECT_EQ(second.horSrDb, first.horSrDb);
    EXPECT_EQ(second.verSrDb, first.verSrDb);
}

// The default run drops 120 frames and dumps from frame 0, so the replay drops 120 too; a dump
// too short for that is replayed with no drop, which is what a run with --drop 0 measured.
INSTANTIATE_TEST_SUITE_P(Runs, DumpRoundTrip,
                         ::testing::Values(RoundTripCase{ {}, 120 },
                                           RoundTripCase{ { "--drop", "0", "--gain", "0.9" }, 0 }));

} // namespace
