// Reading collected results; see resultreader.h.
#include "stats/resultreader.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <sstream>

#include <cjson/cJSON.h>

#include "oiscalibrationfile.h"
#include "report/persistrecords.h"
#include "verdict/verdict.h"
#include "yield/summaryrecord.h"

namespace oisverify
{

const char* const kNodeReportName = "oisVerify.json";

namespace fs = std::filesystem;

namespace
{

// A good persist record and the folder it was found in.
struct PersistEntry
{
    std::string moduleId;
    std::string fuseId;
    double      gainX = 0.0;
    double      gainY = 0.0;
};

std::string PersistFileName()
{
    return fs::path(OISCalibrationFile::kPersistFilePath).filename().string();
}

// The whole of a regular file, refusing anything else before reading from it.
bool ReadRegularFile(const std::string& path, std::string* pText, std::string* pReason)
{
    const int fd = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
    {
        *pReason = std::string("cannot open: ") + strerror(errno);
        return false;
    }
    struct stat info;
    bool        ok = fstat(fd, &info) == 0 && S_ISREG(info.st_mode);
    if (!ok)
    {
        *pReason = "not a regular file";
    }
    else if (static_cast<size_t>(info.st_size) > kMaxResultFileBytes)
    {
        *pReason = "larger than " + std::to_string(kMaxResultFileBytes >> 20) + " MiB";
        ok       = false;
    }
    if (ok)
    {
        pText->resize(static_cast<size_t>(info.st_size));
        size_t done = 0;
        while (done < pText->size())
        {
            const ssize_t n = read(fd, &(*pText)[done], pText->size() - done);
            if (n < 0 && errno == EINTR)
            {
                continue;
            }
            if (n <= 0)
            {
                break;
            }
            done += static_cast<size_t>(n);
        }
        pText->resize(done);
    }
    close(fd);
    return ok;
}

const cJSON* Path(const cJSON* pRoot, std::initializer_list<const char*> keys)
{
    const cJSON* pItem = pRoot;
    for (const char* pKey : keys)
    {
        pItem = cJSON_GetObjectItemCaseSensitive(pItem, pKey);
    }
    return pItem;
}

bool IsJsonName(const std::string& name)
{
    return name.size() > 5 && name.compare(name.size() - 5, 5, ".json") == 0;
}

bool IsJsonLinesName(const std::string& name)
{
    return name.size() > 6 && name.compare(name.size() - 6, 6, ".jsonl") == 0;
}

class Collector
{
public:
    Collector(double limitDb, CollectedResults* pResults) : m_limitDb(limitDb), m_results(*pResults) {}

    void ReadFile(const std::string& path, bool named);
    void Merge();

private:
    void Skip(const std::string& path, const std::string& reason) { m_results.skipped.push_back({ path, reason }); }
    void ReadJson(const std::string& path, const std::string& text);
    void ReadJsonLines(const std::string& path, const std::string& text);
    void ReadPersist(const std::string& path, const std::string& text);
    void Add(ModuleRecord record, const std::string& path);

