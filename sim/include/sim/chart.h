// The test chart, the NV12 frame record and the centre crop of the shake-table simulator.
// Coordinates are in pixels with the centre of pixel (i, j) at (i, j): x grows to the right,
// y downwards, and a pixel covers [i - 0.5, i + 0.5] x [j - 0.5, j + 0.5].
#ifndef ZELK_SIM_CHART_H
#define ZELK_SIM_CHART_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace sim
{

struct Point
{
    double x = 0.0;
    double y = 0.0;
};

// Centres of the four chart discs in the order the measurement reports them.
struct FourCentres
{
    Point up;
    Point down;
    Point left;
    Point right;
};

// One dark disc, placed relative to the chart centre.
struct ChartDisc
{
    double offsetXPx = 0.0;
    double offsetYPx = 0.0;
    double radiusPx  = 0.0;
};

// Dark discs printed on white paper. Luma levels are those of a fully lit, perfectly focused
// chart; illumination, blur and noise are applied by the renderer.
struct Chart
{
    std::vector<ChartDisc> discs; // for the standard chart: up, down, left, right
    double                 paperDn = 190.0;
    double                 inkDn   = 30.0;
};

// Geometry of the standard chart, as fractions of the crop side: discs well inside the crop even
// when the uncompensated shake moves them by about a third of a 540-pixel crop.
constexpr double kDiscRadiusFraction  = 0.06;
constexpr double kDiscSpacingFraction = 0.22; // chart centre to disc centre

// The standard four-disc chart for a square crop. The spacing is a whole number of pixels, so all
// four discs sit at the same sub-pixel phase (the renderer then rasterises one and copies it).
Chart MakeFourDiscChart(int cropSidePx);

// One NV12 frame: the luma plane (stride bytes per row, scanline rows) followed by the interleaved
// chroma plane (half the rows, same stride). Padding bytes are zero.
struct Nv12Image
{
    int                  width    = 0;
    int                  height   = 0;
    int                  stride   = 0;
    int                  scanline = 0;
    std::vector<uint8_t> data;

    size_t         ChromaOffset() const { return static_cast<size_t>(stride) * scanline; }
    uint8_t*       Luma() { return data.data(); }
    const uint8_t* Luma() const { return data.data(); }
    uint8_t*       Chroma() { return data.data() + ChromaOffset(); }
    const uint8_t* Chroma() const { return data.data() + ChromaOffset(); }
};

// Bytes an NV12 buffer of this layout needs: luma plane plus half as many chroma rows (rounded up).
size_t Nv12BufferSize(int stride, int scanline);

// Side of the square the measurement node crops from a width x height frame: half the shorter
// side for 4:3, two thirds of it for 16:9, 0 for any other aspect ratio.
int NodeCropSide(int width, int height);

struct CropOrigin
{
    int x = 0;
    int y = 0;
};

// Top-left frame pixel of a centred square crop (integer halves, as the node takes them).
CropOrigin CentreCropOrigin(int width, int height, int cropSide);

// Copies the centred cropSide x cropSide square out of a luma plane, packed row after row. Empty
// when the square does not fit the frame.
std::vector<uint8_t> CentreCropLuma(const uint8_t* luma, int width, int height, int stride,
                                    int cropSide);

} // namespace sim

#endif // ZELK_SIM_CHART_H
