// A measurement library that claims success with coordinates no real measurement gives: NaN,
// infinities or huge values, chosen by ZELK_FAKE_ALGO_GARBAGE ("nan", "inf", "huge").
#include <math.h>
#include <stdlib.h>
#include <string.h>

#include "oishighfps.h"

extern "C" __attribute__((visibility("default"))) INT32 OISHighFPS(UINT8* pImage, OISImageSize size,
                                                                   OISPointResult* pResult)
{
    (void)pImage;
    (void)size;
    const char* pMode = getenv("ZELK_FAKE_ALGO_GARBAGE");
    double      value = NAN;
    if (pMode != nullptr && strcmp(pMode, "inf") == 0)
    {
        value = INFINITY;
    }
    else if (pMode != nullptr && strcmp(pMode, "huge") == 0)
    {
        value = 1.0e308;
    }
    *pResult = { value, value, value, value, value, value, value, value };
    return 0;
}
