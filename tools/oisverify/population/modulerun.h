// One module of a population run in this process: its configuration parsed from the words of the
// equivalent "oisverify run", the same session, verdicts and summary document as that command
// with --json. The emulated phone's properties and working directory are process-wide, so a
// caller runs each module in a process of its own (the worker pool forks one).
#ifndef ZELK_TOOLS_OISVERIFY_MODULERUN_H
#define ZELK_TOOLS_OISVERIFY_MODULERUN_H

#include <stdint.h>

#include <string>

#include "population/populationplan.h"
#include "report/runsummary.h"
#include "session/runconfig.h"
#include "yield/summaryrecord.h"

namespace oisverify
{

// The run configuration of a module under a setting; writes nothing, prints no progress, and the
// summary names the module.
bool ModuleRunConfig(const ModulePlan& module, const TestSetting& setting, const std::string& nodeLibrary,
                     uint32_t serviceWaitMs, RunConfig* pConfig, std::string* pError);

// Configures and runs the module: its summary (verdict ERROR when the session could not run) and
// where the time went.
RunSummary RunModule(const ModulePlan& module, const TestSetting& setting, const std::string& nodeLibrary,
                     uint32_t serviceWaitMs, ModuleTiming* pTiming);

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_MODULERUN_H
