// The centre crop the measurement runs on: its side by aspect ratio, its window (integer halves,
// odd sides included), the stride, and the failures that must never read outside the frame.
#include <stdlib.h>

#include <gtest/gtest.h>

#include "chihost/emulator/logcapture.h"
#include "nodetestpeer.h"

namespace
{

UINT8 Pattern(INT32 x, INT32 y)
{
    return static_cast<UINT8>((x * 7 + y * 13) & 0xFF);
}

std::vector<UINT8> Frame(INT32 width, INT32 height, INT32 stride)
{
    std::vector<UINT8> pixels(static_cast<size_t>(stride) * height, 0xEE);
    for (INT32 y = 0; y < height; y++)
    {
        for (INT32 x = 0; x < width; x++)
        {
            pixels[static_cast<size_t>(y) * stride + x] = Pattern(x, y);
        }
    }
    return pixels;
}

struct CropCase
{
    INT32 width;
    INT32 height;
    INT32 stride;
    INT32 previous; // crop length before the call
    INT32 expected;
    INT32 left;     // the window's first column and row in the frame
    INT32 top;
};

void PrintTo(const CropCase& c, std::ostream* pOut) { *pOut << c.width << "x" << c.height << " stride " << c.stride; }

class CropGeometry : public ::testing::TestWithParam<CropCase>
{
protected:
    chihost::LogCapture m_log;
    ChiOisVerifyNode    m_node;
};

TEST_P(CropGeometry, TakesTheCentredSquareRowByRow)
{
    const CropCase&    c      = GetParam();
    std::vector<UINT8> frame  = Frame(c.width, c.height, c.stride);
    UINT8*             pCrop  = nullptr;
    INT32              length = c.previous;
    ASSERT_EQ(ChiOisVerifyNodeTestPeer::Crop(m_node, frame.data(), c.width, c.height, c.stride, &pCrop, &length), 0);
    ASSERT_EQ(length, c.expected);
    for (INT32 row = 0; row < length; row += 7)
    {
        for (INT32 col = 0; col < length; col += 5)
        {
            ASSERT_EQ(pCrop[static_cast<size_t>(row) * length + col], Pattern(c.left + col, c.top + row))
                << row << "," << col;
        }
    }
    EXPECT_EQ(pCrop[static_cast<size_t>(length) * length - 1], Pattern(c.left + length - 1, c.top + length - 1));
    free(pCrop);
}

INSTANTIATE_TEST_SUITE_P(
    Frames, CropGeometry,
    ::testing::Values(CropCase{ 1920, 1440, 1920, 0, 720, 600, 360 },
                      CropCase{ 1920, 1080, 1920, 0, 720, 600, 180 },
                      CropCase{ 4000, 3000, 4000, 0, 1500, 1250, 750 },
                      CropCase{ 1440, 1080, 1536, 0, 540, 450, 270 },
                      CropCase{ 1280, 1024, 1280, 0, 512, 384, 256 },   // 5:4 is within 0.1 of 4:3
                      CropCase{ 1402, 1054, 1408, 0, 527, 438, 264 },   // odd side: integer halves
                      CropCase{ 1000, 1000, 1000, 720, 720, 140, 140 }, // square: the previous side
                      CropCase{ 1281, 721, 1281, 0, 480, 400, 120 }));  // 16:9 with odd sizes

TEST(CropFailures, NullInputIsRefused)
{
    chihost::LogCapture log;
    ChiOisVerifyNode    node;
    UINT8*              pCrop  = nullptr;
    INT32               length = 0;
    EXPECT_EQ(ChiOisVerifyNodeTestPeer::Crop(node, nullptr, 1440, 1080, 1440, &pCrop, &length), 1);
    EXPECT_TRUE(log.HasChiLine('E', "pInput is NULL, please check"));
    EXPECT_EQ(pCrop, nullptr);
}

struct BadWindow
{
    INT32 width;
    INT32 height;
    INT32 stride;
    INT32 previous;
};

void PrintTo(const BadWindow& c, std::ostream* pOut) { *pOut << c.width << "x" << c.height << " crop " << c.previous; }

class CropWindowFailures : public ::testing::TestWithParam<BadWindow> {};

// A window that would leave the frame fails the crop instead of reading outside it.
TEST_P(CropWindowFailures, FailWithoutCopying)
{
    chihost::LogCapture log;
    ChiOisVerifyNode    node;
    const BadWindow&    c      = GetParam();
    std::vector<UINT8>  frame  = Frame(c.width, c.height, std::max(c.width, c.stride));
    UINT8*              pCrop  = nullptr;
    INT32               length = c.previous;
    EXPECT_EQ(ChiOisVerifyNodeTestPeer::Crop(node, frame.data(), c.width, c.height, c.stride, &pCrop, &length), 1);
    EXPECT_EQ(pCrop, nullptr);
    EXPECT_FALSE(log.ChiLinesStartingWith("crop window ").empty());
}

INSTANTIATE_TEST_SUITE_P(Windows, CropWindowFailures,
                         ::testing::Values(BadWindow{ 500, 500, 500, 720 },   // square, larger previous side
                                           BadWindow{ 600, 600, 600, 0 },     // square before any crop
                                           BadWindow{ 1440, 1080, 1000, 0 },  // stride shorter than a row
                                           BadWindow{ 700, 700, 700, -20 })); // nonsense previous side

} // namespace
