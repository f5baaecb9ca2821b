// Module records as text: one JSON object per line (the population's journal and its per-module
// output; read back by --resume and by "oisverify stats") and a CSV table with one row per module.
// Numbers are written with fixed precision so that the same run gives the same bytes.
#ifndef ZELK_TOOLS_OISVERIFY_RECORDIO_H
#define ZELK_TOOLS_OISVERIFY_RECORDIO_H

#include <string>
#include <vector>

#include "yield/modulerecord.h"

namespace oisverify
{

// One line, without the newline; fields a record does not have are left out.
std::string RecordToJsonLine(const ModuleRecord& record);

// Reads a line RecordToJsonLine wrote; false for anything that is not such an object (a line cut
// short by an interrupted write included).
bool RecordFromJsonLine(const std::string& line, ModuleRecord* pRecord);

std::string RecordCsvHeader();
std::string RecordToCsvRow(const ModuleRecord& record);

// A CSV field: quoted when it holds a comma, quote or line break.
std::string CsvField(const std::string& text);

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_RECORDIO_H
