// Fuzz target of the node's debug-image source: each input fills the debug-image folder
// (/data/vendor/camera/ois) with up to eight entries of random names and kinds (regular files of
// any length up to a whole frame, sparse files of up to 8 GiB, FIFOs, folders, symbolic links to
// an entry, to a file or folder outside the node's folders, to a device or to nothing), creates a
// node in debug mode, measures up to four frames from those images and destroys it.
//
// Besides sanitizer reports it fails when the node waits on an entry (libFuzzer's -timeout), when
// it allocates or holds what a file merely claims (-malloc_limit_mb / -rss_limit_mb, far below the
// sparse sizes), when creation gives a result other than 0, or when the files outside the node's
// folders change.
//
// Input: a count byte (0 to 8 entries), then per entry a kind byte, a suffix byte (".yuv",
// ".YUV420NV12", ".YUV", none, ".yuv.bak"), a NUL-ended name stem (at most 24 bytes; '/' becomes
// '_') and a u32 size or link choice; then a byte with the number of measured frames (0 to 4).
#include <dirent.h>
#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "androidservices.h"
#include "nodefuzzhost.h"
#include "nodefuzzimages.h"

namespace
{

const char* const kTarget            = "nodedebugimages_fuzz";
const char* const kAlgoParaProperty  = "vendor.debug.camera.oisAlgoPara";
const char* const kDebugModeParams   = "1:1:0:0:60:60"; // debug mode, no dropped frames, 3 results decide
const char* const kImageFolder       = "/data/vendor/camera/ois";
const char* const kOutsideFolder     = "/data/local/tmp/outside";
const char* const kSuffixes[5]       = { ".yuv", ".YUV420NV12", ".YUV", "", ".yuv.bak" };
const uint32_t    kMaxEntries        = 8;
const size_t      kMaxStemBytes      = 24;
const uint32_t    kMaxFrames         = 4;
const uint32_t    kSidePx            = 720;
const size_t      kFrameBytes        = static_cast<size_t>(kSidePx) * kSidePx * 3 / 2;
const uint64_t    kMaxSparseBytes    = 8ull << 30;
const uint64_t    kFramePlaneBytes   = 1u << 20;
const INT32       kStartState        = 1;
const INT32       kVerifyingState    = 3;

enum EntryKind : uint8_t
{
    Regular,
    Sparse,
    Fifo,
    Folder,
    Link,
    KindCount
};

struct Device
{
    std::string          imageFolder;
    std::string          outsideFolder;
    std::string          outsideFile;
    std::string          outsideContent;
    std::vector<uint8_t> chart; // a whole NV12 frame showing the chart
};

Device& TheDevice()
{
    static Device device;
    return device;
}

std::string ReadAll(const std::string& path)
{
    std::string content;
    FILE*       pFile = fopen(path.c_str(), "rb");
    if (pFile == nullptr)
    {
        return "<missing>";
    }
    char   buffer[4096];
    size_t got = 0;
    while ((got = fread(buffer, 1, sizeof(buffer), pFile)) > 0)
    {
        content.append(buffer, got);
    }
    fclose(pFile);
    return content;
}

// Removes every entry of the debug-image folder (the target makes only empty folders there).
void EmptyImageFolder()
{
    DIR* pDir = opendir(TheDevice().imageFolder.c_str());
    if (pDir == nullptr)
    {
        zelkfuzz::Fail(kTarget, "the debug-image folder is gone");
    }
    for (struct dirent* pEntry = readdir(pDir); pEntry != nullptr; pEntry = readdir(pDir))
    {
        if ((strcmp(pEntry->d_name, ".") != 0) && (strcmp(pEntry->d_name, "..") != 0) &&
            (unlinkat(dirfd(pDir), pEntry->d_name, 0) != 0))
        {
            unlinkat(dirfd(pDir), pEntry->d_name, AT_REMOVEDIR);
        }
    }
    closedir(pDir);
}

std::string EntryName(zelkfuzz::FuzzReader& reader)
{
    const char* pSuffix = kSuffixes[reader.U8() % 5];
    std::string stem    = reader.Text(kMaxStemBytes);
    for (char& c : stem)
    {
        c = (c == '/') ? '_' : c;
    }
    if (stem.empty() || stem == "." || stem == "..")
    {
        stem = "e" + stem;
    }
    return stem + pSuffix;
}

// Creates a regular file of the chart's first bytes plus holes up to size; a name already taken
// (by any kind) is left as it is, and nothing here ever opens or follows what is there.
void WriteRegular(const std::string& path, size_t bytes, uint64_t size)
{
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0)
    {
        return;
    }
    if ((write(fd, TheDevice().chart.data(), bytes) != static_cast<ssize_t>(bytes)) ||
        (ftruncate(fd, static_cast<off_t>(size)) != 0))
    {
        zelkfuzz::Fail(kTarget, "cannot write a debug image");
    }
    close(fd);
}

