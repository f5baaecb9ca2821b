// Measurement of the node. Each measured frame's crop goes to the four-circle library; every
// result, failed runs included, enters a ring buffer of m_BufferSize frames. The blur of a circle
// coordinate is its spread (max - min) over the ring, the horizontal blur the mean x spread of
// the upper and lower circles, the vertical blur the mean y spread of the left and right ones,
// and SR = 10 log10(181.248 px / blur) + 4 dB, so a blur of 181.248 px (OIS off on the default
// chart) reads 4 dB. A verification ends once more than m_minFrameCount runs succeeded.
#include <stdlib.h>
#include <string.h>

#include <cmath>

#include "camxchinodezelkoisverify.h"
#include "camxosutils.h"
#include "chinodeutils.h"
#include "oisverifylog.h"

namespace
{

const INT32  AlgoNotCalled     = -10;
const DOUBLE ReferenceBlurPx   = 181.248;
const DOUBLE SROffsetDb        = 4.0;
const UINT32 TextLineBytes     = 256;
const INT64  NanosecondsPerSec = 1000000000;

INT64 NowNs()
{
    CamxTime now = { 0, 0 };
    CamX::OsUtils::GetTime(&now);
    return static_cast<INT64>(now.seconds) * NanosecondsPerSec + now.nanoSeconds;
}

void Spread(const std::vector<OISAlgoResult>& ring, DOUBLE OISAlgoResult::*pCoordinate, FLOAT* pBlur)
{
    DOUBLE low  = ring[0].*pCoordinate;
    DOUBLE high = low;
    for (const OISAlgoResult& result : ring)
    {
        low  = (result.*pCoordinate < low) ? result.*pCoordinate : low;
        high = (result.*pCoordinate > high) ? result.*pCoordinate : high;
    }
    *pBlur = static_cast<FLOAT>(high - low);
}

FLOAT SuppressionRatio(FLOAT blur)
{
    return static_cast<FLOAT>(10.0 * std::log10(ReferenceBlurPx / static_cast<DOUBLE>(blur)) + SROffsetDb);
}

} // namespace

UINT32 ChiOisVerifyNode::InputCount(const CHINODEPROCESSREQUESTINFO* pProcessRequestInfo)
{
    return (NULL != pProcessRequestInfo->phInputBuffer) ? pProcessRequestInfo->inputNum : 0;
}

// The luma plane of one image of the buffer, or null when the buffer cannot hold the frame it
// describes; the refusal is logged under pOperation, the operation that wanted the plane.
const UINT8* ChiOisVerifyNode::LumaPlane(const CHIIMAGELIST* pBuffer, UINT32 imageIndex, const CHAR* pOperation)
{
    const CHIIMAGEFORMAT& format = pBuffer->format;
    const SIZE_T stride   = format.formatParams.yuvFormat[0].planeStride;
    const SIZE_T needed   = stride * format.height;
    if ((imageIndex >= ChiMaxImagesPerList) || ((0 != pBuffer->planeSize[0]) && (pBuffer->planeSize[0] < needed)))
    {
        OIS_LOG_ERROR_IN(pOperation, "luma plane of %zu bytes cannot hold %ux%u with stride %zu", pBuffer->planeSize[0],
                         format.width, format.height, stride);
        return NULL;
    }
    return pBuffer->pImageList[imageIndex].pAddr[0];
}

// The next debug image as the crop (a 720 x 720 luma square), or null when there is none.
UINT8* ChiOisVerifyNode::TakeDebugImage()
{
    const UINT32 count = static_cast<UINT32>(fileVector.size());
    const UINT32 index = (0 != count) ? (m_imageIndex % count) : m_imageIndex;
    const BOOL   usable = (index < imageVector.size()) && (NULL != imageVector[index]) &&
                          (imageSizeVector[index] >= DebugImageBytes);
    UINT8* pCrop = usable ? static_cast<UINT8*>(malloc(DebugImageBytes)) : NULL;
    if (NULL == pCrop)
    {
        OIS_LOG_ERROR_IN("ExecOISVerifyAlgo", "imageimgBuffer is NULL; please check imageVector[%d]", index);
        return NULL;
    }
    m_cropLength = DebugImageSide;
    memcpy(pCrop, imageVector[index], DebugImageBytes);
    m_imageIndex++;
    OIS_LOG_INFO_IN("ExecOISVerifyAlgo", "read image from imageVector[%d]", index);
    return pCrop;
}

