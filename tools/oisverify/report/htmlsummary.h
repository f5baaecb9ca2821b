// The run's index.html: the verdict, the SR table (node against truth), the parameters of the
// session, both figures inlined and links to every file in the output folder. One self-contained
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

// calibrationSection: a calibration run's section (see calibrationreport.h), which takes the place
// of the SR table: the node's last SR there belongs to the last gain it tried.
std::string SummaryHtml(const RunConfig& config, const RunResult& result, const Verdict& verdict,
                        const std::string& summarySvg, const std::string& positionsSvg,
                        const std::vector<std::string>& files, const std::string& calibrationSection = "");

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_HTMLSUMMARY_H
