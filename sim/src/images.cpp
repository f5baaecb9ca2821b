// Images: the standard chart, NV12 layout arithmetic, the node's centre crop, and the debug image
// files (720 x 720 luma then 0x80 chroma, written with stdio so that a partial write is reported
// instead of leaving a short file unnoticed).
#include "sim/chart.h"
#include "sim/debugimages.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <vector>

namespace sim
{

Chart MakeFourDiscChart(int cropSidePx)
{
    const double side    = std::max(0, cropSidePx);
    const double radius  = kDiscRadiusFraction * side;
    const double spacing = std::round(kDiscSpacingFraction * side);
    Chart        chart;
    chart.discs = {{0.0, -spacing, radius},
                   {0.0, spacing, radius},
                   {-spacing, 0.0, radius},
                   {spacing, 0.0, radius}};
    return chart;
}

size_t Nv12BufferSize(int stride, int scanline)
{
    if (stride <= 0 || scanline <= 0)
    {
        return 0;
    }
    const size_t rows = static_cast<size_t>(scanline) + (static_cast<size_t>(scanline) + 1) / 2;
    return static_cast<size_t>(stride) * rows;
}

int NodeCropSide(int width, int height)
{
    if (width <= 0 || height <= 0)
    {
        return 0;
    }
    // Same arithmetic as the node: a float ratio compared with 1.33 and 1.77 within 0.1.
    const float ratio   = static_cast<float>(width) / static_cast<float>(height);
    const int   shorter = std::min(width, height);
    if (std::fabs(ratio - 1.33) < 0.1)
    {
        return shorter / 2;
    }
    if (std::fabs(ratio - 1.77) < 0.1)
    {
        return shorter * 50 / 75;
    }
    return 0;
}

CropOrigin CentreCropOrigin(int width, int height, int cropSide)
{
    return {width / 2 - cropSide / 2, height / 2 - cropSide / 2};
}

std::vector<uint8_t> CentreCropLuma(const uint8_t* luma, int width, int height, int stride,
                                    int cropSide)
{
    const CropOrigin origin = CentreCropOrigin(width, height, cropSide);
    if (luma == nullptr || cropSide <= 0 || stride < width || origin.x < 0 || origin.y < 0 ||
        origin.x + cropSide > width || origin.y + cropSide > height)
    {
        return {};
    }
    std::vector<uint8_t> crop(static_cast<size_t>(cropSide) * cropSide);
    for (int row = 0; row < cropSide; ++row)
    {
        const uint8_t* src = luma + static_cast<size_t>(origin.y + row) * stride + origin.x;
        std::memcpy(crop.data() + static_cast<size_t>(row) * cropSide, src, cropSide);
    }
    return crop;
}

std::string DebugImageName(uint32_t frameIndex)
{
    char name[32];
    std::snprintf(name, sizeof(name), "ois_%06u.yuv", frameIndex);
    return name;
}

bool WriteDebugImage(const std::string& path, const uint8_t* lumaSquare)
{
    if (lumaSquare == nullptr)
    {
        return false;
    }
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr)
    {
        return false;
    }
    const std::vector<uint8_t> chroma(kDebugImageBytes - kDebugImageLumaBytes, kGreyChroma);
    bool ok = std::fwrite(lumaSquare, 1, kDebugImageLumaBytes, file) == kDebugImageLumaBytes;
    ok      = ok && std::fwrite(chroma.data(), 1, chroma.size(), file) == chroma.size();
    ok      = (std::fclose(file) == 0) && ok;
    return ok;
}

bool WriteDebugImages(const Scenario& scenario, const std::string& dir, uint32_t firstFrame,
                      uint32_t count, std::vector<FrameTruth>* truths)
{
    std::error_code error;
    std::filesystem::create_directories(dir, error);
    if (error)
    {
        return false;
    }
    // The debug image is the crop itself: a square frame of the crop's size.
    Scenario square            = scenario;
    square.sensor.widthPx      = kDebugImageSidePx;
    square.sensor.heightPx     = kDebugImageSidePx;
    square.sensor.strideBytes  = 0;
    square.sensor.scanlineRows = 0;
    square.sensor.cropSidePx   = kDebugImageSidePx;
    const Simulator      simulator(square);
    std::vector<uint8_t> luma(kDebugImageLumaBytes);
    for (uint32_t i = 0; i < count; ++i)
    {
        const uint32_t frame = firstFrame + i;
        simulator.RenderLuma(frame, luma.data(), kDebugImageSidePx);
        const std::string path = (std::filesystem::path(dir) / DebugImageName(frame)).string();
        if (!WriteDebugImage(path, luma.data()))
        {
            return false;
        }
        if (truths != nullptr)
        {
            truths->push_back(simulator.Truth(frame));
        }
    }
    return true;
}

} // namespace sim