// Link targets: an earlier entry, the outside file or folder, a device, nothing.
std::string LinkTarget(uint32_t choice, const std::vector<std::string>& names)
{
    const Device& device = TheDevice();
    switch (choice % 5)
    {
    case 0:
        return names.empty() ? std::string("missing.yuv") : names[(choice / 5) % names.size()];
    case 1:
        return device.outsideFile;
    case 2:
        return device.outsideFolder;
    case 3:
        return "/dev/zero";
    default:
        return device.imageFolder + "/nothing-here.yuv";
    }
}

void MakeEntries(zelkfuzz::FuzzReader& reader)
{
    const uint32_t           count = reader.U8() % (kMaxEntries + 1);
    std::vector<std::string> names;
    for (uint32_t i = 0; i < count; i++)
    {
        const uint8_t     kind  = reader.U8() % KindCount;
        const std::string name  = EntryName(reader);
        const uint32_t    value = reader.U32();
        const std::string path  = TheDevice().imageFolder + "/" + name;
        switch (kind)
        {
        case Regular:
            WriteRegular(path, value % (kFrameBytes + 1), value % (kFrameBytes + 1));
            break;
        case Sparse:
            WriteRegular(path, kFrameBytes, kFrameBytes + (static_cast<uint64_t>(value) << 1) % kMaxSparseBytes);
            break;
        case Fifo:
            mkfifo(path.c_str(), 0600);
            break;
        case Folder:
            mkdir(path.c_str(), 0700);
            break;
        default:
            symlink(LinkTarget(value, names).c_str(), path.c_str());
            break;
        }
        names.push_back(name);
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* pArgc, char*** pArgv)
{
    (void)pArgc;
    (void)pArgv;
    zelkfuzz::SetUpDevice(false);
    Device& device       = TheDevice();
    device.imageFolder   = zelkfuzz::MapDevicePath(kImageFolder);
    device.outsideFolder = zelkfuzz::MapDevicePath(kOutsideFolder);
    device.outsideFile   = device.outsideFolder + "/keep.yuv";
    if (system(("mkdir -p '" + device.outsideFolder + "'").c_str()) != 0)
    {
        zelkfuzz::Fail(kTarget, "cannot make the outside folder");
    }
    device.chart.assign(kFrameBytes, 0x80);
    zelkfuzz::DrawChart(device.chart.data(), kFrameBytes, kSidePx, kSidePx, kSidePx, zelkfuzz::ChartStyle());
    WriteRegular(device.outsideFile, kFrameBytes, kFrameBytes);
    device.outsideContent = ReadAll(device.outsideFile);
    if (property_set(kAlgoParaProperty, kDebugModeParams) != 0)
    {
        zelkfuzz::Fail(kTarget, "the test parameters were refused");
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t size)
{
    zelkfuzz::FuzzReader reader(pData, size);
    EmptyImageFolder();
    MakeEntries(reader);
    const uint32_t frames = reader.U8() % (kMaxFrames + 1);

    zelkfuzz::BeginInput();
    CDKResult result = CDKResultEFailed;
    CHIHANDLE hNode  = zelkfuzz::CreateNode(&result);
    if ((hNode == nullptr) || (result != CDKResultSuccess))
    {
        zelkfuzz::Fail(kTarget, "a debug-image folder changed the creation result");
    }
    // Debug mode measures the folder's images; the camera frame only has to be NV12.
    const std::vector<uint8_t> description = zelkfuzz::DescribeChartFrame(64, 48);
    zelkfuzz::FuzzReader       frameReader(description.data(), description.size());
    zelkfuzz::FuzzImageList    frame(frameReader, kFramePlaneBytes);
    std::vector<CHINODEBUFFERHANDLE> inputs = { frame.Handle() };
    zelkfuzz::SubmitRequest(kTarget, hNode, 0, true, kStartState, nullptr);
    for (uint32_t i = 0; i < frames; i++)
    {
        zelkfuzz::SubmitRequest(kTarget, hNode, 1 + i, true, kVerifyingState, &inputs);
    }
    zelkfuzz::DestroyNode(hNode);
    zelkfuzz::EndInput();

    if (ReadAll(TheDevice().outsideFile) != TheDevice().outsideContent)
    {
        zelkfuzz::Fail(kTarget, "a file outside the node's folders changed");
    }
    return 0;
}
