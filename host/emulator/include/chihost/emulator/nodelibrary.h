// A CHI node library as the camera framework sees it: a shared object mapped with dlopen whose
// only way in is the exported ChiNodeEntry. Loading calls the entry once with a zeroed callback
// table (size 312) and keeps the table the node filled in; the library is unmapped on Unload or
// destruction.
#ifndef ZELK_CHIHOST_EMULATOR_NODELIBRARY_H
#define ZELK_CHIHOST_EMULATOR_NODELIBRARY_H

#include <string>

#include "chinode.h"
#include "chihost/emulator/status.h"

namespace chihost
{

extern CHIHOST_EMULATOR_API const char* const kNodeEntrySymbol; // "ChiNodeEntry"

class CHIHOST_EMULATOR_API NodeLibrary
{
public:
    NodeLibrary();
    ~NodeLibrary();
    NodeLibrary(const NodeLibrary&)            = delete;
    NodeLibrary& operator=(const NodeLibrary&) = delete;

    // Maps the library (RTLD_NOW | RTLD_LOCAL) and runs its entry. Fails with a message naming
    // the path for a missing file, a library the loader rejects, a missing ChiNodeEntry, and an
    // entry that left the table without callbacks or without pCreate and pDestroy.
    Status Load(const std::string& path);
    void   Unload();

    bool                    IsLoaded() const { return m_handle != nullptr; }
    const std::string&      Path() const { return m_path; }
    void*                   Handle() const { return m_handle; }
    const CHINODECALLBACKS& Callbacks() const { return m_callbacks; }

private:
    Status CheckCallbacks() const;

    void*            m_handle = nullptr;
    std::string      m_path;
    CHINODECALLBACKS m_callbacks;
};

} // namespace chihost

#endif // ZELK_CHIHOST_EMULATOR_NODELIBRARY_H
