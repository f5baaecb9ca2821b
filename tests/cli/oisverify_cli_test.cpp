// "oisverify run" end to end: sessions through the library the command is built on, compared with
// the simulator's truth, a replay of rendered frames against the live session, calibration runs
// closed through the calibration service, and the built command's exit codes and output.
#include <gtest/gtest.h>

#include <math.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "verdict/calibrationresult.h"
#include "chihost/services/calibrationservice.h"
#include "clitestsupport.h"
#include "cli/runoptions.h"
#include "report/runoutput.h"
#include "report/runreport.h"
#include "session/runsession.h"
#include "sim/simulator.h"

namespace
{

using Words = std::vector<std::string>;

class RunSession : public ::testing::Test
{
protected:
    // Parses the words (with --out in the test's folder), runs the session and decides.
    void Run(Words words)
    {
        words.insert(words.end(), { "--out", m_folder / "out" });
        std::string error;
        ASSERT_TRUE(oisverify::ParseRunWords(words, &m_config, &error)) << error;
        m_config.device.nodeLibraryPath = ZELK_NODE_LIBRARY;
        chihost::Status status          = oisverify::RunVerification(m_config, nullptr, &m_result);
        ASSERT_TRUE(status) << status.Message();
        m_verdict = oisverify::DecideVerdict(oisverify::MakeVerdictInput(m_config, m_result));
    }

    // The node's SR next to the truth of the frames in its ring.
    void ExpectSrMatchesTruth() const
    {
        ASSERT_TRUE(m_result.hasTruth);
        EXPECT_NEAR(m_result.horSrDb, m_result.truth.horSrDb, 0.1);
        EXPECT_NEAR(m_result.verSrDb, m_result.truth.verSrDb, 0.1);
    }

    size_t RingFrames() const
    {
        size_t count = 0;
        for (const oisverify::RunFrame& frame : m_result.frames)
        {
            count += frame.inRing ? 1 : 0;
        }
        return count;
    }

