// Fuzz target of the measurement library (OISHighFPS) on arbitrary pixels and sizes. The library's
// sources are built into the target with coverage, so the fuzzer steers through its stages: block
// sums, dark-blob search and the chart's cross test, disc windows and the sub-pixel centroid.
//
// Input (little-endian, zero past the end):
//   u8  mode      bit 0: width and height are two raw i32 fields (any values) instead of a side;
//                 bit 1: null image; bit 2: null result; bit 3: flat paper instead of the chart;
//                 bit 4: a side from the library's whole range (256 to 2048) instead of 256 to 768
//   u16 side      256 + side % 1793, or 256 + side % 513, when bit 0 is clear (small images keep
//                 the run fast; the large ones hold nothing the stages do not meet on small ones)
//   i32 width, height   when bit 0 is set; an image is allocated only for a size the library takes
//   u8  paper, ink      grey levels; u8 radius (1 % to 11 % of the side), i8 shiftX, shiftY (side/256 px)
//   u8  noise     amplitude of a fixed-seed noise added to every pixel; u32 seed
//   u16 patchX, patchY, u8 patchWidth (1 to 256), then the rest of the input is painted as a patch
//       of pixels at (patchX, patchY) modulo the side, patchWidth bytes a row, clipped at the edges.
//
// Besides sanitizer reports it fails when: the code is not 0, -1 or -100; -1 is not exactly the
// answer to a null pointer or a size outside 256-2048 or not square; a failure leaves a non-zero
// result; a success gives a centre that is not finite or lies outside the image; a second call on
// the same image answers differently (the per-thread work buffers carry nothing over); the image
// is changed.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "oishighfps.h"

extern "C" INT32 OISHighFPS(UINT8* pImage, OISImageSize size, OISPointResult* pResult);

