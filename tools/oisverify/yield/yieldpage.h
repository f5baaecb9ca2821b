// What a population or a stats run writes and prints: a console summary per search setting, the
// CSV of every module, and one HTML page with the yield table (settings side by side), failure
// reasons, capability and the figures.
#ifndef ZELK_TOOLS_OISVERIFY_YIELDPAGE_H
#define ZELK_TOOLS_OISVERIFY_YIELDPAGE_H

#include <stdio.h>

#include <string>
#include <vector>

#include "yield/yieldstats.h"

namespace oisverify
{

// "87.5 % (175/200)".
std::string FormatYield(const YieldCount& count);

void PrintYieldSummary(FILE* pOut, const std::vector<YieldStats>& settings);

// The page; notes are listed under the title (e.g. files that were skipped).
std::string YieldPageHtml(const std::string& title, const std::vector<ModuleRecord>& records,
                          const std::vector<std::string>& notes);

std::string RecordsCsv(const std::vector<ModuleRecord>& records);

// Writes index.html and modules.csv into the folder (created); false with a message.
bool WriteYieldOutputs(const std::string& outDir, const std::string& title, const std::vector<ModuleRecord>& records,
                       const std::vector<std::string>& notes, std::string* pError);

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_YIELDPAGE_H
