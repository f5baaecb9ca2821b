// Luma composition. Noise comes from a 4096-entry table of normal quantiles (unit variance,
// tails cut at about 3.5 sigma), indexed by 12-bit slices of a per-row SplitMix64 stream: about a
// nanosecond per sample, so a whole 1440 x 1080 frame of noise costs a few milliseconds.
#include "render.h"

#include "random.h"

#include <algorithm>
#include <cmath>

namespace sim::detail
{
namespace
{

constexpr int kNoiseTableBits = 12;
constexpr int kNoiseTableSize = 1 << kNoiseTableBits;
constexpr int kSamplesPerDraw = 64 / kNoiseTableBits;

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

void AddCoverageRow(const std::vector<PlacedCoverage>& coverage, int row, int width,
                    std::vector<float>& covRow)
{
    for (const PlacedCoverage& placed : coverage)
    {
        const CoverageMap& map  = *placed.map;
        const int          mapY = row - (map.originY + placed.shiftY);
        if (mapY < 0 || mapY >= map.height)
        {
            continue;
        }
        const int    left  = map.originX + placed.shiftX;
        const int    first = std::max(0, left);
        const int    last  = std::min(width, left + map.width);
        const float* src   = map.Row(mapY);
        for (int x = first; x < last; ++x)
        {
            covRow[x] += src[x - left];
        }
    }
}

void AddNoise(std::vector<float>& signal, float stdDn, uint64_t seed, uint32_t frame, int row)
{
    const float* table = NoiseTable().data();
    uint64_t     state = StreamState(seed, frame, static_cast<uint64_t>(row));
    const int    width = static_cast<int>(signal.size());
    for (int x = 0; x < width; x += kSamplesPerDraw)
    {
        uint64_t  bits = SplitMix64(state);
        const int end  = std::min(width, x + kSamplesPerDraw);
        for (int i = x; i < end; ++i, bits >>= kNoiseTableBits)
        {
            signal[i] += stdDn * table[bits & (kNoiseTableSize - 1)];
        }
    }
}

} // namespace

void ComposeLuma(const LumaLook& look, const std::vector<PlacedCoverage>& coverage, uint8_t* luma,
                 int width, int height, int stride)
{
    // Vignetting is quadratic in the distance from the optical axis, so the gain splits into a row
    // term and a column term: a subtraction per pixel.
    std::vector<float> columnTerm(width);
    for (int x = 0; x < width; ++x)
    {
        const double dx = x - look.lightCentreX;
        columnTerm[x]   = static_cast<float>(look.vignetteK * dx * dx);
    }
    const float        paper   = static_cast<float>(look.paperDn);
    const float        depth   = static_cast<float>(look.paperDn - look.inkDn);
    const float        minGain = static_cast<float>(kMinLightGain);
    std::vector<float> covRow(width);
    std::vector<float> signal(width);
    for (int y = 0; y < height; ++y)
    {
        const double dy      = y - look.lightCentreY;
        const float  rowGain = static_cast<float>(1.0 - look.vignetteK * dy * dy);
        std::fill(covRow.begin(), covRow.end(), 0.0F);
        AddCoverageRow(coverage, y, width, covRow);
        for (int x = 0; x < width; ++x)
        {
            const float lit  = rowGain - columnTerm[x];
            const float gain = lit > minGain ? lit : minGain;
            const float ink  = covRow[x] < 1.0F ? covRow[x] : 1.0F;
            signal[x]        = gain * (paper - depth * ink);
        }
        if (look.noiseStdDn > 0.0)
        {
            AddNoise(signal, static_cast<float>(look.noiseStdDn), look.seed, look.frameIndex, y);
        }
        uint8_t* out = luma + static_cast<size_t>(y) * stride;
        for (int x = 0; x < width; ++x)
        {
            const float low  = signal[x] > 0.0F ? signal[x] : 0.0F;
            const float both = low < 255.0F ? low : 255.0F;
            out[x]           = static_cast<uint8_t>(static_cast<int>(both + 0.5F));
        }
    }
}

} // namespace sim::detail
