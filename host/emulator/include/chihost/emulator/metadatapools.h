// Metadata pools of one emulated camera session. A tag id carries its pool in the selector bits
// (tagId & 0x78000000): 0x70000000 the static pool (one per session), 0x08000000 the request's
// input pool (the application's settings), 0x20000000 the request's usecase pool, none the
// request's result (output) pool. The tag itself is the id without those bits. Values are opaque
// bytes; a read hands out a pointer to the stored bytes, valid until that tag is written again.
// Every accepted node write is also kept in a call log, so tests can check exactly what a node
// published and in which grouping. Safe to use from any thread.
#ifndef ZELK_CHIHOST_EMULATOR_METADATAPOOLS_H
#define ZELK_CHIHOST_EMULATOR_METADATAPOOLS_H

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "chinode.h"
#include "chihost/emulator/status.h"

namespace chihost
{

enum class MetadataPool
{
    Static,
    Input,
    Usecase,
    Output,
};

// Where a tag id (with its selector bits) is stored.
struct PoolAddress
{
    MetadataPool pool = MetadataPool::Output;
    UINT32       tag  = 0;
};

// One tag of a logged set call, as the node gave it.
struct SetCallEntry
{
    UINT64               requestId = 0; // the effective request (requestId +/- offset)
    UINT32               tagId     = 0; // with the selector bits the node used
    std::vector<uint8_t> value;
};

// One accepted set call: its tags in the caller's order.
struct SetCall
{
    std::vector<SetCallEntry> entries;
    UINT64 RequestId() const { return entries.empty() ? 0 : entries[0].requestId; }
};

class CHIHOST_EMULATOR_API MetadataPools
{
public:
    MetadataPools()                                = default;
    MetadataPools(const MetadataPools&)            = delete;
    MetadataPools& operator=(const MetadataPools&) = delete;

    static PoolAddress Route(UINT32 tagId);

    // The node interface's metadata read. Each tag's pData and dataSize are filled, or set to
    // null and 0 when the tag is absent. With forceStatic every tag is read from the static pool
    // whatever its selector bits (the static-metadata read). Result 5 for a null record or a
    // tag list without arrays, 1 for a short record, otherwise 0.
    CDKResult Get(CHIMETADATAINFO* pInfo, bool forceStatic) const;

    // The node interface's metadata write: copies dataSize bytes from pData for each tag. The
    // whole call is checked first and applied only when every entry is acceptable (5 for a null
    // record, array or data pointer, 1 for a short record, 4 for an empty value or a request id
    // offset below 0); an accepted call is appended to the set-call log.
    CDKResult Set(const CHIMETADATAINFO* pInfo);

    // Host-side access that bypasses the set-call log (the application writing its settings, the
    // framework publishing static metadata). requestId is ignored for the static pool.
    Status WriteTag(
        MetadataPool pool, UINT64 requestId, UINT32 tag, const void* pData, size_t size);
    bool ReadTag(MetadataPool          pool,
                 UINT64                requestId,
                 UINT32                tag,
                 std::vector<uint8_t>* pValue) const;

    std::vector<SetCall> SetCalls() const;
    void                 ClearSetCalls();

    // Drops the input, usecase and output pools of one request.
    void ForgetRequest(UINT64 requestId);
    // Drops every pool and the set-call log.
    void Clear();

private:
    // Values live in their own heap blocks so that handing out a pointer survives other tags
    // being added to the same pool.
    using Value = std::unique_ptr<std::vector<uint8_t>>;
    using Pool  = std::map<UINT32, Value>;

    struct RequestPools
    {
        Pool input;
        Pool usecase;
        Pool output;
    };

    static CDKResult CheckRecord(const CHIMETADATAINFO* pInfo);
    static bool      EffectiveRequest(const CHITAGDATA& tagData, UINT64* pRequestId);
    const Pool*      FindPoolLocked(MetadataPool pool, UINT64 requestId) const;
    Pool&            PoolLocked(MetadataPool pool, UINT64 requestId);
    void             StoreLocked(
                    MetadataPool pool, UINT64 requestId, UINT32 tag, const void* pData, size_t size);

    mutable std::mutex             m_mutex;
    Pool                           m_static;
    std::map<UINT64, RequestPools> m_requests;
    std::vector<SetCall>           m_setCalls;
};

} // namespace chihost

#endif // ZELK_CHIHOST_EMULATOR_METADATAPOOLS_H
