// Coarse chart detection. The image is averaged over square blocks down to 96-191 pixels a side
// (noise drops by the block side, and a disc is 6 to 11 coarse pixels in radius at any input size).
// A pixel is dark when it is well below the paper around it: first against the plain local mean,
// then against the local mean of the pixels that first test left as paper, so that neither
// vignetting nor the disc itself shifts the threshold. Local means are taken per tile (a
// sixteenth of the side) over the 5 x 5 tiles around it. Dark pixels are grouped into 8-connected
// blobs; the four chart discs are the four largest, which must be alike in size, reasonably
// compact, alone (no fifth blob of comparable size) and arranged as a cross.
#include "stages.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

namespace oisalgo
{
namespace
{

constexpr int    kMinCoarsePx          = 96; // coarse side is 96 .. 191 pixels
constexpr int    kTilesPerSide         = 16; // thresholds are set per tile ...
constexpr int    kMinTilePx            = 4;
constexpr int    kNeighbourTiles       = 2;  // ... from the 5 x 5 tiles around: a third of the side
constexpr int    kMinContrastDn        = 12; // ink must be this far below the paper
constexpr int    kDarkVsMeanPercent    = 80;
constexpr int    kDarkVsPaperPercent   = 65;
constexpr int    kMinPaperSharePercent = 25;   // else the plain mean stands in for the paper
constexpr int    kMinBlobPx            = 6;    // smaller blobs are specks, not discs
constexpr double kExtraBlobAreaRatio   = 0.4;  // a fifth blob this big means an extra disc
constexpr double kMaxAreaRatio         = 3.0;  // the chart's discs are alike in size
constexpr double kMinFillRatio         = 0.45; // blob area / bounding box (a disc gives 0.79)
constexpr double kMaxArmRatio          = 1.6;  // longest / shortest centre-to-disc distance
constexpr double kMaxAxisSkew          = 0.35; // opposite discs must lie on one axis
constexpr double kMaxChartOffset       = 0.25; // chart centre within a quarter side of the middle
constexpr double kWindowPerExtent      = 0.65; // refinement window half side per blob extent
constexpr double kWindowPerNeighbour   = 0.45; // ... and per distance to the nearest other disc
constexpr int    kMinHalfWindowPx      = 5;    // coarse pixels

struct CoarseImage
{
    int                  factor = 1;
    int                  size   = 0;
    std::vector<uint8_t> px;
};

// Block side: the largest power of two that leaves at least kMinCoarsePx coarse pixels a side,
// so that the block mean is a shift.
CoarseImage Downsample(const uint8_t* image, int side)
{
    CoarseImage c;
    int         shift = 0;
    while ((side >> (shift + 1)) >= kMinCoarsePx)
    {
        ++shift;
    }
    c.factor        = 1 << shift;
    c.size          = side >> shift;
    const int f     = c.factor;
    const int width = c.size * f;
    const int round = (f * f) / 2;
    c.px.resize(static_cast<size_t>(c.size) * c.size);
    // Column sums over the block's rows, then pairwise sums across columns: every loop is a
    // plain vector loop. A whole 16 x 16 block of 255 still fits 16 bits.
    std::vector<uint16_t> columnSum(width), pairSum(width / 2 + 1);
    for (int by = 0; by < c.size; ++by)
    {
        std::fill(columnSum.begin(), columnSum.end(), 0);
        for (int r = 0; r < f; ++r)
        {
            const uint8_t* row = image + static_cast<size_t>(by * f + r) * side;
            for (int x = 0; x < width; ++x)
            {
                columnSum[x] = static_cast<uint16_t>(columnSum[x] + row[x]);
            }
        }
        for (int level = 1; level <= shift; ++level)
        {
            const int count = width >> level;
            for (int i = 0; i < count; ++i)
            {
                pairSum[i] = static_cast<uint16_t>(columnSum[2 * i] + columnSum[2 * i + 1]);
            }
            std::copy(pairSum.begin(), pairSum.begin() + count, columnSum.begin());
        }
        uint8_t* out = c.px.data() + static_cast<size_t>(by) * c.size;
        for (int bx = 0; bx < c.size; ++bx)
        {
            out[bx] = static_cast<uint8_t>((columnSum[bx] + round) >> (2 * shift));
        }
    }
    return c;
}

// Sums over a grid of square tiles of the coarse image, for local statistics at tile resolution:
// the paper level varies slowly, so one threshold per tile is enough and costs next to nothing.
struct TileGrid
{
    int                  tile  = 1; // side of a tile, coarse pixels
    int                  count = 0; // tiles per side
    std::vector<int32_t> sum;       // sum of the counted pixels of each tile
    std::vector<int32_t> pixels;    // number of counted pixels of each tile

