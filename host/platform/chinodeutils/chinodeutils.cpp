// Host build of the CHI node utility library. The node calls these helpers instead of touching the
// host's records directly: copying the host interface, answering the vendor-tag query, the default
// buffer size negotiation, single-tag metadata reads and a few file and text helpers.
#include "chinodeutils.h"

#include <stdarg.h>
#include <string.h>

#include <algorithm>

namespace
{

// Largest image dimension the framework negotiates; the starting point of every "smallest
// maximum" so that a port with no constraint keeps the whole range.
const UINT32 kMaxDimensionPixels = 0xFFFF;

// Sizes agreed for one port: the largest optimal and minimum, the smallest maximum.
struct NegotiatedSize
{
    UINT32 optimalW = 0;
    UINT32 optimalH = 0;
    UINT32 minW     = 0;
    UINT32 minH     = 0;
    UINT32 maxW     = kMaxDimensionPixels;
    UINT32 maxH     = kMaxDimensionPixels;

    void Merge(UINT32 optW, UINT32 optH, UINT32 lowW, UINT32 lowH, UINT32 highW, UINT32 highH)
    {
        optimalW = std::max(optimalW, optW);
        optimalH = std::max(optimalH, optH);
        minW     = std::max(minW, lowW);
        minH     = std::max(minH, lowH);
        maxW     = std::min(maxW, highW);
        maxH     = std::min(maxH, highH);
    }

    void MergeRequirement(const CHINODEBUFFERREQUIREMENT& requirement)
    {
        Merge(requirement.optimalW, requirement.optimalH, requirement.minW, requirement.minH,
              requirement.maxW, requirement.maxH);
    }

    void WriteTo(CHINODEBUFFERREQUIREMENT* pOption) const
    {
        pOption->optimalW = optimalW;
        pOption->optimalH = optimalH;
        pOption->minW     = minW;
        pOption->minH     = minH;
        pOption->maxW     = maxW;
        pOption->maxH     = maxH;
    }
};

// Optimal into [min, max]. When the inputs disagree (min above max) the maximum wins: no consumer
// can take a larger buffer than its maximum.
UINT32 ClampDimension(UINT32 value, UINT32 low, UINT32 high)
{
    value = std::max(value, low);
    return std::min(value, high);
}

NegotiatedSize NegotiateOutputPort(const CHIOUTPUTPORTQUERYBUFFERINFO& port)
{
    NegotiatedSize size;
    if (nullptr != port.pBufferRequirement)
    {
        for (UINT32 input = 0; input < port.numConnectedInputPorts; input++)
        {
            size.MergeRequirement(port.pBufferRequirement[input]);
        }
    }
    if ((size.minW > size.maxW) || (size.minH > size.maxH))
    {
        fprintf(stderr,
                "chihost: buffer negotiation: output port %u needs at least %ux%u but at most "
                "%ux%u; the maximum is used\n",
                port.outputPortId, size.minW, size.minH, size.maxW, size.maxH);
    }
    size.optimalW = ClampDimension(size.optimalW, size.minW, size.maxW);
    size.optimalH = ClampDimension(size.optimalH, size.minH, size.maxH);
    return size;
}

} // namespace

CDKResult ChiNodeUtils::SetNodeInterface(ChiNodeInterface* pFrom,
                                         const CHAR*       pComponentName,
                                         ChiNodeInterface* pTo,
                                         UINT32*           pVendorTagBase)
{
    if ((nullptr == pFrom) || (nullptr == pTo))
    {
        return CDKResultEInvalidPointer;
    }
    if (pFrom->size < sizeof(CHINODEINTERFACE))
    {
        return CDKResultEFailed;
    }
    memcpy(pTo, pFrom, sizeof(CHINODEINTERFACE));

    CDKResult result = CDKResultSuccess;
    if ((nullptr != pVendorTagBase) && (nullptr != pFrom->pGetVendorTagBase))
    {
        CHIVENDORTAGBASEINFO baseInfo = {};
        baseInfo.size                 = sizeof(CHIVENDORTAGBASEINFO);
        baseInfo.pComponentName       = pComponentName;
        baseInfo.pTagName             = nullptr; // no tag name: the section's base id
        result                        = pFrom->pGetVendorTagBase(&baseInfo);
        if (CDKResultSuccess == result)
        {
            *pVendorTagBase = baseInfo.vendorTagBase;
        }
    }
    return result;
}

