// The two stages of the four-circle measurement. The coarse stage finds the chart's four dark
// discs on a block-averaged copy of the image and checks that they form the chart's cross; the
// fine stage finds one disc's sub-pixel centre from the full-resolution pixels around it.
#ifndef ZELK_ALGO_STAGES_H
#define ZELK_ALGO_STAGES_H

#include <cstdint>

namespace oisalgo
{

// A disc found on the coarse image, in full-resolution pixels: the darkness centroid there, and
// the half side of a square that holds the disc's whole darkness and no other disc.
struct CoarseDisc
{
    double x            = 0.0;
    double y            = 0.0;
    int    halfWindowPx = 0;
};

enum DiscSlot
{
    kUp    = 0,
    kDown  = 1,
    kLeft  = 2,
    kRight = 3,
};

struct CoarseChart
{
    CoarseDisc discs[4]; // indexed by DiscSlot
};

// False when the image does not show exactly the four discs of the chart (a missing, merged or
// extra disc, no contrast, or blobs that do not form a cross around the middle of the image).
bool DetectChart(const uint8_t* image, int side, CoarseChart& chart);

// Darkness-weighted centroid of the disc near (x, y) in a square window of the given half side,
// re-centred until the window stops moving. Updates x and y; false when no disc darkness is found.
bool RefineDiscCentre(const uint8_t* image, int side, int halfWindowPx, double& x, double& y);

} // namespace oisalgo

#endif // ZELK_ALGO_STAGES_H
