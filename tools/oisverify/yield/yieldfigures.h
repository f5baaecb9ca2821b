// The figures of a yield page: SR histograms per image axis before and after calibration with the
// limit marked, the selected gains against the modules' ideal gains, and the node's SR against the
// simulator's true SR per module.
#ifndef ZELK_TOOLS_OISVERIFY_YIELDFIGURES_H
#define ZELK_TOOLS_OISVERIFY_YIELDFIGURES_H

#include <string>
#include <utility>
#include <vector>

#include "yield/yieldstats.h"

namespace oisverify
{

// Bars per bin: before calibration (group "<id>-before") and after ("<id>-after"), the limit as
// a dashed line ("<id>-limit").
std::string SrHistogramSvg(const std::string& id, const std::string& title, const AxisStats& before,
                           const AxisStats& after, double limitDb);

struct ScatterSeries
{
    std::string                            id;
    std::string                            name;
    std::string                            colour;
    std::vector<std::pair<double, double>> points;
};

// Points with the diagonal y = x; empty series are left out of the legend. A series of more than
// 4000 points is drawn as an even sample of them.
std::string ScatterSvg(const std::string& title, const std::string& xLabel, const std::string& yLabel,
                       const std::vector<ScatterSeries>& series);

// Selected against ideal gain per gyro axis, for the records with both.
std::string GainScatterSvg(const std::vector<ModuleRecord>& records);
// Node SR against true SR per image axis, for the records with truth.
std::string TruthScatterSvg(const std::vector<ModuleRecord>& records);

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_YIELDFIGURES_H
