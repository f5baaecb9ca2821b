// Options of "oisverify run" and their translation into a RunConfig. Every mistake a user can make
// on the command line (malformed numbers, impossible frame sizes, options that contradict each
// other or the source of frames) is a usage error with a message naming the option.
#ifndef ZELK_TOOLS_OISVERIFY_RUNOPTIONS_H
#define ZELK_TOOLS_OISVERIFY_RUNOPTIONS_H

#include <string>
#include <vector>

#include "cli/arguments.h"
#include "session/runconfig.h"

namespace oisverify
{

// The run command's own options followed by the shared device options.
std::vector<OptionSpec> RunOptionSpecs();

// Builds the configuration; false with a message on any usage error. Relative paths are made
// absolute against the current directory (the device root becomes the working directory later).
bool ParseRunConfig(const Arguments& arguments, RunConfig* pConfig, std::string* pError);

// Parses the given words (as after "oisverify run") into a configuration; for tests and scripts.
bool ParseRunWords(const std::vector<std::string>& words, RunConfig* pConfig, std::string* pError);

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_RUNOPTIONS_H
