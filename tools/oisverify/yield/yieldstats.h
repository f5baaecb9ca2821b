// The statistics of a production line over module records: yield before and after calibration,
// failures grouped by the node's final state, SR histograms against the limit, process
// capability against the lower limit, and how close the selected gains come to ideal.
// Capability: Cpk = (mean - LSL) / (3 sigma) with the sample standard deviation (n - 1); the SR
// limit is the only specification limit, so this is the one-sided Cpl.
#ifndef ZELK_TOOLS_OISVERIFY_YIELDSTATS_H
#define ZELK_TOOLS_OISVERIFY_YIELDSTATS_H

#include <stddef.h>

#include <string>
#include <utility>
#include <vector>

#include "yield/modulerecord.h"

namespace oisverify
{

struct Capability
{
    size_t count  = 0;
    double mean   = 0.0;
    double sigma  = 0.0; // sample standard deviation
    bool   hasCpk = false; // needs two values and a spread
    double cpk    = 0.0;
};

// Capability of values against a lower specification limit.
Capability ComputeCapability(const std::vector<double>& values, double lowerLimit);

// Counts in bins of equal width; bin i holds [low + i w, low + (i + 1) w), the last bin also its
// upper edge. Values outside are counted as below or above.
struct Histogram
{
    double              low   = 0.0;
    double              width = 1.0;
    std::vector<size_t> counts;
    size_t              below = 0;
    size_t              above = 0;
    double              High() const { return low + width * static_cast<double>(counts.size()); }
};

Histogram MakeHistogram(const std::vector<double>& values, double low, double width, size_t bins);
// Bins of the given width on multiples of it, covering every value and the limit (at most
// maxBins, widened by doubling when more would be needed).
Histogram AutoHistogram(const std::vector<double>& values, double limit, double width, size_t maxBins);

struct YieldCount
{
    size_t passed = 0;
    size_t tested = 0; // records that carry that verdict
    double Share() const { return tested == 0 ? 0.0 : static_cast<double>(passed) / static_cast<double>(tested); }
};

// Why a module failed in words, grouped: the node's error state, no final state, or a verified
// SR below the limit.
std::string FailureGroup(const ModuleRecord& record, bool after);

struct AxisStats
{
    std::vector<double> values;
    Capability          capability;
    Histogram           histogram;
};

struct YieldStats
{
    std::string setting;
    size_t      modules = 0;
    double      limitDb = 18.0; // the first record's; records with another limit are counted apart
    size_t      otherLimit = 0;
    YieldCount  before;
    YieldCount  after;
    std::vector<std::pair<std::string, size_t>> failuresBefore; // by group, most frequent first
    std::vector<std::pair<std::string, size_t>> failuresAfter;
    AxisStats   horBefore, verBefore, horAfter, verAfter;
    size_t      searched     = 0;
    size_t      withNearest  = 0; // selections that can be compared with the nearest step
    size_t      nearestBoth  = 0; // ... whose selected gains are that step on both axes
    double      meanAbsGainErrorX = 0.0; // |selected - ideal| / ideal, mean over selections
    double      meanAbsGainErrorY = 0.0;
    size_t      withTruth    = 0;
    double      meanSrErrorDb   = 0.0; // node - true, over both axes of the records with truth
    double      maxAbsSrErrorDb = 0.0;
};

constexpr double kHistogramBinDb  = 0.5;
constexpr size_t kMaxHistogramBins = 60;

YieldStats ComputeYield(const std::vector<ModuleRecord>& records, const std::string& setting);

// One YieldStats per search setting, in order of first appearance.
std::vector<YieldStats> ComputeYieldBySetting(const std::vector<ModuleRecord>& records);

// The records of one search setting, in the order given.
std::vector<ModuleRecord> RecordsOfSetting(const std::vector<ModuleRecord>& records, const std::string& setting);
// The settings in order of first appearance.
std::vector<std::string> SettingsOf(const std::vector<ModuleRecord>& records);

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_YIELDSTATS_H