void ChiOisVerifyNode::ExecOISVerifyAlgo(CHINODEPROCESSREQUESTINFO* pProcessRequestInfo)
{
    for (UINT32 i = 0; i < InputCount(pProcessRequestInfo); i++)
    {
        const CHIIMAGELIST* pBuffer = pProcessRequestInfo->phInputBuffer[i];
        if (NULL == pBuffer)
        {
            continue;
        }
        const CHIIMAGEFORMAT& format = pBuffer->format;
        OIS_LOG_VERBOSE("i = %d image format %d imageCount %d portId %d wxh %dx%d", i, format.format,
                        pBuffer->imageCount, pBuffer->portId, format.width, format.height);
        if (ChiFormatYUV420NV12 != format.format)
        {
            SetOISVerifyState(ErrorStateBadFormat);
            OIS_LOG_ERROR("failed to get correct format, format %d", format.format);
            continue;
        }
        const INT32 state = m_oisVerifyState.load(std::memory_order_relaxed);
        if (((VerifyingState != state) && (VerifyGainState != state)) || (pProcessRequestInfo->frameNum < m_dropFrameNum))
        {
            continue;
        }
        MeasureBuffer(pBuffer, static_cast<INT32>(pProcessRequestInfo->frameNum));
    }
}

void ChiOisVerifyNode::MeasureBuffer(const CHIIMAGELIST* pBuffer, INT32 frameNum)
{
    UINT8* pCrop = NULL;
    if (1 == m_isDebugMode)
    {
        pCrop = TakeDebugImage();
    }
    else
    {
        const CHIIMAGEFORMAT& format = pBuffer->format;
        const INT32 stride   = static_cast<INT32>(format.formatParams.yuvFormat[0].planeStride);
        const INT32 scanline = static_cast<INT32>(format.formatParams.yuvFormat[0].sliceHeight);
        const UINT8* pLuma   = LumaPlane(pBuffer, 0, "ExecOISVerifyAlgo");
        if (0 != CropImage(pLuma, static_cast<INT32>(format.width), static_cast<INT32>(format.height), stride, scanline,
                           &pCrop, &m_cropLength))
        {
            free(pCrop);
            pCrop = NULL;
        }
    }

    INT32          algoReturn = AlgoNotCalled;
    OISPointResult points     = {};
    if ((NULL != pCrop) && (NULL != m_pOisHighFpsAlgo))
    {
        OIS_LOG_INFO_IN("ExecOISVerifyAlgo", "algoInput.imgBuffer = %p width*height = %d*%d", static_cast<void*>(pCrop),
                        m_cropLength, m_cropLength);
        algoReturn = m_pOisHighFpsAlgo(pCrop, OISImageSize{ m_cropLength, m_cropLength }, &points);
        if (TRUE == SaveAlgoResultToBuffer(points, frameNum))
        {
            RecordSavedResult(points, frameNum, algoReturn);
        }
    }

    OIS_LOG_INFO_IN("ExecOISVerifyAlgo", "algo return = %d", algoReturn);
    if ((0 == m_execAlgoFrameNum) && (0 == m_skipAlgoFrameNum))
    {
        DumpDebugYUV(pCrop, (NULL != pCrop) ? m_cropLength : 0);
    }
    ActOnAlgoReturn(algoReturn, points);
    free(pCrop);
}

