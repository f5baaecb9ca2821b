// Coarse image and its dark blobs. The image is summed over square blocks down to 96-191 pixels
// a side (noise drops by the block side, and a disc is 6 to 11 coarse pixels in radius at any input
// size). The block sums are kept whole, in 16 bits, rather than rounded to 8-bit means: the fits
// made on the coarse image later (the paper's gradient around each disc) need that precision.
// A pixel is dark when it is well below the paper around it. The paper level is set per tile (a
// sixteenth of the side) from the tile means of the 5 x 5 tiles around it, as a high quantile that
// a disc does not pull down and a single bright tile does not push up; vignetting changes little
// across 5 tiles. Dark pixels are gathered row by row into runs, and runs that touch (8-connected)
// are joined by union-find into blobs. All of it is integer arithmetic.
#include "stages.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace oisalgo
{
namespace
{

constexpr int kMinCoarsePx        = 96; // coarse side is 96 .. 191 pixels
constexpr int kTilesPerSide       = 16; // paper levels are set per tile ...
constexpr int kMinTilePx          = 4;
constexpr int kNeighbourTiles     = 2;  // ... from the 5 x 5 tiles around it
constexpr int kMinContrastDn      = 12; // ink must be this far below the paper
constexpr int kDarkVsPaperPercent = 65;

// Sums of horizontally adjacent pixel pairs over two rows, widened to 16 bits: the first pair of
// rows of a block assigns, later ones add. A whole block of 16 x 16 pixels of 255 still fits.
// Sixteen pixels at a time: seen as eight 16-bit words, a word's low byte is the left pixel of a
// pair and its high byte the right one (the sum does not depend on which is which). A ragged end
// is done as one more block that overlaps the previous one, its overlap masked off (pairs is at
// least 96).
void AddPairSums(const uint8_t* r0, const uint8_t* r1, int pairs, bool first, uint16_t* sum)
{
    const auto sums = [&](int i)
    {
        const Word8 a = LoadVector<Word8>(r0 + 2 * i);
        const Word8 b = LoadVector<Word8>(r1 + 2 * i);
        return Word8((a & 0xFF) + (a >> 8) + (b & 0xFF) + (b >> 8));
    };
    int i = 0;
    for (; i + 8 <= pairs; i += 8)
    {
        StoreVector(sum + i, first ? sums(i) : sums(i) + LoadVector<Word8>(sum + i));
    }
    if (i < pairs)
    {
        const int   last  = pairs - 8;
        const Word8 lanes = {0, 1, 2, 3, 4, 5, 6, 7};
        const Word8 fresh = Word8(lanes >= static_cast<uint16_t>(i - last)); // lanes not yet done
        const Word8 old   = LoadVector<Word8>(sum + last);
        const Word8 base  = first ? Word8(old & ~fresh) : old;
        StoreVector(sum + last, Word8(base + (sums(last) & fresh)));
    }
}

// Adds neighbouring sums: to[i] = from[2 i] + from[2 i + 1], for count outputs (at least 96).
// Eight outputs at a time: seen as 32-bit words, a word holds one pair, and the even 16-bit
// halves hold the sums; a ragged end is one more block that overlaps the previous one.
void HalveSums(const uint16_t* from, int count, uint16_t* to)
{
    const auto sums = [](const uint16_t* pairs)
    {
        const Dword4 pair = LoadVector<Dword4>(pairs);
        return Word8((pair & 0xFFFF) + (pair >> 16));
    };
    for (int i = 0; i < count; i += 8)
    {
        const int start = std::min(i, count - 8);
        StoreVector(to + start,
                    __builtin_shufflevector(sums(from + 2 * start), sums(from + 2 * start + 8), 0,
                                            2, 4, 6, 8, 10, 12, 14));
    }
}

// Mean level of each tile, in block-sum units: column sums over a tile row, then per tile.
void TileLevels(const CoarseImage& c, int tile, int count, Workspace& ws)
{
    const int n      = c.size;
    uint32_t* column = Reserve(ws.tileColumn, static_cast<size_t>(n));
    int32_t*  level  = Reserve(ws.tileLevel, static_cast<size_t>(count) * count);
    for (int ty = 0; ty < count; ++ty)
    {
        const int yEnd = std::min(n, (ty + 1) * tile);
        std::fill(column, column + n, 0U);
        for (int y = ty * tile; y < yEnd; ++y)
        {
            const uint16_t* v = c.px + static_cast<size_t>(y) * n;
            for (int x = 0; x < n; ++x)
            {
                column[x] += v[x];
            }
        }
        for (int tx = 0; tx < count; ++tx)
        {
            const int xEnd = std::min(n, (tx + 1) * tile);
            uint32_t  sum  = 0;
            for (int x = tx * tile; x < xEnd; ++x)
            {
                sum += column[x];
            }
            const uint32_t pixels  = static_cast<uint32_t>((xEnd - tx * tile) * (yEnd - ty * tile));
            level[ty * count + tx] = static_cast<int32_t>((sum + pixels / 2) / pixels);
        }
    }
}

// Smallest block sum that is not dark against a paper level (both in block-sum units): dark means
// below kDarkVsPaperPercent of the level and at least kMinContrastDn per pixel below it.
uint16_t DarkLimit(int32_t level, int32_t contrast)
{
    const int32_t byRatio = (level * kDarkVsPaperPercent + 99) / 100;
    const int32_t byGap   = std::max(0, level - contrast + 1);
    return static_cast<uint16_t>(std::min({byRatio, byGap, 65535}));
}

// Second largest of the values within kNeighbourTiles of index i of a line of count values
// (stride apart), clipped at the ends: one outlier cannot raise it, and it stays on the paper as
// long as two of the values are paper.
int32_t SecondLargest(const int32_t* line, int i, int count, int stride)
{
    const int lo = std::max(0, i - kNeighbourTiles), hi = std::min(count - 1, i + kNeighbourTiles);
    int32_t   first = line[lo * stride], second = INT32_MIN;
    for (int k = lo + 1; k <= hi; ++k)
    {
        const int32_t v = line[k * stride];
        second          = v > first ? first : std::max(second, v);
        first           = std::max(first, v);
    }
    return second == INT32_MIN ? first : second;
}

// Per tile, the paper level around it and from that its dark limit. The level is the second
// largest tile mean along the row of 5 tiles, then the second largest of those along the column:
// a separable stand-in for a high quantile of the 5 x 5 tiles, which a disc does not pull down
// (its dark core spans at most three tiles of a row or column) and a single bright tile does not
// push up.
void TileLimits(int count, int32_t contrast, Workspace& ws)
{
    const int32_t* level  = ws.tileLevel.data();
    int32_t*       across = Reserve(ws.tileAcross, static_cast<size_t>(count) * count);
    uint16_t*      limit  = Reserve(ws.tileLimit, static_cast<size_t>(count) * count);
    for (int ty = 0; ty < count; ++ty)
    {
        for (int tx = 0; tx < count; ++tx)
        {
            across[ty * count + tx] = SecondLargest(level + ty * count, tx, count, 1);
        }
    }
    for (int ty = 0; ty < count; ++ty)
    {
        for (int tx = 0; tx < count; ++tx)
        {
            limit[ty * count + tx] =
                DarkLimit(SecondLargest(across + tx, ty, count, count), contrast);
        }
    }
}

// Appends the runs of dark pixels of one row (dark[x] nonzero). Most of a row is paper: it is
// skipped eight pixels (sixteen bytes) at a time.
void AppendRuns(const uint16_t* dark, int n, int y, std::vector<Run>& runs)
{
    int x = 0;
    while (x < n)
    {
        uint64_t words[2];
        if (x + 8 <= n && (std::memcpy(words, dark + x, 16), (words[0] | words[1]) == 0))
        {
            x += 8;
            continue;
        }
        if (!dark[x])
        {
            ++x;
            continue;
        }
        const int start = x;
        while (x < n && dark[x])
        {
            ++x;
        }
        runs.push_back({y, start, x - 1, static_cast<int>(runs.size())});
    }
}

// Marks the dark pixels of one row, eight at a time: all ones where the value is below the limit.
// Both arrays hold whole blocks of eight (the limits are 0, never dark, past the row's end).
// Returns whether the row has a dark pixel at all.
bool MarkDark(const uint16_t* value, const uint16_t* limit, int blocks, uint16_t* dark)
{
    Word8 any = {};
    for (int b = 0; b < blocks; ++b)
    {
        const Word8 mask =
            Word8(LoadVector<Word8>(value + 8 * b) < LoadVector<Word8>(limit + 8 * b));
        StoreVector(dark + 8 * b, mask);
        any |= mask;
    }
    uint64_t halves[2];
    __builtin_memcpy(halves, &any, sizeof(halves));
    return (halves[0] | halves[1]) != 0;
}

int FindRoot(std::vector<Run>& runs, int i)
{
    while (runs[i].parent != i)
    {
        runs[i].parent = runs[runs[i].parent].parent; // path halving
        i              = runs[i].parent;
    }
    return i;
}

// Joins each run of the row starting at `first` with the runs of the previous row (from
// `previous` to `first`) that touch it, diagonals included.
void JoinWithPreviousRow(std::vector<Run>& runs, int previous, int first)
{
    int j = previous;
    for (int i = first; i < static_cast<int>(runs.size()); ++i)
    {
        while (j < first && runs[j].x1 < runs[i].x0 - 1)
        {
            ++j;
        }
        for (int k = j; k < first && runs[k].x0 <= runs[i].x1 + 1; ++k)
        {
            const int a = FindRoot(runs, i), b = FindRoot(runs, k);
            runs[std::max(a, b)].parent = std::min(a, b);
        }
    }
}

// Blob statistics from the grouped runs.
void CollectBlobs(int n, Workspace& ws)
{
    ws.blobs.clear();
    ws.blobOfRoot.assign(ws.runs.size(), -1);
    for (int i = 0; i < static_cast<int>(ws.runs.size()); ++i)
    {
        const Run& r    = ws.runs[i];
        const int  root = FindRoot(ws.runs, i);
        if (ws.blobOfRoot[root] < 0)
        {
            ws.blobOfRoot[root] = static_cast<int>(ws.blobs.size());
            ws.blobs.push_back(Blob{0, 0, 0, r.x0, r.x1, r.y, r.y, false});
        }
        Blob&     b      = ws.blobs[ws.blobOfRoot[root]];
        const int length = r.x1 - r.x0 + 1;
        b.area += length;
        b.sumX2 += static_cast<int64_t>(length) * (r.x0 + r.x1);
        b.sumY += static_cast<int64_t>(length) * r.y;
        b.minX = std::min(b.minX, r.x0);
        b.maxX = std::max(b.maxX, r.x1);
        b.minY = std::min(b.minY, r.y);
        b.maxY = std::max(b.maxY, r.y);
        b.border |= r.x0 == 0 || r.x1 == n - 1 || r.y == 0 || r.y == n - 1;
    }
}

} // namespace

Workspace& ThreadWorkspace()
{
    thread_local Workspace workspace;
    return workspace;
}

// Block side: the largest power of two that leaves at least kMinCoarsePx coarse pixels a side.
// Pairs of pixels are summed over the block's rows, two rows at a time, then the pair sums
// pairwise until one sum per block is left: every loop is a plain vector loop, and the image is
// read once.
CoarseImage Downsample(const uint8_t* image, int side, Workspace& ws)
{
    int shift = 1;
    while ((side >> (shift + 1)) >= kMinCoarsePx)
    {
        ++shift;
    }
    CoarseImage c;
    c.factor        = 1 << shift;
    c.size          = side >> shift;
    const int f     = c.factor;
    const int pairs = c.size * f / 2;
    // Eight values of slack: the last row is read in blocks of eight.
    uint16_t* out   = Reserve(ws.coarse, static_cast<size_t>(c.size) * c.size + 8);
    uint16_t* sum   = Reserve(ws.columnSum, static_cast<size_t>(pairs));
    uint16_t* other = Reserve(ws.pairSum, static_cast<size_t>(pairs / 2));
    for (int by = 0; by < c.size; ++by)
    {
        const uint8_t* block = image + static_cast<size_t>(by) * f * side;
        uint16_t*      row   = out + static_cast<size_t>(by) * c.size;
        for (int r = 0; r < f; r += 2)
        {
            AddPairSums(block + static_cast<size_t>(r) * side,
                        block + static_cast<size_t>(r + 1) * side, pairs, r == 0,
                        shift == 1 ? row : sum);
        }
        // Halve the pair sums until one is left per block, the last time into the coarse row.
        uint16_t* from = sum;
        uint16_t* to   = other;
        for (int count = pairs / 2; count >= c.size; count /= 2)
        {
            HalveSums(from, count, count == c.size ? row : to);
            std::swap(from, to);
        }
    }
    std::fill(out + static_cast<size_t>(c.size) * c.size,
              out + static_cast<size_t>(c.size) * c.size + 8, uint16_t{0});
    c.px = out;
    return c;
}

void FindDarkBlobs(const CoarseImage& c, Workspace& ws)
{
    const int n      = c.size;
    const int tile   = std::max(kMinTilePx, n / kTilesPerSide);
    const int count  = (n + tile - 1) / tile;
    const int blocks = (n + 7) / 8;
    TileLevels(c, tile, count, ws);
    TileLimits(count, kMinContrastDn * c.factor * c.factor, ws);
    uint16_t* limit = Reserve(ws.rowLimit, static_cast<size_t>(blocks) * 8);
    uint16_t* dark  = Reserve(ws.rowDark, static_cast<size_t>(blocks) * 8);
    std::fill(limit + n, limit + blocks * 8, uint16_t{0});
    ws.runs.clear();
    int previous = 0;
    for (int y = 0; y < n; ++y)
    {
        if (y % tile == 0)
        {
            const uint16_t* tileRow = ws.tileLimit.data() + (y / tile) * count;
            for (int tx = 0; tx < count; ++tx)
            {
                std::fill(limit + tx * tile, limit + std::min(n, (tx + 1) * tile), tileRow[tx]);
            }
        }
        const int first = static_cast<int>(ws.runs.size());
        if (!MarkDark(c.px + static_cast<size_t>(y) * n, limit, blocks, dark))
        {
            previous = first; // no run here for the next row to join
            continue;
        }
        AppendRuns(dark, n, y, ws.runs);
        JoinWithPreviousRow(ws.runs, previous, first);
        previous = first;
    }
    CollectBlobs(n, ws);
}

} // namespace oisalgo
