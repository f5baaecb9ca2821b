// The journal of a population run: the options it was started with (one word a line, so that
// --resume runs the same population) and its finished modules, one summary document a line,
// appended and flushed as each finishes. An interrupted run leaves at most one line cut short, which reading
// drops; --resume keeps every whole line and runs only the jobs without one.
#ifndef ZELK_TOOLS_OISVERIFY_JOURNAL_H
#define ZELK_TOOLS_OISVERIFY_JOURNAL_H

#include <stddef.h>
#include <stdio.h>

#include <string>
#include <vector>

#include "yield/modulerecord.h"

namespace oisverify
{

extern const char* const kJournalFile;   // modules.jsonl
extern const char* const kArgumentsFile; // population.args

// The key that ties a record to its job: module ID and search setting.
std::string JobKey(const std::string& moduleId, const std::string& setting);

// The whole lines of a journal that hold a module's summary, with their records.
struct JournalLines
{
    std::vector<std::string>  lines;
    std::vector<ModuleRecord> records;
    size_t                    dropped = 0; // lines that were not a summary (cut short by an interrupt)
};
JournalLines ReadJournalLines(const std::string& path);

// Replaces the file with the lines, through a temporary file and a rename.
bool RewriteJournal(const std::string& path, const std::vector<std::string>& lines);

bool AppendJournal(FILE* pFile, const std::string& line);

bool SaveArguments(const std::string& path, const std::vector<std::string>& words);
bool LoadArguments(const std::string& path, std::vector<std::string>* pWords);

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_JOURNAL_H
