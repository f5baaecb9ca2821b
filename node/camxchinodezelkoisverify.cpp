// The host-facing frame of the node: ChiNodeEntry, the only exported symbol, fills the host's
// callback table; each callback checks the record it is handed (pointer, node handle, size) and
// forwards to the ChiOisVerifyNode the handle points at. A failed check changes nothing, logs
// one error line and returns 5 (null) or 1 (short record).
#include "camxchinodezelkoisverify.h"

#include "chinodeutils.h"
#include "oisverifylog.h"

namespace
{

const CHAR   OisVerifySectionName[] = "com.zelk.node.oisverify";
const UINT32 OisVerifyNodeCapsMask  = 0x4000;
const UINT32 FlushResponseExtraMs   = 5;

CHIVENDORTAGDATA g_vendorTagData[] =
{
    { "SupportedFeature", ChiVendorTagTypeInt32, 1, 0 },
    { "oisState",         ChiVendorTagTypeInt32, 1, 0 },
    { "oisXAxisSR",       ChiVendorTagTypeFloat, 1, 0 },
    { "oisYAxisSR",       ChiVendorTagTypeFloat, 1, 0 },
};

CHIVENDORTAGSECTIONDATA g_vendorTagSectionData[] =
{
    {
        OisVerifySectionName,
        0,
        sizeof(g_vendorTagData) / sizeof(g_vendorTagData[0]),
        g_vendorTagData,
        ChiTagSectionVisibleToAll,
    },
};

CHIVENDORTAGINFO g_vendorTagInfo =
{
    g_vendorTagSectionData,
    sizeof(g_vendorTagSectionData) / sizeof(g_vendorTagSectionData[0]),
};

ChiOisVerifyNode* NodeOf(CHIHANDLE hNodeSession)
{
    return static_cast<ChiOisVerifyNode*>(hNodeSession);
}

} // namespace

// The host's node interface and the base id it gave the node's section, kept for the process.
CHINODEINTERFACE g_chiNodeInterface;
UINT32           g_vendorTagBase = 0;

static CDKResult OisVerifyNodeGetCaps(CHINODECAPSINFO* pCapsInfo)
{
    if (NULL == pCapsInfo)
    {
        OIS_LOG_ERROR("Invalid argument: pCapsInfo is NULL");
        return CDKResultEInvalidPointer;
    }
    if (pCapsInfo->size < sizeof(CHINODECAPSINFO))
    {
        OIS_LOG_ERROR("CHINODECAPSINFO is smaller than expected");
        return CDKResultEFailed;
    }
    pCapsInfo->nodeCapsMask = OisVerifyNodeCapsMask;
    return CDKResultSuccess;
}

static CDKResult OisVerifyNodeQueryVendorTag(CHIQUERYVENDORTAG* pQueryVendorTag)
{
    return ChiNodeUtils::QueryVendorTag(pQueryVendorTag, &g_vendorTagInfo);
}

static CDKResult OisVerifyNodeCreate(CHINODECREATEINFO* pCreateInfo)
{
    if (NULL == pCreateInfo)
    {
        OIS_LOG_ERROR("Invalid argument: pTagTypeInfo is NULL");
        return CDKResultEInvalidPointer;
    }
    if (pCreateInfo->size < sizeof(CHINODECREATEINFO))
    {
        OIS_LOG_ERROR("CHINODECREATEINFO is smaller than expected");
        return CDKResultEFailed;
    }

    ChiOisVerifyNode* pNode  = new ChiOisVerifyNode();
    CDKResult         result = pNode->Initialize(pCreateInfo);
    if (CDKResultSuccess != result)
    {
        delete pNode;
        return result;
    }
    pCreateInfo->phNodeSession = pNode;
    return CDKResultSuccess;
}

