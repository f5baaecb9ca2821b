// CamX common utilities (libcamxcommonutils): run-time library mapping and the boot-time clock.
#ifndef ZELK_PLATFORM_CAMXOSUTILS_H
#define ZELK_PLATFORM_CAMXOSUTILS_H

#include "chitypes.h"
#include "chiplatformapi.h"

struct CamxTime
{
    UINT32 seconds;
    UINT32 nanoSeconds;
};

namespace CamX
{

class CHI_PLATFORM_API OsUtils
{
public:
    // dlopen(name, RTLD_NOW | RTLD_LOCAL); a relative name resolves against the working directory.
    static void*     LibMap(const CHAR* pLibraryName);
    static void*     LibGetAddr(void* hLibrary, const CHAR* pProcName);
    static CDKResult LibUnmap(void* hLibrary);

    // Time since boot, including suspend.
    static void GetTime(CamxTime* pTime);
};

} // namespace CamX

#endif // ZELK_PLATFORM_CAMXOSUTILS_H