CDKResult ChiNodeUtils::QueryVendorTag(CHIQUERYVENDORTAG* pQuery, CHIVENDORTAGINFO* pInfo)
{
    if ((nullptr == pQuery) || (nullptr == pInfo))
    {
        return CDKResultEInvalidPointer;
    }
    if (pQuery->size < sizeof(CHIQUERYVENDORTAG))
    {
        return CDKResultEFailed;
    }
    pQuery->pVendorTagInfo = pInfo;
    return CDKResultSuccess;
}

void ChiNodeUtils::DefaultBufferNegotiation(CHINODEQUERYBUFFERINFO* pQueryBufferInfo)
{
    if (nullptr == pQueryBufferInfo)
    {
        return;
    }
    // What every input port must satisfy so that all of this node's outputs can be produced.
    NegotiatedSize acrossOutputs;
    if (nullptr != pQueryBufferInfo->pOutputPortQueryInfo)
    {
        for (UINT32 output = 0; output < pQueryBufferInfo->numOutputPorts; output++)
        {
            CHIOUTPUTPORTQUERYBUFFERINFO& port = pQueryBufferInfo->pOutputPortQueryInfo[output];
            NegotiatedSize                size = NegotiateOutputPort(port);
            size.WriteTo(&port.outputBufferOption);
            acrossOutputs.Merge(size.optimalW, size.optimalH, size.minW, size.minH, size.maxW,
                                size.maxH);
        }
    }
    if (nullptr != pQueryBufferInfo->pInputOptions)
    {
        for (UINT32 input = 0; input < pQueryBufferInfo->numInputPorts; input++)
        {
            acrossOutputs.WriteTo(&pQueryBufferInfo->pInputOptions[input].inputBufferOption);
        }
    }
}

void* ChiNodeUtils::GetMetaData(UINT64            requestId,
                                UINT32            tagId,
                                ChiMetadataType   type,
                                ChiNodeInterface* pIface,
                                CHIHANDLE         hChiSession,
                                UINT32            cameraId)
{
    if (nullptr == pIface)
    {
        return nullptr;
    }
    UINT32     tagList = tagId;
    CHITAGDATA tagData = {};
    tagData.size       = sizeof(CHITAGDATA);
    tagData.requestId  = requestId;
    tagData.offset     = 0;

    CHIMETADATAINFO info = {};
    info.size            = sizeof(CHIMETADATAINFO);
    info.chiSession      = hChiSession;
    info.tagNum          = 1;
    info.pTagList        = &tagList;
    info.pTagData        = &tagData;
    info.metadataType    = type;

    CDKResult result = CDKResultEUnsupported;
    if (ChiMetadataStatic == type)
    {
        if (nullptr != pIface->pGetStaticMetadata)
        {
            result = pIface->pGetStaticMetadata(&info, cameraId);
        }
    }
    else if (nullptr != pIface->pGetMetadata)
    {
        result = pIface->pGetMetadata(&info);
    }
    return (CDKResultSuccess == result) ? tagData.pData : nullptr;
}

FILE* ChiNodeUtils::FOpen(const CHAR* pName, const CHAR* pMode)
{
    if ((nullptr == pName) || (nullptr == pMode))
    {
        return nullptr;
    }
    return fopen(pName, pMode);
}

SIZE_T ChiNodeUtils::FWrite(const void* pBuffer, SIZE_T size, SIZE_T count, FILE* pFile)
{
    if ((nullptr == pBuffer) || (nullptr == pFile))
    {
        return 0;
    }
    return fwrite(pBuffer, size, count, pFile);
}

CDKResult ChiNodeUtils::FClose(FILE* pFile)
{
    if (nullptr == pFile)
    {
        return CDKResultEFailed;
    }
    return (0 == fclose(pFile)) ? CDKResultSuccess : CDKResultEFailed;
}

INT ChiNodeUtils::SNPrintF(CHAR* pDst, SIZE_T size, const CHAR* pFormat, ...)
{
    if ((nullptr == pDst) || (0 == size))
    {
        return -1;
    }
    pDst[0] = '\0';
    if (nullptr == pFormat)
    {
        return -1;
    }
    va_list args;
    va_start(args, pFormat);
    int written = vsnprintf(pDst, size, pFormat, args);
    va_end(args);
    if (written < 0)
    {
        pDst[0] = '\0';
        return -1;
    }
    // vsnprintf reports the length the whole text needed; reaching size means the tail was cut.
    return (static_cast<SIZE_T>(written) >= size) ? -1 : written;
}
