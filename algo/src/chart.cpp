// The chart's cross among the dark blobs, and the full-resolution window of each disc.
//
// The four chart discs are the four largest blobs that do not touch the image edge; they must be
// alike in size, reasonably compact, alone (no fifth blob of comparable size) and arranged as a
// cross around the middle of the image.
//
// A disc's window must hold every pixel the disc darkens, blur tails included, and no other disc.
// The blob only holds the pixels below two thirds of the paper, which under motion blur or defocus
// stops well short of where the darkness ends. So the window comes from the coarse image around
// the blob: the paper is fitted as a plane to the border of a rectangle that stops short of the
// other discs, and the window is the bounding box of the pixels visibly below that plane, widened
// by the coarse pixel's uncertainty, a safety margin and the paper ring the fine stage fits to.
// The paper's gradient around the disc is fitted here too, over far more paper than the fine
// stage's ring holds.
#include "stages.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace oisalgo
{
namespace
{

constexpr int    kMinBlobPx          = 6;    // smaller blobs are specks, not discs
constexpr double kExtraBlobAreaRatio = 0.4;  // a fifth blob this big means an extra disc
constexpr double kMaxAreaRatio       = 3.0;  // the chart's discs are alike in size
constexpr double kMinFillRatio       = 0.45; // blob area / bounding box (a disc gives 0.79)
constexpr double kMaxArmRatio        = 1.6;  // longest / shortest centre-to-disc distance
constexpr double kMaxAxisSkew        = 0.35; // opposite discs must lie on one axis
constexpr double kMaxChartOffset     = 0.25; // chart centre within a quarter side of the middle
constexpr double kSearchPerNeighbour = 0.45; // search rectangle reach, per nearest-disc distance
constexpr int    kMinSearchMarginPx  = 2;    // coarse pixels around the blob, at least
constexpr double kInkedFraction      = 0.04; // coarse darkness that counts as ink, of the paper
constexpr double kInkedSigmas        = 4.0;  // ... and in noise deviations of the paper fit
constexpr int    kSafetyMarginPx     = 3;    // full-resolution paper beyond the visible darkness
constexpr double kPi                 = 3.14159265358979323846;

// The four largest whole blobs, if they are the chart's discs and nothing else competes. Only
// the five largest matter: they are kept in order in a fixed array, without sorting them all.
bool PickLargest(const std::vector<Blob>& blobs, Blob discs[4])
{
    Blob largest[5];
    int  count = 0;
    for (const Blob& b : blobs)
    {
        if (b.border || b.area < kMinBlobPx || (count == 5 && b.area <= largest[4].area))
        {
            continue;
        }
        int i = std::min(count, 4);
        for (; i > 0 && largest[i - 1].area < b.area; --i)
        {
            largest[i] = largest[i - 1];
        }
        largest[i] = b;
        count      = std::min(count + 1, 5);
    }
    if (count < 4)
    {
        return false;
    }
    const double fourth = largest[3].area;
    if ((count > 4 && largest[4].area >= kExtraBlobAreaRatio * fourth) ||
        largest[0].area > kMaxAreaRatio * fourth)
    {
        return false;
    }
    std::copy(largest, largest + 4, discs);
    return std::all_of(discs, discs + 4, [](const Blob& b) { return b.Fill() >= kMinFillRatio; });
}

// Puts the blobs in the up, down, left and right slots around their common centre and checks
// the cross.
bool AssignCross(const Blob found[4], int n, Blob slots[4])
{
    double cx = 0.0, cy = 0.0;
    for (int i = 0; i < 4; ++i)
    {
        cx += 0.25 * found[i].CentreX();
        cy += 0.25 * found[i].CentreY();
    }
    bool   filled[4] = {false, false, false, false};
    double minArm = std::numeric_limits<double>::max(), maxArm = 0.0;
    for (int i = 0; i < 4; ++i)
    {
        const double dx = found[i].CentreX() - cx, dy = found[i].CentreY() - cy;
        const int    slot =
            std::fabs(dy) > std::fabs(dx) ? (dy < 0.0 ? kUp : kDown) : (dx < 0.0 ? kLeft : kRight);
        if (filled[slot])
        {
            return false;
        }
        filled[slot] = true;
        slots[slot]  = found[i];
        minArm       = std::min(minArm, std::hypot(dx, dy));
        maxArm       = std::max(maxArm, std::hypot(dx, dy));
    }
    const double verticalSpan   = slots[kDown].CentreY() - slots[kUp].CentreY();
    const double horizontalSpan = slots[kRight].CentreX() - slots[kLeft].CentreX();
    const double middle         = 0.5 * (n - 1);
    return minArm > 0.0 && maxArm <= kMaxArmRatio * minArm &&
           std::fabs(slots[kUp].CentreX() - slots[kDown].CentreX()) <=
               kMaxAxisSkew * verticalSpan &&
           std::fabs(slots[kLeft].CentreY() - slots[kRight].CentreY()) <=
               kMaxAxisSkew * horizontalSpan &&
           std::fabs(cx - middle) <= kMaxChartOffset * n &&
           std::fabs(cy - middle) <= kMaxChartOffset * n;
}

// The blob's bounding box widened towards the other discs, but only so far that it stays clear
// of them (discs are at least a spacing apart, and each reaches at most half its extent).
Rect SearchRect(const Blob discs[4], int slot, int n)
{
    const Blob& b       = discs[slot];
    double      nearest = std::numeric_limits<double>::max();
    for (int o = 0; o < 4; ++o)
    {
        if (o != slot)
        {
            nearest = std::min(nearest, std::hypot(discs[o].CentreX() - b.CentreX(),
                                                   discs[o].CentreY() - b.CentreY()));
        }
    }
    const int reach  = static_cast<int>(kSearchPerNeighbour * nearest - 0.5 * b.Extent());
    const int margin = std::max(kMinSearchMarginPx, std::min(reach, b.Extent()));
    return {std::max(0, b.minX - margin), std::max(0, b.minY - margin),
            std::min(n - 1, b.maxX + margin), std::min(n - 1, b.maxY + margin)};
}

// The largest part of the rectangle that is symmetric about the middle of the box inside it.
Rect SymmetricAbout(const Rect& r, const Rect& box)
{
    const int twiceX = box.x0 + box.x1, twiceY = box.y0 + box.y1;     // twice the middle
    const int halfX = std::min(twiceX - 2 * r.x0, 2 * r.x1 - twiceX); // twice the half widths
    const int halfY = std::min(twiceY - 2 * r.y0, 2 * r.y1 - twiceY);
    return {(twiceX - halfX + 1) / 2, (twiceY - halfY + 1) / 2, (twiceX + halfX) / 2,
            (twiceY + halfY) / 2};
}

// Bounding box of the coarse pixels clearly below the paper plane fitted to the rectangle's
// border; false when there are none. Each row is searched from both ends for its first inked
// pixel: rows that cross the disc stop early.
bool InkedBox(const CoarseImage& c, const Rect& r, Rect& box, Plane& paper)
{
    const int ox = (r.x0 + r.x1) / 2, oy = (r.y0 + r.y1) / 2;
    if (!FitRingPlane(c.px, c.size, r, 1, ox, oy, paper))
    {
        return false;
    }
    // Ink is below paper - margin; the margin is set at the middle (the light varies little
    // across the rectangle).
    const float margin =
        static_cast<float>(std::max(kInkedFraction * paper.a, kInkedSigmas * paper.noiseDn));
    const float slope = static_cast<float>(paper.b);
    box               = {r.x1 + 1, r.y1 + 1, r.x0 - 1, r.y0 - 1};
    for (int y = r.y0; y <= r.y1; ++y)
    {
        const uint16_t* row   = c.px + static_cast<size_t>(y) * c.size;
        const float     start = static_cast<float>(paper.At(r.x0 - ox, y - oy)) - margin;
        const float     end   = start + slope * static_cast<float>(r.x1 - r.x0);
        // Values at or above the row's highest limit are not ink anywhere along it: most pixels
        // are ruled out by that one integer comparison.
        const int  paperFrom = static_cast<int>(std::ceil(std::max(start, end)));
        const auto inked     = [&](int x)
        { return row[x] < paperFrom && row[x] < start + slope * static_cast<float>(x - r.x0); };
        int left = r.x0;
        while (left <= r.x1 && !inked(left))
        {
            ++left;
        }
        if (left > r.x1)
        {
            continue;
        }
        int right = r.x1;
        while (!inked(right))
        {
            --right;
        }
        box = {std::min(box.x0, left), std::min(box.y0, y), std::max(box.x1, right),
               std::max(box.y1, y)};
    }
    return box.x0 <= box.x1;
}

// Refits the paper plane for its gradient, which the fine stage takes over: a tilt error would add
// darkness growing across the disc and move the centroid of a blurred rim. So the fit takes all
// of the rectangle clear of the disc (the more paper and the longer the lever arm, the less noise
// tilts the plane), made symmetric about the disc: a plane fitted symmetrically about a point has
// the light's gradient at that point even where vignetting curves the light. Where the image edge
// leaves no symmetric frame, the whole rectangle's frame serves, and failing that the ring fit.
void PaperGradient(const CoarseImage& c, const Rect& search, const Rect& box, Plane& paper)
{
    const auto clearOf = [&](const Rect& r)
    {
        return Rect{std::max(r.x0, box.x0 - 1), std::max(r.y0, box.y0 - 1),
                    std::min(r.x1, box.x1 + 1), std::min(r.y1, box.y1 + 1)};
    };
    const auto fit = [&](const Rect& r) {
        return FitFramePlane(c.px, c.size, r, clearOf(r), (r.x0 + r.x1) / 2, (r.y0 + r.y1) / 2,
                             paper);
    };
    if (!fit(SymmetricAbout(search, box)))
    {
        fit(search);
    }
}

// Widens x0..x1 to a whole number of kRowBlockPx-pixel blocks where the image allows, as evenly
// as it can on both sides: the fine stage reads rows a block at a time, and a little more paper
// costs less than a ragged end.
void PadToBlocks(int side, int& x0, int& x1)
{
    const int width = x1 - x0 + 1;
    const int extra = (kRowBlockPx - width % kRowBlockPx) % kRowBlockPx;
    const int right = std::min(side - 1 - x1, extra - std::min(x0, extra / 2));
    const int left  = std::min(x0, extra - right);
    x0 -= left;
    x1 += right;
}

} // namespace

bool PickChartDiscs(const Workspace& ws, int coarseSize, Blob discs[4])
{
    Blob found[4];
    return PickLargest(ws.blobs, found) && AssignCross(found, coarseSize, discs);
}

bool FindDiscWindow(const CoarseImage& c, int side, const Blob discs[4], int slot,
                    DiscWindow& window)
{
    const Rect search = SearchRect(discs, slot, c.size);
    Rect       box;
    Plane      paper;
    if (!InkedBox(c, search, box, paper))
    {
        return false;
    }
    PaperGradient(c, search, box, paper);
    // Coarse pixel i covers full-resolution pixels i f .. i f + f - 1, centred at (i + 0.5) f -
    // 0.5. Darkness too faint to show in a coarse pixel can reach half a block further out.
    const int f      = c.factor;
    const int margin = f / 2 + kSafetyMarginPx + kRingPx;
    window.x0        = std::max(0, box.x0 * f - margin);
    window.y0        = std::max(0, box.y0 * f - margin);
    window.x1        = std::min(side - 1, box.x1 * f + f - 1 + margin);
    window.y1        = std::min(side - 1, box.y1 * f + f - 1 + margin);
    PadToBlocks(side, window.x0, window.x1);
    window.centreX  = (discs[slot].CentreX() + 0.5) * f - 0.5;
    window.centreY  = (discs[slot].CentreY() + 0.5) * f - 0.5;
    window.radiusPx = std::sqrt(discs[slot].area / kPi) * f;
    // Coarse sums are f^2 pixels, and coarse pixels f pixels apart.
    window.slopeX = paper.b / (f * f * f);
    window.slopeY = paper.c / (f * f * f);
    return true;
}

} // namespace oisalgo
