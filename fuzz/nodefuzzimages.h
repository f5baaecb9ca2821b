// Input buffers for the node fuzz targets: a CHIIMAGELIST whose every field comes from fuzz bytes
// and whose plane addresses are null or point at memory of exactly the size the list states, so
// that the sanitizers see any read the list does not allow. All images of a list share one luma
// allocation (the node reads each image's first plane independently; one copy is enough to catch
// a read past it). Optionally the luma shows the four-disc chart, so the measurement can succeed.
//
// Description layout (little-endian, zero past the end of the input):
//   u8  flags       bit 0: the handle itself is null
//   u32 width, height, stride, scanline, format, imageCount
//   u64 planeSize   taken modulo (maxPlaneBytes + 1); 0 means "not stated"
//   u32 numberOfPlanes, portId, size
//   u8  nullImages  bit k: image k's plane address is null
//   u8  content     bit 0: draw the chart; otherwise a flat fill
//   u8  paper       fill or paper level
//   i8  shiftX, shiftY   chart displacement in pixels
// When planeSize is 0 the plane is allocated at stride x height, the size the format describes,
// or left null when that is larger than maxPlaneBytes.
#ifndef ZELK_FUZZ_NODEFUZZIMAGES_H
#define ZELK_FUZZ_NODEFUZZIMAGES_H

#include <stdint.h>

#include <memory>
#include <vector>

#include "chinode.h"
#include "nodefuzzhost.h"

namespace zelkfuzz
{

struct ChartStyle
{
    int     shiftX = 0;
    int     shiftY = 0;
    uint8_t paper  = 190;
    uint8_t ink    = 30;
};

// Paints four dark discs (above, below, left and right of the centre) on paper into a width x
// height luma plane with rows stride bytes apart, touching only bytes below planeBytes. The discs
// sit where the node's centre crop (half the short side) keeps them.
void DrawChart(uint8_t* pPlane, size_t planeBytes, uint32_t width, uint32_t height, uint32_t stride,
               const ChartStyle& style);

class FuzzImageList
{
public:
    // Reads one description; maxPlaneBytes bounds the allocation.
    FuzzImageList(FuzzReader& reader, uint64_t maxPlaneBytes);
    FuzzImageList(const FuzzImageList&)            = delete;
    FuzzImageList& operator=(const FuzzImageList&) = delete;

    // The handle as the host passes it (null when the description says so).
    CHINODEBUFFERHANDLE Handle() { return m_null ? nullptr : &m_list; }

private:
    void Allocate(uint64_t planeBytes);
    void Paint(uint8_t content, uint8_t paper, int8_t shiftX, int8_t shiftY);

    CHIIMAGELIST               m_list;
    std::unique_ptr<uint8_t[]> m_pPlane;
    size_t                     m_planeBytes = 0;
    bool                       m_null       = false;
};

// The description of a plain NV12 frame showing the chart: stride = width, scanline = height,
// plane size stated exactly, one image, port 0.
std::vector<uint8_t> DescribeChartFrame(uint32_t width, uint32_t height);

// Reads up to maxLists descriptions after a count byte; the vector keeps them alive.
std::vector<std::unique_ptr<FuzzImageList>> ReadImageLists(FuzzReader& reader, uint32_t maxLists,
                                                           uint64_t maxPlaneBytes);
// The handles of the lists, in order.
std::vector<CHINODEBUFFERHANDLE> Handles(const std::vector<std::unique_ptr<FuzzImageList>>& lists);

} // namespace zelkfuzz

#endif // ZELK_FUZZ_NODEFUZZIMAGES_H
