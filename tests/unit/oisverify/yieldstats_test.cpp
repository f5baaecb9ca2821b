// The production-line statistics against hand-computed values: capability, histogram bins, yield
// and failure groups, and the gain and truth comparisons.
#include <gtest/gtest.h>

#include <algorithm>

#include "yield/recordio.h"
#include "yield/yieldpage.h"
#include "yield/yieldstats.h"

namespace oisverify
{
namespace
{

TEST(Capability, MatchesHandComputedValues)
{
    // mean 18.5; squares 2.25 + 0.25 + 0.25 + 2.25 = 5; sigma = sqrt(5 / 3) = 1.2909944
    const Capability capability = ComputeCapability({ 17.0, 18.0, 19.0, 20.0 }, 16.0);
    EXPECT_EQ(capability.count, 4u);
    EXPECT_DOUBLE_EQ(capability.mean, 18.5);
    EXPECT_NEAR(capability.sigma, 1.2909944487, 1e-9);
    ASSERT_TRUE(capability.hasCpk);
    EXPECT_NEAR(capability.cpk, 2.5 / (3.0 * 1.2909944487), 1e-9); // 0.6454972
    // Below the limit on average: negative.
    EXPECT_NEAR(ComputeCapability({ 17.0, 18.0, 19.0, 20.0 }, 20.0).cpk, -1.5 / (3.0 * 1.2909944487), 1e-9);
}

TEST(Capability, UndefinedWithoutSpread)
{
    struct Case
    {
        std::vector<double> values;
        size_t              count;
        double              mean;
    };
    for (const Case& c : { Case{ {}, 0, 0.0 }, Case{ { 19.0 }, 1, 19.0 }, Case{ { 21.0, 21.0, 21.0 }, 3, 21.0 } })
    {
        const Capability capability = ComputeCapability(c.values, 18.0);
        EXPECT_EQ(capability.count, c.count);
        EXPECT_DOUBLE_EQ(capability.mean, c.mean);
        EXPECT_FALSE(capability.hasCpk);
    }
}

TEST(Histogram, BinsAreHalfOpenWithTheLastClosed)
{
    const Histogram histogram =
        MakeHistogram({ 17.9, 18.0, 18.49, 18.5, 19.0, 20.0, 16.0, 20.1, 17.0 }, 17.0, 0.5, 6);
    EXPECT_EQ(histogram.counts, (std::vector<size_t>{ 1, 1, 2, 1, 1, 1 }));
    EXPECT_EQ(histogram.below, 1u); // 16.0
    EXPECT_EQ(histogram.above, 1u); // 20.1
    EXPECT_DOUBLE_EQ(histogram.High(), 20.0);
}

TEST(Histogram, AutomaticBinsCoverValuesAndLimit)
{
    struct Case
    {
        std::vector<double> values;
        double              limit;
        size_t              maxBins;
        double              low, width;
        size_t              bins;
    };
    const Case cases[] = {
        { { 17.2, 19.7 }, 18.0, 60, 17.0, 0.5, 6 }, // 17.0 .. 20.0
        { { 19.2, 19.3 }, 18.0, 60, 18.0, 0.5, 3 }, // the limit widens the span down to 18
        { { 17.2, 19.7 }, 18.0, 3, 17.0, 1.0, 3 },  // too many bins: the width doubles
        { {}, 18.0, 60, 18.0, 0.5, 1 },
    };
    for (const Case& c : cases)
    {
        const Histogram histogram = AutoHistogram(c.values, c.limit, 0.5, c.maxBins);
        EXPECT_DOUBLE_EQ(histogram.low, c.low);
        EXPECT_DOUBLE_EQ(histogram.width, c.width);
        EXPECT_EQ(histogram.counts.size(), c.bins);
        EXPECT_EQ(histogram.below + histogram.above, 0u);
    }
}

ModuleRecord Verified(const std::string& id, double before, double after, bool passBefore, bool passAfter)
{
    ModuleRecord record;
    record.id          = id;
    record.finished    = true;
    record.state       = 4;
    record.hasBefore   = true;
    record.beforeHorDb = before;
    record.beforeVerDb = before + 1.0;
    record.hasAfter    = true;
    record.afterHorDb  = after;
    record.afterVerDb  = after + 1.0;
    record.passBefore  = passBefore;
    record.passAfter   = passAfter;
    return record;
}

TEST(Yield, CountsAndGroupsFailures)
{
    std::vector<ModuleRecord> records = {
        Verified("a", 19.0, 19.0, true, true),
        Verified("b", 15.0, 20.0, false, true),
        Verified("c", 15.0, 16.0, false, false),
    };
    ModuleRecord error = Verified("d", 0.0, 0.0, false, false);
    error.state        = -12;
    error.hasBefore = error.hasAfter = false;
    records.push_back(error);
    ModuleRecord unfinished = error;
    unfinished.finished     = false;
    unfinished.state        = 3;
    records.push_back(unfinished);
    ModuleRecord runError = unfinished;
    runError.runError     = true;
    records.push_back(runError);

    const YieldStats stats = ComputeYield(records, "0.05,0.2");
    EXPECT_EQ(stats.modules, 6u);
    EXPECT_EQ(stats.before.passed, 1u);
    EXPECT_EQ(stats.after.passed, 2u);
    EXPECT_EQ(stats.after.tested, 6u);
    EXPECT_EQ(FormatYield(stats.after), "33.3 % (2/6)");
    using Groups = std::vector<std::pair<std::string, size_t>>;
    // Most frequent first, ties in name order.
    EXPECT_EQ(stats.failuresBefore,
              (Groups{ { "SR below the limit", 2 }, { "error -12: too many frames without the chart", 1 },
                       { "no final state", 1 }, { "the run could not be completed", 1 } }));
    EXPECT_EQ(stats.failuresAfter[0], (std::pair<std::string, size_t>{ "SR below the limit", 1 }));
    // SR only from the records that have it: a, b, c.
    EXPECT_EQ(stats.horBefore.values, (std::vector<double>{ 19.0, 15.0, 15.0 }));
    EXPECT_EQ(stats.verAfter.values, (std::vector<double>{ 20.0, 21.0, 17.0 }));
    EXPECT_DOUBLE_EQ(stats.horAfter.capability.mean, 55.0 / 3.0);
}

TEST(Yield, SelectedAgainstIdealAndNodeAgainstTruth)
{
    ModuleRecord onStep = Verified("a", 15.0, 20.0, false, true);
    onStep.hasSelection = onStep.hasIdeal = onStep.hasNearest = true;
    onStep.selectedX = 1.10;
    onStep.selectedY = 0.95;
    onStep.idealX    = 1.08;
    onStep.idealY    = 0.95;
    onStep.nearestX  = 1.10;
    onStep.nearestY  = 0.95;
    onStep.searched  = true;
    onStep.hasTruth  = true;
    onStep.trueHorDb = 19.5; // node - true: +0.5 and (21 - 21.5) = -0.5
    onStep.trueVerDb = 21.5;
    ModuleRecord offStep = onStep;
    offStep.selectedY    = 1.00; // a step away on Y
    offStep.idealY       = 1.00;
    offStep.hasTruth     = false;

    const YieldStats stats = ComputeYield({ onStep, offStep }, "0.05,0.2");
    EXPECT_EQ(stats.searched, 2u);
    EXPECT_EQ(stats.withNearest, 2u);
    EXPECT_EQ(stats.nearestBoth, 1u);
    EXPECT_TRUE(SelectedNearestStep(onStep));
    EXPECT_FALSE(SelectedNearestStep(offStep));
    EXPECT_NEAR(stats.meanAbsGainErrorX, 0.02 / 1.08, 1e-12);
    EXPECT_NEAR(stats.meanAbsGainErrorY, 0.0, 1e-12);
    EXPECT_EQ(stats.withTruth, 1u);
    EXPECT_NEAR(stats.meanSrErrorDb, 0.0, 1e-12);
    EXPECT_NEAR(stats.maxAbsSrErrorDb, 0.5, 1e-12);
}

TEST(Yield, SettingsKeepTheirOrder)
{
    std::vector<ModuleRecord> records(3);
    records[0].setting = "0.05,0.2";
    records[1].setting = "0.03,0.15";
    records[2].setting = "0.05,0.2";
    EXPECT_EQ(SettingsOf(records), (std::vector<std::string>{ "0.05,0.2", "0.03,0.15" }));
    EXPECT_EQ(RecordsOfSetting(records, "0.05,0.2").size(), 2u);
}

TEST(RecordCsv, QuotesFieldsAndLeavesUnknownValuesEmpty)
{
    ModuleRecord record = Verified("m,1", 15.0, 20.0, false, true);
    record.setting      = "0.05,0.2";
    record.reason       = "said \"no\"";
    const std::string row = RecordToCsvRow(record);
    EXPECT_EQ(row, "\"m,1\",,\"0.05,0.2\",,4,18.00,0,1,15.0000,16.0000,20.0000,21.0000,,,,,,,,,,\"said \"\"no\"\"\",,,,");
    // One field per header column.
    const std::string header = RecordCsvHeader();
    EXPECT_EQ(std::count(header.begin(), header.end(), ','), 25);
}

} // namespace
} // namespace oisverify
