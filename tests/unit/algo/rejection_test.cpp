// Inputs the measurement library must refuse: unusable arguments (-1) and images that do not
// show exactly the chart's four discs (-100). A refused call leaves a zeroed result.
#include "measurementlibrary.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace
{

using algotest::MeasurementLibrary;

bool IsZero(const OISPointResult& r)
{
    const OISPointResult zero{};
    return std::memcmp(&r, &zero, sizeof(r)) == 0;
}

OISPointResult Poisoned()
{
    OISPointResult r;
    std::memset(&r, 0x5A, sizeof(r));
    return r;
}

template <typename T>
std::string CaseName(const ::testing::TestParamInfo<T>& info)
{
    return info.param.name;
}

TEST(MeasurementLibraryExports, OnlyTheEntryPointIsVisible)
{
    const MeasurementLibrary library;
    ASSERT_TRUE(library.Loaded());
    EXPECT_EQ(library.Symbol("_ZN7oisalgo11DetectChartEPKhiRNS_11CoarseChartE"), nullptr);
    EXPECT_EQ(library.Symbol("_ZN7oisalgo16RefineDiscCentreEPKhiiRdS2_"), nullptr);
}

TEST(InvalidPointers, NullImageOrResultIsRefused)
{
    const MeasurementLibrary library;
    ASSERT_TRUE(library.Loaded());
    std::vector<uint8_t> image(540 * 540, 128);
    OISPointResult       result = Poisoned();
    EXPECT_EQ(library.Measure(nullptr, 540, 540, &result), OISHighFPSInvalidInput);
    EXPECT_TRUE(IsZero(result));
    EXPECT_EQ(library.Measure(image.data(), 540, 540, nullptr), OISHighFPSInvalidInput);
}

struct BadSize
{
    const char* name;
    int         width;
    int         height;
};

class InvalidSize : public ::testing::TestWithParam<BadSize>
{
};

TEST_P(InvalidSize, IsRefusedWithoutReadingTheImage)
{
    const MeasurementLibrary library;
    ASSERT_TRUE(library.Loaded());
    // One byte of image: reading the claimed size would run past it (caught by ASan builds).
    uint8_t        pixel  = 0;
    OISPointResult result = Poisoned();
    EXPECT_EQ(library.Measure(&pixel, GetParam().width, GetParam().height, &result),
              OISHighFPSInvalidInput);
    EXPECT_TRUE(IsZero(result));
}

INSTANTIATE_TEST_SUITE_P(Sizes, InvalidSize,
                         ::testing::Values(BadSize{"NonSquare", 540, 541},
                                           BadSize{"Wide", 720, 540}, BadSize{"Below256", 255, 255},
                                           BadSize{"Above2048", 2049, 2049}, BadSize{"Zero", 0, 0},
                                           BadSize{"Negative", -540, -540}),
                         CaseName<BadSize>);

// Charts that are not the four-disc cross, and frames with nothing to find, as edits of the
// standard chart on a 540 square.
struct BadChart
{
    const char* name;
    void (*edit)(sim::Scenario&);
};

const BadChart kBadCharts[] = {
    {"MissingDisc", [](sim::Scenario& s) { s.chart.discs.pop_back(); }},
    {"MergedDiscs",
     [](sim::Scenario& s)
     {
         // The right disc overlaps the one below: one blob where two discs should be.
         s.chart.discs[3].offsetXPx = s.chart.discs[1].radiusPx;
         s.chart.discs[3].offsetYPx = s.chart.discs[1].offsetYPx;
     }},
    {"ExtraDisc",
     [](sim::Scenario& s)
     {
         sim::ChartDisc extra = s.chart.discs[3];
         extra.offsetYPx      = s.chart.discs[0].offsetYPx; // above right: a fifth disc
         s.chart.discs.push_back(extra);
     }},
    {"NotACross",
     [](sim::Scenario& s)
     {
         for (size_t i = 0; i < 4; ++i)
         {
             s.chart.discs[i].offsetXPx = s.chart.discs[i].offsetYPx = -150.0 + 100.0 * i;
         }
     }},
    {"FlatBlack",
     [](sim::Scenario& s)
     {
         s.chart.paperDn = s.chart.inkDn = 0.0;
         s.sensor.noiseStdDn             = 0.0;
     }},
    {"FlatWhite", [](sim::Scenario& s) { s.chart.paperDn = s.chart.inkDn = 300.0; }}, // clipped
    {"NoiseOnly",
     [](sim::Scenario& s)
     {
         s.chart.inkDn       = s.chart.paperDn;
         s.sensor.noiseStdDn = 8.0;
     }},
};

class NotFound : public ::testing::TestWithParam<BadChart>
{
};

TEST_P(NotFound, Returns100AndZeroedResult)
{
    const MeasurementLibrary library;
    ASSERT_TRUE(library.Loaded());
    constexpr int kSide    = 540;
    sim::Scenario scenario = algotest::SquareScenario(kSide);
    scenario.chart         = sim::MakeFourDiscChart(kSide);
    GetParam().edit(scenario);
    std::vector<uint8_t> image(kSide * kSide);
    sim::Simulator(scenario).RenderLuma(0, image.data(), kSide);
    OISPointResult result = Poisoned();
    EXPECT_EQ(library.Measure(image.data(), kSide, kSide, &result), OISHighFPSNotFound);
    EXPECT_TRUE(IsZero(result));
}

INSTANTIATE_TEST_SUITE_P(Charts, NotFound, ::testing::ValuesIn(kBadCharts), CaseName<BadChart>);

} // namespace
