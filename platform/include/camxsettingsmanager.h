// CamX settings manager (libcamxsettingsmanager): the framework's static settings, read once from
// the override settings file.
#ifndef ZELK_PLATFORM_CAMXSETTINGSMANAGER_H
#define ZELK_PLATFORM_CAMXSETTINGSMANAGER_H

#include "chitypes.h"
#include "chiplatformapi.h"

namespace CamX
{

struct StaticSettings
{
    BOOL   enableOISGyroGainCalibration; // run gyro-gain calibration after a failed verification
    UINT32 logErrorMask;                 // per-level log group enable masks
    UINT32 logWarningMask;
    UINT32 logInfoMask;
    UINT32 logVerboseMask;
    BOOL   enableSystemLog;              // also send log lines to the Android log
};

class CHI_PLATFORM_API SettingsManager
{
public:
    static SettingsManager* GetInstance();
    const StaticSettings*   GetStaticSettings() const;

private:
    SettingsManager();
    StaticSettings m_staticSettings;

    friend struct SettingsManagerAccess;
};

} // namespace CamX

#endif // ZELK_PLATFORM_CAMXSETTINGSMANAGER_H
