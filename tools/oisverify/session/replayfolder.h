// What a --replay folder holds. Two kinds of recording are understood:
//   - full NV12 frames of the run's layout, one file each (a camera capture), and
//   - the node's own input dumps: packed luma crops of side L named
//     "oisverify_node_frameNum[N]_w[L]_h[L]_stride[L]_scanline[L]_crop.yuv", L x L bytes each.
// A dump is replayed inside a 4:3 frame of 2L rows whose centre crop is exactly the dumped square,
// so the node measures the same pixels it dumped. Files are taken in natural name order (digit
// runs compared as numbers: frame 2 before frame 10); the order used is reported.
#ifndef ZELK_TOOLS_OISVERIFY_REPLAYFOLDER_H
#define ZELK_TOOLS_OISVERIFY_REPLAYFOLDER_H

#include <stdint.h>

#include <string>
#include <vector>

#include "chihost/emulator/status.h"
#include "session/runconfig.h"

namespace oisverify
{

enum class ReplayKind
{
    Nv12Frames, // whole frames of the run's layout
    NodeCrops,  // the node's luma crop dumps
};

struct ReplayFolder
{
    ReplayKind               kind = ReplayKind::Nv12Frames;
    std::vector<std::string> files;            // absolute paths, in replay order
    uint32_t                 cropSide = 0;     // NodeCrops: L
    int64_t                  firstFrame = -1;  // NodeCrops: frame number of the first dump
    int64_t                  lastFrame  = -1;
    bool                     reordered = false; // natural order differs from byte-wise order
};

// True when a comes before b in natural order: runs of digits compare by value (leading zeros
// ignored, ties broken by the shorter run), everything else byte by byte; names equal under
// that rule fall back to byte-wise order, so the order is total.
bool NaturalLess(const std::string& a, const std::string& b);

// Lists and classifies DIR: every regular file not starting with '.' takes part, all of one
// kind. Fails naming the first file that fits neither kind.
chihost::Status InspectReplayFolder(const std::string& directory, const FrameLayout& layout, ReplayFolder* pFolder);

// The frame a crop of side L is replayed in: 4:3, 2L rows, an even width of about 8L/3.
FrameLayout LayoutForCrop(uint32_t side);

// One line for the run's header: what the folder holds and in which order it is replayed.
std::string DescribeReplayFolder(const ReplayFolder& folder);

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_REPLAYFOLDER_H
