// Disc coverage by closed-form area integrals. With s(t) = sqrt(r^2 - t^2) the disc's half-height
// at abscissa t, the area of the disc left of x and below y is an integral of s, whose primitive
// S(t) = (t s(t) + r^2 asin(t / r)) / 2 is exact. A pixel's coverage is the difference of these
// areas at its corners; only pixels on the rim need it, inner pixels are fully covered.
#include "render.h"

#include "sim/scenario.h"

#include <algorithm>
#include <cmath>

namespace sim::detail
{
namespace
{

constexpr double kMinBlurSigmaPx  = 1.0 / 3.0;
constexpr double kGaussianSpanSig = 4.0; // kernel half-width in standard deviations

// Per-row constants of the disc: one row band edge y and the chord half-width a there.
struct BandEdge
{
    double y;
    double a;  // sqrt(r^2 - y^2), 0 outside the disc
    double sa; // S(a)
};

class DiscArea
{
public:
    explicit DiscArea(double radius)
        : m_r(radius), m_r2(radius * radius), m_sr(0.25 * kPi * radius * radius)
    {
    }

    double S(double t) const
    {
        const double c = std::clamp(t / m_r, -1.0, 1.0);
        return 0.5 * (t * std::sqrt(std::max(0.0, m_r2 - t * t)) + m_r2 * std::asin(c));
    }

    BandEdge Edge(double y) const
    {
        const double a = std::fabs(y) < m_r ? std::sqrt(m_r2 - y * y) : 0.0;
        return {y, a, S(a)};
    }

    double Clamp(double x) const { return std::clamp(x, -m_r, m_r); }

    // Area of the disc with X <= xc and Y <= e.y, given xc already clamped and sxc = S(xc).
    double Quadrant(double xc, double sxc, const BandEdge& e) const
    {
        if (e.y <= -m_r)
        {
            return 0.0;
        }
        const double full = 2.0 * (sxc + m_sr);
        if (e.y >= m_r)
        {
            return full;
        }
        const double hi    = std::clamp(xc, -e.a, e.a);
        const double shi   = hi == xc ? sxc : (hi > 0.0 ? e.sa : -e.sa);
        const double span  = hi + e.a;
        const double integ = shi + e.sa; // integral of s over [-a, hi]
        return e.y >= 0.0 ? full - (integ - e.y * span) : integ + e.y * span;
    }

