// Reads results collected from stations into module records: the node's reports (oisVerify.json,
// the module ID taken from its folder), summaries and population journals (JSON objects, one per
// line; the module ID is the record's own, else the file name), and calibration persist files
// (their records give the selected gains of the report in the same folder). Folders are searched
// recursively without following symbolic links; only regular files are opened, never a FIFO or a
// device. A file that is unreadable, truncated, too large or not what its name says is listed
// with the reason and skipped.
#ifndef ZELK_TOOLS_OISVERIFY_RESULTREADER_H
#define ZELK_TOOLS_OISVERIFY_RESULTREADER_H

#include <stddef.h>

#include <string>
#include <vector>

#include "yield/modulerecord.h"

namespace oisverify
{

extern const char* const kNodeReportName; // oisVerify.json
constexpr size_t         kMaxResultFileBytes = 64u << 20; // journals of large populations

struct SkippedFile
{
    std::string path;
    std::string reason;
};

struct CollectedResults
{
    std::vector<ModuleRecord> records;
    std::vector<SkippedFile>  skipped;
    size_t                    filesRead       = 0;
    size_t                    persistMerged   = 0; // persist records that gave a report its gains
    size_t                    persistUnpaired = 0; // good persist records without a report beside them
};

// Reads the node's report text; the limit judges its SR (the report does not carry one). A report
// of a calibration (isGyroGainCalibrate 1) means the module failed at its base gains: the node
// searches only below the limit. False with a reason for anything that is not such a report.
bool RecordFromNodeReport(const std::string& text, const std::string& moduleId, double limitDb,
                          ModuleRecord* pRecord, std::string* pReason);

// The module ID a file stands for: its folder's name for the node's report and persist files,
// otherwise the file name without its extension.
std::string ModuleIdOfPath(const std::string& path);

// Reads every path (files or folders); the records come in path order.
CollectedResults CollectResults(const std::vector<std::string>& paths, double limitDb);

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_RESULTREADER_H
