// Line reader for "name=value" device files; see keyvaluefile.h.
#include "keyvaluefile.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

namespace ChiHost
{

std::string TrimWhitespace(const std::string& text)
{
    static const char* const kWhitespace = " \t\r\n\f\v";
    size_t first = text.find_first_not_of(kWhitespace);
    if (std::string::npos == first)
    {
        return std::string();
    }
    size_t last = text.find_last_not_of(kWhitespace);
    return text.substr(first, last - first + 1);
}

std::string LineText(const KeyValueLine& line)
{
    return line.hasEquals ? (line.name + "=" + line.value) : line.name;
}

bool ParseKeyValueLine(const std::string& rawLine, int lineNumber, KeyValueLine* pLine)
{
    std::string trimmed = TrimWhitespace(rawLine);
    if (trimmed.empty() || ('#' == trimmed[0]))
    {
        return false;
    }
    pLine->lineNumber = lineNumber;
    size_t equals     = trimmed.find('=');
    pLine->hasEquals  = (std::string::npos != equals);
    if (!pLine->hasEquals)
    {
        pLine->name = trimmed;
        pLine->value.clear();
        return true;
    }
    // The first '=' separates; a value may itself contain '='.
    pLine->name  = TrimWhitespace(trimmed.substr(0, equals));
    pLine->value = TrimWhitespace(trimmed.substr(equals + 1));
    return true;
}

KeyValueFileStatus ReadKeyValueFile(const char*                pPath,
                                    std::vector<KeyValueLine>* pLines,
                                    std::string*               pError)
{
    pLines->clear();
    pError->clear();
    // An empty path is what DevicePath gives for a path that does not fit: nothing to read.
    if ((nullptr == pPath) || ('\0' == pPath[0]))
    {
        *pError = "no usable path";
        return KeyValueFileStatus::Absent;
    }
    struct stat info;
    if (0 != stat(pPath, &info))
    {
        *pError = strerror(errno);
        return (ENOENT == errno) ? KeyValueFileStatus::Absent : KeyValueFileStatus::Unreadable;
    }
    if (!S_ISREG(info.st_mode))
    {
        *pError = "not a regular file";
        return KeyValueFileStatus::Unreadable;
    }
    FILE* pFile = fopen(pPath, "r");
    if (nullptr == pFile)
    {
        *pError = strerror(errno);
        return KeyValueFileStatus::Unreadable;
    }

    char*   pBuffer  = nullptr;
    size_t  capacity = 0;
    ssize_t length   = 0;
    int     number   = 0;
    while ((length = getline(&pBuffer, &capacity, pFile)) >= 0)
    {
        number++;
        KeyValueLine entry;
        if (ParseKeyValueLine(std::string(pBuffer, static_cast<size_t>(length)), number, &entry))
        {
            pLines->push_back(entry);
        }
    }
    bool failed = (0 != ferror(pFile));
    free(pBuffer);
    fclose(pFile);
    if (failed)
    {
        *pError = "read error";
        return KeyValueFileStatus::Unreadable;
    }
    return KeyValueFileStatus::Loaded;
}

} // namespace ChiHost