    // Area of the disc with X <= x inside the band between the two edges.
    double BandArea(double x, const BandEdge& lo, const BandEdge& hi) const
    {
        const double xc  = Clamp(x);
        const double sxc = S(xc);
        return Quadrant(xc, sxc, hi) - Quadrant(xc, sxc, lo);
    }

private:
    double m_r;
    double m_r2;
    double m_sr; // S(r): a quarter of the disc area
};

void AddRow(CoverageMap& map, const DiscArea& area, double cx, double cy, double r, int row,
            float weight)
{
    const BandEdge lo = area.Edge(row - 0.5 - cy);
    const BandEdge hi = area.Edge(row + 0.5 - cy);
    // Widest and narrowest chord over the band: pixels inside the narrowest are fully covered.
    const double outer = (lo.y <= 0.0 && hi.y >= 0.0) ? r : std::max(lo.a, hi.a);
    const double inner =
        std::max(std::fabs(lo.y), std::fabs(hi.y)) < r ? std::min(lo.a, hi.a) : -1.0;
    const int first = std::max(0, static_cast<int>(std::floor(cx - outer - 0.5)) + 1 - map.originX);
    const int last =
        std::min(map.width - 1, static_cast<int>(std::ceil(cx + outer + 0.5)) - 1 - map.originX);
    const int innerFirst = static_cast<int>(std::ceil(cx - inner + 0.5)) - map.originX;
    const int innerLast  = static_cast<int>(std::floor(cx + inner - 0.5)) - map.originX;
    float*    out        = map.Row(row - map.originY);
    double    cachedX    = NAN;
    double    cachedArea = 0.0;
    for (int i = first; i <= last; ++i)
    {
        if (inner > 0.0 && i >= innerFirst && i <= innerLast)
        {
            out[i] += weight;
            continue;
        }
        const double xl    = i + map.originX - 0.5 - cx;
        const double left  = xl == cachedX ? cachedArea : area.BandArea(xl, lo, hi);
        const double right = area.BandArea(xl + 1.0, lo, hi);
        cachedX            = xl + 1.0;
        cachedArea         = right;
        out[i] += static_cast<float>(weight * (right - left));
    }
}

std::vector<double> GaussianKernel(double sigmaPx)
{
    const int           half = GaussianMarginPx(sigmaPx);
    std::vector<double> kernel(2 * half + 1);
    double              sum = 0.0;
    for (int i = -half; i <= half; ++i)
    {
        kernel[i + half] = std::exp(-0.5 * (i * i) / (sigmaPx * sigmaPx));
        sum += kernel[i + half];
    }
    for (double& k : kernel)
    {
        k /= sum;
    }
    return kernel;
}

} // namespace

void CoverageMap::Reset(int x, int y, int w, int h)
{
    originX = x;
    originY = y;
    width   = std::max(0, w);
    height  = std::max(0, h);
    values.assign(static_cast<size_t>(width) * height, 0.0F);
}

double DiscPixelCoverage(double centreX, double centreY, double radius, int px, int py)
{
    const DiscArea area(radius);
    const BandEdge lo = area.Edge(py - 0.5 - centreY);
    const BandEdge hi = area.Edge(py + 0.5 - centreY);
    const double   xl = px - 0.5 - centreX;
    return area.BandArea(xl + 1.0, lo, hi) - area.BandArea(xl, lo, hi);
}

void AddDiscCoverage(CoverageMap& map, double centreX, double centreY, double radius, double weight)
{
    if (radius <= 0.0 || map.width == 0 || map.height == 0)
    {
        return;
    }
    const DiscArea area(radius);
    const int      firstRow =
        std::max(map.originY, static_cast<int>(std::floor(centreY - radius - 0.5)) + 1);
    const int lastRow = std::min(map.originY + map.height - 1,
                                 static_cast<int>(std::ceil(centreY + radius + 0.5)) - 1);
    for (int row = firstRow; row <= lastRow; ++row)
    {
        AddRow(map, area, centreX, centreY, radius, row, static_cast<float>(weight));
    }
}

void AddDiscRowCoverage(CoverageMap& map, double centreX, double centreY, double radius, int row,
                        double weight)
{
    if (radius <= 0.0 || row < map.originY || row >= map.originY + map.height ||
        std::fabs(row - centreY) >= radius + 0.5)
    {
        return;
    }
    AddRow(map, DiscArea(radius), centreX, centreY, radius, row, static_cast<float>(weight));
}

double DiscBandArea(double centreY, double radius, int row)
{
    if (radius <= 0.0)
    {
        return 0.0;
    }
    const DiscArea area(radius);
    const double   lo = area.Clamp(row - 0.5 - centreY);
    const double   hi = area.Clamp(row + 0.5 - centreY);
    // The disc's width at t is 2 s(t), whose primitive is 2 S(t).
    return 2.0 * (area.S(hi) - area.S(lo));
}

double DiscBandMomentY(double centreY, double radius, int row)
{
    if (radius <= 0.0)
    {
        return 0.0;
    }
    // The integral of t 2 sqrt(r^2 - t^2) is -2/3 (r^2 - t^2)^(3/2).
    const auto primitive = [radius](double t)
    {
        const double c = std::max(0.0, radius * radius - t * t);
        return -2.0 / 3.0 * c * std::sqrt(c);
    };
    const double lo = std::clamp(row - 0.5 - centreY, -radius, radius);
    const double hi = std::clamp(row + 0.5 - centreY, -radius, radius);
    return primitive(hi) - primitive(lo);
}

int GaussianMarginPx(double sigmaPx)
{
    return sigmaPx < kMinBlurSigmaPx ? 0 : static_cast<int>(std::ceil(kGaussianSpanSig * sigmaPx));
}

void ApplyGaussianBlur(CoverageMap& map, double sigmaPx)
{
    const int half = GaussianMarginPx(sigmaPx);
    if (half == 0 || map.width == 0 || map.height == 0)
    {
        return;
    }
    const std::vector<double> kernel = GaussianKernel(sigmaPx);
    std::vector<float>        temp(map.values.size(), 0.0F);
    const int                 w = map.width;
    const int                 h = map.height;
    for (int y = 0; y < h; ++y)
    {
        const float* src = map.Row(y);
        float*       dst = temp.data() + static_cast<size_t>(y) * w;
        for (int x = 0; x < w; ++x)
        {
            double sum = 0.0;
            for (int k = std::max(-half, -x); k <= std::min(half, w - 1 - x); ++k)
            {
                sum += kernel[k + half] * src[x + k];
            }
            dst[x] = static_cast<float>(sum);
        }
    }
    for (int y = 0; y < h; ++y)
    {
        float* dst = map.Row(y);
        for (int x = 0; x < w; ++x)
        {
            double sum = 0.0;
            for (int k = std::max(-half, -y); k <= std::min(half, h - 1 - y); ++k)
            {
                sum += kernel[k + half] * temp[static_cast<size_t>(y + k) * w + x];
            }
            dst[x] = static_cast<float>(sum);
        }
    }
}

} // namespace sim::detail
