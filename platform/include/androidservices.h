// Android system services the node uses: system properties, local sockets and the Android log.
// On a device these come from libcutils and liblog; the host kit links Debian's builds of the same
// libraries plus its own property store.
#ifndef ZELK_PLATFORM_ANDROIDSERVICES_H
#define ZELK_PLATFORM_ANDROIDSERVICES_H

#include <android/log.h>
#include <cutils/sockets.h>

#ifdef __ANDROID__
#include <cutils/properties.h>
#else
#include "chiplatformapi.h"

#define PROPERTY_KEY_MAX   32
#define PROPERTY_VALUE_MAX 92

extern "C" {
// Copies the value (or the default when unset or empty) into value, a buffer of
// PROPERTY_VALUE_MAX bytes, and returns its length.
CHI_PLATFORM_API int property_get(const char* key, char* value, const char* default_value);
// 0 on success, negative when the key or the value is not acceptable.
CHI_PLATFORM_API int property_set(const char* key, const char* value);
}
#endif

#endif // ZELK_PLATFORM_ANDROIDSERVICES_H
