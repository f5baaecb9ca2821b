// Options of "oisverify run" for its summary document: where it goes (--json FILE, or - for
// stdout) and what identifies the run in it (--module-id, --station). Without them the module is
// the fuse ID the node reads (a calibration run's, or a fuse-ID property given with --prop) and
// the station is the host name.
#ifndef ZELK_TOOLS_OISVERIFY_SUMMARYOPTIONS_H
#define ZELK_TOOLS_OISVERIFY_SUMMARYOPTIONS_H

#include <string>
#include <vector>

#include "cli/arguments.h"
#include "session/runconfig.h"

namespace oisverify
{

std::vector<OptionSpec> SummaryOptionSpecs();

// Reads the options into pConfig->summary; needs the device and calibration options read already.
// False with a message for an empty path or an ID that is not 1 to 128 printable ASCII characters.
bool ReadSummaryOptions(const Arguments& arguments, RunConfig* pConfig, std::string* pError);

// This machine's host name; empty when it has none.
std::string HostName();

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_SUMMARYOPTIONS_H
