// Persist-file lines as the tool shows them; see persistrecords.h.
#include "report/persistrecords.h"

#include <stdio.h>

namespace oisverify
{

std::string ShownField(const std::string& text)
{
    std::string shown;
    for (unsigned char c : text)
    {
        if (c >= 0x20 && c < 0x7F && c != '\\' && c != '"')
        {
            shown.push_back(static_cast<char>(c));
            continue;
        }
        char escaped[8];
        snprintf(escaped, sizeof(escaped), "\\x%02X", c);
        shown += escaped;
    }
    return shown;
}

bool IsRecord(const OISPersistLine& line)
{
    return line.columnCount == OISCalibrationFile::kColumnCount;
}

bool HasGoodCrc(const OISPersistLine& line)
{
    return IsRecord(line) && OISCalibrationFile::GetCrc(&line.record) == line.record.crc;
}

std::string DescribePersistLine(size_t number, const OISPersistLine& line)
{
    char text[160];
    if (!IsRecord(line))
    {
        snprintf(text, sizeof(text), "line %zu  not a record: %d column%s, a record has %d  \"", number,
                 line.columnCount, (line.columnCount == 1) ? "" : "s", OISCalibrationFile::kColumnCount);
        return text + ShownField(line.text) + "\"";
    }
    const OISCalData& record   = line.record;
    const uint16_t    computed = OISCalibrationFile::GetCrc(&record);
    snprintf(text, sizeof(text), "line %zu  %-3s  fuse id \"", number, (computed == record.crc) ? "ok" : "bad");
    std::string described = text + ShownField(record.fuseId) + "\"  flag \"" + ShownField(record.calibFlag) +
                            "\"  gains \"" + ShownField(record.gainX) + "\", \"" + ShownField(record.gainY) + "\"";
    snprintf(text, sizeof(text), "  crc stored %u, computed %u", static_cast<unsigned>(record.crc),
             static_cast<unsigned>(computed));
    return described + text;
}

} // namespace oisverify
