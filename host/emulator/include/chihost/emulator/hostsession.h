// The emulated camera framework for one node library. Opening a session loads the library, asks
// it for its vendor tags and registers them, hands it the host's node interface and publishes the
// sensor's EEPROMInformation record in the static pool. The interface's C functions find their
// session through CHIMETADATAINFO::chiSession, the session handle, which is checked against the
// sessions alive in the process: a stale or foreign handle is refused with an error, never
// followed. Nodes are created and destroyed through the library's callbacks with records the
// session fills like the framework does; the application's side writes request settings and
// reads results by vendor tag name.
#ifndef ZELK_CHIHOST_EMULATOR_HOSTSESSION_H
#define ZELK_CHIHOST_EMULATOR_HOSTSESSION_H

#include <cstring>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "chinode.h"
#include "chihost/emulator/metadatapools.h"
#include "chihost/emulator/nodelibrary.h"
#include "chihost/emulator/status.h"

namespace chihost
{

// Node properties of a create call: (property id, value text).
using NodePropertyList = std::vector<std::pair<UINT32, std::string>>;
// EEPROM custom information: (name, value), at most EEPROMCustomInfoMaxCount entries.
using EEPROMCustomInfoList = std::vector<std::pair<std::string, UINT32>>;

struct HostSessionOptions
{
    UINT32               cameraId                 = 0; // the one camera this session serves
    bool                 publishEEPROMInformation = true;
    EEPROMCustomInfoList eepromCustomInfo;
};

struct NodeCreateOutcome
{
    CDKResult         result = CDKResultEFailed;
    CHIHANDLE         hNode  = nullptr; // what the node stored in phNodeSession
    CHINODECREATEINFO createInfo;       // as the node left it (it may add flag bits)
};

class CHIHOST_EMULATOR_API HostSession
{
public:
    HostSession();
    ~HostSession();
    HostSession(const HostSession&)            = delete;
    HostSession& operator=(const HostSession&) = delete;

    Status Open(const std::string& nodeLibraryPath, const HostSessionOptions& options);
    // Destroys the nodes still alive, retires the handle and unloads the library.
    void Close();

    bool      IsOpen() const { return m_handle != nullptr; }
    CHIHANDLE Handle() const { return m_handle; }
    UINT32    CameraId() const { return m_cameraId; }

    // For contract tests: the node's callback table and the interface handed to the node.
    const CHINODECALLBACKS& Callbacks() const { return m_library.Callbacks(); }
    CHINODEINTERFACE*       NodeInterface() { return &m_interface; }
    // Bases of the node's vendor tag sections, in the node's order.
    const std::vector<UINT32>& NodeSectionBases() const { return m_nodeSectionBases; }
    MetadataPools&             Pools() { return m_pools; }
    const MetadataPools&       Pools() const { return m_pools; }

    // Replaces the published EEPROMInformation record; more than 50 entries or a name longer
    // than 255 bytes is refused and leaves the record as it was.
    Status PublishEEPROMInformation(const EEPROMCustomInfoList& customInfo);

    // Fills a create record (size 120, this session's handle, the properties kept alive until
    // Close) and calls the node's pCreate.
    NodeCreateOutcome CreateNode(const NodePropertyList& properties,
                                 UINT32                  nodeId,
                                 UINT32                  instanceId,
                                 UINT32                  flags);
    // Calls pDestroy with a destroy record (size 16) for hNode.
    CDKResult DestroyNode(CHIHANDLE hNode);

    // The application's side of a request, by vendor tag name.
    Status WriteInputTag(UINT64             requestId,
                         const std::string& section,
                         const std::string& tag,
                         const void*        pData,
                         size_t             size);
    Status ReadOutputTag(UINT64                requestId,
                         const std::string&    section,
                         const std::string&    tag,
                         std::vector<uint8_t>* pValue) const;

    template <typename T>
    Status WriteInputValue(UINT64             requestId,
                           const std::string& section,
                           const std::string& tag,
                           const T&           value)
    {
        static_assert(std::is_trivially_copyable<T>::value, "tag values are plain bytes");
        return WriteInputTag(requestId, section, tag, &value, sizeof(T));
    }

    // Fails unless the stored value has exactly sizeof(T) bytes.
    template <typename T>
    Status ReadOutputValue(UINT64             requestId,
                           const std::string& section,
                           const std::string& tag,
                           T*                 pValue) const
    {
        static_assert(std::is_trivially_copyable<T>::value, "tag values are plain bytes");
        std::vector<uint8_t> bytes;
        Status               status = ReadOutputTag(requestId, section, tag, &bytes);
        if (status && (bytes.size() != sizeof(T)))
        {
            status = Status::Error(section + "." + tag + " holds " + std::to_string(bytes.size()) +
                                   " bytes, not " + std::to_string(sizeof(T)));
        }
        if (status)
        {
            memcpy(pValue, bytes.data(), sizeof(T));
        }
        return status;
    }

private:
    // Entry points of the node interface, reached through the session handle in the record.
    static CDKResult GetMetadata(CHIMETADATAINFO* pInfo);
    static CDKResult SetMetadata(CHIMETADATAINFO* pInfo);
    static CDKResult GetVendorTagBase(CHIVENDORTAGBASEINFO* pInfo);
    static CDKResult GetMultiCamDynamicMetadata(CHIMETADATAINFO* pInfo, UINT32 cameraId);
    static CDKResult GetStaticMetadata(CHIMETADATAINFO* pInfo, UINT32 cameraId);

    // Everything a created node may still point at.
    struct CreateRecord
    {
        std::vector<std::string>     texts;
        std::vector<CHINODEPROPERTY> properties;
        CHINODECREATEINFO            createInfo;
    };

    std::unique_ptr<CreateRecord> BuildCreateRecord(const NodePropertyList& properties,
                                                    UINT32                  nodeId,
                                                    UINT32                  instanceId,
                                                    UINT32                  flags) const;
    void      IssueHandle();
    void      RetireHandle();
    Status    RegisterNodeVendorTags();
    void      BuildInterface();
    Status    LookUpTag(const std::string& section, const std::string& tag, UINT32* pTagId) const;
    CDKResult GetForCamera(CHIMETADATAINFO* pInfo, UINT32 cameraId, bool staticPool) const;

    NodeLibrary                              m_library;
    MetadataPools                            m_pools;
    CHINODEINTERFACE                         m_interface;
    CHIHANDLE                                m_handle   = nullptr;
    UINT32                                   m_cameraId = 0;
    std::vector<UINT32>                      m_nodeSectionBases;
    std::mutex                               m_nodesMutex;
    std::list<std::unique_ptr<CreateRecord>> m_createRecords;
    std::vector<CHIHANDLE>                   m_liveNodes;
};

} // namespace chihost

#endif // ZELK_CHIHOST_EMULATOR_HOSTSESSION_H
