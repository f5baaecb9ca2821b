// Replayed and static input frames; see framesources.h.
#include "session/framesources.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <filesystem>

namespace oisverify
{

namespace fs = std::filesystem;

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

std::string LayoutText(const FrameLayout& layout)
{
    return std::to_string(layout.width) + "x" + std::to_string(layout.height) + " (stride " +
           std::to_string(layout.Stride()) + ", scanline " + std::to_string(layout.Scanline()) + ")";
}

} // namespace

uint64_t Nv12FrameBytes(const FrameLayout& layout)
{
    const uint64_t rows = static_cast<uint64_t>(layout.Scanline()) + (layout.Scanline() + 1) / 2;
    return rows * layout.Stride();
}

chihost::Status ReplayFrames::Open(const std::string& directory, const FrameLayout& layout)
{
    m_layout = layout;
    m_files.clear();
    std::error_code error;
    if (!fs::is_directory(directory, error))
    {
        return chihost::Status::Error("replay folder " + directory + " is not a directory");
    }
    for (fs::directory_iterator it(directory, error), end; !error && it != end; it.increment(error))
    {
        const std::string name = it->path().filename().string();
        if (name[0] != '.' && it->is_regular_file(error))
        {
            m_files.push_back(it->path().string());
        }
    }
    if (error)
    {
        return chihost::Status::Error("cannot list replay folder " + directory + ": " + error.message());
    }
    if (m_files.empty())
    {
        return chihost::Status::Error("replay folder " + directory + " holds no frame files");
    }
    std::sort(m_files.begin(), m_files.end());
    const uint64_t expected = Nv12FrameBytes(layout);
    for (const std::string& path : m_files)
    {
        const uintmax_t size = fs::file_size(path, error);
        if (error || size != expected)
        {
            return chihost::Status::Error(
                "frame file " + path + " holds " + (error ? "an unknown number of" : std::to_string(size)) +
                " bytes, but one NV12 frame of " + LayoutText(layout) + " holds " + std::to_string(expected) +
                " bytes; check --size, --stride and --scanline");
        }
    }
    m_pixels.assign(expected, 0);
    return chihost::Status::Ok();
}

CHINODEBUFFERHANDLE ReplayFrames::Frame(uint64_t index)
{
    if (index >= m_files.size())
    {
        return nullptr;
    }
    const std::string& path  = m_files[index];
    FILE*              pFile = fopen(path.c_str(), "rb");
    const size_t       read  = (pFile != nullptr) ? fread(m_pixels.data(), 1, m_pixels.size(), pFile) : 0;
    const int          err   = errno;
    if (pFile != nullptr)
    {
        fclose(pFile);
    }
    if (read != m_pixels.size())
    {
        m_readError = "cannot read frame file " + path + ": " + (pFile == nullptr ? strerror(err) : "short read");
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
