// The lines of an OIS calibration persist file as the tool shows them: a record's fields with
// control and non-ASCII bytes escaped and whether its stored CRC matches the CRC of its first four
// columns, or why a line is not a record. Shared by "oisverify persist" and the persist record a
// calibration run reports.
#ifndef ZELK_TOOLS_OISVERIFY_PERSISTRECORDS_H
#define ZELK_TOOLS_OISVERIFY_PERSISTRECORDS_H

#include <stddef.h>

#include <string>

#include "oiscalibrationfile.h"

namespace oisverify
{

// Text on one line: printable ASCII as is, anything else (and '\' and '"') as \xNN.
std::string ShownField(const std::string& text);

// Whether the line is a record (five columns).
bool IsRecord(const OISPersistLine& line);
// Whether the line is a record whose stored CRC matches the computed one.
bool HasGoodCrc(const OISPersistLine& line);

// "line N  ok   fuse id ... crc stored S, computed C", or "line N  not a record: ..."; no newline.
std::string DescribePersistLine(size_t number, const OISPersistLine& line);

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_PERSISTRECORDS_H
