// Rendering: determinism, agreement of the pictured discs with the truth, NV12 layout, the
// node's crop rule, and the photometry (noise, vignetting).
#include "sim/chart.h"
#include "sim/simulator.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>

namespace
{

sim::Scenario SmallScenario()
{
    sim::Scenario s      = sim::OisOffScenario();
    s.sensor.widthPx     = 640;
    s.sensor.heightPx    = 480;
    s.shake.amplitudeXPx = 40.0;
    s.shake.amplitudeYPx = 30.0;
    return s;
}

sim::Nv12Image Rendered(const sim::Simulator& simulator, uint32_t frame)
{
    sim::Nv12Image image;
    simulator.Render(frame, image);
    return image;
}

double Luma(const sim::Nv12Image& image, int x, int y)
{
    return image.Luma()[static_cast<size_t>(y) * image.stride + x];
}

TEST(SimDeterminism, SameScenarioAndSeedGiveSameBytesInAnyOrder)
{
    const sim::Simulator       first(SmallScenario()), second(SmallScenario());
    const std::vector<uint8_t> frame5 = Rendered(first, 5).data;
    const std::vector<uint8_t> frame3 = Rendered(first, 3).data;
    EXPECT_EQ(Rendered(second, 3).data, frame3);
    EXPECT_EQ(Rendered(second, 5).data, frame5);
    EXPECT_NE(frame3, frame5);
    sim::Scenario reseeded = SmallScenario();
    reseeded.sensor.seed   = 2;
    EXPECT_NE(Rendered(sim::Simulator(reseeded), 3).data, frame3);
}

TEST(SimScenario, ProblemsAreNamedAndTheSimulatorUsesTheNearestUsableScenario)
{
    sim::Scenario s = SmallScenario();
    EXPECT_EQ(sim::ValidateScenario(s), "");
    s.sensor.strideBytes = 600; // narrower than a row
    s.sensor.frameRateHz = 0.0;
    EXPECT_NE(sim::ValidateScenario(s), "");
    const sim::Simulator simulator(s);
    EXPECT_EQ(simulator.GetScenario().sensor.strideBytes, 640);
    EXPECT_EQ(simulator.FrameTimestampNs(60), 1000000000); // 60 fps stands in
    s.chart.discs = {{0.0, 0.0, -1.0}};
    EXPECT_NE(sim::ValidateScenario(s), "");
}

struct Picture
{
    const char* name;
    double      exposureS;
    double      blurXPx;
    double      blurYPx;
    double      defocusPx;
    double      readoutS = 0.0;
};

class PicturedCentres : public ::testing::TestWithParam<Picture>
{
};

// The truth is the exposure-mean position: the centroid of what the frame shows, for a disc
// that moves, is smeared or defocused.
TEST_P(PicturedCentres, DarknessCentroidIsTheTrueCentre)
{
    sim::Scenario s         = sim::OisOffScenario(); // 1440 x 1080: discs far apart
    s.sensor.noiseStdDn     = 0.0;
    s.sensor.exposureS      = GetParam().exposureS;
    s.optics.motionBlurXPx  = GetParam().blurXPx;
    s.optics.motionBlurYPx  = GetParam().blurYPx;
    s.optics.defocusSigmaPx = GetParam().defocusPx;
    s.sensor.readoutS       = GetParam().readoutS;
    const sim::Simulator simulator(s);
    for (uint32_t frame : {0u, 4u, 9u})
    {
        const sim::Nv12Image  image = Rendered(simulator, frame);
        const sim::FrameTruth truth = simulator.Truth(frame);
        ASSERT_EQ(truth.discsFrame.size(), 4u);
        for (const sim::Point& c : truth.discsFrame)
        {
            double w = 0.0, sx = 0.0, sy = 0.0;
            for (int y = static_cast<int>(c.y) - 60; y <= static_cast<int>(c.y) + 60; ++y)
            {
                for (int x = static_cast<int>(c.x) - 60; x <= static_cast<int>(c.x) + 60; ++x)
                {
                    const double d = s.chart.paperDn - Luma(image, x, y);
                    w += d;
                    sx += d * x;
                    sy += d * y;
                }
            }
            EXPECT_NEAR(sx / w, c.x, 0.01) << "frame " << frame;
            EXPECT_NEAR(sy / w, c.y, 0.01) << "frame " << frame;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Pictures, PicturedCentres,
    ::testing::Values(Picture{"Still", 0.0, 0, 0, 0}, Picture{"ShakeExposure", 0.008, 0, 0, 0},
                      Picture{"LinearSmear", 0.0, 15, -6, 0}, Picture{"Defocus", 0.0, 0, 0, 2.5},
                      Picture{"Everything", 0.008, 10, 10, 1.5},
                      Picture{"RollingShutter", 0.004, 0, 0, 0, 0.016},
                      Picture{"RollingEverything", 0.008, 10, 10, 1.5, 0.012}),
    [](const ::testing::TestParamInfo<Picture>& info) { return std::string(info.param.name); });

TEST(SimDiscEdges, TotalDarknessIsTheExactDiscArea)
{
    sim::Scenario s      = SmallScenario();
    s.sensor.noiseStdDn  = 0.0;
    s.shake.amplitudeXPx = s.shake.amplitudeYPx = 0.0;
    s.ois.residualFloorPx                       = 0.0;
    s.chart.discs                               = {{3.37, -1.21, 17.3}};
    const sim::Nv12Image image                  = Rendered(sim::Simulator(s), 0);
    double               darkness               = 0.0;
    for (int y = 0; y < image.height; ++y)
    {
        for (int x = 0; x < image.width; ++x)
        {
            darkness += s.chart.paperDn - Luma(image, x, y);
        }
    }
    const double expected = sim::kPi * 17.3 * 17.3 * (s.chart.paperDn - s.chart.inkDn);
    EXPECT_NEAR(darkness / expected, 1.0, 2e-3); // 8-bit rounding only
}

TEST(SimNv12Layout, StrideScanlineAndChroma)
{
    sim::Scenario s       = SmallScenario();
    s.sensor.strideBytes  = 704;
    s.sensor.scanlineRows = 496;
    const sim::Simulator simulator(s);
    const sim::Nv12Image image = Rendered(simulator, 2);
    ASSERT_EQ(image.data.size(), 704u * (496 + 248));
    std::vector<uint8_t> packed(640 * 480);
    simulator.RenderLuma(2, packed.data(), 640);
    for (int y = 0; y < 496; ++y)
    {
        const uint8_t* row = image.Luma() + y * 704;
        if (y < 480)
        {
            ASSERT_EQ(0, std::memcmp(row, &packed[y * 640], 640)) << "luma row " << y;
        }
        // Row padding, and whole rows of scanline padding, are zero.
        ASSERT_TRUE(
            std::all_of(row + (y < 480 ? 640 : 0), row + 704, [](uint8_t v) { return v == 0; }));
    }
    for (int y = 0; y < 248; ++y)
    {
        const uint8_t* row = image.Chroma() + y * 704;
        ASSERT_EQ(std::count(row, row + 704, 0x80), y < 240 ? 640 : 0) << "chroma row " << y;
    }
    std::vector<uint8_t> small(image.data.size() - 1);
    EXPECT_FALSE(simulator.RenderNv12(2, small.data(), small.size()));
}

struct CropCase
{
    int width;
    int height;
    int side;
};

class NodeCrop : public ::testing::TestWithParam<CropCase>
{
};

TEST_P(NodeCrop, SideAndOriginFollowTheNode)
{
    const CropCase& c = GetParam();
    EXPECT_EQ(sim::NodeCropSide(c.width, c.height), c.side);
    if (c.side == 0)
    {
        return;
    }
    sim::Scenario s   = SmallScenario();
    s.sensor.widthPx  = c.width;
    s.sensor.heightPx = c.height;
    const sim::Simulator simulator(s);
    EXPECT_EQ(simulator.CropSide(), c.side);
    EXPECT_EQ(simulator.GetCropOrigin().x, c.width / 2 - c.side / 2);
    EXPECT_EQ(simulator.GetCropOrigin().y, c.height / 2 - c.side / 2);
    const sim::FrameTruth truth = simulator.Truth(0);
    EXPECT_DOUBLE_EQ(truth.discsCrop[0].x, truth.discsFrame[0].x - simulator.GetCropOrigin().x);
}

INSTANTIATE_TEST_SUITE_P(Frames, NodeCrop,
                         ::testing::Values(CropCase{1440, 1080, 540}, CropCase{1920, 1080, 720},
                                           CropCase{1920, 1440, 720}, CropCase{4000, 3000, 1500},
                                           CropCase{1280, 1024, 512}, CropCase{1001, 750, 375},
                                           CropCase{1000, 1000, 0}, CropCase{2000, 1000, 0}));

TEST(SimCrop, CentreCropCopiesTheSquareAndRefusesMisfits)
{
    std::vector<uint8_t> luma(12 * 8);
    for (size_t i = 0; i < luma.size(); ++i)
    {
        luma[i] = static_cast<uint8_t>(i);
    }
    // Rows 4 - 1 .. 5 and columns 5 - 1 .. 6, rows 12 bytes apart.
    EXPECT_EQ(sim::CentreCropLuma(luma.data(), 10, 8, 12, 3),
              (std::vector<uint8_t>{40, 41, 42, 52, 53, 54, 64, 65, 66}));
    EXPECT_TRUE(sim::CentreCropLuma(luma.data(), 10, 8, 12, 9).empty());
    EXPECT_TRUE(sim::CentreCropLuma(luma.data(), 10, 8, 9, 3).empty());
}

struct CacheCase
{
    const char* name;
    bool        oisOn;
    double      noiseDn;
    double      vignette;
    double      defocusPx;
    double      readoutS;
    int         strideBytes;
    double      chartOffsetXPx; // moves the discs over the frame's edge
};

class CachedRendering : public ::testing::TestWithParam<CacheCase>
{
};

// The cached path writes paper rows from the cache and evaluates only around the discs; every
// byte must be the one the full evaluation of every pixel gives.
TEST_P(CachedRendering, SameBytesAsTheFullRender)
{
    const CacheCase& c          = GetParam();
    sim::Scenario    s          = c.oisOn ? sim::OisOnScenario(0.9, 1.1) : sim::OisOffScenario();
    s.sensor.noiseStdDn         = c.noiseDn;
    s.optics.vignetteCornerGain = c.vignette;
    s.optics.defocusSigmaPx     = c.defocusPx;
    s.sensor.readoutS           = c.readoutS;
    s.sensor.strideBytes        = c.strideBytes;
    s.optics.chartOffsetXPx     = c.chartOffsetXPx;
    const sim::Simulator simulator(s);
    const int            stride = simulator.GetScenario().sensor.strideBytes;
    const size_t         bytes  = static_cast<size_t>(stride) * s.sensor.heightPx;
    for (uint32_t frame : {0u, 33u, 121u})
    {
        std::vector<uint8_t> cached(bytes, 0), full(bytes, 0);
        simulator.RenderLuma(frame, cached.data(), stride, sim::Simulator::RenderPath::Cached);
        simulator.RenderLuma(frame, full.data(), stride, sim::Simulator::RenderPath::Full);
        ASSERT_EQ(cached, full) << "frame " << frame;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Scenarios, CachedRendering,
    ::testing::Values(CacheCase{"DefaultOisOn", true, 2.0, 1.0, 0.0, 0.004, 0, 0.0},
                      CacheCase{"OisOffGlobalShutter", false, 2.0, 1.0, 0.0, 0.0, 0, 0.0},
                      CacheCase{"Vignetting", true, 2.0, 0.6, 0.0, 0.004, 0, 0.0},
                      CacheCase{"DefocusRolling", false, 5.0, 0.8, 2.5, 0.016, 0, 0.0},
                      CacheCase{"NoNoise", true, 0.0, 1.0, 0.0, 0.0, 0, 0.0},
                      CacheCase{"StrideAndDiscOverTheEdge", false, 2.0, 0.7, 0.0, 0.004, 1504,
                                -560.0}),
    [](const ::testing::TestParamInfo<CacheCase>& info) { return std::string(info.param.name); });

// The noise pool's rows: samples at the same pixel in two frames, and in neighbouring rows of one
// frame, are uncorrelated.
TEST(SimPhotometry, NoiseIsIndependentBetweenFramesAndRows)
{
    sim::Scenario s            = SmallScenario();
    s.chart.discs              = {{-300.0, 0.0, 1.0}}; // bare paper
    s.sensor.noiseStdDn        = 5.0;
    const sim::Simulator simulator(s);
    const sim::Nv12Image a = Rendered(simulator, 4), b = Rendered(simulator, 5);
    auto correlation = [&](const sim::Nv12Image& p, int dy, const sim::Nv12Image& q)
    {
        double sum = 0.0, n = 0.0;
        for (int y = 0; y < 400; ++y)
        {
            for (int x = 0; x < 640; ++x)
            {
                sum += (Luma(p, x, y) - s.chart.paperDn) * (Luma(q, x, y + dy) - s.chart.paperDn);
                n += 1.0;
            }
        }
        return sum / n / 25.0;
    };
    EXPECT_NEAR(correlation(a, 0, a), 1.0, 0.05);
    EXPECT_NEAR(correlation(a, 0, b), 0.0, 0.02);
    EXPECT_NEAR(correlation(a, 1, a), 0.0, 0.02);
}

TEST(SimPhotometry, NoiseLevelAndVignetting)
{
    sim::Scenario s            = SmallScenario();
    s.chart.discs              = {{-300.0, 0.0, 1.0}}; // out of the frame: bare paper
    s.sensor.noiseStdDn        = 5.0;
    const sim::Nv12Image noisy = Rendered(sim::Simulator(s), 1);
    double               sum = 0.0, sumSq = 0.0;
    for (int y = 100; y < 164; ++y)
    {
        for (int x = 100; x < 164; ++x)
        {
            sum += Luma(noisy, x, y);
            sumSq += Luma(noisy, x, y) * Luma(noisy, x, y);
        }
    }
    EXPECT_NEAR(sum / 4096.0, s.chart.paperDn, 0.3);
    EXPECT_NEAR(std::sqrt(sumSq / 4096.0 - (sum / 4096.0) * (sum / 4096.0)), 5.0, 0.3);

    s.sensor.noiseStdDn         = 0.0;
    s.optics.vignetteCornerGain = 0.6;
    const sim::Simulator  simulator(s);
    const sim::Nv12Image  lit  = Rendered(simulator, 1);
    const sim::CropOrigin o    = simulator.GetCropOrigin();
    const int             last = simulator.CropSide() - 1;
    EXPECT_NEAR(Luma(lit, o.x + last / 2, o.y + last / 2) / s.chart.paperDn, 1.0, 0.005);
    EXPECT_NEAR(Luma(lit, o.x, o.y) / s.chart.paperDn, 0.6, 0.01);
    EXPECT_NEAR(Luma(lit, o.x + last, o.y + last) / s.chart.paperDn, 0.6, 0.01);
}

} // namespace
