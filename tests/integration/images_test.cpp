// Image dumps and debug images in whole sessions: dump files named by frame and crop size with
// the crop's bytes, the one grey-chroma debug crop, and debug images too short to use.
#include <sys/stat.h>

#include <fstream>
#include <regex>

#include <gtest/gtest.h>

#include "chihost/emulator/logcapture.h"
#include "chihost/emulator/nodesession.h"
#include "simframesource.h"

namespace
{

const char kDumpDir[] = "/data/vendor/camera/oisverify/dumpImage/";

std::string ReadAll(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

chihost::NodeSessionOptions Options(const std::string& algoPara)
{
    chihost::NodeSessionOptions options;
    options.nodeLibraryPath      = ZELK_NODE_LIBRARY;
    options.root.buildProperties = { { "persist.vendor.camera.oisgyrogain.w", "1.0,1.0" },
                                     { "vendor.debug.camera.oisAlgoPara", algoPara } };
    return options;
}

class ImagesTest : public ::testing::Test
{
protected:
    void Open(const chihost::NodeSessionOptions& options)
    {
        chihost::Status status = m_session.Open(options);
        ASSERT_TRUE(status) << status.Message();
        m_session.SetInputProvider(m_source.Provider());
    }

    chihost::LogCapture       m_log;
    simsource::SimFrameSource m_source{ sim::OisOnScenario(1.0, 1.0) };
    chihost::NodeSession      m_session;
};

TEST_F(ImagesTest, DumpModeWritesEveryRequestsCrop)
{
    Open(Options("1:0:1:10:4:60"));
    m_session.Run(12);
    for (int frame : { 0, 5, 11 })
    {
        std::string name = "oisverify_node_frameNum[" + std::to_string(frame) +
                           "]_w[540]_h[540]_stride[540]_scanline[540]_crop.yuv";
        std::string dump = ReadAll(m_session.Root().Map(kDumpDir + name));
        EXPECT_EQ(dump.size(), 540u * 540u) << name;
        EXPECT_TRUE(m_log.HasChiLine('I', "dump image succ. frameNum: " + std::to_string(frame) +
                                              ", imageList[0]w*h 540*540 stride 540 scanline 540"));
    }
    auto handles = m_log.ChiLinesStartingWith("i = 0 pInputHandle = ");
    ASSERT_EQ(handles.size(), 12u);
    EXPECT_TRUE(std::regex_match(handles[0].message,
                                 std::regex(R"(i = 0 pInputHandle = 0x[0-9a-f]+  image format = 3numberOfPlans = 2 )"
                                            R"(imageCount = 1 portId = 0)")))
        << handles[0].message;
    EXPECT_TRUE(m_log.HasChiLine('I', "Image [wxh] [1440x1080] alignment = 0alignment info strideAlignment = 0 "
                                      "scanlineAlignment = 0"));
}

TEST_F(ImagesTest, FirstMeasuredCropIsDumpedOnceWithGreyChroma)
{
    Open(Options("1:0:1:10:4:60"));
    m_session.Run(14);
    const std::string debug = ReadAll(m_session.Root().Map("/data/vendor/camera/oisverify/oisverify_crop.yuv"));
    ASSERT_EQ(debug.size(), 540u * 540u * 3 / 2);
    const std::string crop = ReadAll(m_session.Root().Map(
        std::string(kDumpDir) + "oisverify_node_frameNum[10]_w[540]_h[540]_stride[540]_scanline[540]_crop.yuv"));
    EXPECT_EQ(debug.substr(0, 540 * 540), crop);
    EXPECT_EQ(debug.find_first_not_of('\x80', 540 * 540), std::string::npos);
    EXPECT_EQ(m_log.ChiLines("dump image succ. /data/vendor/camera/oisverify/oisverify_crop.yuv").size(), 1u);
}

TEST_F(ImagesTest, DebugImageShorterThanTheSquareIsAMissingImage)
{
    chihost::NodeSessionOptions options = Options("1:1:0:10:4:60");
    options.prepareRoot                 = [](chihost::DeviceRoot& root) {
        std::ofstream(root.Map("/data/vendor/camera/ois/short.yuv"), std::ios::binary) << std::string(1000, 'x');
        return chihost::Status::Ok();
    };
    Open(options);
    auto records = m_session.Run(30);
    EXPECT_TRUE(m_log.HasChiLine('E', "imageimgBuffer is NULL; please check imageVector[0]"));
    EXPECT_EQ(m_log.ChiLines("the algo was not called").size(), 6u);
    EXPECT_EQ(records.back().published.state, -12);
}

TEST_F(ImagesTest, DebugModeWithoutImagesNeverIndexesAnEmptyList)
{
    Open(Options("1:1:0:10:4:60"));
    auto records = m_session.Run(30);
    EXPECT_TRUE(m_log.HasChiLine('I', "file vector size 0"));
    EXPECT_EQ(records.back().published.state, -12);
}

} // namespace
