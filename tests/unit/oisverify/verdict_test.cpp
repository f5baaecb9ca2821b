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
        VerdictCase{ "gain not applied", Errored(-21), false, { "error -21: the persist file refused a gyro gain" } },
        VerdictCase{ "unknown error", Errored(-5), false, { "error -5: unknown error" } },
        VerdictCase{ "stopped by the tool", NotFinished("the replay folder ran out after 40 frames"), false,
                     { "the replay folder ran out after 40 frames" } },
        VerdictCase{ "never finished", NotFinished(""), false, { "still verifying after 500 frames" } },
        VerdictCase{ "verified without SR", WithoutSr(), false, { "without publishing SR" } },
        VerdictCase{ "calibration state", Errored(22), false, { "ended in state 22, not done" } }));

TEST(Verdict, PassHeadlineNamesTheLimit)
{
    EXPECT_EQ(oisverify::DecideVerdict(Verified(24.0f, 24.0f, 19.5)).headline,
              "SR at or above the limit of 19.50 dB on both axes");
}

} // namespace

namespace
{

oisverify::TrueSuppression Applied(float appliedPx, float horDb, float verDb)
{
    oisverify::TrueSuppression truth;
    truth.known             = true;
    truth.appliedShakePx    = { appliedPx, appliedPx };
    truth.trueSuppressionDb = { horDb, verDb };
    return truth;
}

// The node's SR refers to 181.248 px whatever the table did: the applied shake's suppression
// decides too, so that a stalled table never passes.
TEST(VerdictSuppression, ANodePassAgainstTheFixedReferenceAloneFails)
{
    VerdictInput stalled = Verified(30.12f, 28.67f);
    stalled.suppression  = Applied(0.0f, -INFINITY, -INFINITY);
    const oisverify::Verdict verdict = oisverify::DecideVerdict(stalled);
    EXPECT_FALSE(verdict.pass);
    ASSERT_EQ(verdict.reasons.size(), 2u);
    EXPECT_EQ(verdict.reasons[0], "horizontal SR 30.12 dB passes only against the node's fixed 181.248 px reference: "
                                  "the table applied no shake (the node measured noise), whose suppression is -inf dB, "
                                  "below the limit of 18.00 dB");

    VerdictInput small = Verified(21.0f, 24.0f);
    small.suppression  = Applied(90.0f, 17.96f, 20.96f);
    const oisverify::Verdict halfShake = oisverify::DecideVerdict(small);
    ASSERT_EQ(halfShake.reasons.size(), 1u) << halfShake.headline;
    EXPECT_EQ(halfShake.reasons[0], "horizontal SR 21.00 dB passes only against the node's fixed 181.248 px "
                                    "reference: the table applied 90.00 px, whose suppression is 17.96 dB, below the "
                                    "limit of 18.00 dB");

    VerdictInput reference = Verified(24.79f, 23.77f);
    reference.suppression  = Applied(179.95f, 24.76f, 23.73f);
    EXPECT_TRUE(oisverify::DecideVerdict(reference).pass);
}

TEST(VerdictSuppression, ANodeFailThatTheAppliedShakePassesIsExplained)
{
    VerdictInput large = Verified(17.0f, 24.0f);
    large.suppression  = Applied(300.0f, 19.2f, 26.2f);
    const oisverify::Verdict verdict = oisverify::DecideVerdict(large);
    EXPECT_FALSE(verdict.pass) << "the station judges the node's SR";
    ASSERT_EQ(verdict.notes.size(), 1u);
    EXPECT_EQ(verdict.notes[0], "horizontal: the suppression of the applied shake is 19.20 dB, at or above the limit, "
                                "but the table applied 300.00 px and the node's SR reads 2.19 dB low and fails");
}

TEST(VerdictWording, ShowsEnoughDecimalsToSeeTheComparison)
{
    struct Case
    {
        double      value, limit;
        const char* valueText;
        const char* limitText;
    } cases[] = { { 17.996, 18.0, "17.996 dB", "18.000 dB" },   { 17.5, 18.0, "17.50 dB", "18.00 dB" },
                  { 17.99999, 18.0, "17.99999 dB", "18.00000 dB" }, { 18.0, 18.0, "18.00 dB", "18.00 dB" },
                  { -INFINITY, 18.0, "-inf dB", "18.00 dB" } };
    for (const Case& c : cases)
    {
        std::string value, limit;
        oisverify::FormatAgainstLimit(c.value, c.limit, &value, &limit);
        EXPECT_EQ(value, c.valueText) << c.value;
        EXPECT_EQ(limit, c.limitText) << c.value;
    }
    EXPECT_EQ(oisverify::DecideVerdict(Verified(17.9999f, 24.0f)).headline,
              "horizontal SR 17.9999 dB is below the limit of 18.0000 dB");
}

TEST(VerdictWording, TimeLimitRuleNamesTheRateItAssumesAndTheWayOut)
{
    EXPECT_EQ(oisverify::TimeLimitRule(24, 13, 520),
              "the node allows the 13 frame periods of a verdict 520 ms, so frames must come faster than 25 fps (45 "
              "fps at exactly 60 fps, 25 fps at any other rate); at 24 fps they take 541 ms. Way out: a rate above 25 "
              "fps (e.g. --fps 30) or 60 fps");
    EXPECT_EQ(oisverify::TimeLimitRule(30, 16, 640),
              "the node allows the 16 frame periods of a verdict 640 ms, so frames must come faster than 25 fps (45 "
              "fps at exactly 60 fps, 25 fps at any other rate); at 30 fps they take 533 ms");
    EXPECT_NE(oisverify::TimeLimitRule(60, 31, 688).find("faster than 45 fps"), std::string::npos);
    EXPECT_NE(oisverify::TimeLimitRule(25, 13, 520).find("Way out"), std::string::npos) << "25 fps is not faster";
    VerdictInput timedOut = Errored(-13);
    timedOut.durationMs   = 541;
    timedOut.timeLimitMs  = 520;
    timedOut.frameRateHz  = 24;
    timedOut.verdictFrames = 13;
    EXPECT_NE(oisverify::DecideVerdict(timedOut).headline.find("(541 ms against a limit of 520 ms): the node allows"),
              std::string::npos);
}

TEST(Suppression, FollowsTheNodesScaleWithTheAppliedShakeAsReference)
{
    EXPECT_DOUBLE_EQ(oisverify::SuppressionDb(181.248, 1.81248), 24.0);
    EXPECT_DOUBLE_EQ(oisverify::SuppressionDb(90.0, 90.0), 4.0) << "no OIS: 4 dB whatever the shake";
    EXPECT_EQ(oisverify::SuppressionDb(0.0, 0.44), -INFINITY);
    EXPECT_EQ(oisverify::SuppressionDb(10.0, 0.0), INFINITY);
    EXPECT_NEAR(oisverify::ReferenceBiasDb(90.0), 3.0403, 1e-4);
    EXPECT_TRUE(oisverify::IsReferenceShake(181.248));
    EXPECT_FALSE(oisverify::IsReferenceShake(181.24));
    EXPECT_EQ(oisverify::DbText(-INFINITY), "-inf dB");
    EXPECT_EQ(oisverify::DbText(3.456), "3.46 dB");
}

} // namespace