BOOL ChiOisVerifyNode::SaveAlgoResultToBuffer(const OISPointResult& points, INT32 frameNum)
{
    if ((0 == m_BufferSize) || (m_algoResultBuffer.size() < m_BufferSize))
    {
        OIS_LOG_ERROR("m_BufferSize is 0, save algo result failed");
        return FALSE;
    }
    OISAlgoResult& slot = m_algoResultBuffer[m_algoResultCount % m_BufferSize];
    slot = { points.upX, points.upY, points.downX, points.downY, points.leftX, points.leftY, points.rightX,
             points.rightY, frameNum };
    m_isBufferWrapped = (m_algoResultCount >= m_BufferSize) ? 1 : 0;
    m_algoResultCount++;
    return TRUE;
}

// After a save: blur once the ring is full, the frame's line in the point-position log.
void ChiOisVerifyNode::RecordSavedResult(const OISPointResult& points, INT32 frameNum, INT32 algoReturn)
{
    if (1 == m_isBufferWrapped)
    {
        CalculatePointBlur();
    }
    if (NULL != m_pPointPositionFile)
    {
        CHAR line[TextLineBytes];
        ChiNodeUtils::SNPrintF(line, sizeof(line),
                               "frameNum = %d index = %d algoReturn = %d up[%.2f,%.2f] down[%.2f,%.2f] left[%.2f,%.2f] "
                               "right[%.2f,%.2f]  \n",
                               frameNum, (m_algoResultCount - 1) % m_BufferSize, algoReturn, points.upX, points.upY,
                               points.downX, points.downY, points.leftX, points.leftY, points.rightX, points.rightY);
        ChiNodeUtils::FWrite(line, strlen(line), 1, m_pPointPositionFile);
    }
    OIS_LOG_INFO_IN("ExecOISVerifyAlgo", "put frameNum = %d data to m_algoResultBuffer", frameNum);
}

void ChiOisVerifyNode::ActOnAlgoReturn(INT32 algoReturn, const OISPointResult& last)
{
    if (0 == algoReturn)
    {
        OIS_LOG_VERBOSE_IN("ExecOISVerifyAlgo",
                           "the location of the feature point up(%.2f,%.2f) down(%.2f,%.2f) left(%.2f,%.2f) "
                           "right(%.2f,%.2f)  m_execAlgoFrameNum = %d",
                           last.upX, last.upY, last.downX, last.downY, last.leftX, last.leftY, last.rightX,
                           last.rightY, m_execAlgoFrameNum);
        m_execAlgoFrameNum++;
        if ((0 == m_execTimestamp) && (1 == m_execAlgoFrameNum))
        {
            m_execTimestamp = NowNs();
            OIS_LOG_INFO_IN("ExecOISVerifyAlgo", "set m_execTimestamp = %lld", static_cast<long long>(m_execTimestamp));
        }
        return;
    }
    if (-1 == algoReturn)
    {
        OIS_LOG_ERROR_IN("ExecOISVerifyAlgo", "please check the algo input mode");
    }
    else if (AlgoNotCalled == algoReturn)
    {
        OIS_LOG_ERROR_IN("ExecOISVerifyAlgo", "the algo was not called");
    }
    else
    {
        OIS_LOG_ERROR_IN("ExecOISVerifyAlgo", "four circles were not found in the input image");
    }
    m_skipAlgoFrameNum++;
    m_algoReturn = algoReturn;
}

void ChiOisVerifyNode::CalculatePointBlur()
{
    Spread(m_algoResultBuffer, &OISAlgoResult::upX, &m_pointBlur.upBlur[0]);
    Spread(m_algoResultBuffer, &OISAlgoResult::upY, &m_pointBlur.upBlur[1]);
    Spread(m_algoResultBuffer, &OISAlgoResult::downX, &m_pointBlur.downBlur[0]);
    Spread(m_algoResultBuffer, &OISAlgoResult::downY, &m_pointBlur.downBlur[1]);
    Spread(m_algoResultBuffer, &OISAlgoResult::leftX, &m_pointBlur.leftBlur[0]);
    Spread(m_algoResultBuffer, &OISAlgoResult::leftY, &m_pointBlur.leftBlur[1]);
    Spread(m_algoResultBuffer, &OISAlgoResult::rightX, &m_pointBlur.rightBlur[0]);
    Spread(m_algoResultBuffer, &OISAlgoResult::rightY, &m_pointBlur.rightBlur[1]);
    const OISPointBlur& b = m_pointBlur;
    OIS_LOG_INFO("upBlur[%.2f, %.2f] downBlur[%.2f, %.2f] leftBlur[%.2f, %.2f] rightBlur[%.2f, %.2f]", b.upBlur[0],
                 b.upBlur[1], b.downBlur[0], b.downBlur[1], b.leftBlur[0], b.leftBlur[1], b.rightBlur[0], b.rightBlur[1]);
    m_blurValid = 1;
}

