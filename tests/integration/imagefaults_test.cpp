// The node's folders under faults a factory phone may really have: a debug-image folder holding a
// FIFO, a folder or a link under an image's name, or a huge sparse image; a dump folder that is a
// link to another folder; a frame whose crop window is refused. Each session ends in its defined
// state and log line, node creation never waits on a file (a hang guard kills the test instead),
// memory stays bounded, and a folder outside the node's own keeps exactly its files.
#include <dirent.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <map>

#include <gtest/gtest.h>

#include "chihost/emulator/logcapture.h"
#include "chihost/emulator/nodesession.h"
#include "simframesource.h"

namespace
{

const char     kImageDir[]       = "/data/vendor/camera/ois/";
const char     kDumpDir[]        = "/data/vendor/camera/oisverify/dumpImage/";
const char     kDebugCrop[]      = "/data/vendor/camera/oisverify/oisverify_crop.yuv";
const char     kOutsideDir[]     = "/data/local/tmp/outside/";
const unsigned kHangGuardSeconds = 120;
const size_t   kLumaBytes        = 720 * 720;
const size_t   kImageBytes       = kLumaBytes * 3 / 2;

std::string ReadAll(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void WriteAll(const std::string& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

// Every file of a folder with its contents (not recursive).
std::map<std::string, std::string> Snapshot(const std::string& folder)
{
    std::map<std::string, std::string> files;
    DIR* pDir = opendir(folder.c_str());
    for (struct dirent* pEntry = (pDir != nullptr) ? readdir(pDir) : nullptr; pEntry != nullptr; pEntry = readdir(pDir))
    {
        const std::string name = pEntry->d_name;
        if (name != "." && name != "..")
        {
            files[name] = ReadAll(folder + name);
        }
    }
    if (pDir != nullptr)
    {
        closedir(pDir);
    }
    return files;
}

// A frame-sized pattern that no other file holds.
std::string Pattern(size_t bytes)
{
    std::string pattern(bytes, '\0');
    for (size_t i = 0; i < bytes; i++)
    {
        pattern[i] = static_cast<char>((i * 7 + i / 720) % 251);
    }
    return pattern;
}

long PeakResidentKiB()
{
    struct rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

class ImageFaultsTest : public ::testing::Test
{
protected:
    // A node that waits on a file would hang the test for good; the guard ends the process instead.
    void SetUp() override { alarm(kHangGuardSeconds); }
    void TearDown() override
    {
        m_session.Close();
        alarm(0);
    }

    // Opens a session whose root has an outside folder with two files (one named like an image),
    // then runs prepare on the root.
    void Open(const std::string& algoPara, std::function<void(chihost::DeviceRoot&)> prepare)
    {
        chihost::NodeSessionOptions options;
        options.nodeLibraryPath      = ZELK_NODE_LIBRARY;
        options.root.buildProperties = { { "persist.vendor.camera.oisgyrogain.w", "1.0,1.0" },
                                         { "vendor.debug.camera.oisAlgoPara", algoPara } };
        options.prepareRoot = [this, prepare](chihost::DeviceRoot& root) {
            m_outside = root.Map(kOutsideDir);
            if (system(("mkdir -p " + m_outside).c_str()) != 0)
            {
                return chihost::Status::Error("cannot make the outside folder");
            }
            WriteAll(m_outside + "keep.yuv", Pattern(kImageBytes));
            WriteAll(m_outside + "notes.txt", "factory line 3\n");
            m_outsideBefore = Snapshot(m_outside);
            prepare(root);
            return chihost::Status::Ok();
        };
        chihost::Status status = m_session.Open(options);
        ASSERT_TRUE(status) << status.Message();
        EXPECT_EQ(m_session.CreateResult(), 0);
        m_session.SetInputProvider(m_source.Provider());
    }

    void ExpectOutsideUntouched() { EXPECT_EQ(Snapshot(m_outside), m_outsideBefore); }

    std::string Map(const std::string& devicePath) { return m_session.Root().Map(devicePath); }

    chihost::LogCapture                m_log;
    simsource::SimFrameSource          m_source{ sim::OisOnScenario(1.0, 1.0) };
    chihost::NodeSession               m_session;
    std::string                        m_outside;
    std::map<std::string, std::string> m_outsideBefore;
};

// An entry named like a debug image that is not a regular file. It sorts first, so it is the
// file that "cannot be opened": reading stops there and every measured frame lacks its image.
struct SpecialEntry
{
    const char* pName;
    std::function<void(const std::string& path, const std::string& outside)> make;
    const char* pRefusal;
};

void PrintTo(const SpecialEntry& entry, std::ostream* pOut)
{
    *pOut << entry.pName;
}

class SpecialDebugImageTest : public ImageFaultsTest, public ::testing::WithParamInterface<SpecialEntry>
{
};

TEST_P(SpecialDebugImageTest, IsRefusedWithoutWaitingAndMeasuringFails)
{
    Open("1:1:0:10:4:60", [](chihost::DeviceRoot& root) {
        GetParam().make(root.Map(std::string(kImageDir) + "a.yuv"), root.Map(kOutsideDir));
        WriteAll(root.Map(std::string(kImageDir) + "b.yuv"), Pattern(kImageBytes));
    });
    EXPECT_TRUE(m_log.HasChiLine('I', "file vector size 2"));
    EXPECT_TRUE(m_log.HasChiLine('E', std::string("open /data/vendor/camera/ois/a.yuv failed, ") + GetParam().pRefusal));
    EXPECT_TRUE(m_log.HasChiLine('E', "ReadDebugImage failed, please check data/vendor/camera/ois path"));
    EXPECT_TRUE(m_log.ChiLinesStartingWith("read file ").empty());

    auto records = m_session.Run(20);
    // The index moves on only past an image taken, so every frame asks for image 0.
    EXPECT_EQ(m_log.ChiLines("imageimgBuffer is NULL; please check imageVector[0]").size(), 6u);
    EXPECT_EQ(records.back().published.state, -12);
    ExpectOutsideUntouched();
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, SpecialDebugImageTest,
    ::testing::Values(
        SpecialEntry{ "Fifo", [](const std::string& path, const std::string&) { ASSERT_EQ(mkfifo(path.c_str(), 0600), 0); },
                      "not a regular file" },
        SpecialEntry{ "Folder", [](const std::string& path, const std::string&) { ASSERT_EQ(mkdir(path.c_str(), 0700), 0); },
                      "not a regular file" },
        SpecialEntry{ "LinkOut",
                      [](const std::string& path, const std::string& outside) {
                          ASSERT_EQ(symlink((outside + "keep.yuv").c_str(), path.c_str()), 0);
                      },
                      "errno = 40" }),
    [](const ::testing::TestParamInfo<SpecialEntry>& info) { return std::string(info.param.pName); });

TEST_F(ImageFaultsTest, HugeSparseDebugImageIsReadOnlyAsFarAsTheFrame)
{
    const std::string frame = Pattern(kImageBytes);
    const long        before = PeakResidentKiB();
    Open("1:1:0:10:4:60", [&frame](chihost::DeviceRoot& root) {
        const std::string path = root.Map(std::string(kImageDir) + "big.yuv");
        WriteAll(path, frame);
        ASSERT_EQ(truncate(path.c_str(), 2147483648LL), 0);
    });
    // The node holds one luma square, not the 2 GiB the file claims (reading it all would page in
    // every byte of it).
    EXPECT_LT(PeakResidentKiB() - before, 100L * 1024);
    auto reads = m_log.ChiLinesStartingWith("read file /data/vendor/camera/ois/big.yuv  iamge = ");
    ASSERT_EQ(reads.size(), 1u);
    EXPECT_EQ(reads[0].function, "ReadDebugImage");
    EXPECT_NE(reads[0].message.find(" imageSize = 2147483648"), std::string::npos) << reads[0].message;

    auto records = m_session.Run(12);
    EXPECT_EQ(m_log.ChiLines("read image from imageVector[0]").size(), 2u);
    const std::string debugCrop = ReadAll(Map(kDebugCrop));
    ASSERT_EQ(debugCrop.size(), kImageBytes);
    EXPECT_EQ(debugCrop.substr(0, kLumaBytes), frame.substr(0, kLumaBytes));
    EXPECT_EQ(records.back().published.state, 3);
    ExpectOutsideUntouched();
}

TEST_F(ImageFaultsTest, DumpFolderLinkedElsewhereIsReplacedNotFollowed)
{
    Open("1:0:1:10:4:60", [](chihost::DeviceRoot& root) {
        std::string link = root.Map(kDumpDir);
        link.pop_back();
        ASSERT_EQ(symlink(root.Map(kOutsideDir).c_str(), link.c_str()), 0);
    });
    EXPECT_TRUE(m_log.HasChiLine(
        'I', "open dir fail errno = 20 data/vendor/camera/oisverify/dumpImage/, do not need delete old files"));
    EXPECT_TRUE(m_log.HasChiLine('I', "rm data/vendor/camera/oisverify/dumpImage/ "));
    EXPECT_TRUE(m_log.HasChiLine('I', "create dir data/vendor/camera/oisverify/dumpImage/"));
    EXPECT_FALSE(m_log.HasChiLine("prepare dump image folder fail, please check"));

    auto records = m_session.Run(2);
    struct stat status = {};
    ASSERT_EQ(lstat(Map(kDumpDir).c_str(), &status), 0);
    EXPECT_TRUE(S_ISDIR(status.st_mode));
    const auto dumps = Snapshot(Map(kDumpDir));
    ASSERT_EQ(dumps.size(), 2u);
    EXPECT_EQ(dumps.begin()->first, "oisverify_node_frameNum[0]_w[540]_h[540]_stride[540]_scanline[540]_crop.yuv");
    EXPECT_EQ(dumps.begin()->second.size(), 540u * 540u);
    EXPECT_EQ(records.back().published.state, 3);
    ExpectOutsideUntouched();
}

// The first measured crop's file replaced by a FIFO (opening it for writing would wait for a reader
// in the request) or by a link out of the node's folders (writing would overwrite its target).
class DebugCropEntryTest : public ImageFaultsTest, public ::testing::WithParamInterface<SpecialEntry>
{
};

TEST_P(DebugCropEntryTest, IsRefusedAndTheSessionGoesOn)
{
    Open("1:0:0:10:4:60", [](chihost::DeviceRoot& root) { GetParam().make(root.Map(kDebugCrop), root.Map(kOutsideDir)); });
    auto records = m_session.Run(14);
    EXPECT_EQ(m_log.ChiLines(std::string("open image dump file failed. ") + kDebugCrop).size(), 1u);
    EXPECT_TRUE(m_log.ChiLines(std::string("dump image succ. ") + kDebugCrop).empty());
    EXPECT_EQ(m_log.ChiLines("algo return = 0").size(), 4u);
    EXPECT_EQ(records.back().published.state, 3);
    ExpectOutsideUntouched();
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, DebugCropEntryTest,
    ::testing::Values(
        SpecialEntry{ "Fifo", [](const std::string& path, const std::string&) { ASSERT_EQ(mkfifo(path.c_str(), 0600), 0); },
                      "" },
        SpecialEntry{ "LinkOut",
                      [](const std::string& path, const std::string& outside) {
                          ASSERT_EQ(symlink((outside + "keep.yuv").c_str(), path.c_str()), 0);
                      },
                      "" }),
    [](const ::testing::TestParamInfo<SpecialEntry>& info) { return std::string(info.param.pName); });

// The node's own text files replaced by a FIFO (opening one for writing waits for a reader: at
// creation for the point-position log, in the request that ends the test for the report) or by a
// link out of the node's folders. Neither is opened; the test still ends in its verdict.
struct OwnFileCase
{
    const char*  pName;
    const char*  pDevicePath;
    SpecialEntry entry;
};

void PrintTo(const OwnFileCase& c, std::ostream* pOut)
{
    *pOut << c.pName;
}

class OwnFileEntryTest : public ImageFaultsTest, public ::testing::WithParamInterface<OwnFileCase>
{
};

TEST_P(OwnFileEntryTest, IsNotOpenedAndTheTestReachesItsVerdict)
{
    Open("1:0:0:10:4:60", [](chihost::DeviceRoot& root) {
        const std::string path = root.Map(GetParam().pDevicePath);
        ASSERT_EQ(system(("mkdir -p " + path.substr(0, path.rfind('/'))).c_str()), 0);
        GetParam().entry.make(path, root.Map(kOutsideDir));
    });
    auto records = m_session.Run(60);
    ASSERT_FALSE(records.empty());
    EXPECT_EQ(records.back().published.state, 4);
    struct stat status = {};
    ASSERT_EQ(lstat(Map(GetParam().pDevicePath).c_str(), &status), 0);
    EXPECT_FALSE(S_ISREG(status.st_mode)) << "the entry is left as it was";
    ExpectOutsideUntouched();
}

const SpecialEntry kFifoEntry{ "Fifo",
                               [](const std::string& path, const std::string&) { ASSERT_EQ(mkfifo(path.c_str(), 0600), 0); },
                               "" };
const SpecialEntry kLinkOutEntry{ "LinkOut",
                                  [](const std::string& path, const std::string& outside) {
                                      ASSERT_EQ(symlink((outside + "notes.txt").c_str(), path.c_str()), 0);
                                  },
                                  "" };

INSTANTIATE_TEST_SUITE_P(
    Kinds, OwnFileEntryTest,
    ::testing::Values(OwnFileCase{ "PointPositionFifo", "/data/vendor/camera/oisverify/oisVerify_point_position.txt", kFifoEntry },
                      OwnFileCase{ "PointPositionLinkOut", "/data/vendor/camera/oisverify/oisVerify_point_position.txt",
                                   kLinkOutEntry },
                      OwnFileCase{ "ReportFifo", "/data/vendor/camera/oisverify/oisVerify.json", kFifoEntry },
                      OwnFileCase{ "ReportLinkOut", "/data/vendor/camera/oisverify/oisVerify.json", kLinkOutEntry }),
    [](const ::testing::TestParamInfo<OwnFileCase>& info) { return std::string(info.param.pName); });

// A 4:3 frame whose stride is below its width: the crop length is set from the size (750,000,000)
// and the window refused. The first-frame dump then has no crop and must not size a buffer from
// that length (1.5 x its square is far beyond any memory).
TEST_F(ImageFaultsTest, RefusedCropIsNotDumpedAndAllocatesNothing)
{
    Open("1:0:0:1:4:60", [](chihost::DeviceRoot&) {});
    std::vector<UINT8> plane(64, 0x80);
    CHIIMAGELIST       list = {};
    list.size                                     = sizeof(list);
    list.format.width                             = 2000000000u;
    list.format.height                            = 1500000000u;
    list.format.format                            = ChiFormatYUV420NV12;
    list.format.formatParams.yuvFormat[0].planeStride = 16;
    list.format.formatParams.yuvFormat[0].sliceHeight = 16;
    list.numberOfPlanes                           = 2;
    list.imageCount                               = 1;
    list.pImageList[0].pAddr[0]                   = plane.data();
    m_session.SetInputProvider([&list](UINT64) { return std::vector<CHINODEBUFFERHANDLE>{ &list }; });

    auto records = m_session.Run(8);
    EXPECT_EQ(m_log.ChiLines("crop window 750000000 does not fit image 2000000000x1500000000 stride 16").size(), 6u);
    EXPECT_TRUE(m_log.HasChiLine('E', std::string("open image dump file failed. ") + kDebugCrop));
    EXPECT_FALSE(m_log.HasChiLine("alloc memory failed"));
    EXPECT_EQ(m_log.ChiLines("the algo was not called").size(), 6u);
    EXPECT_EQ(records.back().published.state, -12);
    EXPECT_EQ(ReadAll(Map(kDebugCrop)), "");
    ExpectOutsideUntouched();
}

} // namespace
