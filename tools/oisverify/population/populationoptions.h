// Options of "oisverify population" and their translation into the modules, the test settings
// and how the run is carried out. Usage mistakes are errors with a message naming the option.
#ifndef ZELK_TOOLS_OISVERIFY_POPULATIONOPTIONS_H
#define ZELK_TOOLS_OISVERIFY_POPULATIONOPTIONS_H

#include <stdint.h>

#include <string>
#include <vector>

#include "cli/arguments.h"
#include "population/populationplan.h"

namespace oisverify
{

std::vector<OptionSpec> PopulationOptionSpecs();

struct PopulationConfig
{
    PopulationPlan           plan;
    std::vector<ModulePlan>  modules;
    std::vector<TestSetting> settings; // one per --search, or the single verification setting
    std::string              modulesCsv; // absolute, when given
    uint32_t                 workers    = 1;
    bool                     namespaces = true;
    bool                     resume     = false;
    std::string              outDir;      // absolute
    std::string              nodeLibrary; // as given; empty: beside the tool
    uint32_t                 serviceWaitMs = 10000;
};

// "-j N" and "-jN" become "--jobs N"; other words are kept.
std::vector<std::string> ExpandShortOptions(int argc, char** argv, int first);

// The options a resumed run may change; everything else comes from the interrupted run.
bool IsResumeOption(const std::string& name);

bool ParsePopulationConfig(const Arguments& arguments, PopulationConfig* pConfig, std::string* pError);

// Parses words as after "oisverify population" (with -j expanded).
bool ParsePopulationWords(const std::vector<std::string>& words, Arguments* pArguments, PopulationConfig* pConfig,
                          std::string* pError);

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_POPULATIONOPTIONS_H
