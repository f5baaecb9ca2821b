// Buffer negotiation: the node works on frames of one fixed size, 1440 x 1080, on every port. It
// lets the platform's default negotiation fill the query first, fills neutral defaults where the
// host left fields empty, and records two flags of each output port for request processing.
#include <string.h>

#include "camxchinodezelkoisverify.h"
#include "chinodeutils.h"
#include "oisverifylog.h"

namespace
{

const UINT32 FrameWidth  = 1440;
const UINT32 FrameHeight = 1080;

// Stride and scanline alignment of the luma and chroma planes when the host gives none.
const CHIALIGNMENTINFO DefaultPlaneAlignment[2] = { { 128, 32 }, { 128, 16 } };

const UINT32 RealTimeFlagBit          = 1;
const UINT32 InputDependencyFlagBit   = 5;

void ForceFrameSize(CHINODEBUFFERREQUIREMENT* pRequirement)
{
    pRequirement->minW     = FrameWidth;
    pRequirement->minH     = FrameHeight;
    pRequirement->maxW     = FrameWidth;
    pRequirement->maxH     = FrameHeight;
    pRequirement->optimalW = FrameWidth;
    pRequirement->optimalH = FrameHeight;
}

BOOL IsAllZero(const void* pData, SIZE_T size)
{
    const UINT8* pBytes = static_cast<const UINT8*>(pData);
    for (SIZE_T i = 0; i < size; i++)
    {
        if (0 != pBytes[i])
        {
            return FALSE;
        }
    }
    return TRUE;
}

} // namespace

CDKResult ChiOisVerifyNode::QueryBufferInfo(CHINODEQUERYBUFFERINFO* pQueryBufferInfo)
{
    ChiNodeUtils::DefaultBufferNegotiation(pQueryBufferInfo);

    const UINT32 numOutputs = (NULL != pQueryBufferInfo->pOutputPortQueryInfo) ? pQueryBufferInfo->numOutputPorts : 0;
    const UINT32 numInputs  = (NULL != pQueryBufferInfo->pInputOptions) ? pQueryBufferInfo->numInputPorts : 0;
    CHIOUTPUTPORTQUERYBUFFERINFO* pOutputs = pQueryBufferInfo->pOutputPortQueryInfo;
    CHIINPUTPORTQUERYBUFFERINFO*  pInputs  = pQueryBufferInfo->pInputOptions;

    for (UINT32 i = 0; i < numOutputs; i++)
    {
        if (IsAllZero(pOutputs[i].bufferUsage, sizeof(pOutputs[i].bufferUsage)))
        {
            memset(pOutputs[i].bufferUsage, 0xFF, sizeof(pOutputs[i].bufferUsage));
        }
    }
    for (UINT32 i = 0; i < numInputs; i++)
    {
        CHIALIGNMENTINFO* pAlignment = pInputs[i].inputBufferOption.planeAlignment;
        if (IsAllZero(pAlignment, 2 * sizeof(CHIALIGNMENTINFO)))
        {
            memcpy(pAlignment, DefaultPlaneAlignment, sizeof(DefaultPlaneAlignment));
        }
    }
    // The two flag arrays overlap by design: port i's bit 5 shares storage with port i + 1's
    // bit 1, so with several ports each bit-5 value is overwritten by the next port's bit 1.
    for (UINT32 i = 0; (i < numOutputs) && (i < MaxOutputPorts); i++)
    {
        m_pIsRealTimePort[i]        = (pOutputs[i].outputPortFlags >> RealTimeFlagBit) & 1;
        m_pCanSetInputDependency[i] = (pOutputs[i].outputPortFlags >> InputDependencyFlagBit) & 1;
    }
    for (UINT32 i = 0; i < numInputs; i++)
    {
        ForceFrameSize(&pInputs[i].inputBufferOption);
    }
    for (UINT32 i = 0; i < numOutputs; i++)
    {
        ForceFrameSize(&pOutputs[i].outputBufferOption);
    }

    for (UINT32 i = 0; i < numInputs; i++)
    {
        const CHINODEBUFFERREQUIREMENT& option = pInputs[i].inputBufferOption;
        OIS_LOG_INFO("InputPortIndex %d PortId %d Input: opt[%dx%d] Min[%dx%d] Max[%dx%d]", i, pInputs[i].inputPortId,
                     option.optimalW, option.optimalH, option.minW, option.minH, option.maxW, option.maxH);
    }
    for (UINT32 i = 0; i < numOutputs; i++)
    {
        const CHINODEBUFFERREQUIREMENT& option = pOutputs[i].outputBufferOption;
        OIS_LOG_INFO("OutputPortIndex %d PortId %d Output: opt[%dx%d] Min[%dx%d] Max[%dx%d]", i, pOutputs[i].outputPortId,
                     option.optimalW, option.optimalH, option.minW, option.minH, option.maxW, option.maxH);
    }
    return CDKResultSuccess;
}

CDKResult ChiOisVerifyNode::SetBufferInfo(CHINODESETBUFFERPROPERTIESINFO* pSetBufferInfo)
{
    // The chosen size is stored as given, whatever the port; a missing format is refused.
    if (NULL == pSetBufferInfo->pFormat)
    {
        OIS_LOG_ERROR("Invalid argument");
        return CDKResultEInvalidPointer;
    }
    m_outputWidth  = pSetBufferInfo->pFormat->width;
    m_outputHeight = pSetBufferInfo->pFormat->height;
    return CDKResultSuccess;
}
