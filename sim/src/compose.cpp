// Luma composition. The noise pool's samples come from a 4096-entry table of normal quantiles
// (unit variance, tails cut at about 3.5 sigma), indexed by 12-bit slices of a SplitMix64 stream.
// Every pixel, in either composition, goes through one function, so the cached composition gives
// the very bytes of the full one.
#include "render.h"

#include "random.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace sim::detail
{
namespace
{

constexpr int      kNoiseTableBits = 12;
constexpr int      kNoiseTableSize = 1 << kNoiseTableBits;
constexpr int      kSamplesPerDraw = 64 / kNoiseTableBits;
constexpr uint32_t kNoisePoolSize  = 1U << 20; // 4 MB of floats
constexpr uint64_t kPoolStream     = 0x504F4F4C00000001ULL; // keeps pool draws apart from offsets

const std::vector<float>& NoiseTable()
{
    static const std::vector<float> table = []
    {
        std::vector<double> q(kNoiseTableSize);
        double              sumSq = 0.0;
        for (int k = 0; k < kNoiseTableSize; ++k)
        {
            q[k] = InverseNormalCdf((k + 0.5) / kNoiseTableSize);
            sumSq += q[k] * q[k];
        }
        const double       scale = 1.0 / std::sqrt(sumSq / kNoiseTableSize);
        std::vector<float> out(kNoiseTableSize);
        for (int k = 0; k < kNoiseTableSize; ++k)
        {
            out[k] = static_cast<float>(q[k] * scale);
        }
        return out;
    }();
    return table;
}

// One output pixel: lit paper darkened by ink coverage, noise added, rounded to 8 bits.
inline uint8_t Pixel(float lit, float paper, float depth, float coverage, float noise)
{
    const float minGain = static_cast<float>(kMinLightGain);
    const float gain    = lit > minGain ? lit : minGain;
    const float ink     = coverage < 1.0F ? coverage : 1.0F;
    const float signal  = gain * (paper - depth * ink) + noise;
    const float low     = signal > 0.0F ? signal : 0.0F;
    const float both    = low < 255.0F ? low : 255.0F;
    return static_cast<uint8_t>(static_cast<int>(both + 0.5F));
}

void AddCoverageRow(const std::vector<PlacedCoverage>& coverage, int row, int first, int last,
                    float* covRow)
{
    for (const PlacedCoverage& placed : coverage)
    {
        const CoverageMap& map  = *placed.map;
        const int          mapY = row - (map.originY + placed.shiftY);
        if (mapY < 0 || mapY >= map.height)
        {
            continue;
        }
        const int    left = map.originX + placed.shiftX;
        const int    from = std::max(first, left);
        const int    to   = std::min(last, left + map.width);
        const float* src  = map.Row(mapY);
        for (int x = from; x < to; ++x)
        {
            covRow[x] += src[x - left];
        }
    }
}

// Pixels first .. last - 1 of row y, ink included.
void ComposeSpan(const Canvas& canvas, const std::vector<PlacedCoverage>& coverage, int y,
                 int first, int last, const float* noise, std::vector<float>& covRow,
                 uint8_t* out)
{
    std::fill(covRow.begin() + first, covRow.begin() + last, 0.0F);
    AddCoverageRow(coverage, y, first, last, covRow.data());
    const float  rowGain = canvas.RowGain(y);
    const float* column  = canvas.ColumnTerm();
    for (int x = first; x < last; ++x)
    {
        out[x] = Pixel(rowGain - column[x], canvas.Paper(), canvas.Depth(), covRow[x], noise[x]);
    }
}

struct Span
{
    int first;
    int last;
};

// The column ranges the coverage maps occupy in row y, merged where they overlap.
void InkSpans(const std::vector<PlacedCoverage>& coverage, int y, int width,
              std::vector<Span>& spans)
{
    spans.clear();
    for (const PlacedCoverage& placed : coverage)
    {
        const CoverageMap& map  = *placed.map;
        const int          mapY = y - (map.originY + placed.shiftY);
        const int          left = map.originX + placed.shiftX;
        const Span         span{std::max(0, left), std::min(width, left + map.width)};
        if (mapY >= 0 && mapY < map.height && span.first < span.last)
        {
            spans.push_back(span);
        }
    }
    std::sort(spans.begin(), spans.end(), [](Span a, Span b) { return a.first < b.first; });
    size_t kept = 0;
    for (const Span& span : spans)
    {
        if (kept > 0 && span.first <= spans[kept - 1].last)
        {
            spans[kept - 1].last = std::max(spans[kept - 1].last, span.last);
        }
        else
        {
            spans[kept++] = span;
        }
    }
    spans.resize(kept);
}

} // namespace

Canvas::Canvas(const LumaLook& look, int width, int height)
    : m_width(width), m_seed(look.seed), m_paper(static_cast<float>(look.paperDn)),
      m_depth(static_cast<float>(look.paperDn - look.inkDn)), m_rowGain(height),
      m_columnTerm(width)
{
    // Vignetting is quadratic in the distance from the optical axis, so the gain splits into a row
    // term and a column term: a subtraction per pixel.
    for (int x = 0; x < width; ++x)
    {
        const double dx = x - look.lightCentreX;
        m_columnTerm[x] = static_cast<float>(look.vignetteK * dx * dx);
    }
    for (int y = 0; y < height; ++y)
    {
        const double dy = y - look.lightCentreY;
        m_rowGain[y]    = static_cast<float>(1.0 - look.vignetteK * dy * dy);
    }
    m_pool = look.noiseStdDn > 0.0 ? kNoisePoolSize : 1;
    m_noise.assign(static_cast<size_t>(m_pool) + width, 0.0F);
    if (look.noiseStdDn > 0.0)
    {
        const float* table = NoiseTable().data();
        const float  stdDn = static_cast<float>(look.noiseStdDn);
        uint64_t     state = StreamState(look.seed ^ kPoolStream, 0, 0);
        for (uint32_t k = 0; k < m_pool; k += kSamplesPerDraw)
        {
            uint64_t bits = SplitMix64(state);
            for (uint32_t i = k; i < std::min(m_pool, k + kSamplesPerDraw); ++i)
            {
                m_noise[i] = stdDn * table[bits & (kNoiseTableSize - 1)];
                bits >>= kNoiseTableBits;
            }
        }
        std::copy(m_noise.begin(), m_noise.begin() + width, m_noise.begin() + m_pool);
    }
    if (look.vignetteK == 0.0)
    {
        m_paperBytes.resize(m_noise.size());
        for (size_t k = 0; k < m_noise.size(); ++k)
        {
            m_paperBytes[k] = Pixel(m_rowGain.empty() ? 1.0F : m_rowGain[0] - m_columnTerm[0],
                                    m_paper, m_depth, 0.0F, m_noise[k]);
        }
    }
}

uint32_t Canvas::NoiseOffset(uint32_t frame, int y) const
{
    uint64_t state = StreamState(m_seed, frame, static_cast<uint64_t>(y));
    return static_cast<uint32_t>(SplitMix64(state) % m_pool);
}

const uint8_t* Canvas::PaperRow(uint32_t offset) const
{
    return m_paperBytes.empty() ? nullptr : m_paperBytes.data() + offset;
}

void ComposeLumaFull(const Canvas& canvas, uint32_t frame,
                     const std::vector<PlacedCoverage>& coverage, uint8_t* luma, int height,
                     int stride)
{
    const int          width = canvas.Width();
    std::vector<float> covRow(width);
    for (int y = 0; y < height; ++y)
    {
        const float* noise = canvas.NoiseRow(canvas.NoiseOffset(frame, y));
        ComposeSpan(canvas, coverage, y, 0, width, noise, covRow,
                    luma + static_cast<size_t>(y) * stride);
    }
}

void ComposeLumaCached(const Canvas& canvas, uint32_t frame,
                       const std::vector<PlacedCoverage>& coverage, uint8_t* luma, int height,
                       int stride)
{
    const int          width = canvas.Width();
    const float*       column = canvas.ColumnTerm();
    std::vector<float> covRow(width);
    std::vector<Span>  spans;
    for (int y = 0; y < height; ++y)
    {
        const uint32_t offset = canvas.NoiseOffset(frame, y);
        const float*   noise  = canvas.NoiseRow(offset);
        uint8_t*       out    = luma + static_cast<size_t>(y) * stride;
        if (const uint8_t* paper = canvas.PaperRow(offset))
        {
            std::memcpy(out, paper, width);
        }
        else
        {
            const float rowGain = canvas.RowGain(y);
            for (int x = 0; x < width; ++x)
            {
                out[x] = Pixel(rowGain - column[x], canvas.Paper(), canvas.Depth(), 0.0F, noise[x]);
            }
        }
        InkSpans(coverage, y, width, spans);
        for (const Span& span : spans)
        {
            ComposeSpan(canvas, coverage, y, span.first, span.last, noise, covRow, out);
        }
    }
}

} // namespace sim::detail
