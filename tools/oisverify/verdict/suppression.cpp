// Suppression of the applied shake and stabilisation gain; see suppression.h.
#include "verdict/suppression.h"

#include <math.h>
#include <stdio.h>

namespace oisverify
{

double SuppressionDb(double appliedPx, double residualPx)
{
    if (appliedPx <= 0.0)
    {
        return -INFINITY;
    }
    if (residualPx <= 0.0)
    {
        return INFINITY;
    }
    return 10.0 * log10(appliedPx / residualPx) + kNodeSrOffsetDb;
}

double ReferenceBiasDb(double appliedPx)
{
    return (appliedPx <= 0.0) ? INFINITY : 10.0 * log10(kNodeReferenceBlurPx / appliedPx);
}

bool IsReferenceShake(double amplitudePx)
{
    return fabs(amplitudePx - kNodeReferenceBlurPx) < kReferenceTolerancePx;
}

std::string DbText(double value)
{
    if (isnan(value))
    {
        return "NaN";
    }
    if (isinf(value))
    {
        return (value < 0.0) ? "-inf dB" : "inf dB";
    }
    char text[32];
    snprintf(text, sizeof(text), "%.2f dB", value);
    return text;
}

} // namespace oisverify
