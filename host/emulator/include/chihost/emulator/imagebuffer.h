// Input image buffers as the camera framework hands them to a node: a CHIIMAGELIST describing an
// NV12 frame (two planes, stride and scanline per plane, plane sizes, format code) whose plane
// addresses point at pixels the caller keeps alive, e.g. a simulator's frame.
#ifndef ZELK_CHIHOST_EMULATOR_IMAGEBUFFER_H
#define ZELK_CHIHOST_EMULATOR_IMAGEBUFFER_H

#include <stdint.h>

#include "chinode.h"
#include "chihost/emulator/status.h"

namespace chihost
{

// A frame in NV12 layout: a luma plane of scanline rows of stride bytes, then the interleaved
// chroma plane of scanline / 2 rows.
struct Nv12View
{
    uint32_t       width    = 0;
    uint32_t       height   = 0;
    uint32_t       stride   = 0;
    uint32_t       scanline = 0;
    const uint8_t* pLuma    = nullptr;
    const uint8_t* pChroma  = nullptr;
};

class CHIHOST_EMULATOR_API ImageBuffer
{
public:
    ImageBuffer();

    // Describes the frame; fails for a view whose stride or scanline cannot hold its size or
    // whose planes are missing. format defaults to NV12; tests may state another code.
    Status Wrap(const Nv12View& view, UINT32 portId, UINT32 format = ChiFormatYUV420NV12);

    CHINODEBUFFERHANDLE Handle() { return &m_list; }
    const CHIIMAGELIST& List() const { return m_list; }

private:
    CHIIMAGELIST m_list;
};

} // namespace chihost

#endif // ZELK_CHIHOST_EMULATOR_IMAGEBUFFER_H
