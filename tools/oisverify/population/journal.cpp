// The journal of a population run; see journal.h.
#include "population/journal.h"

#include <stdio.h>

#include <fstream>

#include "yield/recordio.h"

namespace oisverify
{

const char* const kJournalFile   = "modules.jsonl";
const char* const kArgumentsFile = "population.args";

std::string JobKey(const std::string& moduleId, const std::string& setting)
{
    return moduleId + "|" + setting;
}

std::vector<ModuleRecord> ReadJournal(const std::string& path, size_t* pDropped)
{
    std::vector<ModuleRecord> records;
    std::ifstream             in(path, std::ios::binary);
    std::string               line;
    *pDropped = 0;
    while (std::getline(in, line))
    {
        ModuleRecord record;
        if (RecordFromJsonLine(line, &record))
        {
            records.push_back(record);
        }
        else if (!line.empty())
        {
            (*pDropped)++;
        }
    }
    return records;
}

bool RewriteJournal(const std::string& path, const std::vector<ModuleRecord>& records)
{
    const std::string temporary = path + ".tmp";
    FILE*             pFile     = fopen(temporary.c_str(), "wb");
    if (pFile == nullptr)
    {
        return false;
    }
    bool ok = true;
    for (const ModuleRecord& record : records)
    {
        ok = ok && AppendJournal(pFile, record);
    }
    ok = (fclose(pFile) == 0) && ok;
    return ok && rename(temporary.c_str(), path.c_str()) == 0;
}

bool AppendJournal(FILE* pFile, const ModuleRecord& record)
{
    const std::string line = RecordToJsonLine(record) + "\n";
    return fwrite(line.data(), 1, line.size(), pFile) == line.size() && fflush(pFile) == 0;
}

bool SaveArguments(const std::string& path, const std::vector<std::string>& words)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    for (const std::string& word : words)
    {
        out << word << "\n";
    }
    return out.good();
}

bool LoadArguments(const std::string& path, std::vector<std::string>* pWords)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
    {
        return false;
    }
    std::string word;
    pWords->clear();
    while (std::getline(in, word))
    {
        pWords->push_back(word);
    }
    return true;
}

} // namespace oisverify
