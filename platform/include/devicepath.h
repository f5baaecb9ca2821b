// Where an absolute device path lives for this process. On a device a path is itself. Under the
// host kit the directory named by CHIHOST_DEVICE_ROOT plays the device's "/", so "/data/x" maps
// to "<root>/data/x". Node code passes every absolute path through this one helper.
#ifndef ZELK_PLATFORM_DEVICEPATH_H
#define ZELK_PLATFORM_DEVICEPATH_H

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "chitypes.h"

static const char* const ChiHostDeviceRootVariable = "CHIHOST_DEVICE_ROOT";

class DevicePath
{
public:
    explicit DevicePath(const CHAR* pDevicePath)
    {
        m_path[0] = '\0';
        if (NULL == pDevicePath)
        {
            return;
        }
        const CHAR* pRoot = RootFor(pDevicePath);
        int written = snprintf(m_path, sizeof(m_path), "%s%s", pRoot, pDevicePath);
        if ((written < 0) || (static_cast<size_t>(written) >= sizeof(m_path)))
        {
            // A mapped path that does not fit must not turn into a different, shorter path.
            m_path[0] = '\0';
        }
    }

    const CHAR* Get() const { return m_path; }

private:
    static const CHAR* RootFor(const CHAR* pDevicePath)
    {
#ifdef __ANDROID__
        (void)pDevicePath;
        return "";
#else
        const CHAR* pRoot = getenv(ChiHostDeviceRootVariable);
        if ((NULL == pRoot) || ('\0' == pRoot[0]) || ('/' != pDevicePath[0]))
        {
            return "";
        }
        return pRoot;
#endif
    }

    CHAR m_path[4096];
};

#endif // ZELK_PLATFORM_DEVICEPATH_H
