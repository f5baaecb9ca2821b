// Production-line statistics; see yieldstats.h.
#include "yield/yieldstats.h"

#include <math.h>

#include <algorithm>
#include <map>

#include "verdict/verdict.h"

namespace oisverify
{

namespace
{

// Gains are written with six decimals; a thousandth tells a search step from the next.
constexpr double kGainMatchTolerance = 1e-3;

void AddAxis(AxisStats* pAxis, double limitDb)
{
    pAxis->capability = ComputeCapability(pAxis->values, limitDb);
    pAxis->histogram  = AutoHistogram(pAxis->values, limitDb, kHistogramBinDb, kMaxHistogramBins);
}

std::vector<std::pair<std::string, size_t>> SortGroups(const std::map<std::string, size_t>& groups)
{
    std::vector<std::pair<std::string, size_t>> sorted(groups.begin(), groups.end());
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const auto& a, const auto& b) { return a.second > b.second; });
    return sorted;
}

void AddGains(const ModuleRecord& record, YieldStats* pStats, size_t* pWithIdeal)
{
    pStats->searched += record.searched ? 1 : 0;
    if (!record.hasSelection)
    {
        return;
    }
    if (record.hasNearest)
    {
        pStats->withNearest++;
        pStats->nearestBoth += SelectedNearestStep(record) ? 1 : 0;
    }
    if (record.hasIdeal && record.idealX > 0.0 && record.idealY > 0.0)
    {
        (*pWithIdeal)++;
        pStats->meanAbsGainErrorX += fabs(record.selectedX - record.idealX) / record.idealX;
        pStats->meanAbsGainErrorY += fabs(record.selectedY - record.idealY) / record.idealY;
    }
}

void AddTruth(const ModuleRecord& record, YieldStats* pStats)
{
    if (!record.hasTruth || !record.hasAfter)
    {
        return;
    }
    pStats->withTruth++;
    for (double error : { record.afterHorDb - record.trueHorDb, record.afterVerDb - record.trueVerDb })
    {
        pStats->meanSrErrorDb += error;
        pStats->maxAbsSrErrorDb = std::max(pStats->maxAbsSrErrorDb, fabs(error));
    }
}

} // namespace

bool SelectedNearestStep(const ModuleRecord& record)
{
    return record.hasSelection && record.hasNearest && fabs(record.selectedX - record.nearestX) < kGainMatchTolerance &&
           fabs(record.selectedY - record.nearestY) < kGainMatchTolerance;
}

Capability ComputeCapability(const std::vector<double>& values, double lowerLimit)
{
    Capability capability;
    capability.count = values.size();
    if (values.empty())
    {
        return capability;
    }
    double sum = 0.0;
    for (double value : values)
    {
        sum += value;
    }
    capability.mean = sum / static_cast<double>(values.size());
    if (values.size() < 2)
    {
        return capability;
    }
    double squares = 0.0;
    for (double value : values)
    {
        squares += (value - capability.mean) * (value - capability.mean);
    }
    capability.sigma  = sqrt(squares / static_cast<double>(values.size() - 1));
    capability.hasCpk = capability.sigma > 0.0;
    capability.cpk    = capability.hasCpk ? (capability.mean - lowerLimit) / (3.0 * capability.sigma) : 0.0;
    return capability;
}

Histogram MakeHistogram(const std::vector<double>& values, double low, double width, size_t bins)
{
    Histogram histogram;
    histogram.low   = low;
    histogram.width = width > 0.0 ? width : 1.0;
    histogram.counts.assign(bins, 0);
    const double high = histogram.High();
    for (double value : values)
    {
        if (!(value >= low))
        {
            histogram.below++;
        }
        else if (value > high || bins == 0)
        {
            histogram.above++;
        }
        else
        {
            const size_t bin = static_cast<size_t>(floor((value - low) / histogram.width));
            histogram.counts[std::min(bin, bins - 1)]++;
        }
    }
    return histogram;
}

