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
      0xDCD412B20C4936CBULL,
      { 269.60407918738997, 153.04891235611359, 269.76529876777261, 391.04309082768646,
        150.68453693612099, 272.04651905907178, 388.68453694103931, 272.04651905907178 } },
    { "Noise2At540", 540, 2, 0, 0, 1.0, 0, 0, 0, 3,
      0x0C06772E03A7DA91ULL,
      { 273.0024136752059, 151.21758314905594, 273.04300257526415, 389.11414444685204,
        154.02541790908163, 270.16436874048384, 392.02372995052622, 270.16566364984186 } },
    { "BlurVignetteDefocus720", 720, 2, 8, 8, 0.6, 2, 0, 0, 5,
      0xFCC95234958D5621ULL,
      { 362.60553632781802, 200.17116792037834, 362.52220391974379, 516.07002077559412,
        204.57387470648922, 358.10628984963432, 520.55982298367826, 358.11352284793645 } },
    { "OffCentreBlurNoise5At256", 256, 5, 20, 20, 1.0, 0, 0.15, -0.15, 1,
      0xDDBADB3B427C4531ULL,
      { 167.42819142112683, 35.421181565484822, 167.55929511591745, 147.39249614582425,
        111.5069114423312, 91.424933712014777, 223.49061073738562, 91.372553958304167 } },
    { "Noise2At1024", 1024, 2, 0, 4, 0.8, 0, -0.05, 0.1, 2,
      0xF84B32B5A66ACB06ULL,
      { 463.1030493338755, 390.53173280584457, 463.20407847470898, 840.44411656229443,
        238.15704254758677, 615.49001658322834, 688.15442435975217, 615.48868590133372 } },
};

INSTANTIATE_TEST_SUITE_P(Frames, MeasuredCentres, ::testing::ValuesIn(kFrames),
                         [](const ::testing::TestParamInfo<FrameCase>& info) { return std::string(info.param.name); });

} // namespace
