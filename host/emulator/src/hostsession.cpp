// The emulated camera framework for one node library; see hostsession.h.
#include "chihost/emulator/hostsession.h"

#include <algorithm>
#include <map>
#include <shared_mutex>

#include "chihost/emulator/vendortagregistry.h"

namespace chihost
{

namespace
{

// Session handles are opaque numbers, never addresses: a handle is not reused within the process,
// so a node that keeps a handle past its session's end is refused instead of reaching another
// session that happens to live at the same address.
const uintptr_t kHandleBase   = 0x5E55000000ull;
const uintptr_t kHandleStride = 0x10;

struct LiveSessions
{
    std::shared_mutex                 mutex;
    std::map<CHIHANDLE, HostSession*> sessions;
    uintptr_t                         issued = 0;
};

// Never destroyed, so that a session object with static storage may still close after it.
LiveSessions& Sessions()
{
    static LiveSessions* s_pSessions = new LiveSessions;
    return *s_pSessions;
}

// Runs call on the session the record names, holding the registry lock so that the session
// cannot close meanwhile. Record checks come first: 5 for null, 1 for short; an unknown handle
// is 4.
template <typename Call>
CDKResult WithSession(CHIMETADATAINFO* pInfo, Call call)
{
    if (pInfo == nullptr)
    {
        return CDKResultEInvalidPointer;
    }
    if (pInfo->size < sizeof(CHIMETADATAINFO))
    {
        return CDKResultEFailed;
    }
    LiveSessions&                       live = Sessions();
    std::shared_lock<std::shared_mutex> lock(live.mutex);
    auto                                found = live.sessions.find(pInfo->chiSession);
    if (found == live.sessions.end())
    {
        return CDKResultEInvalidArg;
    }
    return call(*found->second);
}

Status BuildEEPROMInformation(const EEPROMCustomInfoList& customInfo, EEPROMInformation* pRecord)
{
    if (customInfo.size() > EEPROMCustomInfoMaxCount)
    {
        return Status::Error("EEPROM information holds at most " +
                             std::to_string(EEPROMCustomInfoMaxCount) + " custom entries, not " +
                             std::to_string(customInfo.size()));
    }
    memset(pRecord, 0, sizeof(*pRecord));
    for (size_t i = 0; i < customInfo.size(); ++i)
    {
        const std::string& name = customInfo[i].first;
        if (name.empty() || (name.size() >= EEPROMCustomInfoNameLength))
        {
            return Status::Error("EEPROM custom entry name '" + name + "' must have 1 to " +
                                 std::to_string(EEPROMCustomInfoNameLength - 1) + " bytes");
        }
        memcpy(pRecord->customInfo[i].name, name.data(), name.size());
        pRecord->customInfo[i].value = customInfo[i].second;
    }
    pRecord->customInfoCount = static_cast<UINT32>(customInfo.size());
    return Status::Ok();
}

} // namespace

HostSession::HostSession()
{
    memset(&m_interface, 0, sizeof(m_interface));
}

HostSession::~HostSession()
{
    Close();
}

Status HostSession::Open(const std::string& nodeLibraryPath, const HostSessionOptions& options)
{
    if (IsOpen())
    {
        return Status::Error("the session for " + m_library.Path() + " is already open");
    }
    EEPROMInformation record;
    Status            status = BuildEEPROMInformation(options.eepromCustomInfo, &record);
    if (status)
    {
        status = m_library.Load(nodeLibraryPath);
    }
    if (!status)
    {
        return status;
    }
    m_pools.Clear();
    m_cameraId = options.cameraId;
    IssueHandle();
    // Vendor tags first: the node resolves its own section while it takes the interface.
    status = RegisterNodeVendorTags();
    if (status)
    {
        BuildInterface();
        if (Callbacks().pChiNodeSetNodeInterface != nullptr)
        {
            Callbacks().pChiNodeSetNodeInterface(&m_interface);
        }
    }
    if (status && options.publishEEPROMInformation)
    {
        status = PublishEEPROMInformation(options.eepromCustomInfo);
    }
    if (!status)
    {
        Close();
    }
    return status;
}

void HostSession::IssueHandle()
{
    LiveSessions&                       live = Sessions();
    std::unique_lock<std::shared_mutex> lock(live.mutex);
    m_handle = reinterpret_cast<CHIHANDLE>(kHandleBase + (++live.issued) * kHandleStride);
    live.sessions[m_handle] = this;
}

void HostSession::RetireHandle()
{
    LiveSessions&                       live = Sessions();
    std::unique_lock<std::shared_mutex> lock(live.mutex);
    live.sessions.erase(m_handle);
    m_handle = nullptr;
}

Status HostSession::RegisterNodeVendorTags()
{
    m_nodeSectionBases.clear();
    if (Callbacks().pQueryVendorTag == nullptr)
    {
        return Status::Ok();
    }
    CHIQUERYVENDORTAG query;
    memset(&query, 0, sizeof(query));
    query.size       = sizeof(CHIQUERYVENDORTAG);
    CDKResult result = Callbacks().pQueryVendorTag(&query);
    if (result != CDKResultSuccess)
    {
        return Status::Error("vendor tag query of " + m_library.Path() + " failed with result " +
                             std::to_string(result));
    }
    if (query.pVendorTagInfo == nullptr)
    {
        return Status::Ok();
    }
    Status status =
        VendorTagRegistry::Instance().RegisterSections(*query.pVendorTagInfo, &m_nodeSectionBases);
    if (!status)
    {
        return Status::Error("vendor tags of " + m_library.Path() + ": " + status.Message());
    }
    return status;
}

void HostSession::BuildInterface()
{
    memset(&m_interface, 0, sizeof(m_interface));
    m_interface.size                           = sizeof(CHINODEINTERFACE);
    m_interface.majorVersion                   = ChiNodeMajorVersion;
    m_interface.minorVersion                   = ChiNodeMinorVersion;
    m_interface.pGetMetadata                   = &HostSession::GetMetadata;
    m_interface.pSetMetadata                   = &HostSession::SetMetadata;
    m_interface.pGetVendorTagBase              = &HostSession::GetVendorTagBase;
    m_interface.pGetMultiCamDynamicMetaByCamId = &HostSession::GetMultiCamDynamicMetadata;
    m_interface.pGetStaticMetadata             = &HostSession::GetStaticMetadata;
}

void HostSession::Close()
{
    if (IsOpen())
    {
        std::vector<CHIHANDLE> remaining;
        {
            std::lock_guard<std::mutex> lock(m_nodesMutex);
            remaining.assign(m_liveNodes.rbegin(), m_liveNodes.rend());
        }
        // Nodes go before the session, newest first, as a framework tears a pipeline down.
        for (CHIHANDLE hNode : remaining)
        {
            (void)DestroyNode(hNode);
        }
        RetireHandle();
    }
    m_library.Unload();
    std::lock_guard<std::mutex> lock(m_nodesMutex);
    m_liveNodes.clear();
    m_createRecords.clear();
    m_nodeSectionBases.clear();
    memset(&m_interface, 0, sizeof(m_interface));
}

Status HostSession::PublishEEPROMInformation(const EEPROMCustomInfoList& customInfo)
{
    EEPROMInformation record;
    Status            status = BuildEEPROMInformation(customInfo, &record);
    UINT32            tagId  = 0;
    if (status)
    {
        status = LookUpTag(kSensorMetaDataSection, kEEPROMInformationTag, &tagId);
    }
    if (status)
    {
        status = m_pools.WriteTag(MetadataPool::Static, 0, tagId, &record, sizeof(record));
    }
    return status;
}

std::unique_ptr<HostSession::CreateRecord> HostSession::BuildCreateRecord(
    const NodePropertyList& properties, UINT32 nodeId, UINT32 instanceId, UINT32 flags) const
{
    std::unique_ptr<CreateRecord> record(new CreateRecord);
    for (const auto& property : properties)
    {
        record->texts.push_back(property.second);
    }
    for (size_t i = 0; i < properties.size(); ++i)
    {
        record->properties.push_back({properties[i].first, record->texts[i].c_str()});
    }
    CHINODECREATEINFO& info = record->createInfo;
    memset(&info, 0, sizeof(info));
    info.size              = sizeof(CHINODECREATEINFO);
    info.hChiSession       = m_handle;
    info.nodeId            = nodeId;
    info.nodeCaps.size     = sizeof(CHINODECAPSINFO);
    info.nodeFlags         = flags;
    info.nodeInstanceId    = instanceId;
    info.nodePropertyCount = static_cast<UINT32>(record->properties.size());
    info.pNodeProperties   = record->properties.empty() ? nullptr : record->properties.data();
    return record;
}

NodeCreateOutcome HostSession::CreateNode(const NodePropertyList& properties,
                                          UINT32                  nodeId,
                                          UINT32                  instanceId,
                                          UINT32                  flags)
{
    NodeCreateOutcome outcome;
    memset(&outcome.createInfo, 0, sizeof(outcome.createInfo));
    if (!IsOpen())
    {
        outcome.result = CDKResultEInvalidState;
        return outcome;
    }
    std::unique_ptr<CreateRecord> record = BuildCreateRecord(properties, nodeId, instanceId, flags);
    outcome.result                       = Callbacks().pCreate(&record->createInfo);
    outcome.hNode                        = record->createInfo.phNodeSession;
    outcome.createInfo                   = record->createInfo;

    std::lock_guard<std::mutex> lock(m_nodesMutex);
    if ((outcome.result == CDKResultSuccess) && (outcome.hNode != nullptr))
    {
        m_liveNodes.push_back(outcome.hNode);
    }
    m_createRecords.push_back(std::move(record));
    return outcome;
}

CDKResult HostSession::DestroyNode(CHIHANDLE hNode)
{
    if (!IsOpen())
    {
        return CDKResultEInvalidState;
    }
    CHINODEDESTROYINFO info;
    memset(&info, 0, sizeof(info));
    info.size         = sizeof(CHINODEDESTROYINFO);
    info.hNodeSession = hNode;
    CDKResult result  = Callbacks().pDestroy(&info);
    if (result == CDKResultSuccess)
    {
        std::lock_guard<std::mutex> lock(m_nodesMutex);
        m_liveNodes.erase(std::remove(m_liveNodes.begin(), m_liveNodes.end(), hNode),
                          m_liveNodes.end());
    }
    return result;
}

Status HostSession::LookUpTag(const std::string& section,
                              const std::string& tag,
                              UINT32*            pTagId) const
{
    if (!VendorTagRegistry::Instance().FindTagId(section, tag, pTagId))
    {
        return Status::Error("unknown vendor tag " + section + "." + tag);
    }
    return Status::Ok();
}

Status HostSession::WriteInputTag(UINT64             requestId,
                                  const std::string& section,
                                  const std::string& tag,
                                  const void*        pData,
                                  size_t             size)
{
    UINT32 tagId  = 0;
    Status status = LookUpTag(section, tag, &tagId);
    return status ? m_pools.WriteTag(MetadataPool::Input, requestId, tagId, pData, size) : status;
}

Status HostSession::ReadOutputTag(UINT64                requestId,
                                  const std::string&    section,
                                  const std::string&    tag,
                                  std::vector<uint8_t>* pValue) const
{
    UINT32 tagId  = 0;
    Status status = LookUpTag(section, tag, &tagId);
    if (status && !m_pools.ReadTag(MetadataPool::Output, requestId, tagId, pValue))
    {
        status = Status::Error(section + "." + tag + " was not published for request " +
                               std::to_string(requestId));
    }
    return status;
}

// A tag the session's camera does not have is reported absent; another camera id has nothing.
CDKResult HostSession::GetForCamera(CHIMETADATAINFO* pInfo, UINT32 cameraId, bool staticPool) const
{
    CDKResult result = m_pools.Get(pInfo, staticPool);
    if ((result == CDKResultSuccess) && (cameraId != m_cameraId))
    {
        for (UINT32 i = 0; i < pInfo->tagNum; ++i)
        {
            pInfo->pTagData[i].pData    = nullptr;
            pInfo->pTagData[i].dataSize = 0;
        }
        result = CDKResultENoSuch;
    }
    return result;
}

CDKResult HostSession::GetMetadata(CHIMETADATAINFO* pInfo)
{
    return WithSession(pInfo,
                       [pInfo](HostSession& session) { return session.m_pools.Get(pInfo, false); });
}

CDKResult HostSession::SetMetadata(CHIMETADATAINFO* pInfo)
{
    return WithSession(pInfo, [pInfo](HostSession& session) { return session.m_pools.Set(pInfo); });
}

CDKResult HostSession::GetVendorTagBase(CHIVENDORTAGBASEINFO* pInfo)
{
    return VendorTagRegistry::Instance().GetVendorTagBase(pInfo);
}

CDKResult HostSession::GetMultiCamDynamicMetadata(CHIMETADATAINFO* pInfo, UINT32 cameraId)
{
    return WithSession(pInfo, [pInfo, cameraId](HostSession& session) {
        return session.GetForCamera(pInfo, cameraId, false);
    });
}

CDKResult HostSession::GetStaticMetadata(CHIMETADATAINFO* pInfo, UINT32 cameraId)
{
    return WithSession(pInfo, [pInfo, cameraId](HostSession& session) {
        return session.GetForCamera(pInfo, cameraId, true);
    });
}

} // namespace chihost