void ChiOisVerifyNode::CalculateSR()
{
    if (1 != m_blurValid)
    {
        return;
    }
    const OISPointBlur& b       = m_pointBlur;
    const FLOAT         horBlur = (b.upBlur[0] + b.downBlur[0]) * 0.5f;
    const FLOAT         verBlur = (b.leftBlur[1] + b.rightBlur[1]) * 0.5f;
    m_verifyResult.horSR   = SuppressionRatio(horBlur);
    m_verifyResult.verSR   = SuppressionRatio(verBlur);
    m_verifyResult.horBlur = horBlur;
    m_verifyResult.verBlur = verBlur;
    OIS_LOG_INFO("Point blur [up,down,left,right] HorBlur [%.3f, %.3f, %.3f, %.3f]  verBlur [%.3f, %.3f, %.3f, %.3f]",
                 b.upBlur[0], b.downBlur[0], b.leftBlur[0], b.rightBlur[0], b.upBlur[1], b.downBlur[1], b.leftBlur[1],
                 b.rightBlur[1]);
    OIS_LOG_INFO("Calculate SR horSR = %.2f horBlur = %.2f verSR = %.2f verBlur = %.2f ", m_verifyResult.horSR, horBlur,
                 m_verifyResult.verSR, verBlur);
}

void ChiOisVerifyNode::IsVerifyDone(INT32 frameNum)
{
    const INT32 state = m_oisVerifyState.load(std::memory_order_relaxed);
    if (((VerifyingState != state) && (VerifyGainState != state)) || (m_execAlgoFrameNum <= m_minFrameCount))
    {
        return;
    }
    const INT64 now    = NowNs();
    m_verifyDurationMs = static_cast<INT32>(static_cast<FLOAT>(now - m_execTimestamp) / 1000000.0f);
    m_algoFps = static_cast<FLOAT>(m_execAlgoFrameNum - 1) * 1000.0f / static_cast<FLOAT>(m_verifyDurationMs);
    OIS_LOG_INFO("algo exec fps %.2f duration time = %d ms m_execTimestamp = %lld timestamp = %lld", m_algoFps,
                 m_verifyDurationMs, static_cast<long long>(m_execTimestamp), static_cast<long long>(now));
    if (m_maxVerifyTime <= static_cast<UINT32>(m_verifyDurationMs))
    {
        OIS_LOG_ERROR("verify duration time %d ms is bigger than limit", m_verifyDurationMs);
        SetOISVerifyState(ErrorStateTimeout);
        return;
    }

    const OISVerifyResult& r = m_verifyResult;
    OIS_LOG_INFO("Blur is valid [horSR, verSR] = [%.2f, %.2f] [horBlur,verBlur] = [%.2f, %.2f] m_execAlgoFrameNum = %d "
                 "verify duration time = %d ms",
                 r.horSR, r.verSR, r.horBlur, r.verBlur, m_execAlgoFrameNum, m_verifyDurationMs);
    if (0 == m_isGyroGainCalib)
    {
        SetOISVerifyState(VerifyDoneState);
    }
    else if (state < CalibStartState)
    {
        const BOOL belowSpec = (r.verSR < m_oisCalibPara.oisSpec) || (r.horSR < m_oisCalibPara.oisSpec);
        SetOISVerifyState(belowSpec ? CalibStartState : VerifyDoneState);
    }
    if (VerifyGainState == m_oisVerifyState.load(std::memory_order_relaxed))
    {
        RecordGainMeasurement(frameNum);
    }
}
