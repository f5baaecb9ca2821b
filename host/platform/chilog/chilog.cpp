// Host build of the CHI log system. The node's log macros check the per-level group masks and
// call ChiLog::LogSystem; here each line is formatted in full, echoed to stderr in logcat's
// "threadtime" layout (which is where a device would show it) and handed to an optional sink so
// that tests and tools can look at what the node logged.
#include "chilog.h"

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <string>

#include "chihost/hostlog.h"

UINT32 g_chiLogGroupEnable[4] = {0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF};
BOOL   g_enableSystemLog      = TRUE;

namespace
{

// Tag logcat shows for the framework's lines.
const char* const kLogTag = "CHI";

bool EchoEnabledAtLoad()
{
    const char* pQuiet = getenv("CHIHOST_LOG_QUIET");
    return !((nullptr != pQuiet) && (0 == strcmp(pQuiet, "1")));
}

std::atomic<bool> g_echoEnabled{EchoEnabledAtLoad()};

// One lock orders whole lines: a line is echoed and handed to the sink before the next begins.
// It is recursive so that a sink that itself logs does not deadlock; such nested lines are echoed
// but not handed back to the sink, which would otherwise recurse without end.
std::recursive_mutex g_logLock;
ChiHostLogSink       g_sink        = nullptr;
void*                g_pSinkContext = nullptr;
thread_local bool    t_insideSink  = false;

const char* OrEmpty(const char* pText)
{
    return (nullptr != pText) ? pText : "";
}

std::string FormatMessage(const char* pFormat, va_list args)
{
    if (nullptr == pFormat)
    {
        return std::string();
    }
    va_list measureArgs;
    va_copy(measureArgs, args);
    int length = vsnprintf(nullptr, 0, pFormat, measureArgs);
    va_end(measureArgs);
    if (length <= 0)
    {
        return std::string();
    }
    std::string message(static_cast<size_t>(length) + 1, '\0');
    vsnprintf(&message[0], message.size(), pFormat, args);
    message.resize(static_cast<size_t>(length));
    return message;
}

// "MM-DD HH:MM:SS.mmm" in local time, as logcat prints it.
std::string LogcatTimestamp()
{
    struct timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    struct tm local = {};
    localtime_r(&now.tv_sec, &local);
    char text[32];
    size_t used = strftime(text, sizeof(text), "%m-%d %H:%M:%S", &local);
    snprintf(text + used, sizeof(text) - used, ".%03ld", now.tv_nsec / 1000000L);
    return text;
}

const char* BaseName(const char* pPath)
{
    const char* pSlash = strrchr(pPath, '/');
    return (nullptr != pSlash) ? (pSlash + 1) : pPath;
}

void EchoLine(const ChiHostLogRecord& record)
{
    char prefix[96];
    snprintf(prefix, sizeof(prefix), "%s %5d %5d %c %-8s: ", LogcatTimestamp().c_str(),
             static_cast<int>(getpid()), static_cast<int>(gettid()), record.levelLetter, kLogTag);

    std::string line(prefix);
    line += record.pLevelText;
    line += record.pGroupText;
    line += ' ';
    line += BaseName(record.pFileName);
    line += ':' + std::to_string(record.line) + ' ';
    line += record.pFuncName;
    line += "() ";
    line += record.pMessage;
    if (line.empty() || ('\n' != line.back()))
    {
        line += '\n';
    }
    // One write per line keeps lines whole even against writers outside this library.
    fwrite(line.data(), 1, line.size(), stderr);
    fflush(stderr);
}

} // namespace

void ChiLog::LogSystem(const CHAR* pLevelText,
                       CHAR        levelLetter,
                       const CHAR* pGroupText,
                       const CHAR* pFileName,
                       const CHAR* pFuncName,
                       INT32       line,
                       const CHAR* pFormat,
                       ...)
{
    va_list args;
    va_start(args, pFormat);
    std::string message = FormatMessage(pFormat, args);
    va_end(args);

    ChiHostLogRecord record = {};
    record.pLevelText       = OrEmpty(pLevelText);
    record.levelLetter      = ('\0' != levelLetter) ? levelLetter : '?';
    record.pGroupText       = OrEmpty(pGroupText);
    record.pFileName        = OrEmpty(pFileName);
    record.pFuncName        = OrEmpty(pFuncName);
    record.line             = line;
    record.pMessage         = message.c_str();

    std::lock_guard<std::recursive_mutex> guard(g_logLock);
    if (g_echoEnabled.load(std::memory_order_relaxed))
    {
        EchoLine(record);
    }
    if ((nullptr != g_sink) && !t_insideSink)
    {
        t_insideSink = true;
        g_sink(&record, g_pSinkContext);
        t_insideSink = false;
    }
}

extern "C" {

void ChiHostLogSetSink(ChiHostLogSink sink, void* pContext)
{
    std::lock_guard<std::recursive_mutex> guard(g_logLock);
    g_sink         = sink;
    g_pSinkContext = pContext;
}

void ChiHostLogSetEcho(int enable)
{
    g_echoEnabled.store(0 != enable, std::memory_order_relaxed);
}

// The node reads these globals without a lock, as it does on a device; the stores are single
// aligned words, so a reader sees either the old or the new mask.
void ChiHostLogApplySettings(unsigned errorMask,
                             unsigned warningMask,
                             unsigned infoMask,
                             unsigned verboseMask,
                             int      enableSystemLog)
{
    __atomic_store_n(&g_chiLogGroupEnable[ChiLogLevelError], errorMask, __ATOMIC_RELAXED);
    __atomic_store_n(&g_chiLogGroupEnable[ChiLogLevelWarning], warningMask, __ATOMIC_RELAXED);
    __atomic_store_n(&g_chiLogGroupEnable[ChiLogLevelInfo], infoMask, __ATOMIC_RELAXED);
    __atomic_store_n(&g_chiLogGroupEnable[ChiLogLevelVerbose], verboseMask, __ATOMIC_RELAXED);
    __atomic_store_n(&g_enableSystemLog, (0 != enableSystemLog) ? TRUE : FALSE, __ATOMIC_RELAXED);
}

} // extern "C"
