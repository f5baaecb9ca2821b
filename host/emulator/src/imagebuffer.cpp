// NV12 input buffers for a node; see imagebuffer.h.
#include "chihost/emulator/imagebuffer.h"

#include <string.h>

namespace chihost
{

ImageBuffer::ImageBuffer()
{
    memset(&m_list, 0, sizeof(m_list));
    m_list.size = sizeof(m_list);
}

Status ImageBuffer::Wrap(const Nv12View& view, UINT32 portId, UINT32 format)
{
    if (view.pLuma == nullptr || view.pChroma == nullptr)
    {
        return Status::Error("NV12 frame without pixel planes");
    }
    if (view.width == 0 || view.height == 0 || view.stride < view.width || view.scanline < view.height)
    {
        return Status::Error("NV12 frame " + std::to_string(view.width) + "x" + std::to_string(view.height) +
                             " does not fit stride " + std::to_string(view.stride) + " and scanline " +
                             std::to_string(view.scanline));
    }
    memset(&m_list, 0, sizeof(m_list));
    m_list.size   = sizeof(m_list);
    m_list.portId = portId;

    CHIIMAGEFORMAT& imageFormat = m_list.format;
    imageFormat.width           = view.width;
    imageFormat.height          = view.height;
    imageFormat.format          = format;
    const SIZE_T lumaBytes      = static_cast<SIZE_T>(view.stride) * view.scanline;
    const SIZE_T chromaBytes    = static_cast<SIZE_T>(view.stride) * (view.scanline / 2);
    const SIZE_T planeBytes[2]  = { lumaBytes, chromaBytes };
    for (UINT32 plane = 0; plane < 2; plane++)
    {
        CHIYUVFORMAT& yuv  = imageFormat.formatParams.yuvFormat[plane];
        yuv.width          = view.width;
        yuv.height         = (plane == 0) ? view.height : view.height / 2;
        yuv.planeStride    = view.stride;
        yuv.sliceHeight    = (plane == 0) ? view.scanline : view.scanline / 2;
        yuv.pixelPlaneSize = planeBytes[plane];
        m_list.planeSize[plane] = planeBytes[plane];
    }
    m_list.numberOfPlanes            = 2;
    m_list.imageCount                = 1;
    m_list.pImageList[0].size        = sizeof(CHIIMAGE);
    m_list.pImageList[0].fd[0]       = -1;
    m_list.pImageList[0].fd[1]       = -1;
    m_list.pImageList[0].pAddr[0]    = const_cast<UCHAR*>(view.pLuma);
    m_list.pImageList[0].pAddr[1]    = const_cast<UCHAR*>(view.pChroma);
    return Status::Ok();
}

} // namespace chihost