    explicit TileGrid(int n)
        : tile(std::max(kMinTilePx, n / kTilesPerSide)), count((n + tile - 1) / tile),
          sum(static_cast<size_t>(count) * count), pixels(sum.size())
    {
    }
};

// Tile sums of the pixels whose `skip` byte is 0 (all pixels when skip is null). Column sums
// over a tile row first, so the per-pixel loop is a plain vector loop.
void SumTiles(const CoarseImage& c, const uint8_t* skip, TileGrid& grid)
{
    const int            n = c.size;
    std::vector<int32_t> columnSum(n), columnCount(n);
    for (int ty = 0; ty < grid.count; ++ty)
    {
        std::fill(columnSum.begin(), columnSum.end(), 0);
        std::fill(columnCount.begin(), columnCount.end(), 0);
        for (int y = ty * grid.tile; y < std::min(n, (ty + 1) * grid.tile); ++y)
        {
            const uint8_t* v    = c.px.data() + static_cast<size_t>(y) * n;
            const uint8_t* drop = skip != nullptr ? skip + static_cast<size_t>(y) * n : nullptr;
            for (int x = 0; x < n; ++x)
            {
                const int32_t keep = drop != nullptr ? 1 - drop[x] : 1;
                columnSum[x] += keep * v[x];
                columnCount[x] += keep;
            }
        }
        for (int tx = 0; tx < grid.count; ++tx)
        {
            for (int x = tx * grid.tile; x < std::min(n, (tx + 1) * grid.tile); ++x)
            {
                grid.sum[ty * grid.count + tx] += columnSum[x];
                grid.pixels[ty * grid.count + tx] += columnCount[x];
            }
        }
    }
}

// Sums and counts over the tiles within kNeighbourTiles of each tile (clipped at the edges),
// as a horizontal then a vertical window sum.
struct LocalSums
{
    std::vector<int64_t> sum, pixels;
};

LocalSums Neighbourhoods(const TileGrid& grid)
{
    const int n = grid.count;
    LocalSums across{std::vector<int64_t>(grid.sum.size()), std::vector<int64_t>(grid.sum.size())};
    LocalSums local = across;
    for (int y = 0; y < n; ++y)
    {
        for (int x = 0; x < n; ++x)
        {
            for (int k = std::max(0, x - kNeighbourTiles);
                 k <= std::min(n - 1, x + kNeighbourTiles); ++k)
            {
                across.sum[y * n + x] += grid.sum[y * n + k];
                across.pixels[y * n + x] += grid.pixels[y * n + k];
            }
        }
    }
    for (int y = 0; y < n; ++y)
    {
        for (int x = 0; x < n; ++x)
        {
            for (int k = std::max(0, y - kNeighbourTiles);
                 k <= std::min(n - 1, y + kNeighbourTiles); ++k)
            {
                local.sum[y * n + x] += across.sum[k * n + x];
                local.pixels[y * n + x] += across.pixels[k * n + x];
            }
        }
    }
    return local;
}

// Smallest pixel value that is not dark against a level of sum / pixels: dark means below
// percent of the level and at least kMinContrastDn below it. Exact integer arithmetic.
int DarkLimit(int64_t sum, int64_t pixels, int percent)
{
    if (pixels <= 0)
    {
        return 0;
    }
    const int64_t scaled  = sum * percent;
    const int64_t byRatio = scaled > 0 ? (scaled - 1) / (100 * pixels) + 1 : 0;
    const int64_t margin  = sum - int64_t{kMinContrastDn} * pixels;
    const int64_t byGap   = margin >= 0 ? margin / pixels + 1 : 0;
    return static_cast<int>(std::min<int64_t>({byRatio, byGap, 255}));
}

// Marks pixels below their tile's limit.
std::vector<uint8_t> ApplyLimits(const CoarseImage& c, const TileGrid& grid,
                                 const std::vector<int>& limits)
{
    const int            n = c.size;
    std::vector<uint8_t> mask(static_cast<size_t>(n) * n);
    std::vector<uint8_t> rowLimit(n);
    for (int y = 0; y < n; ++y)
    {
        if (y % grid.tile == 0)
        {
            for (int tx = 0; tx < grid.count; ++tx)
            {
                for (int x = tx * grid.tile; x < std::min(n, (tx + 1) * grid.tile); ++x)
                {
                    rowLimit[x] = static_cast<uint8_t>(limits[(y / grid.tile) * grid.count + tx]);
                }
            }
        }
        const uint8_t* v   = c.px.data() + static_cast<size_t>(y) * n;
        uint8_t*       out = mask.data() + static_cast<size_t>(y) * n;
        for (int x = 0; x < n; ++x)
        {
            out[x] = v[x] < rowLimit[x];
        }
    }
    return mask;
}

std::vector<uint8_t> DarkMask(const CoarseImage& c)
{
    TileGrid all(c.size);
    SumTiles(c, nullptr, all);
    const LocalSums  allLocal = Neighbourhoods(all);
    std::vector<int> limits(all.sum.size());
    for (size_t t = 0; t < limits.size(); ++t)
    {
        limits[t] = DarkLimit(allLocal.sum[t], allLocal.pixels[t], kDarkVsMeanPercent);
    }
    const std::vector<uint8_t> first = ApplyLimits(c, all, limits);
    TileGrid                   paper(c.size);
    SumTiles(c, first.data(), paper);
    const LocalSums paperLocal = Neighbourhoods(paper);
    for (size_t t = 0; t < limits.size(); ++t)
    {
        const bool enoughPaper =
            paperLocal.pixels[t] * 100 >= allLocal.pixels[t] * kMinPaperSharePercent;
        const LocalSums& level = enoughPaper ? paperLocal : allLocal;
        limits[t]              = DarkLimit(level.sum[t], level.pixels[t], kDarkVsPaperPercent);
    }
    return ApplyLimits(c, all, limits);
}

struct Blob
{
    int    area = 0;
    double sumX = 0.0;
    double sumY = 0.0;
    int    minX = 0, maxX = 0, minY = 0, maxY = 0;
    bool   border = false;

