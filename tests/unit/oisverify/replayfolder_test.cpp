// Replay folders: natural name order, the node's crop dumps recognised by name and size, and a
// dump replayed at exactly the rows and columns the node crops.
#include <gtest/gtest.h>

#include <stdio.h>

#include <string>
#include <vector>

#include "clitestsupport.h"
#include "session/framesources.h"
#include "session/replayfolder.h"

namespace
{

struct OrderCase
{
    const char* pFirst;
    const char* pSecond;
};

void PrintTo(const OrderCase& c, std::ostream* pOut)
{
    *pOut << c.pFirst << " < " << c.pSecond;
}

class NaturalOrder : public ::testing::TestWithParam<OrderCase>
{
};

TEST_P(NaturalOrder, FirstComesBeforeSecondAndNotTheOtherWay)
{
    EXPECT_TRUE(oisverify::NaturalLess(GetParam().pFirst, GetParam().pSecond));
    EXPECT_FALSE(oisverify::NaturalLess(GetParam().pSecond, GetParam().pFirst));
}

INSTANTIATE_TEST_SUITE_P(Names, NaturalOrder,
                         ::testing::Values(OrderCase{ "frameNum[2]", "frameNum[10]" },
                                           OrderCase{ "frameNum[99]", "frameNum[100]" },
                                           OrderCase{ "a9b", "a10a" },
                                           OrderCase{ "x1y2", "x1y10" },
                                           OrderCase{ "img", "img0" },
                                           OrderCase{ "img_9", "img_09" }, // equal values: fewer zeros first
                                           OrderCase{ "A1", "a1" },
                                           OrderCase{ "f007.yuv", "f8.yuv" },
                                           OrderCase{ "18446744073709551616", "18446744073709551617" }));

TEST(NaturalOrderTotal, EqualNamesAreNotLess)
{
    EXPECT_FALSE(oisverify::NaturalLess("frame12", "frame12"));
    EXPECT_FALSE(oisverify::NaturalLess("", ""));
    EXPECT_TRUE(oisverify::NaturalLess("", "0"));
}

std::string DumpName(int frame, int side)
{
    char name[128];
    snprintf(name, sizeof(name), "oisverify_node_frameNum[%d]_w[%d]_h[%d]_stride[%d]_scanline[%d]_crop.yuv", frame,
             side, side, side, side);
    return name;
}

class CropDumps : public ::testing::Test
{
protected:
    void Dump(int frame, int side, char value) { clitest::WriteBytes(m_folder / DumpName(frame, side), side * side, value); }

    clitest::TempFolder m_folder;
};

TEST_F(CropDumps, AreRecognisedAndTakenInFrameOrder)
{
    for (int frame : { 10, 2, 0, 1 })
    {
        Dump(frame, 300, static_cast<char>(frame));
    }
    oisverify::ReplayFolder folder;
    chihost::Status status = oisverify::InspectReplayFolder(m_folder.Path(), oisverify::FrameLayout(), &folder);
    ASSERT_TRUE(status) << status.Message();
    EXPECT_EQ(folder.kind, oisverify::ReplayKind::NodeCrops);
    EXPECT_EQ(folder.cropSide, 300u);
    EXPECT_EQ(folder.firstFrame, 0);
    EXPECT_EQ(folder.lastFrame, 10);
    ASSERT_EQ(folder.files.size(), 4u);
    EXPECT_EQ(folder.files[2], m_folder / DumpName(2, 300));
    EXPECT_EQ(folder.files[3], m_folder / DumpName(10, 300));
    EXPECT_TRUE(folder.reordered);
    EXPECT_EQ(oisverify::DescribeReplayFolder(folder),
              "4 node crop dumps of 300x300 (frames 0 to 10), each replayed as the centre of a 800x600 frame, in "
              "natural name order (numbers by value: frame 2 before frame 10)");
}

TEST_F(CropDumps, MixedSidesOrAWrongSizeAreNotDumps)
{
    Dump(0, 300, 1);
    Dump(1, 302, 1);
    oisverify::ReplayFolder folder;
    chihost::Status status = oisverify::InspectReplayFolder(m_folder.Path(), oisverify::FrameLayout(), &folder);
    ASSERT_FALSE(status);
    EXPECT_NE(status.Message().find("it is not one of the node's crop dumps"), std::string::npos) << status.Message();

    clitest::TempFolder other;
    clitest::WriteBytes(other / DumpName(0, 300), 300 * 300 - 1);
    EXPECT_FALSE(oisverify::InspectReplayFolder(other.Path(), oisverify::FrameLayout(), &folder));
}

// The frame a dump is replayed in is 4:3 with 2L rows, so the node's centre crop of it is L, and
// the dump lands at rows and columns (size / 2 - L / 2) on, as the node crops them.
TEST(CropFrame, LayoutGivesTheDumpedSideBack)
{
    struct Case
    {
        uint32_t side, width, height;
    };
    for (const Case& c : { Case{ 540, 1440, 1080 }, Case{ 300, 800, 600 }, Case{ 257, 686, 514 },
                           Case{ 2048, 5462, 4096 } })
    {
        const oisverify::FrameLayout layout = oisverify::LayoutForCrop(c.side);
        EXPECT_EQ(layout.width, c.width) << c.side;
        EXPECT_EQ(layout.height, c.height) << c.side;
    }
}

TEST_F(CropDumps, ReplayPutsTheCropWhereTheNodeCropsIt)
{
    const int side = 257;
    std::vector<char> pixels(side * side);
    for (size_t i = 0; i < pixels.size(); ++i)
    {
        pixels[i] = static_cast<char>(i % 251);
    }
    FILE* pFile = fopen((m_folder / DumpName(0, side)).c_str(), "wb");
    ASSERT_NE(pFile, nullptr);
    ASSERT_EQ(fwrite(pixels.data(), 1, pixels.size(), pFile), pixels.size());
    fclose(pFile);

    oisverify::ReplayFrames frames;
    chihost::Status         status = frames.Open(m_folder.Path(), oisverify::FrameLayout());
    ASSERT_TRUE(status) << status.Message();
    auto inputs = frames.Provider()(0);
    ASSERT_EQ(inputs.size(), 1u);
    const uint8_t* pLuma  = inputs[0]->pImageList[0].pAddr[0];
    const uint32_t stride = inputs[0]->format.formatParams.yuvFormat[0].planeStride;
    ASSERT_EQ(inputs[0]->format.width, 686u);
    ASSERT_EQ(inputs[0]->format.height, 514u);
    // Rows 257 - 128 = 129 on, columns 343 - 128 = 215 on.
    EXPECT_EQ(pLuma[129 * stride + 215], static_cast<uint8_t>(pixels[0]));
    EXPECT_EQ(pLuma[(129 + 256) * stride + 215 + 256], static_cast<uint8_t>(pixels[side * side - 1]));
    EXPECT_EQ(pLuma[(129 + 3) * stride + 215 + 7], static_cast<uint8_t>(pixels[3 * side + 7]));
    EXPECT_EQ(pLuma[128 * stride + 215], 128) << "the row above the crop is mid grey";
    EXPECT_EQ(pLuma[129 * stride + 214], 128) << "the column left of the crop is mid grey";
}

} // namespace
