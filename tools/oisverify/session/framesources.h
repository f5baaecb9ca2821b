// Input frames for a run besides the simulator's: recorded NV12 files replayed in name order, and
// the plain grey frame the camera delivers while the node's debug mode measures its own images.
#ifndef ZELK_TOOLS_OISVERIFY_FRAMESOURCES_H
#define ZELK_TOOLS_OISVERIFY_FRAMESOURCES_H

#include <stdint.h>

#include <string>
#include <vector>

#include "chihost/emulator/imagebuffer.h"
#include "chihost/emulator/requestdriver.h"
#include "session/replayfolder.h"
#include "session/runconfig.h"

namespace oisverify
{

// Bytes of one NV12 frame of the layout: the luma plane and half as many chroma rows.
uint64_t Nv12FrameBytes(const FrameLayout& layout);

// A folder of recorded frames (see replayfolder.h): every regular file whose name does not start
// with '.' is one frame, NV12 of the layout or one of the node's crop dumps, taken in natural name
// order. Request k gets file k; files are read one at a time as requests ask for them.
class ReplayFrames
{
public:
    // Lists the folder and checks that every file holds exactly one frame of the layout or is a
    // crop dump; fails naming the first file that is neither, or an empty or unreadable folder.
    // Crop dumps are replayed in the frame LayoutForCrop gives, whatever the layout passed.
    chihost::Status Open(const std::string& directory, const FrameLayout& layout);

    size_t                          Count() const { return m_files.size(); }
    const std::vector<std::string>& Files() const { return m_files; }
    // Empty inputs past the last file or when a file cannot be read (see ReadError).
    chihost::InputProvider Provider();
    const std::string&     ReadError() const { return m_readError; }

private:
    CHINODEBUFFERHANDLE Frame(uint64_t index);

    bool ReadFile(const std::string& path);

    FrameLayout              m_layout;
    std::vector<std::string> m_files; // absolute paths
    uint32_t                 m_cropSide = 0; // crop dumps: their side; 0: NV12 frames
    std::vector<uint8_t>     m_crop;
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