Histogram AutoHistogram(const std::vector<double>& values, double limit, double width, size_t maxBins)
{
    double low = limit, high = limit;
    for (double value : values)
    {
        if (std::isfinite(value))
        {
            low  = std::min(low, value);
            high = std::max(high, value);
        }
    }
    double binWidth = width > 0.0 ? width : 1.0;
    double first = 0.0, last = 0.0;
    for (;;)
    {
        first = floor(low / binWidth) * binWidth;
        last  = (floor(high / binWidth) + 1.0) * binWidth;
        if ((last - first) / binWidth <= static_cast<double>(maxBins) + 0.5 || maxBins == 0)
        {
            break;
        }
        binWidth *= 2.0;
    }
    return MakeHistogram(values, first, binWidth, static_cast<size_t>(lround((last - first) / binWidth)));
}

std::string FailureGroup(const ModuleRecord& record, bool after)
{
    if (record.runError)
    {
        return "the run could not be completed";
    }
    if (!record.finished)
    {
        return "no final state";
    }
    if (record.state != kVerifiedState)
    {
        const std::string meaning = ErrorMeaning(record.state);
        return StateName(record.state) + (meaning.empty() ? "" : ": " + meaning);
    }
    const bool hasSr = after ? record.hasAfter : record.hasBefore;
    return hasSr ? "SR below the limit" : "no SR";
}

YieldStats ComputeYield(const std::vector<ModuleRecord>& records, const std::string& setting)
{
    YieldStats stats;
    stats.setting = setting;
    stats.modules = records.size();
    stats.limitDb = records.empty() ? stats.limitDb : records.front().limitDb;
    std::map<std::string, size_t> failuresBefore, failuresAfter;
    size_t                        withIdeal = 0;
    for (const ModuleRecord& record : records)
    {
        if (fabs(record.limitDb - stats.limitDb) > 1e-6)
        {
            stats.otherLimit++;
        }
        stats.before.tested++;
        stats.before.passed += record.passBefore ? 1 : 0;
        stats.after.tested++;
        stats.after.passed += record.passAfter ? 1 : 0;
        if (!record.passBefore)
        {
            failuresBefore[FailureGroup(record, false)]++;
        }
        if (!record.passAfter)
        {
            failuresAfter[FailureGroup(record, true)]++;
        }
        if (record.hasBefore)
        {
            stats.horBefore.values.push_back(record.beforeHorDb);
            stats.verBefore.values.push_back(record.beforeVerDb);
        }
        if (record.hasAfter)
        {
            stats.horAfter.values.push_back(record.afterHorDb);
            stats.verAfter.values.push_back(record.afterVerDb);
        }
        AddGains(record, &stats, &withIdeal);
        AddTruth(record, &stats);
    }
    stats.failuresBefore = SortGroups(failuresBefore);
    stats.failuresAfter  = SortGroups(failuresAfter);
    for (AxisStats* pAxis : { &stats.horBefore, &stats.verBefore, &stats.horAfter, &stats.verAfter })
    {
        AddAxis(pAxis, stats.limitDb);
    }
    if (withIdeal != 0)
    {
        stats.meanAbsGainErrorX /= static_cast<double>(withIdeal);
        stats.meanAbsGainErrorY /= static_cast<double>(withIdeal);
    }
    stats.meanSrErrorDb = stats.withTruth == 0 ? 0.0 : stats.meanSrErrorDb / (2.0 * static_cast<double>(stats.withTruth));
    return stats;
}

std::vector<YieldStats> ComputeYieldBySetting(const std::vector<ModuleRecord>& records)
{
    std::vector<YieldStats> settings;
    for (const std::string& setting : SettingsOf(records))
    {
        settings.push_back(ComputeYield(RecordsOfSetting(records, setting), setting));
    }
    return settings;
}

std::vector<ModuleRecord> RecordsOfSetting(const std::vector<ModuleRecord>& records, const std::string& setting)
{
    std::vector<ModuleRecord> selected;
    for (const ModuleRecord& record : records)
    {
        if (record.setting == setting)
        {
            selected.push_back(record);
        }
    }
    return selected;
}

std::vector<std::string> SettingsOf(const std::vector<ModuleRecord>& records)
{
    std::vector<std::string> settings;
    for (const ModuleRecord& record : records)
    {
        if (std::find(settings.begin(), settings.end(), record.setting) == settings.end())
        {
            settings.push_back(record.setting);
        }
    }
    return settings;
}

} // namespace oisverify
