// Host-kit controls of the Android system property store, loaded from <root>/vendor/build.prop.
#ifndef ZELK_CHIHOST_HOSTPROPERTIES_H
#define ZELK_CHIHOST_HOSTPROPERTIES_H

#include "chiplatformapi.h"

#define CHIHOST_BUILD_PROP_PATH "/vendor/build.prop"

extern "C" {
// Empties the store and reads build.prop again. Returns the number of properties loaded, or -1
// when the file is absent (empty store).
CHI_PLATFORM_API int  ChiHostPropertiesReload(void);
// Empties the store; the file is not read again until ChiHostPropertiesReload.
CHI_PLATFORM_API void ChiHostPropertiesClear(void);
}

#endif // ZELK_CHIHOST_HOSTPROPERTIES_H
