// Capture of a node's log lines; see logcapture.h.
#include "chihost/emulator/logcapture.h"

#include <stdio.h>

#include <android/log.h>

#include "chihost/hostlog.h"

namespace chihost
{

namespace
{
LogCapture* g_activeCapture = nullptr;

char LevelOfPriority(int priority)
{
    switch (priority)
    {
        case ANDROID_LOG_ERROR: return 'E';
        case ANDROID_LOG_WARN:  return 'W';
        case ANDROID_LOG_INFO:  return 'I';
        default:                return '?';
    }
}
} // namespace

LogCapture::LogCapture(bool echo)
    : m_echo(echo)
{
    g_activeCapture = this;
    ChiHostLogSetEcho(0);
    ChiHostLogSetSink(&LogCapture::OnChiLog, this);
    __android_log_set_logger(&LogCapture::OnAndroidLog);
}

LogCapture::~LogCapture()
{
    ChiHostLogSetSink(nullptr, nullptr);
    __android_log_set_logger(__android_log_stderr_logger);
    ChiHostLogSetEcho(1);
    g_activeCapture = nullptr;
}

void LogCapture::OnChiLog(const ChiHostLogRecord* pRecord, void* pContext)
{
    auto*        pSelf = static_cast<LogCapture*>(pContext);
    CapturedLine line;
    line.sink     = CapturedLine::ChiLog;
    line.level    = pRecord->levelLetter;
    line.function = (pRecord->pFuncName != nullptr) ? pRecord->pFuncName : "";
    line.file     = (pRecord->pFileName != nullptr) ? pRecord->pFileName : "";
    line.line     = pRecord->line;
    line.message  = (pRecord->pMessage != nullptr) ? pRecord->pMessage : "";
    pSelf->Add(line);
}

void LogCapture::OnAndroidLog(const __android_logger_data* pData, const char* pMessage)
{
    LogCapture* pSelf = g_activeCapture;
    if (pSelf == nullptr)
    {
        return;
    }
    CapturedLine line;
    line.sink    = CapturedLine::AndroidLog;
    line.level   = LevelOfPriority(pData->priority);
    line.tag     = (pData->tag != nullptr) ? pData->tag : "";
    line.message = (pMessage != nullptr) ? pMessage : "";
    pSelf->Add(line);
}

void LogCapture::Add(const CapturedLine& line)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.push_back(line);
    if (m_echo && line.sink == CapturedLine::ChiLog)
    {
        fprintf(stderr, "%c %s:%d %s() %s\n", line.level, line.file.c_str(), line.line, line.function.c_str(),
                line.message.c_str());
    }
}

std::vector<CapturedLine> LogCapture::Lines() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_lines;
}

std::vector<CapturedLine> LogCapture::ChiLines(const std::string& message) const
{
    std::vector<CapturedLine> found;
    for (const CapturedLine& line : Lines())
    {
        if (line.sink == CapturedLine::ChiLog && line.message == message)
        {
            found.push_back(line);
        }
    }
    return found;
}

std::vector<CapturedLine> LogCapture::ChiLinesStartingWith(const std::string& prefix) const
{
    std::vector<CapturedLine> found;
    for (const CapturedLine& line : Lines())
    {
        if (line.sink == CapturedLine::ChiLog && line.message.compare(0, prefix.size(), prefix) == 0)
        {
            found.push_back(line);
        }
    }
    return found;
}

bool LogCapture::HasChiLine(const std::string& message) const
{
    return !ChiLines(message).empty();
}

bool LogCapture::HasChiLine(char level, const std::string& message) const
{
    for (const CapturedLine& line : ChiLines(message))
    {
        if (line.level == level)
        {
            return true;
        }
    }
    return false;
}

std::vector<std::string> LogCapture::AndroidTexts() const
{
    std::vector<std::string> texts;
    for (const CapturedLine& line : Lines())
    {
        if (line.sink == CapturedLine::AndroidLog)
        {
            texts.push_back(line.message);
        }
    }
    return texts;
}

void LogCapture::Clear()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.clear();
}

} // namespace chihost
