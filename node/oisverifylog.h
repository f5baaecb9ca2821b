// Logging of the node. Every line belongs to the "[ChiNode]" group (bit 0x800 of the host's
// per-level enable masks); a disabled line is never formatted. An enabled line goes first to the
// Android log (tag "OisVerify") when the host's system-log switch is 1, then to the host's CHI log.
// The function name printed is that of the operation that logs, the file name its base name. A
// private helper that logs on behalf of an operation names that operation with the *_IN macros
// (OIS_LOG_ERROR_IN("Initialize", ...)), so tools that grep by operation find every line of it.
#ifndef ZELK_NODE_OISVERIFYLOG_H
#define ZELK_NODE_OISVERIFYLOG_H

#include "androidservices.h"
#include "chilog.h"

#define OIS_LOG_TAG   "OisVerify"
#define OIS_LOG_GROUP "[ChiNode]"

#if defined(__FILE_NAME__)
#define OIS_LOG_FILE __FILE_NAME__
#else
#define OIS_LOG_FILE OisLogBaseName(__FILE__)
static inline const char* OisLogBaseName(const char* pPath)
{
    const char* pBase = pPath;
    for (const char* p = pPath; *p != '\0'; ++p)
    {
        if ('/' == *p)
        {
            pBase = p + 1;
        }
    }
    return pBase;
}
#endif

#define OIS_LOG_AS(func, levelIndex, levelText, letter, priority, fmt, ...)                        \
    do                                                                                             \
    {                                                                                              \
        if (0 != (g_chiLogGroupEnable[levelIndex] & ChiLogGroupChiNode))                           \
        {                                                                                          \
            if (1 == g_enableSystemLog)                                                            \
            {                                                                                      \
                __android_log_print(priority, OIS_LOG_TAG, levelText "%s %s:%d %s() " fmt "\n",    \
                                    OIS_LOG_GROUP, OIS_LOG_FILE, __LINE__, func,                   \
                                    ##__VA_ARGS__);                                                \
            }                                                                                      \
            ChiLog::LogSystem(levelText, letter, OIS_LOG_GROUP, OIS_LOG_FILE, func, __LINE__,      \
                              fmt, ##__VA_ARGS__);                                                 \
        }                                                                                          \
    } while (0)

#define OIS_LOG_ERROR_IN(func, fmt, ...) \
    OIS_LOG_AS(func, ChiLogLevelError, "[ERROR]", 'E', ANDROID_LOG_ERROR, fmt, ##__VA_ARGS__)
#define OIS_LOG_WARN_IN(func, fmt, ...) \
    OIS_LOG_AS(func, ChiLogLevelWarning, "[ WARN]", 'W', ANDROID_LOG_WARN, fmt, ##__VA_ARGS__)
#define OIS_LOG_INFO_IN(func, fmt, ...) \
    OIS_LOG_AS(func, ChiLogLevelInfo, "[ INFO]", 'I', ANDROID_LOG_INFO, fmt, ##__VA_ARGS__)
#define OIS_LOG_VERBOSE_IN(func, fmt, ...) \
    OIS_LOG_AS(func, ChiLogLevelVerbose, "[VERBOSE]", 'V', ANDROID_LOG_INFO, fmt, ##__VA_ARGS__)

// Lines logged by the operation's own function.
#define OIS_LOG_ERROR(fmt, ...)   OIS_LOG_ERROR_IN(__func__, fmt, ##__VA_ARGS__)
#define OIS_LOG_WARN(fmt, ...)    OIS_LOG_WARN_IN(__func__, fmt, ##__VA_ARGS__)
#define OIS_LOG_INFO(fmt, ...)    OIS_LOG_INFO_IN(__func__, fmt, ##__VA_ARGS__)
#define OIS_LOG_VERBOSE(fmt, ...) OIS_LOG_VERBOSE_IN(__func__, fmt, ##__VA_ARGS__)

#endif // ZELK_NODE_OISVERIFYLOG_H
