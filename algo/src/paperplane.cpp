// The paper as a plane, fitted by least squares to the pixels of a frame (the part of a rectangle
// outside an inner one, a ring in the simplest case): uneven light is smooth, so a plane follows
// it over a disc's surroundings. All sums are integers, exact, so a fit does not depend on the
// order of the additions; the geometric sums are closed forms, and only the pixel sums loop.
#include "stages.h"

#include <algorithm>
#include <cmath>

namespace oisalgo
{
namespace
{

// Sums over the fitted pixels of 1, dx, dy, dx^2, dy^2, dx dy, v, v dx, v dy and v^2, with v the
// pixel value and (dx, dy) its offset from the origin of the fit.
struct RingSums
{
    int64_t n = 0, sx = 0, sy = 0, sxx = 0, syy = 0, sxy = 0;
    int64_t sv = 0, svx = 0, svy = 0, svv = 0;

    // Geometry of a block of offsets dx0..dx1 by dy0..dy1, in closed form.
    void AddBlock(int dx0, int dx1, int dy0, int dy1)
    {
        const int64_t nx = dx1 - dx0 + 1, ny = dy1 - dy0 + 1;
        const int64_t sumDx = int64_t{dx0 + dx1} * nx / 2, sumDy = int64_t{dy0 + dy1} * ny / 2;
        n += nx * ny;
        sx += sumDx * ny;
        sy += sumDy * nx;
        sxx += (SumOfSquares(dx1) - SumOfSquares(dx0 - 1)) * ny;
        syy += (SumOfSquares(dy1) - SumOfSquares(dy0 - 1)) * nx;
        sxy += sumDx * sumDy;
    }

    // Pixel sums of pixels x0..x1 of one row, at offsets dx0.. and dy from the origin. For 8-bit
    // pixels the products are of 16-bit operands into 32-bit sums (a multiply-add instruction on
    // most processors); a segment is at most 2048 pixels, so no sum overflows. 16-bit block sums
    // of the coarse image are summed in 64 bits.
    void AddPixels(const uint8_t* row, int x0, int x1, int dx0, int dy)
    {
        int32_t v = 0, vdx = 0, vv = 0;
        for (int x = x0; x <= x1; ++x)
        {
            const int16_t value = row[x];
            v += value;
            vdx += int32_t{value} * static_cast<int16_t>(x - x0);
            vv += int32_t{value} * value;
        }
        Add(v, vdx, vv, dx0, dy);
    }

    void AddPixels(const uint16_t* row, int x0, int x1, int dx0, int dy)
    {
        // A coarse row is at most 191 sums of at most 65280: the first two sums fit 32 bits.
        uint32_t v = 0, vdx = 0;
        uint64_t vv = 0;
        for (int x = x0; x <= x1; ++x)
        {
            const uint32_t value = row[x];
            v += value;
            vdx += value * static_cast<uint32_t>(x - x0);
            vv += uint64_t{value * value};
        }
        Add(v, vdx, static_cast<int64_t>(vv), dx0, dy);
    }

    void Add(int64_t v, int64_t vdx, int64_t vv, int dx0, int dy)
    {
        sv += v;
        svx += vdx + v * dx0;
        svy += v * dy;
        svv += vv;
    }

