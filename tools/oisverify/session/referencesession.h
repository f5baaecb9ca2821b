// The parts of "oisverify run" around one session of the node: the session itself (runsession.cpp),
// the OIS-off reference session measured before it, and the suppression of the shake the table
// applied, from the truth of the frames in the node's ring (see suppression.h).
#ifndef ZELK_TOOLS_OISVERIFY_REFERENCESESSION_H
#define ZELK_TOOLS_OISVERIFY_REFERENCESESSION_H

#include <stdint.h>

#include <vector>

#include "chihost/emulator/status.h"
#include "session/runconfig.h"
#include "session/runsession.h"
#include "sim/simulator.h"
#include "verdict/suppression.h"

namespace oisverify
{

// One session of the node as configured, without a reference session; see RunVerification.
chihost::Status RunSession(const RunConfig& config, const ProgressSink& progress, RunResult* pResult);

// The suppression of the scenario's shake over the simulator frames of these indices, whose true
// blur and SR with the module's OIS are `residual`.
TrueSuppression ShakeSuppression(const sim::Scenario& scenario, const std::vector<uint32_t>& frameIndices,
                                 const sim::BlurSr& residual);

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_REFERENCESESSION_H
