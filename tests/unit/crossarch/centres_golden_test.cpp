// Circle centres the measurement library finds in rendered simulator frames. The frame's bytes are
// checked first (64-bit FNV-1a), so a failure says whether the renderer or the measurement
// differs. The library and the simulator are built without fused multiply-adds or value-changing
// math, so the same bytes must give the same centres to far below a nanopixel.
//
// The rows are the x86-64 results. A deliberate change to the renderer or the measurement changes
// them: a failing case prints the row this build computed, ready to replace the old one once the
// new results are accepted on x86-64.
#include "measurementlibrary.h"

#include <gtest/gtest.h>

#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

namespace
{

constexpr double kCentreTolerancePx = 1e-9;

struct FrameCase
{
    const char* name;
    int         side;
    double      noiseDn;
    double      blurXPx;
    double      blurYPx;
    double      cornerGain;
    double      defocusPx;
    double      offsetX; // chart misalignment, fraction of the side
    double      offsetY;
    uint32_t    frame;
    uint64_t    lumaHash;
    double      centres[8]; // up x, up y, down x, down y, left x, left y, right x, right y
};

void PrintTo(const FrameCase& param, std::ostream* pOut) { *pOut << param.name; }

uint64_t Fnv1a(const std::vector<uint8_t>& bytes)
{
    uint64_t hash = 0xCBF29CE484222325ULL;
    for (uint8_t byte : bytes)
    {
        hash = (hash ^ byte) * 0x100000001B3ULL;
    }
    return hash;
}

// The golden row of one case as this build computes it, in the table's layout.
std::string Row(uint64_t hash, const double (&centres)[8])
{
    char text[512];
    int  used = std::snprintf(text, sizeof(text), "0x%016" PRIX64 "ULL,\n{", hash);
    for (int i = 0; i < 8; i++)
    {
        const char* separator = (i == 0) ? " " : (i == 4) ? ",\n  " : ", ";
        used += std::snprintf(text + used, sizeof(text) - used, "%s%.17g", separator, centres[i]);
    }
    std::snprintf(text + used, sizeof(text) - used, " }");
    return text;
}

// A square chart that fills the frame (the crop the node would pass), shaken by a few pixels so
// that frames put the discs at different sub-pixel phases.
sim::Scenario SquareChart(const FrameCase& c)
{
    sim::Scenario s             = sim::OisOffScenario();
    s.sensor.widthPx            = c.side;
    s.sensor.heightPx           = c.side;
    s.sensor.exposureS          = 0.0;
    s.sensor.noiseStdDn         = c.noiseDn;
    s.ois.residualFloorPx       = 0.0;
    s.shake.amplitudeXPx        = 7.3;
    s.shake.amplitudeYPx        = 5.1;
    s.optics.motionBlurXPx      = c.blurXPx;
    s.optics.motionBlurYPx      = c.blurYPx;
    s.optics.vignetteCornerGain = c.cornerGain;
    s.optics.defocusSigmaPx     = c.defocusPx;
    s.optics.chartOffsetXPx     = c.offsetX * c.side;
    s.optics.chartOffsetYPx     = c.offsetY * c.side;
    return s;
}

class MeasuredCentres : public ::testing::TestWithParam<FrameCase> {};

TEST_P(MeasuredCentres, MatchTheX86Results)
{
    const FrameCase&                   c = GetParam();
    const algotest::MeasurementLibrary library;
    ASSERT_TRUE(library.Loaded());
    const sim::Simulator simulator(SquareChart(c));

    std::vector<uint8_t> image(static_cast<size_t>(c.side) * c.side);
    simulator.RenderLuma(c.frame, image.data(), c.side);
    const uint64_t hash = Fnv1a(image);
    OISPointResult result{};
    ASSERT_EQ(library.Measure(image.data(), c.side, c.side, &result), OISHighFPSSuccess);

    const double measured[8] = { result.upX,   result.upY,   result.downX,  result.downY,
                                 result.leftX, result.leftY, result.rightX, result.rightY };
    double       worst       = 0.0;
    for (int i = 0; i < 8; i++)
    {
        worst = std::fmax(worst, std::fabs(measured[i] - c.centres[i]));
    }
    EXPECT_EQ(hash, c.lumaHash) << "the rendered frame differs; this build's row:\n" << Row(hash, measured);
    EXPECT_LE(worst, kCentreTolerancePx) << "this build's row:\n" << Row(hash, measured);
}

const FrameCase kFrames[] = {
    { "Clean540", 540, 0, 0, 0, 1.0, 0, 0, 0, 0,
      0x23D97A53FB07D34DULL,
      { 269.4999999965284, 153.05007330752005, 269.4999999965284, 391.05007330752005,
        150.49999999681768, 272.05007335583343, 388.49999999768556, 272.05007335583343 } },
    { "Noise2At540", 540, 2, 0, 0, 1.0, 0, 0, 0, 3,
      0x975FA5A368733C58ULL,
      { 272.9714755907687, 151.28659053914578, 272.97014917257042, 389.28638438643162,
        153.97203816673419, 270.28659493680209, 391.9704050584491, 270.28727160532964 } },
    { "BlurVignetteDefocus720", 720, 2, 8, 8, 0.6, 2, 0, 0, 5,
      0x626D318F52D3773CULL,
      { 362.66091181265108, 200.22805362894968, 362.65451794282683, 516.22534779441446,
        204.66146257794728, 358.22129493130626, 520.65969189663167, 358.21846891486319 } },
    { "OffCentreBlurNoise5At256", 256, 5, 20, 20, 1.0, 0, 0.15, -0.15, 1,
      0x9A57578978141752ULL,
      { 167.36704713658659, 35.421378897718661, 167.39301014202738, 147.4084194602386,
        111.35740105521101, 91.400756594721685, 223.38106758040894, 91.452651104144181 } },
    { "Noise2At1024", 1024, 2, 0, 4, 0.8, 0, -0.05, 0.1, 2,
      0xAE7D602442FEABB3ULL,
      { 463.01384524758299, 390.60699010822884, 463.0128944697845, 840.60511731314182,
        238.0135600332444, 615.60846635697987, 688.01230997329139, 615.60488323008224 } },
};

INSTANTIATE_TEST_SUITE_P(Frames, MeasuredCentres, ::testing::ValuesIn(kFrames),
                         [](const ::testing::TestParamInfo<FrameCase>& info) { return std::string(info.param.name); });

} // namespace