    double CentreX() const { return sumX / area; }
    double CentreY() const { return sumY / area; }
    int    Extent() const { return std::max(maxX - minX, maxY - minY) + 1; }
    double Fill() const
    {
        return area / static_cast<double>((maxX - minX + 1) * (maxY - minY + 1));
    }
};

// Grows the 8-connected blob that contains `start`, clearing its pixels from the mask.
Blob GrowBlob(std::vector<uint8_t>& mask, int n, int start, std::vector<int>& stack)
{
    Blob blob;
    blob.minX = blob.maxX = start % n;
    blob.minY = blob.maxY = start / n;
    mask[start]           = 0;
    stack.push_back(start);
    while (!stack.empty())
    {
        const int p = stack.back();
        stack.pop_back();
        const int x = p % n, y = p / n;
        ++blob.area;
        blob.sumX += x;
        blob.sumY += y;
        blob.minX = std::min(blob.minX, x);
        blob.maxX = std::max(blob.maxX, x);
        blob.minY = std::min(blob.minY, y);
        blob.maxY = std::max(blob.maxY, y);
        blob.border |= x == 0 || y == 0 || x == n - 1 || y == n - 1;
        for (int ny = std::max(0, y - 1); ny <= std::min(n - 1, y + 1); ++ny)
        {
            for (int nx = std::max(0, x - 1); nx <= std::min(n - 1, x + 1); ++nx)
            {
                if (mask[ny * n + nx])
                {
                    mask[ny * n + nx] = 0;
                    stack.push_back(ny * n + nx);
                }
            }
        }
    }
    return blob;
}

std::vector<Blob> FindBlobs(std::vector<uint8_t>& mask, int n)
{
    std::vector<Blob> blobs;
    std::vector<int>  stack;
    for (int start = 0; start < n * n; ++start)
    {
        // Most of the mask is paper: skip it eight bytes at a time.
        uint64_t word = 0;
        if (start + 8 <= n * n && (std::memcpy(&word, &mask[start], 8), word == 0))
        {
            start += 7;
        }
        else if (mask[start])
        {
            blobs.push_back(GrowBlob(mask, n, start, stack));
        }
    }
    return blobs;
}

// The four largest whole blobs, if they are the chart's discs and nothing else competes.
bool PickDiscBlobs(std::vector<Blob> blobs, std::vector<Blob>& discs)
{
    blobs.erase(std::remove_if(blobs.begin(), blobs.end(),
                               [](const Blob& b) { return b.border || b.area < kMinBlobPx; }),
                blobs.end());
    std::sort(blobs.begin(), blobs.end(),
              [](const Blob& a, const Blob& b) { return a.area > b.area; });
    if (blobs.size() < 4)
    {
        return false;
    }
    const double fourth = blobs[3].area;
    if (blobs.size() > 4 && blobs[4].area >= kExtraBlobAreaRatio * fourth)
    {
        return false;
    }
    if (blobs[0].area > kMaxAreaRatio * fourth)
    {
        return false;
    }
    discs.assign(blobs.begin(), blobs.begin() + 4);
    return std::all_of(discs.begin(), discs.end(),
                       [](const Blob& b) { return b.Fill() >= kMinFillRatio; });
}

// Assigns the blobs to up, down, left and right of their common centre and checks the cross.
bool AssignCross(const std::vector<Blob>& discs, int n, const Blob* slots[4])
{
    double cx = 0.0, cy = 0.0;
    for (const Blob& b : discs)
    {
        cx += 0.25 * b.CentreX();
        cy += 0.25 * b.CentreY();
    }
    slots[kUp] = slots[kDown] = slots[kLeft] = slots[kRight] = nullptr;
    double minArm = std::numeric_limits<double>::max(), maxArm = 0.0;
    for (const Blob& b : discs)
    {
        const double dx = b.CentreX() - cx, dy = b.CentreY() - cy;
        const int    slot =
            std::fabs(dy) > std::fabs(dx) ? (dy < 0.0 ? kUp : kDown) : (dx < 0.0 ? kLeft : kRight);
        if (slots[slot] != nullptr)
        {
            return false;
        }
        slots[slot] = &b;
        minArm      = std::min(minArm, std::hypot(dx, dy));
        maxArm      = std::max(maxArm, std::hypot(dx, dy));
    }
    const double verticalSpan   = slots[kDown]->CentreY() - slots[kUp]->CentreY();
    const double horizontalSpan = slots[kRight]->CentreX() - slots[kLeft]->CentreX();
    const double middle         = 0.5 * (n - 1);
    return minArm > 0.0 && maxArm <= kMaxArmRatio * minArm &&
           std::fabs(slots[kUp]->CentreX() - slots[kDown]->CentreX()) <=
               kMaxAxisSkew * verticalSpan &&
           std::fabs(slots[kLeft]->CentreY() - slots[kRight]->CentreY()) <=
               kMaxAxisSkew * horizontalSpan &&
           std::fabs(cx - middle) <= kMaxChartOffset * n &&
           std::fabs(cy - middle) <= kMaxChartOffset * n;
}

// Half side of the refinement window, coarse pixels: the blob's extent with room for blur
// tails, and clear of the other discs.
int HalfWindow(const Blob* const slots[4], int s)
{
    double nearest = std::numeric_limits<double>::max();
    for (int o = 0; o < 4; ++o)
    {
        if (o != s)
        {
            nearest = std::min(nearest, std::hypot(slots[o]->CentreX() - slots[s]->CentreX(),
                                                   slots[o]->CentreY() - slots[s]->CentreY()));
        }
    }
    const double byExtent = kWindowPerExtent * slots[s]->Extent() + 2.0;
    return std::max(kMinHalfWindowPx,
                    static_cast<int>(std::min(byExtent, kWindowPerNeighbour * nearest)));
}

} // namespace

bool DetectChart(const uint8_t* image, int side, CoarseChart& chart)
{
    const CoarseImage    coarse = Downsample(image, side);
    std::vector<uint8_t> mask   = DarkMask(coarse);
    std::vector<Blob>    discs;
    const Blob*          slots[4];
    if (!PickDiscBlobs(FindBlobs(mask, coarse.size), discs) ||
        !AssignCross(discs, coarse.size, slots))
    {
        return false;
    }
    const double f = coarse.factor;
    for (int s = 0; s < 4; ++s)
    {
        // The darkness centroid on the coarse image puts the full-resolution window within a
        // pixel of its final place, so the fine stage usually needs a single pass.
        const int half = HalfWindow(slots, s);
        double    x    = slots[s]->CentreX();
        double    y    = slots[s]->CentreY();
        if (!RefineDiscCentre(coarse.px.data(), coarse.size, half, x, y))
        {
            return false;
        }
        // Coarse pixel i covers full-resolution pixels i f .. i f + f - 1: its centre is at
        // (i + 0.5) f - 0.5.
        chart.discs[s].x            = (x + 0.5) * f - 0.5;
        chart.discs[s].y            = (y + 0.5) * f - 0.5;
        chart.discs[s].halfWindowPx = static_cast<int>(half * f);
    }
    return true;
}

} // namespace oisalgo
