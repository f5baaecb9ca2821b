// The run's verdict: SR against the limit per axis, the node's error states and sessions that end
// without a final state, each with the reasons a test engineer reads.
#include <gtest/gtest.h>

#include <math.h>

#include "verdict/verdict.h"

namespace
{

using oisverify::VerdictInput;

VerdictInput Verified(float horSr, float verSr, double limit = 18.0)
{
    VerdictInput input;
    input.finished = true;
    input.state    = 4;
    input.hasSr    = true;
    input.horSrDb  = horSr;
    input.verSrDb  = verSr;
    input.limitDb  = limit;
    return input;
}

VerdictInput Errored(int32_t state)
{
    VerdictInput input = Verified(24.0f, 24.0f);
    input.state        = state;
    return input;
}

struct VerdictCase
{
    const char*              name;
    VerdictInput             input;
    bool                     pass;
    std::vector<std::string> reasons; // each must appear in its own reason, in order
};

void PrintTo(const VerdictCase& c, std::ostream* pOut) { *pOut << c.name; }

class VerdictTable : public ::testing::TestWithParam<VerdictCase> {};

TEST_P(VerdictTable, PassesOnlyAVerifiedSessionWithBothAxesAtTheLimit)
{
    const VerdictCase&       c       = GetParam();
    const oisverify::Verdict verdict = oisverify::DecideVerdict(c.input);
    EXPECT_EQ(verdict.pass, c.pass) << verdict.headline;
    ASSERT_EQ(verdict.reasons.size(), c.reasons.size()) << verdict.headline;
    for (size_t i = 0; i < c.reasons.size(); i++)
    {
        EXPECT_NE(verdict.reasons[i].find(c.reasons[i]), std::string::npos) << verdict.reasons[i];
        EXPECT_NE(verdict.headline.find(verdict.reasons[i]), std::string::npos) << "the headline names every reason";
    }
}

VerdictInput NotFinished(const char* pStopReason)
{
    VerdictInput input;
    input.state      = 3;
    input.requests   = 500;
    input.stopReason = pStopReason;
    return input;
}

VerdictInput Skipped()
{
    VerdictInput input   = Errored(-12);
    input.failedFrames   = 6;
    input.lastAlgoReturn = -100;
    return input;
}

VerdictInput TimedOut()
{
    VerdictInput input = Errored(-13);
    input.durationMs   = 775;
    input.timeLimitMs  = 688;
    return input;
}

VerdictInput WithoutSr()
{
    VerdictInput input = Verified(0.0f, 0.0f);
    input.hasSr        = false;
    return input;
}

INSTANTIATE_TEST_SUITE_P(
    Table, VerdictTable,
    ::testing::Values(
        VerdictCase{ "both above", Verified(24.1f, 23.8f), true, {} },
        VerdictCase{ "exactly at the limit", Verified(18.0f, 18.0f), true, {} },
        VerdictCase{ "infinite SR of a still chart", Verified(INFINITY, 30.0f), true, {} },
        VerdictCase{ "another limit", Verified(21.0f, 21.0f, 22.5), false,
                     { "horizontal SR 21.00 dB is below the limit of 22.50 dB", "vertical SR 21.00 dB" } },
        VerdictCase{ "horizontal just below", Verified(17.99f, 24.0f), false,
                     { "horizontal SR 17.99 dB is below the limit of 18.00 dB" } },
        VerdictCase{ "vertical below", Verified(24.0f, 7.02f), false, { "vertical SR 7.02 dB is below" } },
        VerdictCase{ "not a number", Verified(NAN, 24.0f), false, { "horizontal SR is not a number" } },
        VerdictCase{ "aborted", Errored(-1), false, { "error -1: aborted" } },
        VerdictCase{ "wrong format", Errored(-11), false, { "error -11: wrong image format" } },
        VerdictCase{ "chart missing", Skipped(), false,
                     { "error -12: too many frames without the chart (6 frames without the four circles, last "
                       "algorithm return -100)" } },
        VerdictCase{ "too slow", TimedOut(), false,
                     { "error -13: measurement over the time limit (775 ms against a limit of 688 ms)" } },
        VerdictCase{ "gain not applied", Errored(-21), false, { "error -21: the OIS service" } },
        VerdictCase{ "unknown error", Errored(-5), false, { "error -5: unknown error" } },
        VerdictCase{ "stopped by the tool", NotFinished("the replay folder ran out after 40 frames"), false,
                     { "the replay folder ran out after 40 frames" } },
        VerdictCase{ "never finished", NotFinished(""), false, { "still verifying after 500 frames" } },
        VerdictCase{ "verified without SR", WithoutSr(), false, { "without publishing SR" } },
        VerdictCase{ "calibration state", Errored(22), false, { "ended in state 22, not verified" } }));

TEST(Verdict, PassHeadlineNamesTheLimit)
{
    EXPECT_EQ(oisverify::DecideVerdict(Verified(24.0f, 24.0f, 19.5)).headline,
              "SR at or above the limit of 19.50 dB on both axes");
}

} // namespace
