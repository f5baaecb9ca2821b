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

// Adds the disc's coverage of one pixel row only (a rolling shutter exposes each row at its own
// time, so each row is drawn with the disc where it was then).
void AddDiscRowCoverage(CoverageMap& map, double centreX, double centreY, double radius, int row,
                        double weight);

// Area of the disc inside the band of pixel row `row` (y from row - 0.5 to row + 0.5), and the
// first moment of that area in y about the disc centre: the band's centroid is centreX
// horizontally and centreY + moment / area vertically.
double DiscBandArea(double centreY, double radius, int row);
double DiscBandMomentY(double centreY, double radius, int row);

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
    // Illumination gain 1 - vignetteK * r^2 around the optical axis, never below kMinLightGain.
    double lightCentreX = 0.0;
    double lightCentreY = 0.0;
    double vignetteK    = 0.0;
};

constexpr double kMinLightGain = 0.05;

// What every frame of a scenario shares, built once: the lit paper without noise (illumination
// split into a row and a column term), and the sensor noise as a pool of normal samples, already
// scaled to the noise level, drawn once from the seed. Frame f's row y takes `width` consecutive
// samples of the pool from an offset drawn from (seed, f, y): every pixel's noise is still a
// normal sample of the right level, rows and frames are independent for any practical purpose
// (two rows share samples only when their offsets fall within a row width of each other, and
// then at shifted columns), and a row costs one draw instead of one per pixel. With even light
// the paper plus each pool sample is quantised once too, so a row without ink is a copy.
class Canvas
{
public:
    Canvas(const LumaLook& look, int width, int height);

    int Width() const { return m_width; }
    // The pool offset of frame `frame`'s row y, and that row's noise samples.
    uint32_t     NoiseOffset(uint32_t frame, int y) const;
    const float* NoiseRow(uint32_t offset) const { return m_noise.data() + offset; }
    // The quantised lit paper plus noise from `offset`; null unless the light is even.
    const uint8_t* PaperRow(uint32_t offset) const;

    float RowGain(int y) const { return m_rowGain[y]; }
    const float* ColumnTerm() const { return m_columnTerm.data(); }
    float Paper() const { return m_paper; }
    float Depth() const { return m_depth; }

private:
    int                  m_width  = 0;
    uint64_t             m_seed   = 0;
    uint32_t             m_pool   = 1; // distinct offsets
    float                m_paper  = 0.0F;
    float                m_depth  = 0.0F;
    std::vector<float>   m_rowGain;
    std::vector<float>   m_columnTerm;
    std::vector<float>   m_noise; // m_pool + width samples: the first width repeat at the end
    std::vector<uint8_t> m_paperBytes;
};

// Writes width bytes of each of the height rows of `luma` (rows `stride` bytes apart) for frame
// `frame`. The full composition evaluates every pixel; the cached one writes rows without ink
// straight from the canvas and evaluates only where a coverage map lies. Both give the same bytes.
void ComposeLumaFull(const Canvas& canvas, uint32_t frame,
                     const std::vector<PlacedCoverage>& coverage, uint8_t* luma, int height,
                     int stride);
void ComposeLumaCached(const Canvas& canvas, uint32_t frame,
                       const std::vector<PlacedCoverage>& coverage, uint8_t* luma, int height,
                       int stride);

} // namespace sim::detail

#endif // ZELK_SIM_RENDER_H
