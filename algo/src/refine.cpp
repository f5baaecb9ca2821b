// Sub-pixel disc centre from the full-resolution pixels of the disc's window.
//
// Model: a pixel shows I = g (P - K c), with g the local light, P and K the paper level and the
// paper-to-ink step under even light, and c the fraction of the pixel the ink covers, averaged
// over the exposure and spread by defocus. The paper g P is a plane (uneven light is smooth over a
// disc): its gradient fitted on the coarse image to the paper around the disc, its level to the
// window's border ring. So the darkness 1 - I / (g P) is K c / P whatever the light. The disc's
// full darkness (c = 1) is read from the middle of the disc as the median of a small patch. Each
// pixel's weight is its darkness mapped linearly from a floor a few noise deviations above the
// paper's (weight 0) to a ceiling a few below the disc's full darkness (weight 1), and clamped
// outside: a monotone function of c alone, the same for every pixel. Any such function of a profile
// that is point-symmetric about the centre (a disc, smeared along a line centred on the exposure or
// blurred by a symmetric spot) is itself point-symmetric, so the centroid of the weights is the
// disc's mean position. Between the clamps the map is linear in c, as a pixel's coverage is, which
// keeps the centroid of whole pixels exact for a sharp rim too. The clamps make paper and interior
// pixels exactly 0 and 1, so only the rim, the pixels that actually carry position, adds noise.
#include "stages.h"

#include <algorithm>
#include <cmath>
#if defined(__ARM_NEON)
#include <arm_neon.h>
#endif

namespace oisalgo
{
namespace
{

constexpr int    kMinWindowSidePx   = 8;
constexpr double kMinPaperDn        = 16.0; // paper darker than this is no lit chart
constexpr double kMinLitDn          = 1.0;  // nor is paper this dark anywhere in the window
constexpr double kFloorSigmas       = 2.5;  // weight floor above the paper, noise deviations
constexpr double kCeilingSigmas     = 2.5;  // weight ceiling below full darkness, deviations
constexpr double kMinFloor          = 0.01; // darkness floor (8-bit steps, paper texture)
constexpr double kMinDarknessSpan   = 0.1;  // full darkness must stand this far above the floor
constexpr double kInkPatchPerRadius = 0.25; // half side of the full-darkness patch per radius
constexpr double kMinDarknessPx     = 10.0; // total weight of a disc, in fully dark pixels

// Median of the window pixels in a square patch, DN.
int PatchMedian(const uint8_t* image, int side, const Rect& patch)
{
    int histogram[256] = {};
    for (int y = patch.y0; y <= patch.y1; ++y)
    {
        const uint8_t* row = image + static_cast<size_t>(y) * side;
        for (int x = patch.x0; x <= patch.x1; ++x)
        {
            ++histogram[row[x]];
        }
    }
    const int half  = ((patch.x1 - patch.x0 + 1) * (patch.y1 - patch.y0 + 1) + 1) / 2;
    int       below = 0, value = 0;
    while ((below += histogram[value]) < half)
    {
        ++value;
    }
    return value;
}

// The darkness-to-weight map: weight = clamp((top - I / paper) * gain, 0, 1).
struct WeightMap
{
    float top  = 0.0F; // 1 - darkness floor
    float gain = 0.0F; // 1 / (ceiling - floor)
};

// Clamps four values to [0, 1] with the processors' min and max instructions (no NaN reaches
// here: the paper level is at least 1 DN over the whole window).
inline Float4 Clamp01(Float4 v)
{
    const Float4 zero = {0.0F, 0.0F, 0.0F, 0.0F};
    const Float4 one  = {1.0F, 1.0F, 1.0F, 1.0F};
#if defined(__SSE__)
    return __builtin_ia32_minps(__builtin_ia32_maxps(v, zero), one);
#elif defined(__ARM_NEON)
    return Float4(vminq_f32(vmaxq_f32(float32x4_t(v), float32x4_t(zero)), float32x4_t(one)));
#else
    const Float4 low = v > zero ? v : zero;
    return low < one ? low : one;
#endif
}

// Weights of four pixels of the given values.
inline Float4 Weights(Float4 value, Float4 paper, const WeightMap& map)
{
    return Clamp01((map.top - value / paper) * map.gain);
}

inline float Weight(uint8_t value, float paper, const WeightMap& map)
{
    const float v   = (map.top - static_cast<float>(value) / paper) * map.gain;
    const float low = v > 0.0F ? v : 0.0F;
    return low < 1.0F ? low : 1.0F;
}

struct Moments
{
    double weight = 0.0, sumX = 0.0, sumY = 0.0;
};

// Eight pixels widened to 16 bits: an 8-byte load into the low half of a vector, interleaved with
// zeros.
inline Word8 WidenBytes(const uint8_t* pixels)
{
    uint64_t bits;
    __builtin_memcpy(&bits, pixels, sizeof(bits));
    typedef uint64_t Qword2 __attribute__((vector_size(16)));
    const Byte16     bytes = Byte16(Qword2{bits, 0});
    const Byte16     zeros = {};
    return Word8(__builtin_shufflevector(bytes, zeros, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6,
                                         22, 7, 23));
}

// Sums of one row's weights and of their moments (x offsets from firstDx on), eight pixels at a
// time in eight float lanes (two vectors), whose additions do not wait on each other; the fixed
// order keeps the result reproducible. Eight pixels widened to 16-bit words and seen as 32-bit
// words give the even pixels in the low halves and the odd ones in the high halves (little-endian
// byte order), which spares the shuffles of widening them in order. A row holds at most a few
// hundred weights of at most 1 at offsets of at most a few hundred pixels, well within float
// precision.
void RowMoments(const uint8_t* row, int width, float paperStart, float slope, int firstDx,
                const WeightMap& map, double& sumW, double& sumX)
{
    static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "pixel lanes assume little-endian");
    const float  paperAtZero = paperStart - slope * static_cast<float>(firstDx); // at dx = 0
    const Float4 ones        = {1.0F, 1.0F, 1.0F, 1.0F};
    const Float4 eights      = {8.0F, 8.0F, 8.0F, 8.0F};
    Float4       dx   = Float4{0.0F, 2.0F, 4.0F, 6.0F} + static_cast<float>(firstDx); // even pixels
    Float4       w[2] = {}, m[2] = {};
    int          i = 0;
    for (; i + kRowBlockPx <= width; i += kRowBlockPx, dx += eights)
    {
        const Dword4 words = Dword4(WidenBytes(row + i));
        const Float4 even  = __builtin_convertvector(Int4(words & 0xFFFF), Float4);
        const Float4 odd   = __builtin_convertvector(Int4(words >> 16), Float4);
        const Float4 dxOdd = dx + ones;
        const Float4 v0    = Weights(even, paperAtZero + slope * dx, map);
        const Float4 v1    = Weights(odd, paperAtZero + slope * dxOdd, map);
        w[0] += v0;
        m[0] += v0 * dx;
        w[1] += v1;
        m[1] += v1 * dxOdd;
    }
    float tailW = 0.0F, tailX = 0.0F;
    for (; i < width; ++i)
    {
        const float at = static_cast<float>(firstDx + i);
        const float v  = Weight(row[i], paperAtZero + slope * at, map);
        tailW += v;
        tailX += v * at;
    }
    const Float4 laneW = w[0] + w[1], laneX = m[0] + m[1];
    sumW = tailW;
    sumX = tailX;
    for (int lane = 0; lane < 4; ++lane)
    {
        sumW += laneW[lane];
        sumX += laneX[lane];
    }
}

// Weighted moments of the window, relative to (ox, oy); rows are summed in double.
Moments WeightMoments(const uint8_t* image, int side, const Rect& w, int ox, int oy,
                      const Plane& paper, const WeightMap& map)
{
    const int   width   = w.x1 - w.x0 + 1;
    const float slope   = static_cast<float>(paper.b);
    const int   firstDx = w.x0 - ox;
    Moments     m;
    for (int y = w.y0; y <= w.y1; ++y)
    {
        double rowW = 0.0, rowX = 0.0;
        RowMoments(image + static_cast<size_t>(y) * side + w.x0, width,
                   static_cast<float>(paper.At(firstDx, y - oy)), slope, firstDx, map, rowW, rowX);
        m.weight += rowW;
        m.sumX += rowX;
        m.sumY += rowW * (y - oy);
    }
    return m;
}

// Floor and ceiling of the weight map from the paper's noise and the disc's full darkness, read
// in a patch around the coarse centre; false when the disc is too faint to measure.
bool MakeWeightMap(const uint8_t* image, int side, const DiscWindow& w, int ox, int oy,
                   const Plane& paper, WeightMap& map)
{
    const int    cx   = std::clamp(static_cast<int>(std::lround(w.centreX)), w.x0, w.x1);
    const int    cy   = std::clamp(static_cast<int>(std::lround(w.centreY)), w.y0, w.y1);
    const int    half = std::max(1, static_cast<int>(kInkPatchPerRadius * w.radiusPx));
    const Rect   patch{std::max(w.x0, cx - half), std::max(w.y0, cy - half),
                     std::min(w.x1, cx + half), std::min(w.y1, cy + half)};
    const double level   = paper.At(cx - ox, cy - oy);
    const double full    = 1.0 - PatchMedian(image, side, patch) / level;
    const double noise   = paper.noiseDn / level;
    const double floor   = std::max(kMinFloor, kFloorSigmas * noise);
    const double ceiling = full - kCeilingSigmas * noise;
    if (!(ceiling - floor >= kMinDarknessSpan))
    {
        return false;
    }
    map.top  = static_cast<float>(1.0 - floor);
    map.gain = static_cast<float>(1.0 / (ceiling - floor));
    return true;
}

} // namespace

