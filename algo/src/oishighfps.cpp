// libOISHighFPS.so: measures the centres of the four chart circles (up, down, left, right of the
// image centre) in a square 8-bit luma image of 256 to 2048 pixels a side, with sub-pixel accuracy.
//
// Method: (1) block-average the image to 96-191 pixels a side; (2) mark pixels well below the
// local paper level (per-tile adaptive threshold, robust to vignetting); (3) 8-connected blobs:
// the four largest must be similar, compact, alone and form a cross; (4) per disc: fit the paper
// as a plane to a ring around it, take darkness = 1 - I / paper less a noise threshold, and use
// its centroid, first on the coarse image, then on full-resolution pixels, re-centring the
// window until it stops moving. The darkness centroid of a symmetrically blurred disc is the
// disc's mean position over the exposure, so motion blur and defocus do not bias it.
//
// Coordinates are pixels of the input with the centre of pixel (column i, row j) at (i, j).
// The record types come from platform/include/oishighfps.h (plain C records; no CHI run time).
// The only exported symbol is OISHighFPS; it keeps no state and may run on several threads.
#include "oishighfps.h"

#include "stages.h"

#include <type_traits>

namespace
{

constexpr INT32 kMinSidePx = 256;
constexpr INT32 kMaxSidePx = 2048;

void ClearResult(OISPointResult* pResult)
{
    if (pResult != nullptr)
    {
        *pResult = OISPointResult{};
    }
}

} // namespace

extern "C" __attribute__((visibility("default"))) INT32 OISHighFPS(UINT8* pImage, OISImageSize size,
                                                                   OISPointResult* pResult)
{
    if (pImage == nullptr || pResult == nullptr || size.width != size.height ||
        size.width < kMinSidePx || size.width > kMaxSidePx)
    {
        ClearResult(pResult);
        return OISHighFPSInvalidInput;
    }
    const int            side = size.width;
    oisalgo::CoarseChart chart;
    if (!oisalgo::DetectChart(pImage, side, chart))
    {
        ClearResult(pResult);
        return OISHighFPSNotFound;
    }
    double centres[4][2];
    for (int s = 0; s < 4; ++s)
    {
        centres[s][0] = chart.discs[s].x;
        centres[s][1] = chart.discs[s].y;
        if (!oisalgo::RefineDiscCentre(pImage, side, chart.discs[s].halfWindowPx, centres[s][0],
                                       centres[s][1]))
        {
            ClearResult(pResult);
            return OISHighFPSNotFound;
        }
    }
    pResult->upX    = centres[oisalgo::kUp][0];
    pResult->upY    = centres[oisalgo::kUp][1];
    pResult->downX  = centres[oisalgo::kDown][0];
    pResult->downY  = centres[oisalgo::kDown][1];
    pResult->leftX  = centres[oisalgo::kLeft][0];
    pResult->leftY  = centres[oisalgo::kLeft][1];
    pResult->rightX = centres[oisalgo::kRight][0];
    pResult->rightY = centres[oisalgo::kRight][1];
    return OISHighFPSSuccess;
}

static_assert(std::is_same<decltype(&OISHighFPS), PFNOISHIGHFPS>::value,
              "OISHighFPS must match the signature the node loads");
