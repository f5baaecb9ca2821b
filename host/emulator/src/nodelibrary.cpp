// Node library loader; see nodelibrary.h.
#include "chihost/emulator/nodelibrary.h"

#include <dlfcn.h>

#include <cstring>
#include <filesystem>

namespace chihost
{

const char* const kNodeEntrySymbol = "ChiNodeEntry";

namespace fs = std::filesystem;

namespace
{

// The entry may fill any of the 37 slots that follow the three header words.
bool AnySlotFilled(const CHINODECALLBACKS& callbacks)
{
    const size_t kSlotsOffset = offsetof(CHINODECALLBACKS, pGetCapabilities);
    const size_t kSlotCount   = (sizeof(CHINODECALLBACKS) - kSlotsOffset) / sizeof(void*);
    for (size_t slot = 0; slot < kSlotCount; ++slot)
    {
        void* pSlot = nullptr;
        memcpy(&pSlot,
               reinterpret_cast<const char*>(&callbacks) + kSlotsOffset + slot * sizeof(void*),
               sizeof(void*));
        if (pSlot != nullptr)
        {
            return true;
        }
    }
    return false;
}

std::string LoaderError()
{
    const char* pText = dlerror();
    return (pText != nullptr) ? pText : "unknown loader error";
}

} // namespace

NodeLibrary::NodeLibrary()
{
    memset(&m_callbacks, 0, sizeof(m_callbacks));
}

NodeLibrary::~NodeLibrary()
{
    Unload();
}

Status NodeLibrary::Load(const std::string& path)
{
    if (IsLoaded())
    {
        return Status::Error("node library " + m_path + " is already loaded; cannot load " + path);
    }
    std::error_code error;
    if (path.empty() || !fs::is_regular_file(path, error))
    {
        return Status::Error("node library not found: " + path);
    }
    // An absolute path keeps the mapping independent of later working-directory changes and of
    // the loader's search path (a bare file name would be searched for, not taken as given).
    std::string absolute = fs::absolute(path, error).lexically_normal().string();
    if (error)
    {
        absolute = path;
    }

    void* handle = dlopen(absolute.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr)
    {
        return Status::Error("cannot load node library " + absolute + ": " + LoaderError());
    }
    (void)dlerror();
    void* pEntry = dlsym(handle, kNodeEntrySymbol);
    if (pEntry == nullptr)
    {
        dlclose(handle);
        return Status::Error("node library " + absolute + " does not export " + kNodeEntrySymbol);
    }

    CHINODECALLBACKS callbacks;
    memset(&callbacks, 0, sizeof(callbacks));
    callbacks.size = sizeof(CHINODECALLBACKS);
    reinterpret_cast<PFNCHINODEENTRY>(pEntry)(&callbacks);

    m_handle      = handle;
    m_path        = absolute;
    m_callbacks   = callbacks;
    Status status = CheckCallbacks();
    if (!status)
    {
        Unload();
    }
    return status;
}

Status NodeLibrary::CheckCallbacks() const
{
    if (!AnySlotFilled(m_callbacks))
    {
        return Status::Error(std::string(kNodeEntrySymbol) + " of " + m_path +
                             " left the callback table empty");
    }
    if ((m_callbacks.pCreate == nullptr) || (m_callbacks.pDestroy == nullptr))
    {
        return Status::Error(std::string(kNodeEntrySymbol) + " of " + m_path +
                             " did not provide pCreate and pDestroy");
    }
    return Status::Ok();
}

void NodeLibrary::Unload()
{
    if (m_handle != nullptr)
    {
        dlclose(m_handle);
    }
    m_handle = nullptr;
    m_path.clear();
    memset(&m_callbacks, 0, sizeof(m_callbacks));
}

} // namespace chihost