    clitest::TempFolder  m_folder;
    oisverify::RunConfig m_config;
    oisverify::RunResult m_result;
    oisverify::Verdict   m_verdict;
};

TEST_F(RunSession, DefaultSessionPassesNearItsTruthAndWritesEveryFile)
{
    Run({});
    EXPECT_TRUE(m_verdict.pass) << m_verdict.headline;
    EXPECT_EQ(m_result.finalState, 4);
    EXPECT_EQ(m_result.requests, 120u + 32u);
    ExpectSrMatchesTruth();
    EXPECT_NEAR(m_result.truth.horSrDb, 24.0, 1.5);
    EXPECT_NEAR(m_result.truth.verSrDb, 24.0, 1.5);
    ASSERT_EQ(m_result.frames.size(), 32u);
    EXPECT_EQ(m_result.frames.front().measured.frameNum, 120u);
    EXPECT_EQ(RingFrames(), 31u);
    EXPECT_FALSE(m_result.frames.front().inRing);

    std::vector<std::string> written;
    ASSERT_TRUE(oisverify::WriteRunOutputs(m_config, m_result, m_verdict, &written));
    for (const char* pName : { "index.html", "summary.svg", "positions.svg", "positions.csv", "node.log",
                               "oisVerify.json", "oisVerify_point_position.txt" })
    {
        EXPECT_FALSE(clitest::ReadText(m_folder / "out/" + pName).empty()) << pName;
    }
    EXPECT_NE(clitest::ReadText(m_folder / "out/oisVerify.json").find("\"oisVerifyState\":\t4"), std::string::npos);
    EXPECT_EQ(clitest::CheckMarkup(clitest::ReadText(m_folder / "out/index.html")), "");
    EXPECT_NE(clitest::ReadText(m_folder / "out/node.log").find("algoParaInfo: 1:0:0:120:4:60"), std::string::npos);
}

TEST_F(RunSession, HalfGainFailsOnBothAxes)
{
    Run({ "--gain", "0.5", "--drop", "10" });
    EXPECT_FALSE(m_verdict.pass);
    ASSERT_EQ(m_verdict.reasons.size(), 2u) << m_verdict.headline;
    EXPECT_NE(m_verdict.reasons[0].find("horizontal SR"), std::string::npos);
    EXPECT_NE(m_verdict.reasons[1].find("vertical SR"), std::string::npos);
    EXPECT_EQ(m_result.finalState, 4) << "the node verifies; the tool judges";
    ExpectSrMatchesTruth();
    EXPECT_LT(m_result.horSrDb, 10.0);
}

TEST_F(RunSession, DebugImagesAreMeasuredAndPairedWithTheirOwnTruth)
{
    Run({ "--debug-images", "--drop", "5", "--gain", "0.9" });
    EXPECT_EQ(m_result.finalState, 4);
    ExpectSrMatchesTruth();
    EXPECT_FALSE(m_verdict.pass) << "a 10 % gain error is below 18 dB";
}

TEST_F(RunSession, LowFrameRateEndsInTheNodesTimeLimit)
{
    Run({ "--fps", "25", "--drop", "0" });
    EXPECT_EQ(m_result.finalState, -13);
    ASSERT_EQ(m_verdict.reasons.size(), 1u);
    EXPECT_NE(m_verdict.reasons[0].find("measurement over the time limit (520 ms against a limit of 520 ms)"),
              std::string::npos)
        << m_verdict.reasons[0];
}

// The node's SR refers to a fixed 181.248 px shake; the applied shake's suppression is known and
// judged too, so a stalled table no longer passes.
TEST_F(RunSession, StalledTableFailsOnTheSuppressionOfTheAppliedShake)
{
    Run({ "--ois-off", "--amplitude", "0", "--drop", "0" });
    EXPECT_EQ(m_result.finalState, 4);
    EXPECT_GT(m_result.horSrDb, 25.0f) << "the node reads a still chart as a perfect module";
    ASSERT_TRUE(m_result.suppression.known);
    EXPECT_EQ(m_result.suppression.appliedShakePx.horizontal, 0.0f);
    EXPECT_EQ(m_result.suppression.trueSuppressionDb.horizontal, -INFINITY);
    EXPECT_FALSE(m_verdict.pass) << m_verdict.headline;
    ASSERT_EQ(m_verdict.reasons.size(), 2u);
    EXPECT_NE(m_verdict.reasons[0].find("passes only against the node's fixed 181.248 px reference: the table applied "
                                        "no shake"), std::string::npos) << m_verdict.reasons[0];
}

// Without OIS the suppression reads 4 dB whatever the shake; the node's SR reads 3 dB higher at
// half the reference shake. At the reference shake the two agree within the sampling of the frames.
TEST_F(RunSession, SuppressionIsTheNodesFormulaWithTheAppliedShake)
{
    Run({ "--ois-off", "--amplitude", "90", "--drop", "0" });
    ASSERT_TRUE(m_result.suppression.known);
    EXPECT_NEAR(m_result.suppression.trueSuppressionDb.horizontal, 4.0, 0.05);
    EXPECT_NEAR(m_result.suppression.trueSuppressionDb.vertical, 4.0, 0.05);
    EXPECT_NEAR(m_result.horSrDb - m_result.suppression.trueSuppressionDb.horizontal, 3.04, 0.1);
    EXPECT_NEAR(m_result.suppression.appliedShakePx.horizontal, 90.0, 1.0);
    Run({ "--drop", "0" });
    ASSERT_TRUE(m_result.suppression.known);
    EXPECT_NEAR(m_result.suppression.trueSuppressionDb.horizontal, m_result.truth.horSrDb, 0.1);
    EXPECT_EQ(m_result.suppression.residualBlurPx.vertical, m_result.truth.verBlurPx);
    EXPECT_TRUE(m_verdict.pass) << m_verdict.headline;
    EXPECT_FALSE(m_result.reference.ran);
}

// The OIS-off reference is measured by the node first; the stabilisation gain is the difference
// of the two sessions' SR, 10 log10(unstabilised / stabilised blur).
TEST_F(RunSession, ReferenceSessionGivesTheStabilisationGain)
{
    Run({ "--reference", "--drop", "0" });
    const oisverify::ReferenceResult& ref = m_result.reference;
    ASSERT_TRUE(ref.ran);
    ASSERT_TRUE(ref.measured) << ref.finalState;
    EXPECT_EQ(ref.finalState, 4);
    EXPECT_NEAR(ref.referenceSrDb.horizontal, 4.0, 0.1);
    EXPECT_NEAR(ref.referenceBlurPx.vertical, 180.0, 2.0);
    ASSERT_TRUE(ref.hasGain);
    EXPECT_FLOAT_EQ(ref.stabilisationGainDb.horizontal, m_result.horSrDb - ref.referenceSrDb.horizontal);
    EXPECT_NEAR(ref.stabilisationGainDb.vertical,
                10.0 * log10(ref.referenceBlurPx.vertical / m_result.events.verBlurPx), 0.05);
    EXPECT_GT(ref.stabilisationGainDb.vertical, 15.0f);
    EXPECT_EQ(m_result.finalState, 4) << "the stabilised session follows as without a reference";
    EXPECT_EQ(m_result.requests, 1u + 32u);
}

// Frames rendered to files and replayed give the node exactly the SR of the live session.
TEST_F(RunSession, ReplayOfRenderedFramesMatchesTheLiveSession)
{
    const Words layout = { "--size", "800x600", "--stride", "832" };
    Words       live   = layout;
    live.insert(live.end(), { "--drop", "0", "--gain", "0.97" });
    Run(live);
    ASSERT_EQ(m_result.finalState, 4);
    const float liveHor = m_result.horSrDb, liveVer = m_result.verSrDb;

    const std::string frames = m_folder / "frames";
    ASSERT_EQ(mkdir(frames.c_str(), 0700), 0);
    sim::Simulator simulator(m_config.scenario);
    sim::Nv12Image image;
    // Frame 0 starts the test; frames 1..32 are measured.
    for (uint32_t index = 0; index < 33; index++)
    {
        simulator.Render(index, image);
        char name[32];
        snprintf(name, sizeof(name), "/frame_%04u.nv12", index);
        FILE* pFile = fopen((frames + name).c_str(), "wb");
        ASSERT_NE(pFile, nullptr);
        ASSERT_EQ(fwrite(image.data.data(), 1, image.data.size(), pFile), image.data.size());
        fclose(pFile);
    }
    Words replay = layout;
    replay.insert(replay.end(), { "--replay", frames });
    Run(replay);
    EXPECT_EQ(m_result.finalState, 4);
    EXPECT_FALSE(m_result.hasTruth);
    EXPECT_EQ(m_result.horSrDb, liveHor);
    EXPECT_EQ(m_result.verSrDb, liveVer);
}

// The calibration service listens on the device's socket name, one per machine: a test waits for
// it while another test holds it.
constexpr uint32_t kServiceWaitMs = 120000;

class CalibrationSession : public RunSession
{
protected:
    void Calibrate(Words words, const oisverify::ProgressSink& progress = nullptr)
    {
        words.insert(words.end(), { "--calibrate", "--drop", "10", "--out", m_folder / "out" });
        std::string error;
        ASSERT_TRUE(oisverify::ParseRunWords(words, &m_config, &error)) << error;
        m_config.device.nodeLibraryPath    = ZELK_NODE_LIBRARY;
        m_config.calibration.socketWaitMs  = kServiceWaitMs;
        chihost::Status status             = oisverify::RunVerification(m_config, progress, &m_result);
        ASSERT_TRUE(status) << status.Message();
        m_outcome = oisverify::ReadCalibrationOutcome(m_config, m_result);
        m_verdict = oisverify::DecideCalibrationVerdict(m_config, m_result, m_outcome);
    }

