// One module of a population run in this process: its configuration parsed from the words of the
// equivalent "oisverify run", the same session and verdicts as that command, and the outcome
// folded into a module record. The emulated phone's properties and working directory are
// process-wide, so a caller runs each module in a process of its own (the worker pool forks one).
#ifndef ZELK_TOOLS_OISVERIFY_MODULERUN_H
#define ZELK_TOOLS_OISVERIFY_MODULERUN_H

#include <string>

#include "population/populationspec.h"
#include "session/runconfig.h"
#include "session/runsession.h"
#include "yield/modulerecord.h"

namespace oisverify
{

// The run configuration of a module under a setting; writes nothing, prints no progress.
bool ModuleRunConfig(const ModuleSpec& module, const TestSetting& setting, const std::string& nodeLibrary,
                     uint32_t serviceWaitMs, RunConfig* pConfig, std::string* pError);

// The record of a finished session: verdicts before and after calibration as "run" decides them.
ModuleRecord RecordFromRun(const RunConfig& config, const RunResult& result, const ModuleSpec& module,
                           const TestSetting& setting);

// Configures and runs the module; a session that cannot run gives a failed record with the reason.
ModuleRecord RunModule(const ModuleSpec& module, const TestSetting& setting, const std::string& nodeLibrary,
                       uint32_t serviceWaitMs);

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_MODULERUN_H
