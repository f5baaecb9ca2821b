// The property store of a fuzz run: nothing is set, so every lookup gives its default. The
// calibration library's fuse-ID lookup links against it; the fuzz targets do not reach it.
#include "androidservices.h"

#include <string.h>

extern "C" int property_get(const char* key, char* value, const char* default_value)
{
    (void)key;
    const char* pText  = (default_value != nullptr) ? default_value : "";
    size_t      length = strnlen(pText, PROPERTY_VALUE_MAX - 1);
    memcpy(value, pText, length);
    value[length] = '\0';
    return static_cast<int>(length);
}
