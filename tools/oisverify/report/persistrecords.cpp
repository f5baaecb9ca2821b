// Persist-file lines as the tool shows them; see persistrecords.h.
#include "report/persistrecords.h"

#include <errno.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

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

const char* const kAcceptedGainText = "0.5 to 2.0 or 2000 to 17000";

namespace
{

// A gain column as the service reads it: the whole text one number, nothing else.
std::string GainProblem(const char* pAxis, const std::string& text)
{
    char* pEnd = nullptr;
    errno      = 0;
    const float gain = strtof(text.c_str(), &pEnd);
    if (text.empty() || strlen(text.c_str()) != text.size() || *pEnd != '\0' || errno != 0)
    {
        return std::string("gain ") + pAxis + " \"" + ShownField(text) + "\" is not a number";
    }
    if (!std::isfinite(gain))
    {
        return std::string("gain ") + pAxis + " " + ShownField(text) + " is not finite";
    }
    if (!OISCalibrationFile::IsGainInRange(gain))
    {
        return std::string("gain ") + pAxis + " " + ShownField(text) + " is outside " + kAcceptedGainText;
    }
    return std::string();
}

} // namespace

std::vector<std::string> PersistRecordProblems(size_t number, const OISPersistLine& line,
                                               std::map<std::string, size_t>* pFirstLines)
{
    std::vector<std::string> problems;
    const OISCalData&        record = line.record;
    if (!HasGoodCrc(line))
    {
        problems.push_back("crc " + std::to_string(record.crc) + " does not match the record (" +
                           std::to_string(OISCalibrationFile::GetCrc(&record)) + ")");
    }
    if (record.calibFlag != "0" && record.calibFlag != "1")
    {
        problems.push_back("flag \"" + ShownField(record.calibFlag) + "\" is neither 0 nor 1");
    }
    if (record.fuseId.empty())
    {
        problems.push_back("fuse id is empty");
    }
    for (const std::string& problem : { GainProblem("x", record.gainX), GainProblem("y", record.gainY) })
    {
        if (!problem.empty())
        {
            problems.push_back(problem);
        }
    }
    auto first = pFirstLines->emplace(record.fuseId, number);
    if (!first.second)
    {
        problems.push_back("fuse id also on line " + std::to_string(first.first->second) +
                           ": a module has one record");
    }
    return problems;
}

} // namespace oisverify
