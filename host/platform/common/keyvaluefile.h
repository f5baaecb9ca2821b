// Reader for the device's "name=value" text files (build.prop, the override settings file):
// one entry per line, '#' starts a comment line, blank lines are skipped and whitespace around
// the name and the value is dropped. Shared by the property store and the settings manager; the
// callers decide what a name or value means and report problems with the file's path and line.
#ifndef ZELK_CHIHOST_KEYVALUEFILE_H
#define ZELK_CHIHOST_KEYVALUEFILE_H

#include <string>
#include <vector>

namespace ChiHost
{

struct KeyValueLine
{
    int         lineNumber; // 1-based, as an editor shows it
    bool        hasEquals;  // false: the line is malformed and name holds the whole trimmed text
    std::string name;
    std::string value;
};

enum class KeyValueFileStatus
{
    Loaded,
    Absent,
    Unreadable,
};

// Trims spaces, tabs and carriage returns from both ends.
std::string TrimWhitespace(const std::string& text);

// The entry as written (trimmed), for messages about it.
std::string LineText(const KeyValueLine& line);

// Splits one raw line; returns false for blank and comment lines.
bool ParseKeyValueLine(const std::string& rawLine, int lineNumber, KeyValueLine* pLine);

// Reads every entry of pPath into pLines (any line length). pError receives the system's reason
// when the file is absent or cannot be read.
KeyValueFileStatus ReadKeyValueFile(const char*                pPath,
                                    std::vector<KeyValueLine>* pLines,
                                    std::string*               pError);

} // namespace ChiHost

#endif // ZELK_CHIHOST_KEYVALUEFILE_H
