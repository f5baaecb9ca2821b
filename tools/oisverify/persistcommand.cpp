// "oisverify persist FILE": checks an OIS calibration persist file as the calibration service
// reads it. One line per line of the file: for a record its fields and whether the stored CRC
// matches the CRC of its first four columns, for anything else why it is not a record; then a
// summary. Exit 0 when every line is a record with a good CRC, 1 otherwise or when the file
// cannot be read, 2 for a usage error.
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <string>
#include <vector>

#include "arguments.h"
#include "commands.h"
#include "oiscalibrationfile.h"

namespace oisverify
{

namespace
{

struct PersistTally
{
    size_t good    = 0;
    size_t bad     = 0;
    size_t invalid = 0; // lines that are not five columns
};

// Fields may hold any byte; show them on one line with control and non-ASCII bytes as \xNN.
std::string Shown(const std::string& text)
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

void PrintLine(size_t number, const OISPersistLine& line, PersistTally* pTally)
{
    if (line.columnCount != OISCalibrationFile::kColumnCount)
    {
        printf("line %zu  not a record: %d column%s, a record has %d  \"%s\"\n", number, line.columnCount,
               (line.columnCount == 1) ? "" : "s", OISCalibrationFile::kColumnCount, Shown(line.text).c_str());
        pTally->invalid++;
        return;
    }
    const OISCalData& record   = line.record;
    const uint16_t    computed = OISCalibrationFile::GetCrc(&record);
    const bool        good     = (computed == record.crc);
    printf("line %zu  %-3s  fuse id \"%s\"  flag \"%s\"  gains \"%s\", \"%s\"  crc stored %u, computed %u\n", number,
           good ? "ok" : "bad", Shown(record.fuseId).c_str(), Shown(record.calibFlag).c_str(),
           Shown(record.gainX).c_str(), Shown(record.gainY).c_str(), static_cast<unsigned>(record.crc),
           static_cast<unsigned>(computed));
    (good ? pTally->good : pTally->bad)++;
}

void PrintUsage(FILE* pOut)
{
    fprintf(pOut,
            "usage: oisverify persist FILE\n\n"
            "Checks an OIS calibration persist file: one line per line of FILE with the record's\n"
            "fields and its CRC verdict (stored against computed), then a summary. Exit status 0\n"
            "when every line is a record with a good CRC, 1 otherwise or when FILE cannot be read.\n");
}

} // namespace

int RunPersist(int argc, char** argv, int first)
{
    if (WantsHelp(argc, argv, first))
    {
        PrintUsage(stdout);
        return 0;
    }
    if (argc - first != 1)
    {
        fprintf(stderr, "oisverify persist: expected exactly one FILE\n\n");
        PrintUsage(stderr);
        return 2;
    }
    const char* pPath = argv[first];
    FILE*       pFile = fopen(pPath, "rb");
    if (pFile == nullptr)
    {
        fprintf(stderr, "oisverify persist: cannot open %s: %s\n", pPath, strerror(errno));
        return 1;
    }
    std::vector<OISPersistLine> lines;
    const bool                  readAll = OISCalibrationFile::ReadPersistLines(pFile, &lines);
    const int                   readErr = errno;
    fclose(pFile);
    if (!readAll)
    {
        fprintf(stderr, "oisverify persist: cannot read %s: %s\n", pPath, strerror(readErr));
        return 1;
    }

    printf("Persist file %s\n", pPath);
    PersistTally tally;
    for (size_t index = 0; index < lines.size(); index++)
    {
        PrintLine(index + 1, lines[index], &tally);
    }
    printf("%zu line%s: %zu record%s, %zu ok, %zu bad crc, %zu not a record\n", lines.size(),
           (lines.size() == 1) ? "" : "s", tally.good + tally.bad, (tally.good + tally.bad == 1) ? "" : "s",
           tally.good, tally.bad, tally.invalid);
    return (tally.bad == 0 && tally.invalid == 0) ? 0 : 1;
}

} // namespace oisverify
