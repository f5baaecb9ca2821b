// libOISHighFPS.so: measures the centres of the four chart circles (up, down, left, right of the
// image centre) in a square 8-bit luma image of 256 to 2048 pixels a side, with sub-pixel accuracy.
//
// Method: (1) sum the image over square blocks down to 96-191 pixels a side, read once; (2) mark
// pixels well below the local paper level (per tile, a high quantile of the tile means around it:
// robust to vignetting and to the discs themselves); (3) 8-connected blobs from runs of dark
// pixels: the four largest must be similar, compact, alone and form a cross; (4) per disc, a
// window from the coarse image that holds all of the disc's darkness, blur tails included, and
// the paper's gradient fitted over the paper around it; (5) one pass over the window's
// full-resolution pixels: the paper is that gradient through the level of the window's border,
// each pixel's darkness 1 - I / paper is mapped to a weight that is exactly 0 on the paper and
// exactly 1 inside the disc (linear in between, from a few noise deviations above the paper to a
// few below the disc's own full darkness, read as the median of its middle), and the centre is
// the centroid of the weights. The map is monotone and the same for every pixel of a disc, so a
// disc blurred symmetrically (motion along a line, defocus) keeps its centroid at its mean
// position over the exposure; and since the paper and the interior weigh exactly 0 and 1, only
// the rim, where the position information is, adds noise.
//
// Coordinates are pixels of the input with the centre of pixel (column i, row j) at (i, j).
// The record types come from platform/include/oishighfps.h (plain C records; no CHI run time).
// The only exported symbol is OISHighFPS; it keeps no state between calls (each thread reuses its
// own work buffers) and may run on several threads at once.
#include "oishighfps.h"

#include "stages.h"

#include <type_traits>

namespace
{

void ClearResult(OISPointResult* pResult)
{
    if (pResult != nullptr)
    {
        *pResult = OISPointResult{};
    }
}

// The four centres by slot, or false when the image is not the chart.
bool MeasureChart(const uint8_t* image, int side, double centres[4][2])
{
    oisalgo::Workspace&        ws     = oisalgo::ThreadWorkspace();
    const oisalgo::CoarseImage coarse = oisalgo::Downsample(image, side, ws);
    oisalgo::FindDarkBlobs(coarse, ws);
    oisalgo::Blob discs[4];
    if (!oisalgo::PickChartDiscs(ws, coarse.size, discs))
    {
        return false;
    }
    for (int s = 0; s < 4; ++s)
    {
        oisalgo::DiscWindow window;
        if (!oisalgo::FindDiscWindow(coarse, side, discs, s, window) ||
            !oisalgo::MeasureDiscCentre(image, side, window, centres[s][0], centres[s][1]))
        {
            return false;
        }
    }
    return true;
}

} // namespace

extern "C" __attribute__((visibility("default"))) INT32 OISHighFPS(UINT8* pImage, OISImageSize size,
                                                                   OISPointResult* pResult)
{
    if (pImage == nullptr || pResult == nullptr || size.width != size.height ||
        size.width < oisalgo::kMinSidePx || size.width > oisalgo::kMaxSidePx)
    {
        ClearResult(pResult);
        return OISHighFPSInvalidInput;
    }
    double centres[4][2];
    if (!MeasureChart(pImage, size.width, centres))
    {
        ClearResult(pResult);
        return OISHighFPSNotFound;
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
