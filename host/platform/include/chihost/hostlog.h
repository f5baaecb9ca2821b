// Host-kit controls of the CHI log system: where its lines go besides stderr.
#ifndef ZELK_CHIHOST_HOSTLOG_H
#define ZELK_CHIHOST_HOSTLOG_H

#include "chiplatformapi.h"

extern "C" {

struct ChiHostLogRecord
{
    const char* pLevelText;  // "[ERROR]", "[ WARN]", "[ INFO]", "[VERBOSE]"
    char        levelLetter; // E, W, I, V
    const char* pGroupText;  // e.g. "[ChiNode]"
    const char* pFileName;
    const char* pFuncName;
    int         line;
    const char* pMessage;    // formatted message, no trailing newline added
};

typedef void (*ChiHostLogSink)(const ChiHostLogRecord* pRecord, void* pContext);

// Every ChiLog::LogSystem line is also handed to the sink (null removes it). The sink may be
// called from any thread that logs.
CHI_PLATFORM_API void ChiHostLogSetSink(ChiHostLogSink sink, void* pContext);

// Whether lines are echoed to stderr in logcat style (default on, CHIHOST_LOG_QUIET=1 turns it off).
CHI_PLATFORM_API void ChiHostLogSetEcho(int enable);

// Applies the log masks and system-log switch of the static settings to the log globals.
CHI_PLATFORM_API void ChiHostLogApplySettings(unsigned errorMask, unsigned warningMask,
                                              unsigned infoMask, unsigned verboseMask,
                                              int enableSystemLog);
}

#endif // ZELK_CHIHOST_HOSTLOG_H