namespace
{

const int    kMinSidePx     = 256;
const int    kMaxSidePx     = 2048;
const int    kSmallSideRange = 513;
const double kSpacingOfSide = 0.22;
const int    kDiscOffsets[4][2] = { { 0, -1 }, { 0, 1 }, { -1, 0 }, { 1, 0 } };

[[noreturn]] void Fail(const char* pWhat)
{
    fprintf(stderr, "oishighfps_fuzz: property violated: %s\n", pWhat);
    abort();
}

class Reader
{
public:
    Reader(const uint8_t* pData, size_t size) : m_pData(pData), m_size(size) {}
    uint8_t  U8() { return (m_offset < m_size) ? m_pData[m_offset++] : 0; }
    uint16_t U16() { return static_cast<uint16_t>(U8() | (U8() << 8)); }
    uint32_t U32() { return static_cast<uint32_t>(U16()) | (static_cast<uint32_t>(U16()) << 16); }
    const uint8_t* Rest(size_t* pSize)
    {
        *pSize = (m_offset < m_size) ? m_size - m_offset : 0;
        return m_pData + ((m_offset < m_size) ? m_offset : m_size);
    }

private:
    const uint8_t* m_pData;
    size_t         m_size;
    size_t         m_offset = 0;
};

void PaintDisc(std::vector<uint8_t>& image, int side, double centreX, double centreY, double radius, uint8_t ink)
{
    const int top    = std::max(0, static_cast<int>(centreY - radius));
    const int bottom = std::min(side - 1, static_cast<int>(centreY + radius) + 1);
    const int left   = std::max(0, static_cast<int>(centreX - radius));
    const int right  = std::min(side - 1, static_cast<int>(centreX + radius) + 1);
    for (int y = top; y <= bottom; y++)
    {
        for (int x = left; x <= right; x++)
        {
            const double dx = x - centreX;
            const double dy = y - centreY;
            if (dx * dx + dy * dy <= radius * radius)
            {
                image[static_cast<size_t>(y) * side + x] = ink;
            }
        }
    }
}

// The chart (or flat paper), noise, then the input's patch.
void PaintImage(Reader& reader, std::vector<uint8_t>& image, int side, bool chart)
{
    const uint8_t paper  = reader.U8();
    const uint8_t ink    = reader.U8();
    const double  radius = side * (0.01 + 0.1 * reader.U8() / 255.0);
    const double  shiftX = static_cast<int8_t>(reader.U8()) * side / 256.0;
    const double  shiftY = static_cast<int8_t>(reader.U8()) * side / 256.0;
    const uint8_t noise  = reader.U8();
    uint32_t      state  = reader.U32() | 1u;
    memset(image.data(), paper, image.size());
    if (chart)
    {
        const double spacing = kSpacingOfSide * side;
        for (const int* pOffset : kDiscOffsets)
        {
            PaintDisc(image, side, side / 2 + shiftX + pOffset[0] * spacing, side / 2 + shiftY + pOffset[1] * spacing,
                      radius, ink);
        }
    }
    if (noise != 0)
    {
        for (uint8_t& pixel : image)
        {
            state        = state * 1664525u + 1013904223u;
            const int v  = pixel + static_cast<int>((state >> 24) % (2u * noise + 1)) - noise;
            pixel        = static_cast<uint8_t>(std::min(255, std::max(0, v)));
        }
    }
    const int patchX = reader.U16() % side;
    const int patchY = reader.U16() % side;
    const int width  = 1 + reader.U8();
    size_t    bytes  = 0;
    const uint8_t* pPatch = reader.Rest(&bytes);
    for (size_t i = 0; i < bytes; i++)
    {
        const int x = patchX + static_cast<int>(i % width);
        const int y = patchY + static_cast<int>(i / width);
        if (x < side && y < side)
        {
            image[static_cast<size_t>(y) * side + x] = pPatch[i];
        }
    }
}

void CheckResult(INT32 code, const OISPointResult& result, int side)
{
    const double coordinates[8] = { result.upX,   result.upY,   result.downX,  result.downY,
                                    result.leftX, result.leftY, result.rightX, result.rightY };
    for (double value : coordinates)
    {
        if (code != OISHighFPSSuccess && value != 0.0)
        {
            Fail("a failed measurement left a non-zero centre");
        }
        if (code == OISHighFPSSuccess && !(std::isfinite(value) && value >= 0.0 && value <= side - 1))
        {
            Fail("a centre is not finite or lies outside the image");
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t size)
{
    Reader        reader(pData, size);
    const uint8_t mode = reader.U8();
    OISImageSize  imageSize;
    if ((mode & 1) != 0)
    {
        imageSize.width  = static_cast<INT32>(reader.U32());
        imageSize.height = static_cast<INT32>(reader.U32());
    }
    else
    {
        const int range  = ((mode & 16) != 0) ? kMaxSidePx - kMinSidePx + 1 : kSmallSideRange;
        imageSize.width  = kMinSidePx + reader.U16() % range;
        imageSize.height = imageSize.width;
    }
    const bool nullImage  = (mode & 2) != 0;
    const bool nullResult = (mode & 4) != 0;
    const bool takes      = imageSize.width == imageSize.height && imageSize.width >= kMinSidePx &&
                       imageSize.width <= kMaxSidePx;
    const int  side       = takes ? imageSize.width : 1;

    // A size the library does not take gets a one-byte image: any read of it is out of bounds.
    std::vector<uint8_t> image(static_cast<size_t>(side) * side, 0);
    if (takes)
    {
        PaintImage(reader, image, side, (mode & 8) == 0);
    }
    const std::vector<uint8_t> painted = image;

    OISPointResult result;
    memset(&result, 0xA5, sizeof(result));
    const INT32 code = OISHighFPS(nullImage ? nullptr : image.data(), imageSize, nullResult ? nullptr : &result);
    if (code != OISHighFPSSuccess && code != OISHighFPSInvalidInput && code != OISHighFPSNotFound)
    {
        Fail("the code is none of 0, -1 and -100");
    }
    if ((code == OISHighFPSInvalidInput) != (nullImage || nullResult || !takes))
    {
        Fail("-1 does not answer exactly a null pointer or a size the library cannot take");
    }
    if (image != painted)
    {
        Fail("the library changed the image");
    }
    if (nullResult)
    {
        return 0;
    }
    CheckResult(code, result, side);

    OISPointResult again;
    const INT32    codeAgain = OISHighFPS(nullImage ? nullptr : image.data(), imageSize, &again);
    if (codeAgain != code || memcmp(&again, &result, sizeof(result)) != 0)
    {
        Fail("a second call on the same image answered differently");
    }
    return 0;
}
