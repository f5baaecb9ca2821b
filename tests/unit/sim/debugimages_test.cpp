// Debug image files: layout (720 x 720 luma, grey chroma), names whose byte-wise order is the
// frame order, agreement with the rendered crop, and failure on an unusable directory.
#include "sim/debugimages.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <unistd.h>

namespace
{

namespace fs = std::filesystem;

class DebugImages : public ::testing::Test
{
protected:
    void SetUp() override
    {
        std::string pattern = (fs::temp_directory_path() / "simdebugXXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        m_dir = pattern;
    }
    void TearDown() override { fs::remove_all(m_dir); }

    static std::vector<uint8_t> ReadAll(const fs::path& path)
    {
        std::ifstream in(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    }

    fs::path m_dir;
};

TEST_F(DebugImages, FilesHoldTheCropThenGreyChromaInFrameOrder)
{
    const sim::Scenario          scenario = sim::OisOffScenario();
    std::vector<sim::FrameTruth> truths;
    const fs::path               dir = m_dir / "data" / "ois";
    ASSERT_TRUE(sim::WriteDebugImages(scenario, dir.string(), 8, 4, &truths));
    ASSERT_EQ(truths.size(), 4u);

    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(dir))
    {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end()); // the byte-wise order the node uses
    EXPECT_EQ(names, (std::vector<std::string>{"ois_000008.yuv", "ois_000009.yuv", "ois_000010.yuv",
                                               "ois_000011.yuv"}));

    // Each file is the frame a 720-pixel crop of the same session shows.
    sim::Scenario square   = scenario;
    square.sensor.widthPx  = sim::kDebugImageSidePx;
    square.sensor.heightPx = sim::kDebugImageSidePx;
    const sim::Simulator crop(square);
    std::vector<uint8_t> luma(sim::kDebugImageLumaBytes);
    for (uint32_t i = 0; i < 4; ++i)
    {
        const std::vector<uint8_t> file = ReadAll(dir / names[i]);
        ASSERT_EQ(file.size(), sim::kDebugImageBytes);
        crop.RenderLuma(8 + i, luma.data(), sim::kDebugImageSidePx);
        EXPECT_TRUE(std::equal(luma.begin(), luma.end(), file.begin()));
        EXPECT_TRUE(std::all_of(file.begin() + sim::kDebugImageLumaBytes, file.end(),
                                [](uint8_t v) { return v == sim::kGreyChroma; }));
        EXPECT_EQ(truths[i].index, 8 + i);
        EXPECT_DOUBLE_EQ(truths[i].discsCrop[0].x, crop.Truth(8 + i).discsCrop[0].x);
    }
}

TEST_F(DebugImages, NamesSortNumericallyPastTenAndAThousand)
{
    std::vector<std::string> names = {sim::DebugImageName(10), sim::DebugImageName(9),
                                      sim::DebugImageName(1000), sim::DebugImageName(999)};
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"ois_000009.yuv", "ois_000010.yuv", "ois_000999.yuv",
                                               "ois_001000.yuv"}));
}

TEST_F(DebugImages, UnusableDirectoryFails)
{
    const fs::path file = m_dir / "plainfile";
    std::ofstream(file) << "x";
    EXPECT_FALSE(sim::WriteDebugImages(sim::OisOffScenario(), (file / "ois").string(), 0, 1));
    std::vector<uint8_t> luma(sim::kDebugImageLumaBytes);
    EXPECT_FALSE(sim::WriteDebugImage((file / "x.yuv").string(), luma.data()));
    EXPECT_FALSE(sim::WriteDebugImage((m_dir / "x.yuv").string(), nullptr));
}

} // namespace
