// Input frames for a run besides the simulator's: recorded NV12 files replayed in name order, and
// the plain grey frame the camera delivers while the node's debug mode measures its own images.
#ifndef ZELK_TOOLS_OISVERIFY_FRAMESOURCES_H
#define ZELK_TOOLS_OISVERIFY_FRAMESOURCES_H

#include <stdint.h>

#include <string>
#include <vector>

#include "chihost/emulator/imagebuffer.h"
#include "chihost/emulator/requestdriver.h"
#include "session/runconfig.h"

namespace oisverify
{

// Bytes of one NV12 frame of the layout: the luma plane and half as many chroma rows.
uint64_t Nv12FrameBytes(const FrameLayout& layout);

// A folder of recorded frames: every regular file whose name does not start with '.' is one
// frame, taken in byte-wise name order (so zero-padded numbers keep their order). Request k gets
// file k; files are read one at a time as requests ask for them.
class ReplayFrames
{
public:
    // Lists the folder and checks that every file holds exactly one frame of the layout; fails
    // naming the first file that does not, or an empty or unreadable folder.
    chihost::Status Open(const std::string& directory, const FrameLayout& layout);

    size_t                          Count() const { return m_files.size(); }
    const std::vector<std::string>& Files() const { return m_files; }
    // Empty inputs past the last file or when a file cannot be read (see ReadError).
    chihost::InputProvider Provider();
    const std::string&     ReadError() const { return m_readError; }

private:
    CHINODEBUFFERHANDLE Frame(uint64_t index);

    FrameLayout              m_layout;
    std::vector<std::string> m_files; // absolute paths
    std::vector<uint8_t>     m_pixels;
    chihost::ImageBuffer     m_buffer;
    std::string              m_readError;
};

// One mid-grey frame handed to every request: in debug mode the node checks the camera frame's
// format but measures the debug images instead of its pixels.
class StaticFrame
{
public:
    explicit StaticFrame(const FrameLayout& layout);
    chihost::InputProvider Provider();

private:
    FrameLayout          m_layout;
    std::vector<uint8_t> m_pixels;
    chihost::ImageBuffer m_buffer;
};

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_FRAMESOURCES_H
