// Host-kit controls of the CamX static settings, read from
// <root>/vendor/etc/camera/camxoverridesettings.txt.
#ifndef ZELK_CHIHOST_HOSTSETTINGS_H
#define ZELK_CHIHOST_HOSTSETTINGS_H

#include "chiplatformapi.h"

#define CHIHOST_OVERRIDE_SETTINGS_PATH "/vendor/etc/camera/camxoverridesettings.txt"

extern "C" {
// Resets every setting to its default and reads the override file again (also pushes the log
// settings into the log globals). Returns the number of settings applied, or -1 when the file is
// absent (defaults in force).
CHI_PLATFORM_API int ChiHostSettingsReload(void);
}

#endif // ZELK_CHIHOST_HOSTSETTINGS_H
