// Image handling of the node: the square centre crop of a frame's luma plane that the measurement
// runs on (half the short side for 4:3 frames, two thirds of it for 16:9), and the optional dumps
// of crops for inspection.
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>

#include "camxchinodezelkoisverify.h"
#include "chinodeutils.h"
#include "devicepath.h"
#include "oisverifylog.h"
#include "oisverifynodefiles.h"

namespace
{

const CHAR  DebugCropFile[]   = "/data/vendor/camera/oisverify/oisverify_crop.yuv";
const CHAR  DumpFileFormat[]  =
    "/data/vendor/camera/oisverify/dumpImage/oisverify_node_frameNum[%d]_w[%d]_h[%d]_stride[%d]_scanline[%d]_crop.yuv";
const FLOAT AspectTolerance   = 0.1f;
const FLOAT Aspect4By3        = 1.33f;
const FLOAT Aspect16By9       = 1.77f;
const UINT8 NeutralChroma     = 0x80;
const UINT32 PathBytes        = 512;

// Dump files are opened with the node's safe writer: never a FIFO, a special file or a link.
FILE* OpenDumpFile(const CHAR* pDevicePath)
{
    return OpenNodeOutputFile(DevicePath(pDevicePath).Get());
}

} // namespace

// Whether the cropLength square centred as the crop places it lies inside a width x height
// plane whose rows are stride bytes apart.
BOOL ChiOisVerifyNode::CropWindowFits(INT32 width, INT32 height, INT32 stride, INT32 cropLength)
{
    const INT32 half = cropLength / 2;
    const INT32 top  = height / 2 - half;
    const INT32 left = width / 2 - half;
    return ((cropLength > 0) && (top >= 0) && (left >= 0) && (top + cropLength <= height) &&
            (left + cropLength <= width) && (width <= stride)) ? TRUE : FALSE;
}

INT32 ChiOisVerifyNode::CropImage(const UINT8* pInput, INT32 width, INT32 height, INT32 stride, INT32 scanline,
                                  UINT8** ppOutput, INT32* pCropLength)
{
    (void)scanline;
    if (NULL == pInput)
    {
        OIS_LOG_ERROR("pInput is NULL, please check");
        return 1;
    }
    const FLOAT ratio     = static_cast<FLOAT>(width) / static_cast<FLOAT>(height);
    const INT32 shortSide = (width < height) ? width : height;
    if (std::fabs(ratio - Aspect4By3) < AspectTolerance)
    {
        *pCropLength = shortSide / 2;
        OIS_LOG_VERBOSE("image 4:3 crop_length = %d", *pCropLength);
    }
    else if (std::fabs(ratio - Aspect16By9) < AspectTolerance)
    {
        *pCropLength = (shortSide * 50) / 75;
        OIS_LOG_VERBOSE("image 16:9 crop_length = %d", *pCropLength);
    }

    const INT32 cropLength = *pCropLength;
    if (FALSE == CropWindowFits(width, height, stride, cropLength))
    {
        OIS_LOG_ERROR("crop window %d does not fit image %dx%d stride %d", cropLength, width, height, stride);
        return 1;
    }
    *ppOutput = static_cast<UINT8*>(malloc(static_cast<SIZE_T>(cropLength) * cropLength));
    if (NULL == *ppOutput)
    {
        OIS_LOG_ERROR("*pOutput is NULL, malloc memory fail");
        return 1;
    }

    const INT32  half = cropLength / 2;
    const UINT8* pRow = pInput + static_cast<SIZE_T>(height / 2 - half) * stride + (width / 2 - half);
    for (INT32 row = 0; row < cropLength; row++)
    {
        memcpy(*ppOutput + static_cast<SIZE_T>(row) * cropLength, pRow + static_cast<SIZE_T>(row) * stride,
               cropLength);
    }
    return 0;
}

