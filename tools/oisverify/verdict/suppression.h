// How much of the shake the module suppressed, beside the node's SR. The node refers its SR to a
// fixed blur of 181.248 px (SR = 10 log10(181.248 / blur) + 4 dB), not to the shake the table
// applied, so a stalled table reads as a perfect module and a larger shake as a worse one. With
// the simulator the tool knows the applied shake, and gives:
// - the true suppression per image axis, the node's formula with the applied shake as reference:
//   10 log10(applied / residual) + 4 dB, where applied is the peak-to-peak blur the table's shake
//   alone gives over the frames of the node's ring (sampled and exposed as those frames) and
//   residual the true blur of the same frames. It equals the node's SR when the table applies
//   181.248 px, and reads 4 dB for a module without OIS whatever the shake.
// - with --reference, the stabilisation gain against an OIS-off session measured by the node
//   first: 10 log10(unstabilised blur / stabilised blur) dB, which is the node's SR minus the
//   node's SR of the reference session.
#ifndef ZELK_TOOLS_OISVERIFY_SUPPRESSION_H
#define ZELK_TOOLS_OISVERIFY_SUPPRESSION_H

#include <stdint.h>

#include <string>
#include <vector>

namespace oisverify
{

// The node's fixed reference blur and offset, in pixels and dB.
constexpr double kNodeReferenceBlurPx = 181.248;
constexpr double kNodeSrOffsetDb      = 4.0;
// A shake that differs from the reference by less than this is the reference (the header prints
// amplitudes with two decimals).
constexpr double kReferenceTolerancePx = 0.005;

// A value per image axis: horizontal from the discs above and below, vertical from those beside.
struct AxisValues
{
    float horizontal = 0.0f;
    float vertical   = 0.0f;
};

// The suppression of the applied shake; known only when the frames' truth is.
struct TrueSuppression
{
    bool       known = false;
    AxisValues appliedShakePx;    // blur of the table's shake alone over the ring's frames
    AxisValues residualBlurPx;    // true blur of the same frames with the module's OIS
    AxisValues trueSuppressionDb; // 10 log10(applied / residual) + 4
};

// The OIS-off session of --reference, measured by the node before the stabilised one.
struct ReferenceResult
{
    bool                     ran        = false; // --reference was given
    bool                     measured   = false; // the node reached a verdict with SR in it
    int32_t                  finalState = 0;
    AxisValues               referenceBlurPx;     // the node's unstabilised blur, as it logs it
    AxisValues               referenceSrDb;       // the node's SR of the unstabilised session
    bool                     hasGain = false;     // both sessions gave SR
    AxisValues               stabilisationGainDb; // stabilised SR - reference SR
    std::vector<std::string> errors;              // the node's error lines in the reference session
};

// 10 log10(appliedPx / residualPx) + 4 dB: -inf without shake, +inf without residual.
double SuppressionDb(double appliedPx, double residualPx);

// How many dB the node's SR reads above the suppression of a shake of appliedPx:
// 10 log10(181.248 / appliedPx).
double ReferenceBiasDb(double appliedPx);

// Whether a peak-to-peak shake is the node's reference.
bool IsReferenceShake(double amplitudePx);

// A dB value for text: two decimals, or "-inf dB" / "inf dB" / "NaN".
std::string DbText(double value);

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_SUPPRESSION_H