bool MeasureDiscCentre(const uint8_t* image, int side, const DiscWindow& window, double& x,
                       double& y)
{
    const Rect w{window.x0, window.y0, window.x1, window.y1};
    if (w.x1 - w.x0 + 1 < kMinWindowSidePx || w.y1 - w.y0 + 1 < kMinWindowSidePx)
    {
        return false;
    }
    const int ox = (w.x0 + w.x1) / 2, oy = (w.y0 + w.y1) / 2;
    Plane     paper;
    WeightMap map;
    if (!FitWindowPaper(image, side, w, ox, oy, window.slopeX, window.slopeY, paper))
    {
        return false;
    }
    // Weights divide by the paper level: it must be lit paper over the whole window (a plane's
    // lowest point is at a corner).
    const double lowest =
        std::min({paper.At(w.x0 - ox, w.y0 - oy), paper.At(w.x1 - ox, w.y0 - oy),
                  paper.At(w.x0 - ox, w.y1 - oy), paper.At(w.x1 - ox, w.y1 - oy)});
    if (!(paper.a >= kMinPaperDn) || !(lowest >= kMinLitDn) ||
        !MakeWeightMap(image, side, window, ox, oy, paper, map))
    {
        return false;
    }
    const Moments m = WeightMoments(image, side, w, ox, oy, paper, map);
    if (!(m.weight >= kMinDarknessPx))
    {
        return false;
    }
    x = ox + m.sumX / m.weight;
    y = oy + m.sumY / m.weight;
    return true;
}

} // namespace oisalgo
