// The kinds and order of a replay folder; see replayfolder.h.
#include "session/replayfolder.h"

#include "session/framesources.h"

#include <stdio.h>

#include <algorithm>
#include <filesystem>

namespace oisverify
{

namespace fs = std::filesystem;

namespace
{

bool IsDigit(char c)
{
    return c >= '0' && c <= '9';
}

// Compares the digit runs starting at a[*pI] and b[*pJ] by value and advances both past their
// runs. Returns <0, 0 or >0; the first pair of equal values written with different numbers of
// leading zeros sets *pZerosTie (the shorter first), which decides between otherwise equal names.
int CompareNumberRuns(const std::string& a, size_t* pI, const std::string& b, size_t* pJ, int* pZerosTie)
{
    size_t i = *pI;
    size_t j = *pJ;
    while (i < a.size() && a[i] == '0') ++i;
    while (j < b.size() && b[j] == '0') ++j;
    size_t endA = i;
    size_t endB = j;
    while (endA < a.size() && IsDigit(a[endA])) ++endA;
    while (endB < b.size() && IsDigit(b[endB])) ++endB;
    int result = 0;
    if (endA - i != endB - j)
    {
        result = (endA - i < endB - j) ? -1 : 1;
    }
    else
    {
        result = a.compare(i, endA - i, b, j, endB - j);
    }
    if (result == 0 && *pZerosTie == 0 && (endA - *pI) != (endB - *pJ))
    {
        *pZerosTie = ((endA - *pI) < (endB - *pJ)) ? -1 : 1;
    }
    *pI = endA;
    *pJ = endB;
    return result;
}

// "oisverify_node_frameNum[N]_w[L]_h[L]_stride[L]_scanline[L]_crop.yuv": N and L, or false.
bool ParseDumpName(const std::string& name, int64_t* pFrame, uint32_t* pSide)
{
    long long frame = 0;
    unsigned  w = 0, h = 0, stride = 0, scanline = 0;
    int       consumed = 0;
    if (sscanf(name.c_str(), "oisverify_node_frameNum[%lld]_w[%u]_h[%u]_stride[%u]_scanline[%u]_crop.yuv%n", &frame, &w,
               &h, &stride, &scanline, &consumed) != 5 ||
        static_cast<size_t>(consumed) != name.size() || w != h || w != stride || w != scanline || w == 0)
    {
        return false;
    }
    *pFrame = frame;
    *pSide  = w;
    return true;
}

std::string ListFiles(const std::string& directory, std::vector<std::string>* pFiles)
{
    std::error_code error;
    if (!fs::is_directory(directory, error))
    {
        return "replay folder " + directory + " is not a directory";
    }
    for (fs::directory_iterator it(directory, error), end; !error && it != end; it.increment(error))
    {
        const std::string name = it->path().filename().string();
        if (name[0] != '.' && it->is_regular_file(error))
        {
            pFiles->push_back(name);
        }
    }
    if (error)
    {
        return "cannot list replay folder " + directory + ": " + error.message();
    }
    return pFiles->empty() ? "replay folder " + directory + " holds no frame files" : "";
}

std::string LayoutText(const FrameLayout& layout)
{
    return std::to_string(layout.width) + "x" + std::to_string(layout.height) + " (stride " +
           std::to_string(layout.Stride()) + ", scanline " + std::to_string(layout.Scanline()) + ")";
}

// Every file is a node dump of one side with L x L bytes: fills the folder's crop fields.
bool ClassifyAsCrops(const std::string& directory, const std::vector<std::string>& names, ReplayFolder* pFolder)
{
    for (const std::string& name : names)
    {
        int64_t         frame = 0;
        uint32_t        side  = 0;
        std::error_code error;
        if (!ParseDumpName(name, &frame, &side) || (pFolder->cropSide != 0 && side != pFolder->cropSide) ||
            fs::file_size(fs::path(directory) / name, error) != static_cast<uintmax_t>(side) * side || error)
        {
            return false;
        }
        pFolder->cropSide   = side;
        pFolder->firstFrame = (pFolder->firstFrame < 0) ? frame : std::min(pFolder->firstFrame, frame);
        pFolder->lastFrame  = std::max(pFolder->lastFrame, frame);
    }
    pFolder->kind = ReplayKind::NodeCrops;
    return true;
}

} // namespace

bool NaturalLess(const std::string& a, const std::string& b)
{
    size_t i = 0;
    size_t j = 0;
    int    zerosTie = 0;
    while (i < a.size() && j < b.size())
    {
        if (IsDigit(a[i]) && IsDigit(b[j]))
        {
            const int result = CompareNumberRuns(a, &i, b, &j, &zerosTie);
            if (result != 0)
            {
                return result < 0;
            }
            continue;
        }
        if (a[i] != b[j])
        {
            return static_cast<unsigned char>(a[i]) < static_cast<unsigned char>(b[j]);
        }
        ++i;
        ++j;
    }
    if ((a.size() - i) != (b.size() - j))
    {
        return (a.size() - i) < (b.size() - j);
    }
    return (zerosTie != 0) ? zerosTie < 0 : a < b;
}

FrameLayout LayoutForCrop(uint32_t side)
{
    FrameLayout layout;
    layout.height = 2 * side;
    layout.width  = ((8 * side + 3) / 6) * 2; // 8L/3 rounded to an even number
    return layout;
}

chihost::Status InspectReplayFolder(const std::string& directory, const FrameLayout& layout, ReplayFolder* pFolder)
{
    *pFolder = ReplayFolder();
    std::vector<std::string> names;
    const std::string        listError = ListFiles(directory, &names);
    if (!listError.empty())
    {
        return chihost::Status::Error(listError);
    }
    std::vector<std::string> byteOrder = names;
    std::sort(byteOrder.begin(), byteOrder.end());
    std::sort(names.begin(), names.end(), NaturalLess);
    pFolder->reordered = (names != byteOrder);
    if (!ClassifyAsCrops(directory, names, pFolder))
    {
        *pFolder = ReplayFolder{ ReplayKind::Nv12Frames, {}, 0, -1, -1, names != byteOrder };
        const uint64_t expected = Nv12FrameBytes(layout);
        for (const std::string& name : names)
        {
            std::error_code error;
            const uintmax_t size = fs::file_size(fs::path(directory) / name, error);
            if (error || size != expected)
            {
                return chihost::Status::Error(
                    "frame file " + (fs::path(directory) / name).string() + " holds " +
                    (error ? "an unknown number of" : std::to_string(size)) + " bytes, but one NV12 frame of " +
                    LayoutText(layout) + " holds " + std::to_string(expected) +
                    " bytes, and it is not one of the node's crop dumps; check --size, --stride and --scanline");
            }
        }
    }
    for (const std::string& name : names)
    {
        pFolder->files.push_back((fs::path(directory) / name).string());
    }
    return chihost::Status::Ok();
}

std::string DescribeReplayFolder(const ReplayFolder& folder)
{
    std::string text = std::to_string(folder.files.size());
    if (folder.kind == ReplayKind::NodeCrops)
    {
        const FrameLayout frame = LayoutForCrop(folder.cropSide);
        text += " node crop dumps of " + std::to_string(folder.cropSide) + "x" + std::to_string(folder.cropSide) +
                " (frames " + std::to_string(folder.firstFrame) + " to " + std::to_string(folder.lastFrame) +
                "), each replayed as the centre of a " + std::to_string(frame.width) + "x" +
                std::to_string(frame.height) + " frame";
    }
    else
    {
        text += " NV12 frames";
    }
    text += folder.reordered ? ", in natural name order (numbers by value: frame 2 before frame 10)"
                             : ", in name order";
    return text;
}

} // namespace oisverify
