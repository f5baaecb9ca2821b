// The run's pictures: the chart picture (crop file decoding, PNG and base64 encoding, the centres
// and their spread drawn to the crop's scale), one scale on every positions panel, and the summary
// figure's wrapped verdict text clear of the limit's label.
#include <gtest/gtest.h>

#include <png.h>
#include <stdlib.h>

#include "clitestsupport.h"
#include "figures/chartpicture.h"
#include "figures/svgfigures.h"

namespace
{

using oisverify::RunFrame;
using oisverify::RunResult;

// The text of the group with this id, up to the first closing tag after it.
std::string Group(const std::string& svg, const std::string& id)
{
    const size_t start = svg.find("<g id=\"" + id + "\">");
    return (start == std::string::npos) ? "" : svg.substr(start, svg.find("</g>", start) - start);
}

// Every value of an attribute in the text, in order.
std::vector<double> Values(const std::string& text, const std::string& attribute)
{
    std::vector<double> values;
    const std::string   key = " " + attribute + "=\"";
    for (size_t at = text.find(key); at != std::string::npos; at = text.find(key, at + 1))
    {
        values.push_back(atof(text.c_str() + at + key.size()));
    }
    return values;
}

double Extent(const std::vector<double>& values)
{
    return values.empty() ? 0.0 : *std::max_element(values.begin(), values.end()) -
                                      *std::min_element(values.begin(), values.end());
}

// Frames 0..5: the up circle moves `upSwing` px in x, the right circle `rightSwing` px; frame 2
// failed (its coordinates are far off), frames 3..5 are the final SR's.
RunResult SwingResult(double upSwing, double rightSwing)
{
    RunResult result;
    for (uint32_t i = 0; i < 6; i++)
    {
        RunFrame          frame;
        sim::FourCentres& c       = frame.measured.centres;
        const double      phase   = (i % 2 == 0) ? -0.5 : 0.5;
        frame.measured.frameNum   = 100 + i;
        frame.measured.algoReturn = (i == 2) ? -100 : 0;
        c.up                      = { 270.0 + upSwing * phase, 150.0 };
        c.down                    = { 270.0, 390.0 };
        c.left                    = { 150.0, 270.0 };
        c.right                   = { 390.0 + rightSwing * phase, 270.0 };
        if (i == 2)
        {
            c.up = c.right = { 9999.0, -9999.0 };
        }
        frame.inRing = (i >= 3);
        result.frames.push_back(frame);
    }
    return result;
}

struct CropSizeCase
{
    size_t   bytes;
    uint32_t side; // 0: refused
};

class CropSize : public ::testing::TestWithParam<CropSizeCase> {};

// 3 c^2 / 2 bytes, truncated for an odd side; anything else, or a side above the limit, is refused.
TEST_P(CropSize, DecodesExactlyTheNodesLengths)
{
    std::string bytes(GetParam().bytes, '\x80');
    for (size_t i = 0; i < bytes.size() && i < 64; i++)
    {
        bytes[i] = static_cast<char>(i);
    }
    oisverify::GreyImage image;
    std::string          error;
    const bool           decoded = oisverify::DecodeCropYuv(bytes, &image, &error);
    ASSERT_EQ(decoded, GetParam().side != 0) << error;
    if (decoded)
    {
        EXPECT_EQ(image.width, GetParam().side);
        EXPECT_EQ(image.height, GetParam().side);
        ASSERT_EQ(image.pixels.size(), size_t(GetParam().side) * GetParam().side);
        EXPECT_EQ(image.pixels[0], 0);
        EXPECT_EQ(image.pixels[image.pixels.size() > 1 ? 1 : 0], image.pixels.size() > 1 ? 1 : 0);
        EXPECT_EQ(image.pixels.back(), image.pixels.size() > 64 ? 0x80 : image.pixels.size() - 1);
    }
    else
    {
        EXPECT_EQ(error, "a crop file of " + std::to_string(GetParam().bytes) +
                             " bytes is no square grey-chroma NV12 image of up to 4096 pixels a side");
    }
}

INSTANTIATE_TEST_SUITE_P(Lengths, CropSize,
                         ::testing::Values(CropSizeCase{ 437400, 540 }, CropSizeCase{ 777600, 720 },
                                           CropSizeCase{ 13, 3 }, CropSizeCase{ 1, 1 },
                                           CropSizeCase{ 25165824, 4096 }, CropSizeCase{ 0, 0 },
                                           CropSizeCase{ 437401, 0 }, CropSizeCase{ 437399, 0 },
                                           CropSizeCase{ 14, 0 }, CropSizeCase{ 25178112, 0 }));

TEST(ChartPicture, PngDecodesToTheCropsPixels)
{
    oisverify::GreyImage image;
    image.width  = 7;
    image.height = 5;
    for (uint32_t i = 0; i < 35; i++)
    {
        image.pixels.push_back(static_cast<uint8_t>(i * 7));
    }
    std::string png, error;
    ASSERT_TRUE(oisverify::EncodeGreyPng(image, &png, &error)) << error;
    png_image decoded;
    memset(&decoded, 0, sizeof(decoded));
    decoded.version = PNG_IMAGE_VERSION;
    ASSERT_TRUE(png_image_begin_read_from_memory(&decoded, png.data(), png.size()));
    EXPECT_EQ(decoded.width, 7u);
    EXPECT_EQ(decoded.height, 5u);
    EXPECT_EQ(decoded.format, PNG_FORMAT_GRAY);
    std::vector<uint8_t> pixels(PNG_IMAGE_SIZE(decoded));
    ASSERT_TRUE(png_image_finish_read(&decoded, nullptr, pixels.data(), 0, nullptr));
    EXPECT_EQ(pixels, image.pixels);

    oisverify::GreyImage empty;
    EXPECT_FALSE(oisverify::EncodeGreyPng(empty, &png, &error));
    EXPECT_EQ(error, "no image to encode");
}

TEST(ChartPicture, Base64FollowsTheStandardVectors)
{
    const std::pair<std::string, std::string> cases[] = {
        { "", "" },           { "f", "Zg==" },         { "fo", "Zm8=" },
        { "foo", "Zm9v" },    { "foob", "Zm9vYg==" },  { "fooba", "Zm9vYmE=" },
        { "foobar", "Zm9vYmFy" }, { std::string("\xff\xfe\x00", 3), "//4A" },
    };
    for (const auto& c : cases)
    {
        EXPECT_EQ(oisverify::Base64(c.first), c.second) << c.first;
    }
}

// The spread is the peak-to-peak range of the final SR's frames, failed frames left out.
TEST(ChartPicture, SpreadCoversTheFinalFramesOnly)
{
    const oisverify::CircleSpread up = oisverify::SpreadOf(SwingResult(2.0, 80.0), 0);
    EXPECT_EQ(up.count, 3u);
    EXPECT_DOUBLE_EQ(up.lowX, 269.0);
    EXPECT_DOUBLE_EQ(up.highX, 271.0);
    EXPECT_DOUBLE_EQ(up.meanX, (271.0 + 269.0 + 271.0) / 3.0);
    EXPECT_DOUBLE_EQ(up.highY - up.lowY, 0.0);

    RunResult noRing = SwingResult(2.0, 80.0);
    for (RunFrame& frame : noRing.frames)
    {
        frame.inRing = false;
    }
    EXPECT_EQ(oisverify::SpreadOf(noRing, 3).count, 5u) << "every successful frame without a final SR";
    EXPECT_EQ(oisverify::SpreadOf(RunResult(), 0).count, 0u);
}

// On a 540-pixel crop shown at 540 pixels, a centre at (x, y) lands at the picture's pixel
// (x + 0.5, y + 0.5) and the spread box is as wide as the spread.
TEST(ChartPicture, DrawsCentresAndSpreadToTheCropsScale)
{
    oisverify::GreyImage image;
    image.width = image.height = 540;
    image.pixels.assign(540 * 540, 0xC0);
    const RunResult   result = SwingResult(2.0, 80.0);
    const std::string svg    = oisverify::ChartSvg(image, "PNGDATA", result);
    EXPECT_EQ(clitest::CheckMarkup(svg), "");
    EXPECT_NE(svg.find("href=\"data:image/png;base64,UE5HREFUQQ==\""), std::string::npos);
    EXPECT_NE(svg.find("image-rendering=\"pixelated\""), std::string::npos);
    const std::string upDots = Group(svg, "chart-up-centres");
    EXPECT_EQ(clitest::CountOf(upDots, "<circle"), 3u);
    const std::vector<double> cx = Values(upDots, "cx");
    ASSERT_EQ(cx.size(), 3u);
    EXPECT_DOUBLE_EQ(cx[0], 10.0 + 271.0 + 0.5) << "left margin 10 px";
    EXPECT_DOUBLE_EQ(Values(upDots, "cy")[0], 34.0 + 150.0 + 0.5) << "title 34 px";
    const std::string rightBox = Group(svg, "chart-right-spread");
    EXPECT_DOUBLE_EQ(Values(rightBox, "width").at(0), 80.0);
    EXPECT_DOUBLE_EQ(Values(rightBox, "height").at(0), 0.0);
    EXPECT_NE(svg.find(">right: centre 403.33, 270.00 px; spread 80.00 x 0.00 px over 3 frames</text>"),
              std::string::npos);
}

// A module that blurs 2 px and one that blurs 80 px must not look alike: every panel shows the
// same number of pixels, so the dots of the still circle span a fortieth of the shaking one's.
TEST(PositionsFigure, EveryPanelSharesOneScale)
{
    const std::string svg   = oisverify::PositionsSvg(SwingResult(2.0, 80.0));
    const double      up    = Extent(Values(Group(svg, "up-x-measured"), "cy"));
    const double      right = Extent(Values(Group(svg, "right-x-measured"), "cy"));
    ASSERT_GT(right, 0.0);
    EXPECT_NEAR(up / right, 2.0 / 80.0, 0.002);
    const double still = Extent(Values(Group(svg, "down-y-measured"), "cy"));
    EXPECT_DOUBLE_EQ(still, 0.0);
}

struct WrapCase
{
    const char*              text;
    size_t                   columns;
    std::vector<std::string> lines;
};

TEST(WrapText, BreaksAtSpacesAndCutsLongWords)
{
    const WrapCase cases[] = {
        { "", 10, { "" } },
        { "short", 10, { "short" } },
        { "one two three four", 9, { "one two", "three", "four" } },
        { "exactly10c next", 10, { "exactly10c", "next" } },
        { "/a/very/long/path/name ok", 8, { "/a/very/", "long/pat", "h/name", "ok" } },
        { "a  b", 3, { "a b" } },
    };
    for (const WrapCase& c : cases)
    {
        EXPECT_EQ(oisverify::WrapText(c.text, c.columns), c.lines) << c.text;
    }
}

// However long the verdict's text, every word of it is in the figure, no line runs past the
// right edge, and the limit's label sits below the last line.
TEST(SummaryFigure, WrapsTheWholeVerdictAboveTheLimitLabel)
{
    oisverify::RunConfig config;
    oisverify::Verdict   verdict;
    std::string          longWord(150, 'x');
    verdict.headline = "the node stopped in state -12 because " + longWord + " could not be read; " +
                       std::string(200, 'y').replace(50, 1, " ").replace(120, 1, " ");
    verdict.reasons  = { "first reason that is long enough to need a second line of its own in the figure",
                         "second reason" };
    std::vector<oisverify::SrBar> bars = { { "horizontal", "horizontal", 12.0f, false, 0.0f } };
    const std::string             svg  = oisverify::SummarySvg(config, bars, verdict);
    EXPECT_EQ(clitest::CheckMarkup(svg), "");
    const std::string   text  = Group(svg, "verdict-text");
    const std::vector<double> lineYs = Values(text, "y");
    ASSERT_GE(lineYs.size(), 9u);
    std::string joined;
    for (size_t end = text.find("</text>"); end != std::string::npos; end = text.find("</text>", end + 1))
    {
        const size_t      start = text.rfind('>', end) + 1;
        const std::string line  = text.substr(start, end - start);
        EXPECT_LE(line.size(), 70u) << line;
        joined += line;
    }
    EXPECT_NE(joined.find(longWord), std::string::npos) << "the long word is cut, not dropped";
    EXPECT_NE(joined.find("- second reason"), std::string::npos);
    const size_t label = svg.find("id=\"limit-label\"");
    ASSERT_NE(label, std::string::npos);
    const double labelY = Values(svg.substr(svg.rfind("<text", label)), "y").at(0);
    // The label's 11 px type starts about 8 px above its baseline; the last line ends 4 px below its.
    EXPECT_DOUBLE_EQ(labelY, lineYs.back() + 22.0) << "a clear gap between the text and the label";
    EXPECT_DOUBLE_EQ(Values(svg, "height").at(0), labelY + 158.0);
}

} // namespace
