// Frequency lists and the command line of each sweep point; see frequencysweep.h.
#include "session/frequencysweep.h"

#include <stdlib.h>

#include <algorithm>
#include <set>

namespace oisverify
{

namespace
{

const char kSweepOption[] = "--sweep-freq";
// Whole Hz as the node's property carries them; the run's own checks limit them further.
constexpr uint32_t kMaxFrequencyHz = 500;

bool ReadWhole(const std::string& text, uint32_t* pValue)
{
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos || text.size() > 6)
    {
        return false;
    }
    *pValue = static_cast<uint32_t>(strtoul(text.c_str(), nullptr, 10));
    return *pValue >= 1 && *pValue <= kMaxFrequencyHz;
}

// One item: F, FROM-TO or FROM-TO/STEP.
bool ReadItem(const std::string& item, std::set<uint32_t>* pOut)
{
    const size_t dash = item.find('-');
    if (dash == std::string::npos)
    {
        uint32_t value = 0;
        if (!ReadWhole(item, &value))
        {
            return false;
        }
        pOut->insert(value);
        return true;
    }
    const size_t slash = item.find('/', dash);
    uint32_t     from = 0, to = 0, step = 1;
    if (!ReadWhole(item.substr(0, dash), &from) ||
        !ReadWhole(item.substr(dash + 1, slash == std::string::npos ? std::string::npos : slash - dash - 1), &to) ||
        (slash != std::string::npos && !ReadWhole(item.substr(slash + 1), &step)) || to < from)
    {
        return false;
    }
    for (uint32_t f = from; f <= to && pOut->size() <= kMaxSweepPoints; f += step)
    {
        pOut->insert(f);
    }
    return true;
}

} // namespace

bool ParseFrequencyList(const std::string& text, std::vector<uint32_t>* pList, std::string* pError)
{
    std::set<uint32_t> frequencies;
    size_t             start = 0;
    while (start <= text.size())
    {
        const size_t      comma = std::min(text.find(',', start), text.size());
        const std::string item  = text.substr(start, comma - start);
        if (!ReadItem(item, &frequencies))
        {
            *pError = "--sweep-freq takes whole frequencies from 1 to 500 Hz and ranges FROM-TO[/STEP], "
                      "comma-separated (e.g. 2,4,8 or 1-12 or 2-20/2), not \"" + item + "\"";
            return false;
        }
        if (frequencies.size() > kMaxSweepPoints)
        {
            *pError = "--sweep-freq " + text + " gives more than " + std::to_string(kMaxSweepPoints) +
                      " frequencies";
            return false;
        }
        start = comma + 1;
    }
    pList->assign(frequencies.begin(), frequencies.end());
    return true;
}

std::vector<std::string> PointArguments(int argc, char** argv, int first, uint32_t frequencyHz)
{
    std::vector<std::string> out;
    for (int i = first; i < argc; i++)
    {
        const std::string word = argv[i];
        if (word == kSweepOption)
        {
            i++; // and its value
            continue;
        }
        if (word.compare(0, sizeof(kSweepOption), std::string(kSweepOption) + "=") == 0)
        {
            continue;
        }
        out.push_back(word);
    }
    out.push_back("--freq");
    out.push_back(std::to_string(frequencyHz));
    return out;
}

} // namespace oisverify
