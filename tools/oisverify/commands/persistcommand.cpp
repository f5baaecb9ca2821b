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

#include "cli/arguments.h"
#include "commands/commands.h"
#include "oiscalibrationfile.h"
#include "report/persistrecords.h"

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

void PrintLine(size_t number, const OISPersistLine& line, PersistTally* pTally)
{
    printf("%s\n", DescribePersistLine(number, line).c_str());
    if (!IsRecord(line))
    {
        pTally->invalid++;
        return;
    }
    (HasGoodCrc(line) ? pTally->good : pTally->bad)++;
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
