// Counter-based random numbers for the simulator: every value is a pure function of the seed and
// of where it is used (frame, row, axis), so frames render identically in any order and on any
// thread. SplitMix64 mixing; Gaussian values through the inverse normal distribution.
#ifndef ZELK_SIM_RANDOM_H
#define ZELK_SIM_RANDOM_H

#include <cmath>
#include <cstdint>

namespace sim::detail
{

inline uint64_t SplitMix64(uint64_t& state)
{
    state += 0x9E3779B97F4A7C15ULL;
    uint64_t z = state;
    z          = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
    z          = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
    return z ^ (z >> 31);
}

// A stream state for (seed, a, b): distinct uses get unrelated streams.
inline uint64_t StreamState(uint64_t seed, uint64_t a, uint64_t b)
{
    uint64_t state = seed;
    uint64_t mixed = SplitMix64(state) ^ (a * 0xD1B54A32D192ED03ULL);
    state          = mixed;
    mixed          = SplitMix64(state) ^ (b * 0x8CB92BA72F3D8DD7ULL);
    state          = mixed;
    return SplitMix64(state);
}

// Uniform in the open interval (0, 1), 53 bits.
inline double UniformOpen(uint64_t bits)
{
    return (static_cast<double>(bits >> 11) + 0.5) * (1.0 / 9007199254740992.0);
}

// Standard normal quantile (Acklam's rational approximation, relative error below 1.2e-9).
inline double InverseNormalCdf(double p)
{
    static const double kA[] = {-3.969683028665376e+01, 2.209460984245205e+02,
                                -2.759285104469687e+02, 1.383577518672690e+02,
                                -3.066479806614716e+01, 2.506628277459239e+00};
    static const double kB[] = {-5.447609879822406e+01, 1.615858368580409e+02,
                                -1.556989798598866e+02, 6.680131188771972e+01,
                                -1.328068155288572e+01};
    static const double kC[] = {-7.784894002430293e-03, -3.223964580411365e-01,
                                -2.400758277161838e+00, -2.549732539343734e+00,
                                4.374664141464968e+00,  2.938163982698783e+00};
    static const double kD[] = {7.784695709041462e-03, 3.224671290700398e-01, 2.445134137142996e+00,
                                3.754408661907416e+00};
    const double        kTail = 0.02425;
    if (p < kTail || p > 1.0 - kTail)
    {
        const double q = std::sqrt(-2.0 * std::log(p < kTail ? p : 1.0 - p));
        const double num =
            ((((kC[0] * q + kC[1]) * q + kC[2]) * q + kC[3]) * q + kC[4]) * q + kC[5];
        const double den = (((kD[0] * q + kD[1]) * q + kD[2]) * q + kD[3]) * q + 1.0;
        return p < kTail ? num / den : -num / den;
    }
    const double q = p - 0.5;
    const double r = q * q;
    const double num =
        (((((kA[0] * r + kA[1]) * r + kA[2]) * r + kA[3]) * r + kA[4]) * r + kA[5]) * q;
    const double den = ((((kB[0] * r + kB[1]) * r + kB[2]) * r + kB[3]) * r + kB[4]) * r + 1.0;
    return num / den;
}

inline double Gaussian(uint64_t& state)
{
    return InverseNormalCdf(UniformOpen(SplitMix64(state)));
}

} // namespace sim::detail

#endif // ZELK_SIM_RANDOM_H
