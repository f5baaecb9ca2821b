// Input buffers for the node fuzz targets; see nodefuzzimages.h.
#include "nodefuzzimages.h"

#include <string.h>

namespace zelkfuzz
{

namespace
{

// Chart geometry as fractions of the crop side (half the frame's short side).
const double   kDiscSpacingFraction = 0.22;
const double   kDiscRadiusFraction  = 0.06;
const uint32_t kMaxChartSidePx      = 8192;
const int      kDiscOffsets[4][2]   = { { 0, -1 }, { 0, 1 }, { -1, 0 }, { 1, 0 } };

void DrawDisc(uint8_t* pPlane, size_t planeBytes, int64_t width, int64_t height, int64_t stride,
              int64_t centreX, int64_t centreY, int64_t radius, uint8_t ink)
{
    const int64_t top    = (centreY - radius < 0) ? 0 : centreY - radius;
    const int64_t bottom = (centreY + radius >= height) ? height - 1 : centreY + radius;
    const int64_t left   = (centreX - radius < 0) ? 0 : centreX - radius;
    const int64_t right  = (centreX + radius >= width) ? width - 1 : centreX + radius;
    for (int64_t y = top; y <= bottom; y++)
    {
        for (int64_t x = left; x <= right; x++)
        {
            const int64_t dx    = x - centreX;
            const int64_t dy    = y - centreY;
            const int64_t index = y * stride + x;
            if ((dx * dx + dy * dy <= radius * radius) && (index < static_cast<int64_t>(planeBytes)))
            {
                pPlane[index] = ink;
            }
        }
    }
}

} // namespace

void DrawChart(uint8_t* pPlane, size_t planeBytes, uint32_t width, uint32_t height, uint32_t stride,
               const ChartStyle& style)
{
    memset(pPlane, style.paper, planeBytes);
    if ((width > kMaxChartSidePx) || (height > kMaxChartSidePx) || (stride < width))
    {
        return;
    }
    const int64_t cropSide = ((width < height) ? width : height) / 2;
    const int64_t spacing  = static_cast<int64_t>(kDiscSpacingFraction * static_cast<double>(cropSide));
    const int64_t radius   = static_cast<int64_t>(kDiscRadiusFraction * static_cast<double>(cropSide));
    for (const int* pOffset : kDiscOffsets)
    {
        DrawDisc(pPlane, planeBytes, width, height, stride, width / 2 + style.shiftX + pOffset[0] * spacing,
                 height / 2 + style.shiftY + pOffset[1] * spacing, radius, style.ink);
    }
}

FuzzImageList::FuzzImageList(FuzzReader& reader, uint64_t maxPlaneBytes)
{
    memset(&m_list, 0, sizeof(m_list));
    m_null = (reader.U8() & 1) != 0;

    CHIIMAGEFORMAT& format = m_list.format;
    format.width           = reader.U32();
    format.height          = reader.U32();
    const uint32_t stride   = reader.U32();
    const uint32_t scanline = reader.U32();
    format.format          = reader.U32();
    m_list.imageCount      = reader.U32();
    m_list.planeSize[0]    = reader.U64() % (maxPlaneBytes + 1);
    m_list.numberOfPlanes  = reader.U32();
    m_list.portId          = reader.U32();
    m_list.size            = reader.U32();

    CHIYUVFORMAT& luma  = format.formatParams.yuvFormat[0];
    luma.width          = format.width;
    luma.height         = format.height;
    luma.planeStride    = stride;
    luma.sliceHeight    = scanline;
    luma.pixelPlaneSize = m_list.planeSize[0];
    CHIYUVFORMAT& chroma = format.formatParams.yuvFormat[1];
    chroma.width         = format.width;
    chroma.height        = format.height / 2;
    chroma.planeStride   = stride;
    chroma.sliceHeight   = scanline / 2;

    const uint8_t nullImages = reader.U8();
    const uint8_t content    = reader.U8();
    const uint8_t paper      = reader.U8();
    const int8_t  shiftX     = static_cast<int8_t>(reader.U8());
    const int8_t  shiftY     = static_cast<int8_t>(reader.U8());

    const uint64_t described = static_cast<uint64_t>(stride) * format.height;
    if (m_list.planeSize[0] != 0)
    {
        Allocate(m_list.planeSize[0]);
    }
    else if (described <= maxPlaneBytes)
    {
        Allocate(described);
    }
    if (m_pPlane != nullptr)
    {
        Paint(content, paper, shiftX, shiftY);
    }

    const uint32_t images = (m_list.imageCount < ChiMaxImagesPerList) ? m_list.imageCount : ChiMaxImagesPerList;
    for (uint32_t k = 0; k < ChiMaxImagesPerList; k++)
    {
        CHIIMAGE& image = m_list.pImageList[k];
        image.size      = sizeof(CHIIMAGE);
        for (int& fd : image.fd)
        {
            fd = -1;
        }
        const bool present = (k < images) && ((nullImages & (1u << k)) == 0);
        image.pAddr[0]     = present ? m_pPlane.get() : nullptr;
    }
}

void FuzzImageList::Allocate(uint64_t planeBytes)
{
    m_planeBytes = static_cast<size_t>(planeBytes);
    m_pPlane.reset(new uint8_t[m_planeBytes]);
}

void FuzzImageList::Paint(uint8_t content, uint8_t paper, int8_t shiftX, int8_t shiftY)
{
    if ((content & 1) == 0)
    {
        memset(m_pPlane.get(), paper, m_planeBytes);
        return;
    }
    ChartStyle style;
    style.shiftX = shiftX;
    style.shiftY = shiftY;
    style.paper  = (paper < 120) ? 190 : paper; // the discs need paper well above the ink
    DrawChart(m_pPlane.get(), m_planeBytes, m_list.format.width, m_list.format.height,
              m_list.format.formatParams.yuvFormat[0].planeStride, style);
}

std::vector<uint8_t> DescribeChartFrame(uint32_t width, uint32_t height)
{
    std::vector<uint8_t> bytes;
    auto put = [&bytes](uint64_t value, int size) {
        for (int i = 0; i < size; i++)
        {
            bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
        }
    };
    put(0, 1);                                            // flags: a handle
    put(width, 4);
    put(height, 4);
    put(width, 4);                                        // stride
    put(height, 4);                                       // scanline
    put(ChiFormatYUV420NV12, 4);
    put(1, 4);                                            // imageCount
    put(static_cast<uint64_t>(width) * height, 8);        // planeSize
    put(2, 4);                                            // numberOfPlanes
    put(0, 4);                                            // portId
    put(sizeof(CHIIMAGELIST), 4);
    put(0, 1);                                            // no null images
    put(1, 1);                                            // the chart
    put(190, 1);                                          // paper
    put(0, 1);
    put(0, 1);
    return bytes;
}

std::vector<std::unique_ptr<FuzzImageList>> ReadImageLists(FuzzReader& reader, uint32_t maxLists,
                                                           uint64_t maxPlaneBytes)
{
    std::vector<std::unique_ptr<FuzzImageList>> lists;
    const uint32_t count = reader.U8() % (maxLists + 1);
    for (uint32_t i = 0; i < count; i++)
    {
        lists.emplace_back(new FuzzImageList(reader, maxPlaneBytes));
    }
    return lists;
}

std::vector<CHINODEBUFFERHANDLE> Handles(const std::vector<std::unique_ptr<FuzzImageList>>& lists)
{
    std::vector<CHINODEBUFFERHANDLE> handles;
    for (const std::unique_ptr<FuzzImageList>& list : lists)
    {
        handles.push_back(list->Handle());
    }
    return handles;
}

} // namespace zelkfuzz
