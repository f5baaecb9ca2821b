// Captures what the node logs, through both of its sinks: the CHI log (ChiLog::LogSystem) and
// the Android log (liblog). Lines are kept in arrival order so tests can check content, level,
// function name and which sink saw a line first.
#ifndef ZELK_TESTS_SUPPORT_LOGCAPTURE_H
#define ZELK_TESTS_SUPPORT_LOGCAPTURE_H

#include <mutex>
#include <string>
#include <vector>

struct ChiHostLogRecord;
struct __android_logger_data;

namespace testsupport
{

struct CapturedLine
{
    enum Sink { ChiLog, AndroidLog } sink;
    char        level;    // E, W, I, V (Android lines: from the priority; verbose and info are I)
    std::string function; // CHI log only
    std::string file;     // CHI log only
    int         line = 0; // CHI log only
    std::string message;  // CHI log: the message; Android log: the whole formatted text
    std::string tag;      // Android log only
};

class LogCapture
{
public:
    LogCapture();
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

    mutable std::mutex        m_mutex;
    std::vector<CapturedLine> m_lines;
};

} // namespace testsupport

#endif // ZELK_TESTS_SUPPORT_LOGCAPTURE_H
