// OIS measurement library (vendor/lib64/libOISHighFPS.so): finds the centres of the four chart
// circles (up, down, left, right of centre) in a square 8-bit luma image.
#ifndef ZELK_PLATFORM_OISHIGHFPS_H
#define ZELK_PLATFORM_OISHIGHFPS_H

#include "chitypes.h"

extern "C" {

struct OISImageSize
{
    INT32 width;
    INT32 height;
};

// Circle centres in pixels of the input image.
struct OISPointResult
{
    double upX;
    double upY;
    double downX;
    double downY;
    double leftX;
    double leftY;
    double rightX;
    double rightY;
};

static const INT32 OISHighFPSSuccess      = 0;
static const INT32 OISHighFPSInvalidInput = -1;   // null pointers or a size it cannot take
static const INT32 OISHighFPSNotFound     = -100; // the four circles were not all found

typedef INT32 (*PFNOISHIGHFPS)(UINT8* pImage, OISImageSize size, OISPointResult* pResult);

static_assert(sizeof(OISImageSize) == 8, "OISImageSize size");
static_assert(sizeof(OISPointResult) == 64, "OISPointResult size");

} // extern "C"

#define OIS_HIGH_FPS_LIBRARY_PATH "vendor/lib64/libOISHighFPS.so"
#define OIS_HIGH_FPS_SYMBOL       "OISHighFPS"

#endif // ZELK_PLATFORM_OISHIGHFPS_H
