// Sub-pixel disc centre. In a window around the disc the paper is modelled as a plane fitted to
// the window's outer ring (uneven illumination is smooth over a disc), and each pixel's darkness
// is 1 - I / paper: proportional to the fraction of the pixel the ink covers, whatever the local
// light. The centre is the centroid of that darkness after subtracting a noise threshold, which
// keeps the paper's noise out; subtracting a constant keeps a symmetric profile symmetric, so
// symmetric motion blur and defocus leave the centroid where the disc's mean position is.
#include "stages.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace oisalgo
{
namespace
{

constexpr int    kRingPx          = 2; // width of the paper ring the plane is fitted to
constexpr int    kMaxIterations   = 4;
constexpr int    kMinWindowSidePx = 8;
constexpr double kNoiseSigmas     = 3.0;  // darkness threshold in paper noise deviations
constexpr double kMinThreshold    = 0.03; // darkness threshold floor (quantisation, texture)
constexpr double kMinPaperDn      = 16.0; // paper darker than this is no lit chart
constexpr double kMinDarknessPx   = 10.0; // total weight of a disc, in fully dark pixels

struct Window
{
    int x0, y0, x1, y1; // inclusive bounds in the image
    int cx, cy;         // pixel the coordinates of the fit are relative to
};

// Paper luma a + b dx + c dy, with the spread of the ring pixels around it.
struct Plane
{
    double a = 0.0, b = 0.0, c = 0.0;
    double noiseDn = 0.0;
};

template <typename Visit>
void ForEachRingPixel(const Window& w, Visit visit)
{
    for (int y = w.y0; y <= w.y1; ++y)
    {
        const bool edgeRow = y < w.y0 + kRingPx || y > w.y1 - kRingPx;
        for (int x = w.x0; x <= w.x1; ++x)
        {
            if (!edgeRow && x == w.x0 + kRingPx)
            {
                x = std::max(x, w.x1 - kRingPx + 1); // skip the inside of the ring
            }
            visit(x, y);
        }
    }
}

double Determinant3(const double m[3][3])
{
    return m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
           m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
           m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
}

// Least-squares plane through the ring pixels (normal equations, Cramer's rule).
bool FitPaperPlane(const uint8_t* image, int side, const Window& w, Plane& plane)
{
    double n = 0, sx = 0, sy = 0, sxx = 0, syy = 0, sxy = 0, si = 0, six = 0, siy = 0;
    ForEachRingPixel(w,
                     [&](int x, int y)
                     {
                         const double dx = x - w.cx, dy = y - w.cy,
                                      v = image[static_cast<size_t>(y) * side + x];
                         n += 1.0;
                         sx += dx;
                         sy += dy;
                         sxx += dx * dx;
                         syy += dy * dy;
                         sxy += dx * dy;
                         si += v;
                         six += v * dx;
                         siy += v * dy;
                     });
    const double m[3][3] = {{n, sx, sy}, {sx, sxx, sxy}, {sy, sxy, syy}};
    const double det     = Determinant3(m);
    if (!(std::fabs(det) > 1e-9))
    {
        return false;
    }
    const double ma[3][3] = {{si, sx, sy}, {six, sxx, sxy}, {siy, sxy, syy}};
    const double mb[3][3] = {{n, si, sy}, {sx, six, sxy}, {sy, siy, syy}};
    const double mc[3][3] = {{n, sx, si}, {sx, sxx, six}, {sy, sxy, siy}};
    plane.a               = Determinant3(ma) / det;
    plane.b               = Determinant3(mb) / det;
    plane.c               = Determinant3(mc) / det;
    double sumSq          = 0.0;
    ForEachRingPixel(w,
                     [&](int x, int y)
                     {
                         const double r = image[static_cast<size_t>(y) * side + x] -
                                          (plane.a + plane.b * (x - w.cx) + plane.c * (y - w.cy));
                         sumSq += r * r;
                     });
    plane.noiseDn = std::sqrt(sumSq / n);
    return plane.a >= kMinPaperDn;
}

struct Moments
{
    double weight = 0.0, sumX = 0.0, sumY = 0.0;
};

// Sums of a row's darkness weights and of their moments, in eight interleaved float lanes: the
// additions do not wait on each other and vectorise, and the fixed order keeps the result
// reproducible. A row holds at most a few hundred weights below 1, well within float precision;
// rows are then summed in double.
void AccumulateRow(const float* weight, int count, int firstDx, double& sumW, double& sumX)
{
    constexpr int kLanes    = 8;
    float         w[kLanes] = {};
    float         m[kLanes] = {};
    int           i         = 0;
    for (; i + kLanes <= count; i += kLanes)
    {
        for (int lane = 0; lane < kLanes; ++lane)
        {
            w[lane] += weight[i + lane];
            m[lane] += weight[i + lane] * static_cast<float>(firstDx + i + lane);
        }
    }
    for (; i < count; ++i)
    {
        w[0] += weight[i];
        m[0] += weight[i] * static_cast<float>(firstDx + i);
    }
    sumW = 0.0;
    sumX = 0.0;
    for (int lane = 0; lane < kLanes; ++lane)
    {
        sumW += w[lane];
        sumX += m[lane];
    }
}

Moments DarknessMoments(const uint8_t* image, int side, const Window& w, const Plane& plane)
{
    const float threshold =
        static_cast<float>(std::max(kMinThreshold, kNoiseSigmas * plane.noiseDn / plane.a));
    const int          width = w.x1 - w.x0 + 1;
    const float        slope = static_cast<float>(plane.b);
    std::vector<float> weight(width);
    Moments            m;
    for (int y = w.y0; y <= w.y1; ++y)
    {
        const uint8_t* row = image + static_cast<size_t>(y) * side + w.x0;
        const float    start =
            static_cast<float>(plane.a + plane.c * (y - w.cy) + plane.b * (w.x0 - w.cx));
        for (int i = 0; i < width; ++i)
        {
            // Paper below 1 DN is no lit paper (and would divide by about zero): weight 0.
            const float paper = start + slope * static_cast<float>(i);
            const float d     = (paper - static_cast<float>(row[i])) / paper - threshold;
            weight[i]         = (paper >= 1.0F && d > 0.0F) ? d : 0.0F;
        }
        double rowW = 0.0, rowX = 0.0;
        AccumulateRow(weight.data(), width, w.x0 - w.cx, rowW, rowX);
        m.weight += rowW;
        m.sumX += rowX;
        m.sumY += rowW * (y - w.cy);
    }
    return m;
}

Window MakeWindow(int side, int halfWindowPx, double x, double y)
{
    Window w;
    w.cx = static_cast<int>(std::lround(x));
    w.cy = static_cast<int>(std::lround(y));
    w.x0 = std::max(0, w.cx - halfWindowPx);
    w.y0 = std::max(0, w.cy - halfWindowPx);
    w.x1 = std::min(side - 1, w.cx + halfWindowPx);
    w.y1 = std::min(side - 1, w.cy + halfWindowPx);
    return w;
}

} // namespace

bool RefineDiscCentre(const uint8_t* image, int side, int halfWindowPx, double& x, double& y)
{
    for (int iteration = 0; iteration < kMaxIterations; ++iteration)
    {
        if (!(x >= 0.0 && y >= 0.0 && x <= side - 1 && y <= side - 1))
        {
            return false;
        }
        const Window w = MakeWindow(side, halfWindowPx, x, y);
        Plane        plane;
        if (w.x1 - w.x0 + 1 < kMinWindowSidePx || w.y1 - w.y0 + 1 < kMinWindowSidePx ||
            !FitPaperPlane(image, side, w, plane))
        {
            return false;
        }
        const Moments m = DarknessMoments(image, side, w, plane);
        if (m.weight < kMinDarknessPx)
        {
            return false;
        }
        x = w.cx + m.sumX / m.weight;
        y = w.cy + m.sumY / m.weight;
        // The same window again would give the same answer: done.
        if (std::lround(x) == w.cx && std::lround(y) == w.cy)
        {
            return true;
        }
    }
    return x >= 0.0 && y >= 0.0 && x <= side - 1 && y <= side - 1;
}

} // namespace oisalgo