    double                    m_limitDb;
    CollectedResults&         m_results;
    std::vector<PersistEntry> m_persist;
};

void Collector::Add(ModuleRecord record, const std::string& path)
{
    if (record.id.empty())
    {
        record.id = ModuleIdOfPath(path);
    }
    m_results.records.push_back(std::move(record));
}

// named: the user gave the file itself, so a file of no known kind is worth a line.
void Collector::ReadFile(const std::string& path, bool named)
{
    const std::string name    = fs::path(path).filename().string();
    const bool        persist = (name == PersistFileName());
    if (!persist && !IsJsonName(name) && !IsJsonLinesName(name))
    {
        if (named)
        {
            Skip(path, "not a report, summary, journal or persist file");
        }
        return;
    }
    std::string text, reason;
    if (!ReadRegularFile(path, &text, &reason))
    {
        Skip(path, reason);
        return;
    }
    m_results.filesRead++;
    if (persist)
    {
        ReadPersist(path, text);
    }
    else if (IsJsonLinesName(name))
    {
        ReadJsonLines(path, text);
    }
    else
    {
        ReadJson(path, text);
    }
}

void Collector::ReadJson(const std::string& path, const std::string& text)
{
    cJSON* pRoot = cJSON_ParseWithLength(text.data(), text.size());
    if (!cJSON_IsObject(pRoot))
    {
        cJSON_Delete(pRoot);
        Skip(path, text.empty() ? "empty" : "not JSON, or cut short");
        return;
    }
    const bool nodeReport = cJSON_GetObjectItemCaseSensitive(pRoot, "Result") != nullptr;
    cJSON_Delete(pRoot);
    ModuleRecord record;
    std::string  reason;
    std::string  why;
    const bool   ok     = nodeReport ? RecordFromNodeReport(text, ModuleIdOfPath(path), m_limitDb, &record, &reason)
                                     : RecordFromSummaryText(text, &record, &why);
    if (!ok)
    {
        Skip(path, nodeReport ? reason : "neither the node's report nor a run summary: " + why);
        return;
    }
    Add(record, path);
}

void Collector::ReadJsonLines(const std::string& path, const std::string& text)
{
    std::istringstream in(text);
    std::string        line;
    for (size_t number = 1; std::getline(in, line); number++)
    {
        ModuleRecord record;
        std::string  why;
        if (line.find_first_not_of(" \t\r") == std::string::npos)
        {
            continue;
        }
        if (!RecordFromSummaryText(line, &record, &why))
        {
            Skip(path + ":" + std::to_string(number), "not a run summary (" + why + ")");
            continue;
        }
        Add(record, path);
    }
}

void Collector::ReadPersist(const std::string& path, const std::string& text)
{
    FILE* pFile = fmemopen(const_cast<char*>(text.data()), text.size(), "rb");
    std::vector<OISPersistLine> lines;
    const bool                  read = (pFile != nullptr) && (text.empty() || OISCalibrationFile::ReadPersistLines(pFile, &lines));
    if (pFile != nullptr)
    {
        fclose(pFile);
    }
    if (!read)
    {
        Skip(path, "cannot read the persist file");
        return;
    }
    for (size_t i = 0; i < lines.size(); i++)
    {
        if (!HasGoodCrc(lines[i]))
        {
            Skip(path + ":" + std::to_string(i + 1), DescribePersistLine(i + 1, lines[i]));
            continue;
        }
        const OISCalData& data = lines[i].record;
        m_persist.push_back({ ModuleIdOfPath(path), data.fuseId, atof(data.gainX.c_str()), atof(data.gainY.c_str()) });
    }
}

// Persist records give the report in their folder its fuse ID and, when it has none, its gains.
void Collector::Merge()
{
    std::map<std::string, size_t> byId;
    for (size_t i = 0; i < m_results.records.size(); i++)
    {
        byId.emplace(m_results.records[i].id, i);
    }
    for (const PersistEntry& entry : m_persist)
    {
        const auto it = byId.find(entry.moduleId);
        if (it == byId.end())
        {
            m_results.persistUnpaired++;
            continue;
        }
        ModuleRecord& record = m_results.records[it->second];
        record.fuseId        = entry.fuseId;
        if (!record.hasSelection)
        {
            record.hasSelection = true;
            record.selectedX    = entry.gainX;
            record.selectedY    = entry.gainY;
        }
        m_results.persistMerged++;
    }
}

void CollectFolder(const std::string& folder, std::vector<std::string>* pFiles, CollectedResults* pResults)
{
    std::error_code error;
    fs::recursive_directory_iterator it(folder, fs::directory_options::skip_permission_denied, error), end;
    if (error)
    {
        pResults->skipped.push_back({ folder, "cannot list: " + error.message() });
        return;
    }
    for (; it != end; it.increment(error))
    {
        if (error)
        {
            pResults->skipped.push_back({ folder, "cannot list: " + error.message() });
            break;
        }
        // Symbolic links are not followed; FIFOs and devices are never opened.
        if (it->symlink_status(error).type() == fs::file_type::regular)
        {
            pFiles->push_back(it->path().string());
        }
    }
}

} // namespace

bool RecordFromNodeReport(const std::string& text, const std::string& moduleId, double limitDb,
                          ModuleRecord* pRecord, std::string* pReason)
{
    cJSON* pRoot = cJSON_ParseWithLength(text.data(), text.size());
    const cJSON* pState = Path(pRoot, { "Result", "SR", "oisVerifyState" });
    const cJSON* pHor   = Path(pRoot, { "Result", "SR", "horSR" });
    const cJSON* pVer   = Path(pRoot, { "Result", "SR", "verSR" });
    if (!cJSON_IsNumber(pState) || !cJSON_IsNumber(pHor) || !cJSON_IsNumber(pVer))
    {
        cJSON_Delete(pRoot);
        *pReason = "the node's report without Result.SR (oisVerifyState, horSR, verSR)";
        return false;
    }
    ModuleRecord record;
    record.id         = moduleId;
    record.source     = kNodeReportName;
    record.limitDb    = limitDb;
    record.state      = static_cast<int32_t>(pState->valuedouble);
    record.finished   = record.state == kVerifiedState || record.state < 0;
    record.hasAfter   = true;
    record.afterHorDb = pHor->valuedouble;
    record.afterVerDb = pVer->valuedouble;
    record.passAfter  = record.state == kVerifiedState && record.afterHorDb >= limitDb && record.afterVerDb >= limitDb;
    const cJSON* pCalibrated = Path(pRoot, { "Result", "GyroGainCalibrate", "isGyroGainCalibrate" });
    const cJSON* pGainX      = Path(pRoot, { "Result", "GyroGainCalibrate", "horGain" });
    const cJSON* pGainY      = Path(pRoot, { "Result", "GyroGainCalibrate", "verGain" });
    record.calibrated = cJSON_IsNumber(pCalibrated) && pCalibrated->valuedouble == 1.0;
    record.searched   = record.calibrated;
    if (record.calibrated && cJSON_IsNumber(pGainX) && cJSON_IsNumber(pGainY))
    {
        record.hasSelection = true;
        record.selectedX    = pGainX->valuedouble;
        record.selectedY    = pGainY->valuedouble;
    }
    // Without a search the verdict at the base gains is the final one.
    record.passBefore  = !record.calibrated && record.passAfter;
    record.hasBefore   = !record.calibrated;
    record.beforeHorDb = record.afterHorDb;
    record.beforeVerDb = record.afterVerDb;
    cJSON_Delete(pRoot);
    *pRecord = record;
    return true;
}

std::string ModuleIdOfPath(const std::string& path)
{
    const fs::path    file = fs::path(path);
    const std::string name = file.filename().string();
    if (name == kNodeReportName || name == PersistFileName())
    {
        const std::string folder = fs::absolute(file).lexically_normal().parent_path().filename().string();
        return folder.empty() ? name : folder;
    }
    return file.stem().string();
}

CollectedResults CollectResults(const std::vector<std::string>& paths, double limitDb)
{
    CollectedResults results;
    Collector        collector(limitDb, &results);
    for (const std::string& path : paths)
    {
        std::error_code error;
        const fs::file_status status = fs::status(path, error);
        if (error || !fs::exists(status))
        {
            results.skipped.push_back({ path, "does not exist" });
            continue;
        }
        if (!fs::is_directory(status))
        {
            collector.ReadFile(path, true);
            continue;
        }
        std::vector<std::string> files;
        CollectFolder(path, &files, &results);
        std::sort(files.begin(), files.end());
        for (const std::string& file : files)
        {
            collector.ReadFile(file, false);
        }
    }
    collector.Merge();
    return results;
}

} // namespace oisverify
