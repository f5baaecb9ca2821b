// The run's index.html: the verdict (and a note when a signal cut the run short), the verdict's
// notes and the header's warnings, the SR table (node against truth, the suppression of the
// applied shake and, with a reference session, its SR and the stabilisation gain), the figures and the chart picture inlined, the parameters of the session
// and links to every file in the output folder. One self-contained
// page, written as well-formed XHTML-style markup so that it also parses as XML.
#ifndef ZELK_TOOLS_OISVERIFY_HTMLSUMMARY_H
#define ZELK_TOOLS_OISVERIFY_HTMLSUMMARY_H

#include <string>
#include <utility>
#include <vector>

#include "session/runconfig.h"
#include "session/runsession.h"
#include "verdict/verdict.h"

namespace oisverify
{

// The session's parameters as (name, value) rows, in the order a reader wants them.
std::vector<std::pair<std::string, std::string>> RunParameters(const RunConfig& config, const RunResult& result);

// What the page shows besides the tables, each inlined as it is.
struct PageFigures
{
    std::string summarySvg;
    std::string positionsSvg;
    std::string chartSvg;  // empty: chartNote says why there is no picture
    std::string chartNote;
    // A calibration run's section (see calibrationreport.h), which takes the place of the SR
    // table: the node's last SR there belongs to the last gain it tried.
    std::string calibrationSection;
};

std::string SummaryHtml(const RunConfig& config, const RunResult& result, const Verdict& verdict,
                        const PageFigures& figures, const std::vector<std::string>& files);

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_HTMLSUMMARY_H
