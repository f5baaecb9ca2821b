// Frame rendering internals. Rasterisation: the exact area of a disc inside each pixel,
// accumulated into a coverage map (time-averaged over the exposure sub-steps), and the defocus
// blur of such a map. Composition: lit paper everywhere (cheap, row by row), ink where the maps
// say, the vignetting of the lens, sensor noise, and 8-bit quantisation.
#ifndef ZELK_SIM_RENDER_H
#define ZELK_SIM_RENDER_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace sim::detail
{

// Fractions of pixel area covered by ink over a rectangle of frame pixels.
struct CoverageMap
{
    int                originX = 0; // frame pixel of element (0, 0)
    int                originY = 0;
    int                width   = 0;
    int                height  = 0;
    std::vector<float> values; // row-major

    void         Reset(int x, int y, int w, int h);
    float*       Row(int r) { return values.data() + static_cast<std::size_t>(r) * width; }
    const float* Row(int r) const { return values.data() + static_cast<std::size_t>(r) * width; }
};

// Area of the disc (centre, radius) inside pixel (px, py), in pixel units (0 .. 1).
double DiscPixelCoverage(double centreX, double centreY, double radius, int px, int py);

// Adds weight x the disc's area in every pixel of the map it touches (pixels outside the map are
// dropped).
void AddDiscCoverage(CoverageMap& map, double centreX, double centreY, double radius,
                     double weight);

// Convolves the map with a sampled, normalised Gaussian of the given standard deviation (pixels);
// the map must leave a margin of GaussianMarginPx around the ink. No-op below a third of a pixel.
void ApplyGaussianBlur(CoverageMap& map, double sigmaPx);
int  GaussianMarginPx(double sigmaPx);

// A coverage map placed in the frame, shifted by whole pixels (discs sharing one rasterisation).
struct PlacedCoverage
{
    const CoverageMap* map    = nullptr;
    int                shiftX = 0;
    int                shiftY = 0;
};

struct LumaLook
{
    double   paperDn    = 190.0;
    double   inkDn      = 30.0;
    double   noiseStdDn = 0.0;
    uint64_t seed       = 1;
    uint32_t frameIndex = 0;
    // Illumination gain 1 - vignetteK * r^2 around the optical axis, never below kMinLightGain.
    double lightCentreX = 0.0;
    double lightCentreY = 0.0;
    double vignetteK    = 0.0;
};

constexpr double kMinLightGain = 0.05;

// Writes width bytes of each of the height rows of `luma` (rows `stride` bytes apart).
void ComposeLuma(const LumaLook& look, const std::vector<PlacedCoverage>& coverage, uint8_t* luma,
                 int width, int height, int stride);

} // namespace sim::detail

#endif // ZELK_SIM_RENDER_H
