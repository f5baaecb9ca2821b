// Fake node library for the emulator tests; see fakenode.h. Built three ways: complete, with an
// entry that fills nothing (FAKE_NODE_EMPTY_ENTRY) and without ChiNodeEntry (FAKE_NODE_NO_ENTRY).
#include "fakenode.h"

#include <stdio.h>
#include <string.h>

#include "chinode.h"

#define FAKE_EXPORT extern "C" __attribute__((visibility("default")))

// A named namespace: the builds without an entry leave the callbacks unreferenced.
namespace fakenode
{

const uint32_t kNodeMagic = 0xFA4E0DE5;

struct FakeNode
{
    uint32_t  magic;
    CHIHANDLE hChiSession;
};

FakeNodeObservations g_seen = {0, 0, 0, -1, -1, nullptr, 0, {0}, 0};
CHINODEINTERFACE     g_host;

CHIVENDORTAGDATA g_tags[] = {
    {"supportedFeature", ChiVendorTagTypeInt32, 1, 0},
    {"state", ChiVendorTagTypeInt32, 1, 0},
    {"horSR", ChiVendorTagTypeFloat, 1, 0},
    {"verSR", ChiVendorTagTypeFloat, 1, 0},
};
CHIVENDORTAGSECTIONDATA g_section = {FAKE_NODE_SECTION, 0, 4, g_tags, ChiTagSectionVisibleToAll};
CHIVENDORTAGINFO        g_tagInfo = {&g_section, 1};

CDKResult QueryVendorTag(CHIQUERYVENDORTAG* pQuery)
{
    if ((pQuery == nullptr) || (pQuery->size < sizeof(CHIQUERYVENDORTAG)))
    {
        return CDKResultEInvalidArg;
    }
    pQuery->pVendorTagInfo = &g_tagInfo;
    return CDKResultSuccess;
}

void SetNodeInterface(CHINODEINTERFACE* pInterface)
{
    g_seen.interfaceSize       = pInterface->size;
    g_host                     = *pInterface;
    CHIVENDORTAGBASEINFO query = {sizeof(CHIVENDORTAGBASEINFO), 0, FAKE_NODE_SECTION, nullptr};
    g_seen.sectionBaseResult   = g_host.pGetVendorTagBase(&query);
    g_seen.sectionBase         = query.vendorTagBase;
}

void* ReadOne(CHIHANDLE hSession, uint64_t requestId, uint32_t tagId, bool staticPool)
{
    CHITAGDATA      tagData = {sizeof(CHITAGDATA), requestId, nullptr, 0, 0, FALSE};
    CHIMETADATAINFO info    = {sizeof(CHIMETADATAINFO),
                               hSession,
                               1,
                               &tagId,
                               &tagData,
                            staticPool ? ChiMetadataStatic : ChiMetadataDynamic};
    CDKResult       result =
        staticPool ? g_host.pGetStaticMetadata(&info, 0) : g_host.pGetMetadata(&info);
    return (result == CDKResultSuccess) ? tagData.pData : nullptr;
}

void ReadGainMatch(CHIHANDLE hSession)
{
    CHIVENDORTAGBASEINFO query = {sizeof(CHIVENDORTAGBASEINFO), 0,
                                  "org.codeaurora.qcamera3.sensor_meta_data", "EEPROMInformation"};
    g_seen.eepromGainMatch     = -1;
    if (g_host.pGetVendorTagBase(&query) != CDKResultSuccess)
    {
        return;
    }
    const EEPROMInformation* pRecord = static_cast<const EEPROMInformation*>(
        ReadOne(hSession, 0, query.vendorTagBase | ChiMetadataStaticPool, true));
    for (uint32_t i = 0; (pRecord != nullptr) && (i < pRecord->customInfoCount); ++i)
    {
        if (strcmp(pRecord->customInfo[i].name, "OISGyroGainAndSRMatch") == 0)
        {
            g_seen.eepromGainMatch = pRecord->customInfo[i].value;
            return;
        }
    }
}

CDKResult Create(CHINODECREATEINFO* pCreateInfo)
{
    if ((pCreateInfo == nullptr) || (pCreateInfo->size != sizeof(CHINODECREATEINFO)))
    {
        return CDKResultEInvalidArg;
    }
    g_seen.createSession        = pCreateInfo->hChiSession;
    g_seen.createPropertyCount  = pCreateInfo->nodePropertyCount;
    g_seen.firstPropertyText[0] = '\0';
    for (uint32_t i = 0; i < pCreateInfo->nodePropertyCount; ++i)
    {
        const CHINODEPROPERTY& property = pCreateInfo->pNodeProperties[i];
        const char*            pText    = static_cast<const char*>(property.pValue);
        if (i == 0)
        {
            snprintf(g_seen.firstPropertyText, sizeof(g_seen.firstPropertyText), "%s", pText);
        }
        if ((property.id == kFakeNodeDelayProperty) && (strcmp(pText, "delayed") == 0))
        {
            pCreateInfo->nodeFlags |= ChiNodeFlagDelayedProcessingNotify;
        }
    }
    ReadGainMatch(pCreateInfo->hChiSession);
    pCreateInfo->phNodeSession = new FakeNode{kNodeMagic, pCreateInfo->hChiSession};
    g_seen.liveNodes++;
    return CDKResultSuccess;
}

FakeNode* NodeOf(CHIHANDLE hNode)
{
    FakeNode* pNode = static_cast<FakeNode*>(hNode);
    return ((pNode != nullptr) && (pNode->magic == kNodeMagic)) ? pNode : nullptr;
}

CDKResult Destroy(CHINODEDESTROYINFO* pDestroyInfo)
{
    FakeNode* pNode = (pDestroyInfo != nullptr) ? NodeOf(pDestroyInfo->hNodeSession) : nullptr;
    if (pNode == nullptr)
    {
        return CDKResultEInvalidArg;
    }
    pNode->magic = 0;
    delete pNode;
    g_seen.liveNodes--;
    return CDKResultSuccess;
}

// Publishes supportedFeature = 1, state = input state + 1 (or -1 without one), horSR, verSR.
CDKResult ProcessRequest(CHINODEPROCESSREQUESTINFO* pRequest)
{
    FakeNode* pNode = (pRequest != nullptr) ? NodeOf(pRequest->hNodeSession) : nullptr;
    if (pNode == nullptr)
    {
        return CDKResultEInvalidArg;
    }
    uint64_t       requestId = pRequest->frameNum;
    uint32_t       base      = g_seen.sectionBase;
    const int32_t* pState    = static_cast<const int32_t*>(
        ReadOne(pNode->hChiSession, requestId, (base + 1) | ChiMetadataInputPool, false));
    int32_t    supported = 1;
    int32_t    state     = (pState != nullptr) ? *pState + 1 : -1;
    float      horSR     = 1.5f;
    float      verSR     = 2.5f;
    uint32_t   tags[4]   = {base + 0, base + 1, base + 2, base + 3};
    void*      values[4] = {&supported, &state, &horSR, &verSR};
    CHITAGDATA data[4];
    for (int i = 0; i < 4; ++i)
    {
        data[i] = {sizeof(CHITAGDATA), requestId, values[i], 4, 0, FALSE};
    }
    CHIMETADATAINFO info = {sizeof(CHIMETADATAINFO), pNode->hChiSession, 4, tags, data,
                            ChiMetadataDynamic};
    return g_host.pSetMetadata(&info);
}

} // namespace fakenode

using namespace fakenode;

FAKE_EXPORT const FakeNodeObservations* FakeNodeObserve()
{
    return &g_seen;
}

#ifndef FAKE_NODE_NO_ENTRY
FAKE_EXPORT void ChiNodeEntry(CHINODECALLBACKS* pCallbacks)
{
    g_seen.entryTableSize = pCallbacks->size;
#ifndef FAKE_NODE_EMPTY_ENTRY
    pCallbacks->pQueryVendorTag          = QueryVendorTag;
    pCallbacks->pCreate                  = Create;
    pCallbacks->pDestroy                 = Destroy;
    pCallbacks->pProcessRequest          = ProcessRequest;
    pCallbacks->pChiNodeSetNodeInterface = SetNodeInterface;
#endif
}
#endif