static CDKResult OisVerifyNodeDestroy(CHINODEDESTROYINFO* pDestroyInfo)
{
    if ((NULL == pDestroyInfo) || (NULL == pDestroyInfo->hNodeSession))
    {
        OIS_LOG_ERROR("Invalid argument: pDestroyInfo is NULL");
        return CDKResultEInvalidPointer;
    }
    if (pDestroyInfo->size < sizeof(CHINODEDESTROYINFO))
    {
        OIS_LOG_ERROR("CHINODEDESTROYINFO is smaller than expected");
        return CDKResultEFailed;
    }
    delete NodeOf(pDestroyInfo->hNodeSession);
    pDestroyInfo->hNodeSession = NULL;
    return CDKResultSuccess;
}

static CDKResult OisVerifyNodeQueryBufferInfo(CHINODEQUERYBUFFERINFO* pQueryBufferInfo)
{
    if ((NULL == pQueryBufferInfo) || (NULL == pQueryBufferInfo->hNodeSession))
    {
        OIS_LOG_ERROR("Invalid argument");
        return CDKResultEInvalidPointer;
    }
    if (pQueryBufferInfo->size < sizeof(CHINODEQUERYBUFFERINFO))
    {
        OIS_LOG_ERROR("CHINODEQUERYBUFFERINFO is smaller than expected");
        return CDKResultEFailed;
    }
    return NodeOf(pQueryBufferInfo->hNodeSession)->QueryBufferInfo(pQueryBufferInfo);
}

static CDKResult OisVerifyNodeSetBufferInfo(CHINODESETBUFFERPROPERTIESINFO* pSetBufferInfo)
{
    if ((NULL == pSetBufferInfo) || (NULL == pSetBufferInfo->hNodeSession))
    {
        OIS_LOG_ERROR("Invalid argument");
        return CDKResultEInvalidPointer;
    }
    if (pSetBufferInfo->size < sizeof(CHINODESETBUFFERPROPERTIESINFO))
    {
        OIS_LOG_ERROR("CHINODESETBUFFERPROPERTIESINFO is smaller than expected");
        return CDKResultEFailed;
    }
    return NodeOf(pSetBufferInfo->hNodeSession)->SetBufferInfo(pSetBufferInfo);
}

static CDKResult OisVerifyNodeProcRequest(CHINODEPROCESSREQUESTINFO* pProcessRequestInfo)
{
    if ((NULL == pProcessRequestInfo) || (NULL == pProcessRequestInfo->hNodeSession))
    {
        OIS_LOG_ERROR("Invalid argument");
        return CDKResultEInvalidPointer;
    }
    if (pProcessRequestInfo->size < sizeof(CHINODEPROCESSREQUESTINFO))
    {
        OIS_LOG_ERROR("CHINODEPROCESSREQUESTINFO is smaller than expected");
        return CDKResultEFailed;
    }
    // Problems inside request processing become node states and log lines, never a failed request.
    (void)NodeOf(pProcessRequestInfo->hNodeSession)->ProcessRequest(pProcessRequestInfo);
    return CDKResultSuccess;
}

static void OisVerifyNodeSetNodeInterface(CHINODEINTERFACE* pNodeInterface)
{
    (void)ChiNodeUtils::SetNodeInterface(pNodeInterface, OisVerifySectionName, &g_chiNodeInterface,
                                         &g_vendorTagBase);
    OIS_LOG_INFO("OisVerifyNodeSetNodeInterface g_vendorTagBase = %d", g_vendorTagBase);
}

static CDKResult OisVerifyNodeFlushRequest(CHINODEFLUSHREQUESTINFO* pFlushRequestInfo)
{
    if ((NULL == pFlushRequestInfo) || (NULL == pFlushRequestInfo->hNodeSession))
    {
        OIS_LOG_ERROR("Invalid argument");
        return CDKResultEInvalidPointer;
    }
    if (pFlushRequestInfo->size < sizeof(CHINODEFLUSHREQUESTINFO))
    {
        OIS_LOG_ERROR("CHINODEFLUSHREQUESTINFO is smaller than expected");
        return CDKResultEFailed;
    }
    NodeOf(pFlushRequestInfo->hNodeSession)->FlushRequest(pFlushRequestInfo);
    return CDKResultSuccess;
}

