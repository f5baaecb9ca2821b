// Replayed and static input frames; see framesources.h.
#include "session/framesources.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

namespace oisverify
{

namespace
{

constexpr uint8_t kMidGreyDn = 128;

chihost::Nv12View ViewOf(const std::vector<uint8_t>& pixels, const FrameLayout& layout)
{
    chihost::Nv12View view;
    view.width    = layout.width;
    view.height   = layout.height;
    view.stride   = layout.Stride();
    view.scanline = layout.Scanline();
    view.pLuma    = pixels.data();
    view.pChroma  = pixels.data() + static_cast<size_t>(layout.Stride()) * layout.Scanline();
    return view;
}

} // namespace

uint64_t Nv12FrameBytes(const FrameLayout& layout)
{
    const uint64_t rows = static_cast<uint64_t>(layout.Scanline()) + (layout.Scanline() + 1) / 2;
    return rows * layout.Stride();
}

chihost::Status ReplayFrames::Open(const std::string& directory, const FrameLayout& layout)
{
    ReplayFolder    folder;
    chihost::Status status = InspectReplayFolder(directory, layout, &folder);
    if (!status)
    {
        return status;
    }
    m_files    = folder.files;
    m_cropSide = (folder.kind == ReplayKind::NodeCrops) ? folder.cropSide : 0;
    m_layout   = (m_cropSide != 0) ? LayoutForCrop(m_cropSide) : layout;
    m_crop.assign(static_cast<size_t>(m_cropSide) * m_cropSide, 0);
    m_pixels.assign(static_cast<size_t>(Nv12FrameBytes(m_layout)), kMidGreyDn);
    return chihost::Status::Ok();
}

// Reads one file into the frame: a whole NV12 frame, or a crop dump into the centre of the luma
// plane at exactly the rows and columns the node crops (the rest stays mid grey).
bool ReplayFrames::ReadFile(const std::string& path)
{
    std::vector<uint8_t>& target = (m_cropSide != 0) ? m_crop : m_pixels;
    FILE*                 pFile  = fopen(path.c_str(), "rb");
    const size_t          read   = (pFile != nullptr) ? fread(target.data(), 1, target.size(), pFile) : 0;
    const int             err    = errno;
    if (pFile != nullptr)
    {
        fclose(pFile);
    }
    if (read != target.size())
    {
        m_readError = "cannot read frame file " + path + ": " + (pFile == nullptr ? strerror(err) : "short read");
        return false;
    }
    if (m_cropSide != 0)
    {
        const size_t half = m_cropSide / 2;
        const size_t top  = m_layout.height / 2 - half;
        const size_t left = m_layout.width / 2 - half;
        for (size_t row = 0; row < m_cropSide; ++row)
        {
            memcpy(&m_pixels[(top + row) * m_layout.Stride() + left], &m_crop[row * m_cropSide], m_cropSide);
        }
    }
    return true;
}

CHINODEBUFFERHANDLE ReplayFrames::Frame(uint64_t index)
{
    if (index >= m_files.size() || !ReadFile(m_files[index]))
    {
        return nullptr;
    }
    chihost::Status status = m_buffer.Wrap(ViewOf(m_pixels, m_layout), 0);
    if (!status)
    {
        m_readError = status.Message();
        return nullptr;
    }
    return m_buffer.Handle();
}

chihost::InputProvider ReplayFrames::Provider()
{
    return [this](UINT64 frameNum) {
        CHINODEBUFFERHANDLE handle = Frame(frameNum);
        return (handle != nullptr) ? std::vector<CHINODEBUFFERHANDLE>{ handle } : std::vector<CHINODEBUFFERHANDLE>{};
    };
}

StaticFrame::StaticFrame(const FrameLayout& layout)
    : m_layout(layout), m_pixels(static_cast<size_t>(Nv12FrameBytes(layout)), kMidGreyDn)
{
}

chihost::InputProvider StaticFrame::Provider()
{
    return [this](UINT64) {
        return m_buffer.Wrap(ViewOf(m_pixels, m_layout), 0) ? std::vector<CHINODEBUFFERHANDLE>{ m_buffer.Handle() }
                                                            : std::vector<CHINODEBUFFERHANDLE>{};
    };
}

} // namespace oisverify
