// Module records as a CSV table, one row per module, numbers with fixed precision.
#ifndef ZELK_TOOLS_OISVERIFY_RECORDIO_H
#define ZELK_TOOLS_OISVERIFY_RECORDIO_H

#include <string>
#include <vector>

#include "yield/modulerecord.h"

namespace oisverify
{

std::string RecordCsvHeader();
std::string RecordToCsvRow(const ModuleRecord& record);

// A CSV field: quoted when it holds a comma, quote or line break.
std::string CsvField(const std::string& text);

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_RECORDIO_H
