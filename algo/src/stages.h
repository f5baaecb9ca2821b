// The stages of the four-circle measurement. The coarse stage finds the chart's four dark discs on
// a block-summed copy of the image and checks that they form the chart's cross; the window stage
// finds, per disc, the full-resolution rectangle that holds all of its darkness; the fine stage
// measures the disc's sub-pixel centre from the full-resolution pixels of that rectangle.
#ifndef ZELK_ALGO_STAGES_H
#define ZELK_ALGO_STAGES_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace oisalgo
{

// Fixed-width vectors (vector extensions of GCC 12 and later and of Clang: SSE on x86-64, NEON on
// ARM). The pixel loops are written with them so that they vectorise on every compiler, with each
// lane's arithmetic in a fixed order: plain IEEE and integer operations, the same results
// everywhere.
typedef float    Float4 __attribute__((vector_size(16)));
typedef int32_t  Int4 __attribute__((vector_size(16)));
typedef uint8_t  Byte16 __attribute__((vector_size(16)));
typedef uint16_t Word8 __attribute__((vector_size(16)));
typedef uint32_t Dword4 __attribute__((vector_size(16)));

// Unaligned loads and stores of vectors.
template <typename V>
V LoadVector(const void* p)
{
    V v;
    __builtin_memcpy(&v, p, sizeof(v));
    return v;
}

template <typename V>
void StoreVector(void* p, const V& v)
{
    __builtin_memcpy(p, &v, sizeof(v));
}

// Sides of the square images the library takes, pixels.
constexpr int kMinSidePx = 256;
constexpr int kMaxSidePx = 2048;

// The block-summed image: `size` pixels a side, each the sum of a factor x factor block (so
// factor^2 times the block's mean; at most 16 x 16 x 255, which fits 16 bits).
struct CoarseImage
{
    int             factor = 1;
    int             size   = 0;
    const uint16_t* px     = nullptr; // size * size sums, row after row, and 8 values of slack
};

// An 8-connected group of dark coarse pixels.
struct Blob
{
    int     area  = 0;
    int64_t sumX2 = 0; // twice the sum of the pixels' x (runs add whole spans)
    int64_t sumY  = 0;
    int     minX = 0, maxX = 0, minY = 0, maxY = 0;
    bool    border = false;

    double CentreX() const { return 0.5 * static_cast<double>(sumX2) / area; }
    double CentreY() const { return static_cast<double>(sumY) / area; }
    int    Extent() const { return (maxX - minX > maxY - minY ? maxX - minX : maxY - minY) + 1; }
    double Fill() const
    {
        return area / static_cast<double>((maxX - minX + 1) * (maxY - minY + 1));
    }
};

// A horizontal run of dark pixels of one coarse row, and the union-find link that groups runs
// into blobs.
struct Run
{
    int y, x0, x1;
    int parent;
};

// Buffers reused from call to call on the same thread, so that a measurement allocates nothing
// once a thread has measured an image of the largest size it sees.
struct Workspace
{
    std::vector<uint16_t> coarse;
    std::vector<uint16_t> columnSum, pairSum;
    std::vector<int32_t>  tileLevel, tileAcross; // per tile, block-sum units
    std::vector<uint16_t> tileLimit;
    std::vector<uint32_t> tileColumn;
    std::vector<uint16_t> rowLimit, rowDark;
    std::vector<Run>      runs;
    std::vector<int>      blobOfRoot;
    std::vector<Blob>     blobs;
};

Workspace& ThreadWorkspace();

// Grows a buffer to at least n elements (never shrinks it) and returns its storage.
template <typename T>
T* Reserve(std::vector<T>& buffer, size_t n)
{
    if (buffer.size() < n)
    {
        buffer.resize(n);
    }
    return buffer.data();
}

enum DiscSlot
{
    kUp    = 0,
    kDown  = 1,
    kLeft  = 2,
    kRight = 3,
};

// Block-sums the image (coarse.cpp).
CoarseImage Downsample(const uint8_t* image, int side, Workspace& ws);

// Dark blobs of the coarse image, large and small, in ws.blobs (coarse.cpp).
void FindDarkBlobs(const CoarseImage& coarse, Workspace& ws);

// The four chart discs among the blobs, by slot; false unless exactly the chart's cross is there
// (chart.cpp).
bool PickChartDiscs(const Workspace& ws, int coarseSize, Blob discs[4]);

// A rectangle of pixels, bounds inclusive.
struct Rect
{
    int x0, y0, x1, y1;
};

// Paper level a + b dx + c dy around a pixel (dx, dy from it), and the spread of the pixels it was
// fitted to around it (noise, and whatever of the paper a plane does not follow), in the units of
// the image fitted: DN for the full-resolution image, block sums for the coarse one.
struct Plane
{
    double a = 0.0, b = 0.0, c = 0.0;
    double noiseDn = 0.0;

    double At(double dx, double dy) const { return a + b * dx + c * dy; }
};

// Width of the window border the fine stage fits the paper plane to, pixels.
constexpr int kRingPx = 2;

// The fine stage reads window rows in blocks of this many pixels.
constexpr int kRowBlockPx = 8;

// Least-squares planes (paperplane.cpp), with coordinates relative to (originX, originY); false
// when the pixels cannot fix a plane. On the coarse image: through the border ring of the given
// width of a rectangle, and through the pixels of outer that are not in inner (inner lies within
// outer). On a full-resolution window: the paper level and noise from its border ring of kRingPx,
// with the given gradient (DN per pixel) in place of the ring's own, which a ring that narrow
// fixes poorly.
bool FitRingPlane(const uint16_t* image, int stride, const Rect& rect, int ringPx, int originX,
                  int originY, Plane& plane);
bool FitFramePlane(const uint16_t* image, int stride, const Rect& outer, const Rect& inner,
                   int originX, int originY, Plane& plane);
bool FitWindowPaper(const uint8_t* image, int side, const Rect& window, int originX, int originY,
                    double slopeX, double slopeY, Plane& plane);

// Full-resolution rectangle (inclusive bounds) around one disc that holds all its darkness, with
// a few pixels of paper all round, and the disc's approximate centre and radius.
struct DiscWindow
{
    int    x0 = 0, y0 = 0, x1 = 0, y1 = 0;
    double centreX = 0.0, centreY = 0.0;
    double radiusPx = 0.0;
    double slopeX = 0.0, slopeY = 0.0; // paper gradient around the disc, DN per pixel
};

// The window of disc `slot` from the coarse image; false when no darkness is found around it
// (chart.cpp).
bool FindDiscWindow(const CoarseImage& coarse, int side, const Blob discs[4], int slot,
                    DiscWindow& window);

// Sub-pixel centre of the disc in the window (refine.cpp); false when the window shows no disc.
bool MeasureDiscCentre(const uint8_t* image, int side, const DiscWindow& window, double& x,
                       double& y);

} // namespace oisalgo

#endif // ZELK_ALGO_STAGES_H
