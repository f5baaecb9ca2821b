// Captures what a node logs, through both of its sinks: the CHI log (ChiLog::LogSystem) and the
// Android log (liblog). Lines are kept in arrival order so tests and tools can check content,
// level, function name and which sink saw a line first. While a capture is alive the CHI log's
// stderr echo is off unless asked for, and liblog's output goes to the capture only. One capture
// at a time per process.
#ifndef ZELK_CHIHOST_EMULATOR_LOGCAPTURE_H
#define ZELK_CHIHOST_EMULATOR_LOGCAPTURE_H

#include <mutex>
#include <string>
#include <vector>

#include "chihost/emulator/status.h"

struct ChiHostLogRecord;
struct __android_logger_data;

namespace chihost
{

struct CHIHOST_EMULATOR_API CapturedLine
{
    enum Sink { ChiLog, AndroidLog } sink;
    char        level;    // E, W, I, V (Android lines: from the priority; verbose and info are I)
    std::string function; // CHI log only
    std::string file;     // CHI log only
    int         line = 0; // CHI log only
    std::string message;  // CHI log: the message; Android log: the whole formatted text
    std::string tag;      // Android log only
};

class CHIHOST_EMULATOR_API LogCapture
{
public:
    // echo: also print every captured line to stderr as it arrives.
    explicit LogCapture(bool echo = false);
    ~LogCapture();
    LogCapture(const LogCapture&)            = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<CapturedLine> Lines() const;
    // CHI log lines whose message equals text exactly.
    std::vector<CapturedLine> ChiLines(const std::string& message) const;
    // CHI log lines whose message starts with prefix.
    std::vector<CapturedLine> ChiLinesStartingWith(const std::string& prefix) const;
    bool                      HasChiLine(const std::string& message) const;
    bool                      HasChiLine(char level, const std::string& message) const;
    std::vector<std::string>  AndroidTexts() const;
    void                      Clear();

private:
    static void OnChiLog(const ::ChiHostLogRecord* pRecord, void* pContext);
    static void OnAndroidLog(const ::__android_logger_data* pData, const char* pMessage);

    void Add(const CapturedLine& line);

    bool                      m_echo;
    mutable std::mutex        m_mutex;
    std::vector<CapturedLine> m_lines;
};

} // namespace chihost

#endif // ZELK_CHIHOST_EMULATOR_LOGCAPTURE_H
