// Module records from run summaries (the document of "oisverify run --json"): the population's
// workers write one summary per module as a line, with a "population" object the summary reader
// ignores (where the module's time went), and "oisverify stats" reads summaries collected from
// stations. Gains and SR of a search belong to the gyro axes; the simulated module's swap flag
// pairs them with the image axes the yield statistics use.
#ifndef ZELK_TOOLS_OISVERIFY_SUMMARYRECORD_H
#define ZELK_TOOLS_OISVERIFY_SUMMARYRECORD_H

#include <string>

#include "report/runsummary.h"
#include "yield/modulerecord.h"

namespace oisverify
{

// Where a population module's time went, in CPU seconds: rendering, the node and the rest of the
// request loop on the streaming thread, and the whole worker process (set-up, the calibration
// service, verdicts and summary included).
struct ModuleTiming
{
    double renderS   = 0.0;
    double nodeS     = 0.0;
    double emulatorS = 0.0;
    double totalS    = 0.0;
};

// "STEP,LIMIT" of a search, as --search takes it.
std::string SearchLabel(double stepFraction, double limitFraction);

// The summary on one line with the timing added; no line feed.
std::string SummaryLine(const RunSummary& summary, const ModuleTiming& timing);

ModuleRecord RecordFromSummary(const RunSummary& summary);

// Reads a summary document (one line or several) with its timing when present; false with the
// reason for text that is not one.
bool RecordFromSummaryText(const std::string& text, ModuleRecord* pRecord, std::string* pReason);

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_SUMMARYRECORD_H