    // G(k) with G(b) - G(a - 1) = a^2 + ... + b^2 for any integers a <= b: the sum of squares
    // from 1 to k for k >= 0, and minus the sum from k + 1 to 0 for k < 0.
    static int64_t SumOfSquares(int64_t k)
    {
        const int64_t m = k < 0 ? -k - 1 : k;
        const int64_t s = m * (m + 1) * (2 * m + 1) / 6;
        return k < 0 ? -s : s;
    }
};

double Determinant3(const double m[3][3])
{
    return m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
           m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
           m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
}

// Normal equations by Cramer's rule; the residual sum of squares follows from the sums.
bool SolvePlane(const RingSums& s, Plane& plane)
{
    const double n = s.n, sx = s.sx, sy = s.sy, sxx = s.sxx, syy = s.syy, sxy = s.sxy;
    const double sv = s.sv, svx = s.svx, svy = s.svy;
    const double m[3][3] = {{n, sx, sy}, {sx, sxx, sxy}, {sy, sxy, syy}};
    const double det     = Determinant3(m);
    if (!(std::fabs(det) > 1e-9) || s.n <= 3)
    {
        return false;
    }
    const double ma[3][3] = {{sv, sx, sy}, {svx, sxx, sxy}, {svy, sxy, syy}};
    const double mb[3][3] = {{n, sv, sy}, {sx, svx, sxy}, {sy, svy, syy}};
    const double mc[3][3] = {{n, sx, sv}, {sx, sxx, svx}, {sy, sxy, svy}};
    plane.a               = Determinant3(ma) / det;
    plane.b               = Determinant3(mb) / det;
    plane.c               = Determinant3(mc) / det;
    const double residual =
        static_cast<double>(s.svv) - plane.a * sv - plane.b * svx - plane.c * svy;
    plane.noiseDn = std::sqrt(std::max(0.0, residual) / static_cast<double>(s.n - 3));
    return true;
}

// The frame between an outer rectangle and an inner one inside it: the rows above and below the
// inner one, and the ends of the rows beside it.
template <typename Pixel>
RingSums SumFrame(const Pixel* image, int stride, const Rect& outer, const Rect& inner, int originX,
                  int originY)
{
    RingSums  sums;
    const int left = outer.x0 - originX, right = outer.x1 - originX;
    sums.AddBlock(left, right, outer.y0 - originY, inner.y0 - 1 - originY);
    sums.AddBlock(left, right, inner.y1 + 1 - originY, outer.y1 - originY);
    sums.AddBlock(left, inner.x0 - 1 - originX, inner.y0 - originY, inner.y1 - originY);
    sums.AddBlock(inner.x1 + 1 - originX, right, inner.y0 - originY, inner.y1 - originY);
    for (int y = outer.y0; y <= outer.y1; ++y)
    {
        const Pixel* row = image + static_cast<size_t>(y) * stride;
        if (y < inner.y0 || y > inner.y1)
        {
            sums.AddPixels(row, outer.x0, outer.x1, left, y - originY);
            continue;
        }
        sums.AddPixels(row, outer.x0, inner.x0 - 1, left, y - originY);
        sums.AddPixels(row, inner.x1 + 1, outer.x1, inner.x1 + 1 - originX, y - originY);
    }
    return sums;
}

template <typename Pixel>
RingSums SumRing(const Pixel* image, int stride, const Rect& r, int ringPx, int originX,
                 int originY)
{
    return SumFrame(image, stride, r, {r.x0 + ringPx, r.y0 + ringPx, r.x1 - ringPx, r.y1 - ringPx},
                    originX, originY);
}

} // namespace

bool FitRingPlane(const uint16_t* image, int stride, const Rect& r, int ringPx, int originX,
                  int originY, Plane& plane)
{
    return r.x1 - r.x0 + 1 > 2 * ringPx && r.y1 - r.y0 + 1 > 2 * ringPx &&
           SolvePlane(SumRing(image, stride, r, ringPx, originX, originY), plane);
}

bool FitFramePlane(const uint16_t* image, int stride, const Rect& outer, const Rect& inner,
                   int originX, int originY, Plane& plane)
{
    return SolvePlane(SumFrame(image, stride, outer, inner, originX, originY), plane);
}

bool FitWindowPaper(const uint8_t* image, int side, const Rect& window, int originX, int originY,
                    double slopeX, double slopeY, Plane& plane)
{
    if (window.x1 - window.x0 + 1 <= 2 * kRingPx || window.y1 - window.y0 + 1 <= 2 * kRingPx)
    {
        return false;
    }
    const RingSums ring = SumRing(image, side, window, kRingPx, originX, originY);
    if (!SolvePlane(ring, plane))
    {
        return false;
    }
    // The ring's own fit gives the noise; with the given gradient, the level is the ring's mean
    // less the gradient's part of it.
    plane.b = slopeX;
    plane.c = slopeY;
    plane.a = (static_cast<double>(ring.sv) - slopeX * static_cast<double>(ring.sx) -
               slopeY * static_cast<double>(ring.sy)) /
              static_cast<double>(ring.n);
    return true;
}

} // namespace oisalgo
