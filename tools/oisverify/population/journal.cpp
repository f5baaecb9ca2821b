// The journal of a population run; see journal.h.
#include "population/journal.h"

#include <stdio.h>

#include <fstream>

#include "yield/summaryrecord.h"

namespace oisverify
{

const char* const kJournalFile   = "modules.jsonl";
const char* const kArgumentsFile = "population.args";

std::string JobKey(const std::string& moduleId, const std::string& setting)
{
    return moduleId + "|" + setting;
}

JournalLines ReadJournalLines(const std::string& path)
{
    JournalLines  journal;
    std::ifstream in(path, std::ios::binary);
    std::string   line, reason;
    while (std::getline(in, line))
    {
        ModuleRecord record;
        if (RecordFromSummaryText(line, &record, &reason))
        {
            journal.lines.push_back(line);
            journal.records.push_back(record);
        }
        else if (!line.empty())
        {
            journal.dropped++;
        }
    }
    return journal;
}

bool RewriteJournal(const std::string& path, const std::vector<std::string>& lines)
{
    const std::string temporary = path + ".tmp";
    FILE*             pFile     = fopen(temporary.c_str(), "wb");
    if (pFile == nullptr)
    {
        return false;
    }
    bool ok = true;
    for (const std::string& line : lines)
    {
        ok = ok && AppendJournal(pFile, line);
    }
    ok = (fclose(pFile) == 0) && ok;
    return ok && rename(temporary.c_str(), path.c_str()) == 0;
}

bool AppendJournal(FILE* pFile, const std::string& line)
{
    const std::string text = line + "\n";
    return fwrite(text.data(), 1, text.size(), pFile) == text.size() && fflush(pFile) == 0;
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