void ChiOisVerifyNode::DumpInputImage(CHINODEPROCESSREQUESTINFO* pProcessRequestInfo)
{
    const INT32 frameNum = static_cast<INT32>(pProcessRequestInfo->frameNum);
    OIS_LOG_INFO("frameNum = %d inputNum = %d outputNum = %d", frameNum, pProcessRequestInfo->inputNum,
                 pProcessRequestInfo->outputNum);
    for (UINT32 i = 0; i < InputCount(pProcessRequestInfo); i++)
    {
        CHIIMAGELIST* pBuffer = pProcessRequestInfo->phInputBuffer[i];
        if (NULL == pBuffer)
        {
            continue;
        }
        const CHIIMAGEFORMAT& format = pBuffer->format;
        OIS_LOG_INFO("i = %d pInputHandle = %p  image format = %dnumberOfPlans = %d imageCount = %d portId = %d", i,
                     static_cast<void*>(pBuffer), format.format, pBuffer->numberOfPlanes, pBuffer->imageCount,
                     pBuffer->portId);
        OIS_LOG_INFO("Image [wxh] [%dx%d] alignment = %dalignment info strideAlignment = %d scanlineAlignment = %d",
                     format.width, format.height, static_cast<INT32>(format.alignment),
                     format.planeAlignment[0].strideAlignment, format.planeAlignment[0].scanlineAlignment);
        if (ChiFormatYUV420NV12 != format.format)
        {
            continue;
        }
        const UINT32 imageCount = (pBuffer->imageCount < ChiMaxImagesPerList) ? pBuffer->imageCount : ChiMaxImagesPerList;
        for (UINT32 k = 0; k < imageCount; k++)
        {
            DumpInputCrop(pBuffer, k, frameNum);
        }
    }
}

void ChiOisVerifyNode::DumpInputCrop(const CHIIMAGELIST* pBuffer, UINT32 imageIndex, INT32 frameNum)
{
    const CHIIMAGEFORMAT& format   = pBuffer->format;
    const INT32           width    = static_cast<INT32>(format.width);
    const INT32           height   = static_cast<INT32>(format.height);
    const INT32           stride   = static_cast<INT32>(format.formatParams.yuvFormat[0].planeStride);
    const INT32           scanline = static_cast<INT32>(format.formatParams.yuvFormat[0].sliceHeight);
    UINT8*                pCrop    = NULL;
    const INT32 cropResult = CropImage(LumaPlane(pBuffer, imageIndex), width, height, stride, scanline, &pCrop,
                                       &m_cropLength);

    CHAR fileName[PathBytes];
    ChiNodeUtils::SNPrintF(fileName, sizeof(fileName), DumpFileFormat, frameNum, m_cropLength, m_cropLength,
                           m_cropLength, m_cropLength);
    FILE* pFile = ((0 == cropResult) && (0 != m_cropLength)) ? OpenDumpFile(fileName) : NULL;
    if (NULL != pFile)
    {
        ChiNodeUtils::FWrite(pCrop, static_cast<SIZE_T>(m_cropLength) * m_cropLength, 1, pFile);
        OIS_LOG_INFO_IN("DumpInputImage", "dump image succ. frameNum: %d, imageList[%d]w*h %d*%d stride %d scanline %d",
                        frameNum, imageIndex, m_cropLength, m_cropLength, m_cropLength, m_cropLength);
        ChiNodeUtils::FClose(pFile);
    }
    else
    {
        OIS_LOG_ERROR_IN("DumpInputImage", "open image dump file failed. frameNum: %d,w*h %d*%d stride %d scanline %d",
                         frameNum, width, height, stride, scanline);
    }
    free(pCrop);
}

// Writes the first measured crop as a grey-chroma NV12 image for inspection. cropLength is that of
// the crop passed (0 without one): a crop length the crop refused never sizes an allocation.
void ChiOisVerifyNode::DumpDebugYUV(const UINT8* pCrop, INT32 cropLength)
{
    FILE* pFile = OpenDumpFile(DebugCropFile);
    const SIZE_T side      = ((NULL != pCrop) && (cropLength > 0)) ? static_cast<SIZE_T>(cropLength) : 0;
    const SIZE_T lumaBytes = side * side;
    const SIZE_T size      = static_cast<SIZE_T>(3.0f * static_cast<FLOAT>(lumaBytes) / 2.0f);
    if ((NULL == pFile) || (0 == lumaBytes))
    {
        OIS_LOG_ERROR_IN("DumpDebugYUV", "open image dump file failed. %s", DebugCropFile);
        if (NULL != pFile)
        {
            ChiNodeUtils::FClose(pFile);
        }
        return;
    }
    UINT8* pImage = static_cast<UINT8*>(malloc(size));
    if (NULL == pImage)
    {
        // The file stays open here, as it always has on this path.
        OIS_LOG_ERROR_IN("DumpDebugYUV", "alloc memory failed");
        return;
    }
    memset(pImage, NeutralChroma, size);
    memcpy(pImage, pCrop, lumaBytes);
    ChiNodeUtils::FWrite(pImage, size, 1, pFile);
    OIS_LOG_INFO_IN("DumpDebugYUV", "dump image succ. %s", DebugCropFile);
    free(pImage);
    ChiNodeUtils::FClose(pFile);
}
