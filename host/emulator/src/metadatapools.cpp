// Metadata pools of one session; see metadatapools.h for the pool model.
#include "chihost/emulator/metadatapools.h"

namespace chihost
{

PoolAddress MetadataPools::Route(UINT32 tagId)
{
    PoolAddress address;
    address.tag = tagId & ~ChiMetadataPoolMask;
    switch (tagId & ChiMetadataPoolMask)
    {
        case ChiMetadataStaticPool:
            address.pool = MetadataPool::Static;
            break;
        case ChiMetadataInputPool:
            address.pool = MetadataPool::Input;
            break;
        case ChiMetadataUsecasePool:
            address.pool = MetadataPool::Usecase;
            break;
        default:
            // No selector, or a combination the framework does not define: the result pool.
            address.pool = MetadataPool::Output;
            break;
    }
    return address;
}

CDKResult MetadataPools::CheckRecord(const CHIMETADATAINFO* pInfo)
{
    if (pInfo == nullptr)
    {
        return CDKResultEInvalidPointer;
    }
    if (pInfo->size < sizeof(CHIMETADATAINFO))
    {
        return CDKResultEFailed;
    }
    if ((pInfo->tagNum > 0) && ((pInfo->pTagList == nullptr) || (pInfo->pTagData == nullptr)))
    {
        return CDKResultEInvalidPointer;
    }
    return CDKResultSuccess;
}

// A tag's request is requestId moved by offset (backwards when negate is set), which lets a node
// address an earlier or later request. A move below request 0 addresses nothing.
bool MetadataPools::EffectiveRequest(const CHITAGDATA& tagData, UINT64* pRequestId)
{
    if (tagData.negate != FALSE)
    {
        if (tagData.offset > tagData.requestId)
        {
            return false;
        }
        *pRequestId = tagData.requestId - tagData.offset;
        return true;
    }
    *pRequestId = tagData.requestId + tagData.offset;
    return true;
}

const MetadataPools::Pool* MetadataPools::FindPoolLocked(MetadataPool pool, UINT64 requestId) const
{
    if (pool == MetadataPool::Static)
    {
        return &m_static;
    }
    auto found = m_requests.find(requestId);
    if (found == m_requests.end())
    {
        return nullptr;
    }
    switch (pool)
    {
        case MetadataPool::Input:
            return &found->second.input;
        case MetadataPool::Usecase:
            return &found->second.usecase;
        default:
            return &found->second.output;
    }
}

MetadataPools::Pool& MetadataPools::PoolLocked(MetadataPool pool, UINT64 requestId)
{
    if (pool == MetadataPool::Static)
    {
        return m_static;
    }
    RequestPools& request = m_requests[requestId];
    switch (pool)
    {
        case MetadataPool::Input:
            return request.input;
        case MetadataPool::Usecase:
            return request.usecase;
        default:
            return request.output;
    }
}

void MetadataPools::StoreLocked(
    MetadataPool pool, UINT64 requestId, UINT32 tag, const void* pData, size_t size)
{
    const uint8_t* pBytes = static_cast<const uint8_t*>(pData);
    PoolLocked(pool, requestId)[tag].reset(new std::vector<uint8_t>(pBytes, pBytes + size));
}

CDKResult MetadataPools::Get(CHIMETADATAINFO* pInfo, bool forceStatic) const
{
    CDKResult result = CheckRecord(pInfo);
    if (result != CDKResultSuccess)
    {
        return result;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    for (UINT32 i = 0; i < pInfo->tagNum; ++i)
    {
        CHITAGDATA& tagData = pInfo->pTagData[i];
        PoolAddress address = Route(pInfo->pTagList[i]);
        if (forceStatic)
        {
            address.pool = MetadataPool::Static;
        }
        tagData.pData    = nullptr;
        tagData.dataSize = 0;
        UINT64 requestId = 0;
        if (!EffectiveRequest(tagData, &requestId))
        {
            continue;
        }
        const Pool* pPool = FindPoolLocked(address.pool, requestId);
        if (pPool == nullptr)
        {
            continue;
        }
        auto found = pPool->find(address.tag);
        if (found != pPool->end())
        {
            tagData.pData    = found->second->data();
            tagData.dataSize = found->second->size();
        }
    }
    return CDKResultSuccess;
}

CDKResult MetadataPools::Set(const CHIMETADATAINFO* pInfo)
{
    CDKResult result = CheckRecord(pInfo);
    if (result != CDKResultSuccess)
    {
        return result;
    }
    SetCall call;
    for (UINT32 i = 0; i < pInfo->tagNum; ++i)
    {
        const CHITAGDATA& tagData = pInfo->pTagData[i];
        SetCallEntry      entry;
        if (tagData.pData == nullptr)
        {
            return CDKResultEInvalidPointer;
        }
        if ((tagData.dataSize == 0) || !EffectiveRequest(tagData, &entry.requestId))
        {
            return CDKResultEInvalidArg;
        }
        const uint8_t* pBytes = static_cast<const uint8_t*>(tagData.pData);
        entry.tagId           = pInfo->pTagList[i];
        entry.value.assign(pBytes, pBytes + tagData.dataSize);
        call.entries.push_back(std::move(entry));
    }

    std::lock_guard<std::mutex> lock(m_mutex);
    for (const SetCallEntry& entry : call.entries)
    {
        PoolAddress address = Route(entry.tagId);
        StoreLocked(address.pool, entry.requestId, address.tag, entry.value.data(),
                    entry.value.size());
    }
    m_setCalls.push_back(std::move(call));
    return CDKResultSuccess;
}

Status MetadataPools::WriteTag(
    MetadataPool pool, UINT64 requestId, UINT32 tag, const void* pData, size_t size)
{
    if ((pData == nullptr) || (size == 0))
    {
        return Status::Error("metadata tag " + std::to_string(tag) + " written without a value");
    }
    if ((tag & ChiMetadataPoolMask) != 0)
    {
        return Status::Error("metadata tag " + std::to_string(tag) +
                             " still carries pool selector bits");
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    StoreLocked(pool, requestId, tag, pData, size);
    return Status::Ok();
}

bool MetadataPools::ReadTag(MetadataPool          pool,
                            UINT64                requestId,
                            UINT32                tag,
                            std::vector<uint8_t>* pValue) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const Pool*                 pPool = FindPoolLocked(pool, requestId);
    if ((pPool == nullptr) || (pValue == nullptr))
    {
        return false;
    }
    auto found = pPool->find(tag);
    if (found == pPool->end())
    {
        return false;
    }
    *pValue = *found->second;
    return true;
}

std::vector<SetCall> MetadataPools::SetCalls() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_setCalls;
}

void MetadataPools::ClearSetCalls()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_setCalls.clear();
}

void MetadataPools::ForgetRequest(UINT64 requestId)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_requests.erase(requestId);
}

void MetadataPools::Clear()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_static.clear();
    m_requests.clear();
    m_setCalls.clear();
}

} // namespace chihost
