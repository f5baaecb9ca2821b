// Host build of the Android system property calls. Properties live in one in-process store,
// filled on first use from the device's build.prop and changed by property_set. The device's
// rules hold: a value has at most PROPERTY_VALUE_MAX - 1 bytes, and an empty value is the same as
// no value at all. One lock guards the store; the node, the emulator and the calibration service
// may use it from different threads.
#include "androidservices.h"

#include <stdio.h>
#include <string.h>

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "chihost/hostproperties.h"
#include "devicepath.h"
#include "keyvaluefile.h"

namespace
{

const size_t kMaxValueBytes = PROPERTY_VALUE_MAX - 1; // room for the terminating NUL

std::mutex                         g_storeLock;
std::map<std::string, std::string> g_store;
bool                               g_storeLoaded = false;

// Stores or, for an empty value, removes one property. The caller holds the lock and has checked
// the value's length.
void StoreLocked(const std::string& name, const std::string& value)
{
    if (value.empty())
    {
        g_store.erase(name);
    }
    else
    {
        g_store[name] = value;
    }
}

bool LoadLine(const char* pPath, const ChiHost::KeyValueLine& line)
{
    if (!line.hasEquals || line.name.empty())
    {
        fprintf(stderr, "chihost: %s:%d: malformed line \"%s\" (expected name=value); ignored\n",
                pPath, line.lineNumber, ChiHost::LineText(line).c_str());
        return false;
    }
    if (line.value.size() > kMaxValueBytes)
    {
        fprintf(stderr,
                "chihost: %s:%d: value of %s is %zu bytes, more than the %zu a property can hold; "
                "ignored\n",
                pPath, line.lineNumber, line.name.c_str(), line.value.size(), kMaxValueBytes);
        return false;
    }
    StoreLocked(line.name, line.value);
    return true;
}

// Empties the store and fills it from build.prop. Returns the number of properties held
// afterwards, or -1 when the file is absent or unreadable. Caller holds the lock.
int ReloadLocked()
{
    g_store.clear();
    g_storeLoaded = true;
    DevicePath                         path(CHIHOST_BUILD_PROP_PATH);
    std::vector<ChiHost::KeyValueLine> lines;
    std::string                        error;
    ChiHost::KeyValueFileStatus        status = ChiHost::ReadKeyValueFile(path.Get(), &lines, &error);
    if (ChiHost::KeyValueFileStatus::Absent == status)
    {
        fprintf(stderr, "chihost: property file \"%s\" not found (%s); no properties are set\n",
                path.Get(), error.c_str());
        return -1;
    }
    if (ChiHost::KeyValueFileStatus::Unreadable == status)
    {
        fprintf(stderr, "chihost: property file \"%s\" cannot be read (%s); no properties are set\n",
                path.Get(), error.c_str());
        return -1;
    }
    for (const ChiHost::KeyValueLine& line : lines)
    {
        LoadLine(path.Get(), line);
    }
    return static_cast<int>(g_store.size());
}

void EnsureLoadedLocked()
{
    if (!g_storeLoaded)
    {
        ReloadLocked();
    }
}

// Copies at most kMaxValueBytes of pText into a PROPERTY_VALUE_MAX buffer, NUL-terminated.
int CopyValue(char* pValue, const char* pText)
{
    size_t length = strnlen(pText, kMaxValueBytes);
    memcpy(pValue, pText, length);
    pValue[length] = '\0';
    return static_cast<int>(length);
}

} // namespace

extern "C" {

int property_get(const char* key, char* value, const char* default_value)
{
    if (nullptr == value)
    {
        return -1;
    }
    {
        std::lock_guard<std::mutex> guard(g_storeLock);
        EnsureLoadedLocked();
        if (nullptr != key)
        {
            auto found = g_store.find(key);
            if (found != g_store.end())
            {
                return CopyValue(value, found->second.c_str());
            }
        }
    }
    return CopyValue(value, (nullptr != default_value) ? default_value : "");
}

int property_set(const char* key, const char* value)
{
    if ((nullptr == key) || ('\0' == key[0]))
    {
        fprintf(stderr, "chihost: property_set: a property needs a non-empty name\n");
        return -1;
    }
    const char* pValue = (nullptr != value) ? value : "";
    size_t      length = strlen(pValue);
    if (length > kMaxValueBytes)
    {
        fprintf(stderr,
                "chihost: property_set(\"%s\"): value of %zu bytes is longer than the %zu allowed; "
                "not set\n",
                key, length, kMaxValueBytes);
        return -1;
    }
    std::lock_guard<std::mutex> guard(g_storeLock);
    EnsureLoadedLocked();
    StoreLocked(key, pValue);
    return 0;
}

int ChiHostPropertiesReload(void)
{
    std::lock_guard<std::mutex> guard(g_storeLock);
    return ReloadLocked();
}

void ChiHostPropertiesClear(void)
{
    std::lock_guard<std::mutex> guard(g_storeLock);
    g_store.clear();
    g_storeLoaded = true;
}

} // extern "C"