    oisverify::CalibrationOutcome m_outcome;
};

struct SearchCase
{
    const char* idealGain;
    bool        swapAxes;
    float       selectedX, selectedY;
};

void PrintTo(const SearchCase& c, std::ostream* pOut) { *pOut << c.idealGain << (c.swapAxes ? " swapped" : ""); }

class NearestStep : public CalibrationSession, public ::testing::WithParamInterface<SearchCase> {};

// The module below the limit at its base gains passes with the search step nearest its ideal gain,
// which the persist file then holds for the module.
TEST_P(NearestStep, SelectsTheStepNearestTheIdealGainAndPasses)
{
    Words words = { "--ideal-gain", GetParam().idealGain };
    if (GetParam().swapAxes)
    {
        words.push_back("--swap-axes");
    }
    Calibrate(words);
    EXPECT_TRUE(m_verdict.pass) << m_verdict.headline;
    EXPECT_EQ(m_result.finalState, 4);
    EXPECT_FALSE(m_outcome.initialPass);
    ASSERT_EQ(m_outcome.records.size(), 9u);
    ASSERT_TRUE(m_outcome.hasSelection);
    EXPECT_FLOAT_EQ(m_outcome.selection.gainX, GetParam().selectedX);
    EXPECT_FLOAT_EQ(m_outcome.selection.gainY, GetParam().selectedY);
    EXPECT_FLOAT_EQ(static_cast<float>(m_outcome.nearestX), GetParam().selectedX);
    EXPECT_FLOAT_EQ(static_cast<float>(m_outcome.nearestY), GetParam().selectedY);
    // The module runs on the selection at the end; the simulator's SR with it is what the node saw.
    ASSERT_TRUE(m_outcome.hasTrueSr);
    EXPECT_NEAR(m_outcome.trueSrXDb, m_outcome.selection.srXDb, 0.5);
    EXPECT_NEAR(m_outcome.trueSrYDb, m_outcome.selection.srYDb, 0.5);
    ASSERT_EQ(m_result.calibration.applied.size(), 10u) << "nine targets, then the selection";
    EXPECT_FLOAT_EQ(static_cast<float>(m_result.calibration.applied.back().gainX), GetParam().selectedX);

    std::vector<std::string> written;
    ASSERT_TRUE(oisverify::WriteRunOutputs(m_config, m_result, m_verdict, &written, &m_outcome));
    const std::string html = clitest::ReadText(m_folder / "out/index.html");
    EXPECT_EQ(clitest::CheckMarkup(html), "");
    EXPECT_NE(html.find("<h2>Calibration</h2>"), std::string::npos);
    EXPECT_EQ(clitest::CheckMarkup(clitest::ReadText(m_folder / "out/calibration.svg")), "");
    EXPECT_EQ(oisverify::ParseCalibrationLog(clitest::ReadText(m_folder / "out/oisGyroGainCalibrate.txt")).size(), 9u);
}

INSTANTIATE_TEST_SUITE_P(Ideals, NearestStep,
                         ::testing::Values(SearchCase{ "1.08", false, 1.10f, 1.10f },
                                           SearchCase{ "0.87,1.12", true, 0.85f, 1.10f }));

TEST_F(CalibrationSession, ModuleWithinTheLimitNeedsNoSearch)
{
    Calibrate({});
    EXPECT_TRUE(m_verdict.pass) << m_verdict.headline;
    EXPECT_NE(m_verdict.headline.find("no search needed"), std::string::npos);
    EXPECT_FALSE(m_outcome.searched);
    EXPECT_FALSE(m_result.calibration.persistRead);
    EXPECT_TRUE(m_result.calibration.applied.empty());
}

// After the search the SR window is the selected gains' measurement, which ends with the request
// that completed it.
TEST_F(CalibrationSession, SrWindowIsTheSelectedMeasurement)
{
    // The progress of a target never shows another target's SR as its own: the SR shown is the
    // last measured target's, under that target's number.
    std::vector<oisverify::ProgressInfo> shown;
    Calibrate({ "--ideal-gain", "1.08" }, [&shown](const oisverify::ProgressInfo& info, bool) {
        if (info.targets != 0 && info.measuredPairs == 0)
        {
            shown.push_back(info);
        }
    });
    ASSERT_EQ(m_outcome.records.size(), 9u);
    size_t named = 0;
    for (const oisverify::ProgressInfo& info : shown)
    {
        EXPECT_FALSE(info.hasSr) << "frame " << info.frameNum;
        if (info.measuredTarget >= 0)
        {
            named++;
            ASSERT_LT(static_cast<uint32_t>(info.measuredTarget), info.targets) << "frame " << info.frameNum;
            const oisverify::SearchRecord& record = m_outcome.records[static_cast<size_t>(info.measuredTarget)];
            EXPECT_NEAR(info.measuredHorSrDb, record.srXDb, 0.006) << "frame " << info.frameNum;
            EXPECT_NEAR(info.measuredVerSrDb, record.srYDb, 0.006) << "frame " << info.frameNum;
        }
    }
    EXPECT_GT(named, 0u);
    ASSERT_TRUE(m_outcome.hasSelection);
    ASSERT_GE(m_outcome.selectedX, 0);
    const int32_t doneAt = m_outcome.records[static_cast<size_t>(m_outcome.selectedX)].frameNum;
    uint32_t      last   = 0;
    size_t        count  = 0;
    for (const oisverify::RunFrame& frame : m_result.frames)
    {
        if (frame.inRing)
        {
            count++;
            last = frame.measured.frameNum;
        }
    }
    EXPECT_EQ(count, 31u);
    EXPECT_EQ(last, static_cast<uint32_t>(doneAt));
    EXPECT_FALSE(m_result.frames.back().inRing) << "the last target, 1.20, was not selected";
}

// With one axis held the node's search runs on until the persist file refuses a target: the tool
// streams long enough to see that end, and says why.
TEST_F(CalibrationSession, HeldAxisEndsInTheRefusedTarget)
{
    Calibrate({ "--single-axis", "x", "--ideal-gain", "0.9,1.0", "--wait", "2" });
    EXPECT_TRUE(m_result.finished) << m_result.stopReason;
    EXPECT_EQ(m_result.finalState, -21);
    EXPECT_NE(m_verdict.headline.find("with one axis held"), std::string::npos) << m_verdict.headline;
    ASSERT_FALSE(m_outcome.records.empty());
    EXPECT_GT(m_outcome.records.back().gainX, 1.2f);
    for (const oisverify::SearchRecord& record : m_outcome.records)
    {
        EXPECT_EQ(record.gainY, 1.0f);
    }
}

// A socket name another process holds: the session gives up after the wait, naming the socket.
TEST_F(CalibrationSession, TakenSocketNameFailsNamingIt)
{
    const std::string          name = "oisverify.test." + std::to_string(getpid());
    chihost::CalibrationService holder;
    std::string                error;
    ASSERT_TRUE(holder.Start({ name, m_folder / "persist.bin", nullptr }, &error)) << error;
    Words words = { "--calibrate", "--out", m_folder / "out" };
    ASSERT_TRUE(oisverify::ParseRunWords(words, &m_config, &error)) << error;
    m_config.device.nodeLibraryPath   = ZELK_NODE_LIBRARY;
    m_config.calibration.socketName   = name;
    m_config.calibration.socketWaitMs = 300;
    const chihost::Status status      = oisverify::RunVerification(m_config, nullptr, &m_result);
    ASSERT_FALSE(status);
    EXPECT_NE(status.Message().find("holds the socket name @" + name), std::string::npos) << status.Message();
}

struct ExitCase
{
    const char* arguments;
    int         exitCode;
    const char* expected; // in the combined output
};

void PrintTo(const ExitCase& c, std::ostream* pOut) { *pOut << "run " << c.arguments; }

class CommandExit : public ::testing::TestWithParam<ExitCase> {};

TEST_P(CommandExit, CodeAndOutputTellTheOutcome)
{
    clitest::TempFolder folder;
    const std::string   command = std::string(ZELK_OISVERIFY) + " run " + GetParam().arguments + " --out '" +
                                  (folder / "out") + "' 2>&1";
    FILE* pPipe = popen(command.c_str(), "r");
    ASSERT_NE(pPipe, nullptr);
    std::string output;
    char        chunk[4096];
    for (size_t n; (n = fread(chunk, 1, sizeof(chunk), pPipe)) > 0;)
    {
        output.append(chunk, n);
    }
    const int status = pclose(pPipe);
    ASSERT_TRUE(WIFEXITED(status)) << output;
    EXPECT_EQ(WEXITSTATUS(status), GetParam().exitCode) << output;
    EXPECT_NE(output.find(GetParam().expected), std::string::npos) << output;
}

INSTANTIATE_TEST_SUITE_P(
    Table, CommandExit,
    ::testing::Values(ExitCase{ "", 0, "PASS  SR at or above the limit of 18.00 dB on both axes" },
                      ExitCase{ "--gain 0.5", 1, "FAIL  horizontal SR" },
                      ExitCase{ "--ois-off --drop 0", 1, "FAIL  horizontal SR 4.0" },
                      ExitCase{ "--gain abc", 2, "--gain needs a number" },
                      ExitCase{ "--size 1000x1000", 2, "only 4:3 or 16:9" },
                      ExitCase{ "--replay /nonexistent/frames", 1, "is not a directory" },
                      ExitCase{ "--prop persist.vendor.camera.oisgyrogain.w=", 1, "refused creation with result 3" },
                      ExitCase{ "--fps 25 --drop 0", 1, "error -13" },
                      ExitCase{ "--fps 24 --drop 0", 1,
                                "warning       expect error -13: the node allows the 13 frame periods of a verdict "
                                "520 ms, so frames must come faster than 25 fps" },
                      ExitCase{ "--ois-off --amplitude 0 --drop 0", 1,
                                "dB passes only against the node's fixed 181.248 px reference: the table applied no "
                                "shake" },
                      ExitCase{ "--drop 0 --reference", 0, "stabilisation " },
                      ExitCase{ "--gain 0.5 --drop 0", 1, "node state 4 (done measuring)" },
                      ExitCase{ "--setting nosuch=1", 2, "unknown setting 'nosuch'" },
                      ExitCase{ "--help", 0, "usage: oisverify run" },
                      ExitCase{ "--calibrate --ideal-gain 1.08 --drop 10 --service-wait 120", 0,
                                "PASS  SR at or above the limit of 18.00 dB on both gyro axes with the selected "
                                "gains 1.10, 1.10" },
                      ExitCase{ "--calibrate --ideal-gain 1.08 --limit 30 --drop 10 --service-wait 120", 1,
                                "FAIL  gyro X SR with the selected gain 1.10" },
                      ExitCase{ "--calibrate --debug-images", 2, "no gain moves" }));

} // namespace
