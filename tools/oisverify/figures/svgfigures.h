// The two figures of a run. The positions figure shows, for each of the four circles, its x and
// y centre against the frame number: the node's measurements as dots, the simulator's truth as a
// line, failed frames as red marks and the frames the final SR was taken over as a shaded band.
// The summary figure is the verdict at a glance: a PASS/FAIL badge and one bar per axis with the
// node's SR, the true SR marked on it and the limit as a dashed line.
#ifndef ZELK_TOOLS_OISVERIFY_SVGFIGURES_H
#define ZELK_TOOLS_OISVERIFY_SVGFIGURES_H

#include <string>
#include <vector>

#include "session/runconfig.h"
#include "session/runsession.h"
#include "verdict/verdict.h"

namespace oisverify
{

// Panel ids are "<circle>-<axis>" (e.g. "up-x"), with series groups "<panel>-measured",
// "<panel>-truth" and "<panel>-failed" inside.
std::string PositionsSvg(const RunResult& result);

// One bar of the summary figure: an axis's SR and, when known, the true SR marked on it.
struct SrBar
{
    std::string id;   // group id, e.g. "horizontal"; the true mark is "<id>-true"
    std::string name; // label
    float       srDb     = 0.0f;
    bool        hasTruth = false;
    float       trueSrDb = 0.0f;
};

// The node's final SR per image axis against the truth.
std::string SummarySvg(const RunConfig& config, const RunResult& result, const Verdict& verdict);
// Any two bars (e.g. the SR of a calibration's selected gains per gyro axis); none: "no SR".
std::string SummarySvg(const RunConfig& config, const std::vector<SrBar>& bars, const Verdict& verdict);

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_SVGFIGURES_H
