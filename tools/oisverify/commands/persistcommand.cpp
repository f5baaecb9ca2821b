// "oisverify persist FILE": checks an OIS calibration persist file as the node and the
// calibration service read it. One line per line of the file: for a record its fields and either
// "ok" or, in words, everything wrong with it (CRC, flag, fuse ID, gains, a second record of a
// module); for anything else why it is not a record; then a summary. The file is opened without
// blocking and only if it is a regular file, and read line by line with a bounded line length,
// so a FIFO, a device or a huge file cannot hold the command up. Exit 0 when the file has
// records and every line is a good record, 1 otherwise or when the file cannot be read, 2 for a
// usage error.
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>
#include <string>
#include <vector>

#include "cli/arguments.h"
#include "commands/commands.h"
#include "oiscalibrationfile.h"
#include "persistfileio.h"
#include "report/persistrecords.h"

namespace oisverify
{

namespace
{

struct PersistTally
{
    size_t lines    = 0;
    size_t good     = 0;
    size_t badCrc   = 0;
    size_t problems = 0; // records with a good CRC and another problem
    size_t invalid  = 0; // lines that are not records
};

void PrintLine(size_t number, const OISPersistLine& line, std::map<std::string, size_t>* pFirstLines,
               PersistTally* pTally)
{
    pTally->lines++;
    if (line.tooLong)
    {
        printf("line %zu  not a record: longer than %zu bytes, more than any record can be\n", number,
               kMaxPersistLineBytes);
        pTally->invalid++;
        return;
    }
    if (!IsRecord(line))
    {
        printf("%s\n", DescribePersistLine(number, line).c_str());
        pTally->invalid++;
        return;
    }
    const std::vector<std::string> problems = PersistRecordProblems(number, line, pFirstLines);
    std::string                    text     = DescribePersistLine(number, line);
    if (!problems.empty())
    {
        // The verdict word of the description is the CRC's; the line's is "bad" for any problem.
        const size_t verdict = text.find("  ok   ");
        if (verdict != std::string::npos)
        {
            text.replace(verdict, 7, "  bad  ");
        }
        for (size_t i = 0; i < problems.size(); i++)
        {
            text += (i == 0 ? ": " : "; ") + problems[i];
        }
    }
    printf("%s\n", text.c_str());
    if (problems.empty())
    {
        pTally->good++;
    }
    else
    {
        (HasGoodCrc(line) ? pTally->problems : pTally->badCrc)++;
    }
}

void PrintUsage(FILE* pOut)
{
    fprintf(pOut,
            "usage: oisverify persist FILE\n\n"
            "Checks an OIS calibration persist file: one line per line of FILE with the record's\n"
            "fields and its verdict, then a summary. A record is good when its CRC matches, its\n"
            "flag is 0 or 1, its fuse ID is not empty and no earlier record has it, and both gains\n"
            "are finite numbers from %s (the gains the node accepts). Only\n"
            "regular files are read. Exit status 0 when FILE has records and every line is a good\n"
            "record, 1 otherwise or when FILE cannot be read.\n",
            kAcceptedGainText);
}

// Opens FILE for reading without blocking; -1 after saying why not.
int OpenRegularFile(const char* pPath)
{
    int fd = open(pPath, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0)
    {
        fprintf(stderr, "oisverify persist: cannot open %s: %s\n", pPath, strerror(errno));
        return -1;
    }
    struct stat status = {};
    if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode))
    {
        fprintf(stderr, "oisverify persist: %s is not a regular file; a persist file is one\n", pPath);
        close(fd);
        return -1;
    }
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK);
    return fd;
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
    const int   fd    = OpenRegularFile(pPath);
    if (fd < 0)
    {
        return 1;
    }
    printf("Persist file %s\n", pPath);
    PersistLineReader             reader(DescriptorSource(fd));
    PersistTally                  tally;
    std::map<std::string, size_t> firstLines;
    std::string                   text;
    bool                          tooLong = false;
    while (reader.Next(&text, &tooLong))
    {
        PrintLine(tally.lines + 1, OISCalibrationFile::MakePersistLine(text, tooLong), &firstLines, &tally);
    }
    close(fd);
    if (reader.Failed())
    {
        fprintf(stderr, "oisverify persist: cannot read %s after %zu line%s: %s\n", pPath, tally.lines,
                (tally.lines == 1) ? "" : "s", strerror(reader.Error()));
        return 1;
    }
    if (tally.lines == 0)
    {
        printf("%s is empty: it holds no records\n", pPath);
        return 1;
    }
    const size_t records = tally.good + tally.badCrc + tally.problems;
    printf("%zu line%s: %zu record%s, %zu ok, %zu bad crc, %zu with other problems, %zu not a record\n", tally.lines,
           (tally.lines == 1) ? "" : "s", records, (records == 1) ? "" : "s", tally.good, tally.badCrc,
           tally.problems, tally.invalid);
    return (tally.good == records && tally.invalid == 0) ? 0 : 1;
}

} // namespace oisverify
