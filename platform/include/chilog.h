// CHI log system (libchilog): the framework's log sink and its per-level group enable masks.
#ifndef ZELK_PLATFORM_CHILOG_H
#define ZELK_PLATFORM_CHILOG_H

#include "chitypes.h"
#include "chiplatformapi.h"

// Index into g_chiLogGroupEnable by level.
static const UINT32 ChiLogLevelError   = 0;
static const UINT32 ChiLogLevelWarning = 1;
static const UINT32 ChiLogLevelInfo    = 2;
static const UINT32 ChiLogLevelVerbose = 3;

// Group bit of CHI nodes.
static const UINT32 ChiLogGroupChiNode = 0x800;

extern CHI_PLATFORM_API UINT32 g_chiLogGroupEnable[4];
extern CHI_PLATFORM_API BOOL   g_enableSystemLog;

class CHI_PLATFORM_API ChiLog
{
public:
    static void LogSystem(const CHAR* pLevelText,
                          CHAR        levelLetter,
                          const CHAR* pGroupText,
                          const CHAR* pFileName,
                          const CHAR* pFuncName,
                          INT32       line,
                          const CHAR* pFormat,
                          ...) __attribute__((format(printf, 7, 8)));
};

#endif // ZELK_PLATFORM_CHILOG_H
