// The tool's own files in a run's output folder, next to the node's files the session copied
// there: the node's log, the circle centres as CSV, the figures and the summary page.
#ifndef ZELK_TOOLS_OISVERIFY_RUNOUTPUT_H
#define ZELK_TOOLS_OISVERIFY_RUNOUTPUT_H

#include <string>
#include <vector>

#include "verdict/calibrationresult.h"
#include "chihost/emulator/status.h"
#include "session/runconfig.h"
#include "session/runsession.h"
#include "verdict/verdict.h"

namespace oisverify
{

// One row per measured frame: frame, ring slot, algorithm return, whether it is in the final SR's
// window, the eight measured coordinates and, when known, the eight true ones.
std::string PositionsCsv(const RunResult& result);

// Writes the files into config.outDir and lists their names (index.html first) in pWritten. With
// a calibration run's outcome also calibration.svg, and the page shows the search.
chihost::Status WriteRunOutputs(const RunConfig& config, const RunResult& result, const Verdict& verdict,
                                std::vector<std::string>* pWritten, const CalibrationOutcome* pCalibration = nullptr);

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_RUNOUTPUT_H
