// What "oisverify run --calibrate" prints and adds to the summary page: the search and module it
// sets up, then the verification at the base gains, a table of every gain pair the search
// measured, the selected gains next to the simulated module's ideal gains and the nearest search
// step, the verdict, and the module's record in the persist file with its CRC verdict.
#ifndef ZELK_TOOLS_OISVERIFY_CALIBRATIONREPORT_H
#define ZELK_TOOLS_OISVERIFY_CALIBRATIONREPORT_H

#include <stdio.h>

#include <string>
#include <vector>

#include "cli/calibrationoptions.h"
#include "verdict/calibrationresult.h"
#include "session/runconfig.h"
#include "session/runsession.h"
#include "figures/svgfigures.h"
#include "verdict/verdict.h"

namespace oisverify
{

// The targets of one axis, e.g. "0.80 to 1.20 in steps of 0.05", or "held at 1.00".
std::string DescribeAxisSearch(const RunConfig& config, bool yAxis);

// Lines after the run header: the search, the module, the service, and notes on what will fail.
void PrintCalibrationHeader(FILE* pOut, const RunConfig& config);

// The search table: one row per measured gain pair, the node's selection per axis marked '*'.
std::string SearchTableText(const CalibrationOutcome& outcome);

// Everything after the progress lines, up to the output files.
void PrintCalibrationReport(FILE* pOut, const RunConfig& config, const RunResult& result,
                            const CalibrationOutcome& outcome, const Verdict& verdict, bool colour);

// The summary figure's bars: the selected gains' SR per gyro axis, or the base gains' SR per
// image axis when the node did not search.
std::vector<SrBar> CalibrationBars(const CalibrationOutcome& outcome);

// The page's calibration section: verification, search table, selection, figure, persist record.
std::string CalibrationSectionHtml(const RunConfig& config, const RunResult& result,
                                   const CalibrationOutcome& outcome, const std::string& calibrationSvg);

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_CALIBRATIONREPORT_H
