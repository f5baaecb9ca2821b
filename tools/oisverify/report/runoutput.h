// The tool's own files in a run's output folder, next to the node's files the session copied
// there: the node's log, the circle centres as CSV, the figures, the chart picture, the summary
// page, a calibration run's persist file and, for a run cut short by a signal, INTERRUPTED.
//
// The folder holds one run. Its list of files, oisverify-files.txt, marks it as the tool's: a
// later run into the same folder removes exactly the files listed there (and folders they leave
// empty), never anything else. A non-empty folder without the list is refused, unless it holds
// nothing but files under the names a run writes (a folder of a run from before runs listed
// their files), which are then removed.
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

// Name of the list of the files a run wrote into its output folder.
extern const char* const kOutputListName;
// Name of the note a run cut short by a signal leaves.
extern const char* const kInterruptedName;

// Makes outDir ready for a run before the session starts: creates it, or clears a folder of an
// earlier run of the files its list names (or of an unlisted earlier run, see above), or refuses
// a non-empty folder that is neither (a list that is not a regular file is no list). Leaves an empty list behind, so that even a run that ends
// before writing anything leaves a folder the next run recognises. Nothing for an empty outDir.
chihost::Status PrepareOutputFolder(const std::string& outDir);

// Adds the file at path to outDir's list when it lies directly in outDir (a summary document
// written there), so that the next run into the folder removes it too; nothing otherwise.
chihost::Status ListInOutputFolder(const std::string& outDir, const std::string& path);

// One row per measured frame: frame, ring slot, algorithm return, whether it is in the final SR's
// window, the eight measured coordinates and, when known, the eight true ones.
std::string PositionsCsv(const RunResult& result);

// Writes the files into config.outDir and lists their names (index.html first) in pWritten, after
// recording them and the node's files in the folder's list. With a calibration run's outcome also
// calibration.svg and the persist file as the session left it, and the page shows the search.
chihost::Status WriteRunOutputs(const RunConfig& config, const RunResult& result, const Verdict& verdict,
                                std::vector<std::string>* pWritten, const CalibrationOutcome* pCalibration = nullptr);

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_RUNOUTPUT_H
