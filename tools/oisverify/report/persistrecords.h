// The lines of an OIS calibration persist file as the tool shows them: a record's fields with
// control and non-ASCII bytes escaped and whether its stored CRC matches the CRC of its first four
// columns, or why a line is not a record. Shared by "oisverify persist" and the persist record a
// calibration run reports.
#ifndef ZELK_TOOLS_OISVERIFY_PERSISTRECORDS_H
#define ZELK_TOOLS_OISVERIFY_PERSISTRECORDS_H

#include <stddef.h>

#include <map>
#include <string>
#include <vector>

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

// Everything the node or the calibration service would hold against a record, in words: a CRC
// that does not match, a flag other than "0" or "1", an empty fuse ID, a gain that is no finite
// number or lies outside the node's accepted intervals, a fuse ID seen on an earlier line
// (firstLines maps fuse IDs to the line they were first seen on; the record is added). Empty
// for a good record.
std::vector<std::string> PersistRecordProblems(size_t number, const OISPersistLine& line,
                                               std::map<std::string, size_t>* pFirstLines);

// The gain intervals the node accepts, in words, as the problems name them.
extern const char* const kAcceptedGainText;

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_PERSISTRECORDS_H
