// Fuzz target of the calibration persist-file reader: the input is the file's bytes. Besides
// running under the sanitizers, each input is checked against properties the reader must keep:
//   - the lines read give back the input (line feeds removed, nothing lost or added; a line
//     longer than any record is cut and marked);
//   - every line's columns are those of the standard library's token split at "\s*,\s*" (lines
//     of up to kRegexLineLimit bytes, where the library's recursive matcher is safe);
//   - a record written back and read again gives the same fields and CRC;
//   - the record CRC equals an independent, reflected CRC-16/KERMIT;
//   - the fuse ID taken from the input's first bytes as a property value lies inside that value.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <regex>
#include <string>
#include <vector>

#include "oiscalibrationfile.h"
#include "persistfileio.h"

namespace
{

const size_t kRegexLineLimit  = 256;
const size_t kPropertyValueMax = 92; // property values hold at most 91 bytes and a NUL

void Require(bool condition, const char* pWhat)
{
    if (!condition)
    {
        fprintf(stderr, "persistparser_fuzz: property violated: %s\n", pWhat);
        abort();
    }
}

uint16_t ReflectedKermit(const std::string& bytes)
{
    uint16_t crc = 0;
    for (unsigned char byte : bytes)
    {
        crc ^= byte;
        for (int bit = 0; bit < 8; bit++)
        {
            crc = (crc & 1) ? static_cast<uint16_t>((crc >> 1) ^ 0x8408) : static_cast<uint16_t>(crc >> 1);
        }
    }
    return crc;
}

std::vector<OISPersistLine> ReadLines(const uint8_t* pData, size_t size)
{
    std::vector<OISPersistLine> lines;
    if (size == 0)
    {
        return lines; // fmemopen refuses an empty buffer; an empty file has no lines
    }
    FILE* pFile = fmemopen(const_cast<uint8_t*>(pData), size, "rb");
    Require(pFile != nullptr, "fmemopen");
    Require(OISCalibrationFile::ReadPersistLines(pFile, &lines), "a memory stream reads without error");
    fclose(pFile);
    return lines;
}

// Each line read is the input's next line, cut to kMaxPersistLineBytes and marked too long
// exactly when it is longer.
void CheckLinesRebuildInput(const std::vector<OISPersistLine>& lines, const uint8_t* pData, size_t size)
{
    const std::string input(reinterpret_cast<const char*>(pData), size);
    size_t            start = 0;
    for (const OISPersistLine& line : lines)
    {
        Require(start < input.size(), "no line beyond the input");
        size_t end = input.find('\n', start);
        if (end == std::string::npos)
        {
            end = input.size();
        }
        const std::string text = input.substr(start, end - start);
        Require(line.tooLong == (text.size() > kMaxPersistLineBytes), "too long exactly above the limit");
        Require(line.text == text.substr(0, kMaxPersistLineBytes), "lines give back the input");
        Require(!line.tooLong || line.columnCount == 0, "a line too long is no record");
        start = end + 1;
    }
    Require(start >= input.size(), "every line of the input is read");
}

void CheckColumns(const OISPersistLine& line)
{
    std::vector<std::string> columns;
    OISCalibrationFile::SplitPersistLine(line.text, &columns);
    Require(static_cast<size_t>(line.columnCount) == columns.size(), "column count of the split");
    if (line.text.size() <= kRegexLineLimit)
    {
        static const std::regex kSeparator("\\s*,\\s*", std::regex::ECMAScript);
        std::vector<std::string> expected(
            std::sregex_token_iterator(line.text.begin(), line.text.end(), kSeparator, -1),
            std::sregex_token_iterator());
        Require(columns == expected, "same columns as the regular-expression split");
    }
}

void CheckRecordRoundTrip(const OISCalData& record)
{
    Require(OISCalibrationFile::GetCrc(&record) ==
                ReflectedKermit(record.calibFlag + record.fuseId + record.gainX + record.gainY),
            "record CRC equals the reflected CRC-16/KERMIT");
    std::string written = OISCalibrationFile::FormatRecordLine(record);
    Require(!written.empty() && written.back() == '\n', "a written record ends with a line feed");
    written.pop_back();
    std::vector<std::string> columns;
    OISCalibrationFile::SplitPersistLine(written, &columns);
    Require(columns.size() == 5, "a written record has five columns");
    Require(columns[0] == record.calibFlag && columns[1] == record.fuseId && columns[2] == record.gainX &&
                columns[3] == record.gainY,
            "a written record reads back the same fields");
    Require(OISCalibrationFile::ParseCrcColumn(columns[4]) == record.crc, "a written CRC reads back the same");
    Require(OISCalibrationFile::ReadsBackAs(record), "a record read is one the rewrite accepts");
}

void CheckFuseIdValue(const uint8_t* pData, size_t size)
{
    const size_t limit  = (size < kPropertyValueMax) ? size : kPropertyValueMax - 1;
    const size_t length = strnlen(reinterpret_cast<const char*>(pData), limit);
    const std::string value(reinterpret_cast<const char*>(pData), length);
    std::string       fuseId = "unchanged";
    if (OISCalibrationFile::ParseFuseIdValue(value, &fuseId))
    {
        Require(value.size() >= 8 && value.compare(8, fuseId.size(), fuseId) == 0, "fuse ID lies inside the value");
    }
    else
    {
        Require(fuseId == "unchanged", "a refused value leaves the fuse ID alone");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t size)
{
    const std::vector<OISPersistLine> lines = ReadLines(pData, size);
    CheckLinesRebuildInput(lines, pData, size);
    for (const OISPersistLine& line : lines)
    {
        if (line.tooLong)
        {
            continue;
        }
        CheckColumns(line);
        if (line.columnCount == OISCalibrationFile::kColumnCount)
        {
            CheckRecordRoundTrip(line.record);
        }
    }
    CheckFuseIdValue(pData, size);
    return 0;
}