static CDKResult OisVerifyNodeGetFlushResponseTime(CHINODERESPONSEINFO* pInfo)
{
    if (NULL == pInfo)
    {
        OIS_LOG_ERROR("pInfo is NULL");
        return CDKResultEInvalidPointer;
    }
    if (NULL == pInfo->hChiSession)
    {
        OIS_LOG_ERROR("pInfo %p pInfo->hChiSession is NULL", static_cast<void*>(pInfo));
        return CDKResultEInvalidPointer;
    }
    OIS_LOG_VERBOSE("pInfo %p pInfo->hChiSession %p", static_cast<void*>(pInfo), pInfo->hChiSession);
    // Only an exact-size record is accepted, although the message speaks of a smaller one.
    if (sizeof(CHINODERESPONSEINFO) != pInfo->size)
    {
        OIS_LOG_ERROR("CHINODERESPONSEINFO %u is smaller than expected %u", pInfo->size,
                      static_cast<UINT32>(sizeof(CHINODERESPONSEINFO)));
        return CDKResultEFailed;
    }
    UINT32 responseMs = NodeOf(pInfo->hChiSession)->GetFlushResponseBaseMs() + FlushResponseExtraMs;
    pInfo->responseTimeInMillisec = responseMs;
    return CDKResultSuccess;
}

static CDKResult OisVerifyNodeDumpCoreNodeConfig(INT32 fd, UINT32 verbosity, void* pPrivate)
{
    (void)fd;
    (void)verbosity;
    (void)pPrivate;
    return CDKResultSuccess;
}

extern "C" __attribute__((visibility("default"))) void ChiNodeEntry(CHINODECALLBACKS* pNodeCallbacks)
{
    if (NULL == pNodeCallbacks)
    {
        OIS_LOG_ERROR("Invalid Argument: %p", static_cast<void*>(pNodeCallbacks));
        return;
    }
    // A table too short to hold the version words cannot be read for them.
    const BOOL   hasVersion = (pNodeCallbacks->size >= 3 * sizeof(UINT32));
    const UINT32 hostMajor  = hasVersion ? pNodeCallbacks->majorVersion : 0;
    const UINT32 hostMinor  = hasVersion ? pNodeCallbacks->minorVersion : 0;
    if ((ChiNodeMajorVersion != hostMajor) || (pNodeCallbacks->size < sizeof(CHINODECALLBACKS)))
    {
        OIS_LOG_ERROR("Chi API major version doesn't match (%d:%d) vs (%d:%d)", hostMajor, hostMinor,
                      ChiNodeMajorVersion, ChiNodeMinorVersion);
        return;
    }

    pNodeCallbacks->majorVersion             = ChiNodeMajorVersion;
    pNodeCallbacks->minorVersion             = ChiNodeMinorVersion;
    pNodeCallbacks->pGetCapabilities         = OisVerifyNodeGetCaps;
    pNodeCallbacks->pQueryVendorTag          = OisVerifyNodeQueryVendorTag;
    pNodeCallbacks->pCreate                  = OisVerifyNodeCreate;
    pNodeCallbacks->pDestroy                 = OisVerifyNodeDestroy;
    pNodeCallbacks->pQueryBufferInfo         = OisVerifyNodeQueryBufferInfo;
    pNodeCallbacks->pSetBufferInfo           = OisVerifyNodeSetBufferInfo;
    pNodeCallbacks->pProcessRequest          = OisVerifyNodeProcRequest;
    pNodeCallbacks->pChiNodeSetNodeInterface = OisVerifyNodeSetNodeInterface;
    pNodeCallbacks->pFlushRequest            = OisVerifyNodeFlushRequest;
    pNodeCallbacks->pGetFlushResponse        = OisVerifyNodeGetFlushResponseTime;
    pNodeCallbacks->pDumpCoreNodeConfig      = OisVerifyNodeDumpCoreNodeConfig;
}
