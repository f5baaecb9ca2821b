// Loading the OIS calibration persist file the way the device's calibration service does: the
// node's own reader splits the lines, and every record must carry the CRC of its first four
// columns before its gains are used. See calibrationservice.h.
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <android/log.h>

#include "chihost/services/calibrationservice.h"
#include "oiscalibrationfile.h"
#include "persistfileio.h"

namespace chihost
{

namespace
{

const char kLogTag[] = "OisCalibrationService";

// A gain column must be a number and nothing else; the node writes "%f" text.
bool ParseGain(const std::string& text, float* pGain)
{
    if (text.empty() || (strlen(text.c_str()) != text.size()))
    {
        return false;
    }
    char* pEnd = nullptr;
    errno      = 0;
    *pGain     = strtof(text.c_str(), &pEnd);
    return (*pEnd == '\0') && (errno == 0);
}

void Reject(CalibrationSnapshot* pSnapshot, int line, const std::string& fuseId, const std::string& reason)
{
    __android_log_print(ANDROID_LOG_ERROR, kLogTag, "persist file line %d (fuse id \"%s\"): %s; not applied",
                        line, fuseId.c_str(), reason.c_str());
    pSnapshot->rejected.push_back({ line, fuseId, reason });
}

void ApplyRecord(CalibrationSnapshot* pSnapshot, int line, const OISCalData& record)
{
    const uint16_t computed = OISCalibrationFile::GetCrc(&record);
    if (computed != record.crc)
    {
        Reject(pSnapshot, line, record.fuseId,
               "crc " + std::to_string(record.crc) + " stored, " + std::to_string(computed) + " computed");
        return;
    }
    ModuleGyroGain gain;
    if (!ParseGain(record.gainX, &gain.gainX) || !ParseGain(record.gainY, &gain.gainY))
    {
        Reject(pSnapshot, line, record.fuseId,
               "gains \"" + record.gainX + "\", \"" + record.gainY + "\" are not numbers");
        return;
    }
    if (pSnapshot->gains.count(record.fuseId) != 0)
    {
        Reject(pSnapshot, line, record.fuseId,
               "duplicate of line " + std::to_string(pSnapshot->gains[record.fuseId].line));
        return;
    }
    gain.fuseId     = record.fuseId;
    gain.calibrated = (record.calibFlag == "1");
    gain.line       = line;
    pSnapshot->gains[record.fuseId] = gain;
}

} // namespace

CalibrationSnapshot LoadCalibrationSnapshot(const std::string& path, uint64_t generation)
{
    CalibrationSnapshot snapshot;
    snapshot.generation = generation;
    // Opened as the node opens it: never blocking, regular files of bounded size only.
    int                     fd     = -1;
    int                     error  = 0;
    const PersistOpenResult opened = OpenPersistForReading(path.c_str(), &fd, &error);
    if (opened == PersistOpenResult::Missing)
    {
        __android_log_print(ANDROID_LOG_INFO, kLogTag, "no persist file %s (%s); default gains for every module",
                            path.c_str(), strerror(error));
        return snapshot;
    }
    std::vector<OISPersistLine> lines;
    if (opened == PersistOpenResult::Opened)
    {
        PersistLineReader reader(DescriptorSource(fd));
        std::string       text;
        bool              tooLong = false;
        while (reader.Next(&text, &tooLong))
        {
            lines.push_back(OISCalibrationFile::MakePersistLine(text, tooLong));
        }
        close(fd);
        snapshot.fileRead = !reader.Failed();
    }
    if (!snapshot.fileRead)
    {
        const char* pWhy = (opened == PersistOpenResult::NotRegular) ? "not a regular file"
                           : (opened == PersistOpenResult::TooLarge) ? "too large"
                                                                       : "read error";
        __android_log_print(ANDROID_LOG_ERROR, kLogTag, "cannot read persist file %s (%s); default gains for every module",
                            path.c_str(), pWhy);
        return snapshot;
    }

    for (size_t index = 0; index < lines.size(); index++)
    {
        const int lineNumber = static_cast<int>(index + 1);
        if (lines[index].tooLong)
        {
            Reject(&snapshot, lineNumber, "", "longer than " + std::to_string(kMaxPersistLineBytes) + " bytes");
            continue;
        }
        if (lines[index].columnCount != OISCalibrationFile::kColumnCount)
        {
            Reject(&snapshot, lineNumber, "",
                   std::to_string(lines[index].columnCount) + " columns, a record has " +
                       std::to_string(OISCalibrationFile::kColumnCount));
            continue;
        }
        ApplyRecord(&snapshot, lineNumber, lines[index].record);
    }
    __android_log_print(ANDROID_LOG_INFO, kLogTag, "loaded %s: %zu module gains applied, %zu lines rejected",
                        path.c_str(), snapshot.gains.size(), snapshot.rejected.size());
    return snapshot;
}

} // namespace chihost
