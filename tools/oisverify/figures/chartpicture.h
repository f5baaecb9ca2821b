// The chart picture: the node's first measured crop (oisverify_crop.yuv, the square luma plane
// followed by grey chroma in NV12 layout) as a PNG embedded in an SVG, with every circle's
// measured centres drawn on it as dots, their mean as a cross, and the box their peak-to-peak
// spread covers, labelled in pixels. The spread is taken over the frames of the final SR (over
// every successfully measured frame when there is no SR), skipping frames the algorithm failed.
#ifndef ZELK_TOOLS_OISVERIFY_CHARTPICTURE_H
#define ZELK_TOOLS_OISVERIFY_CHARTPICTURE_H

#include <stdint.h>

#include <string>
#include <vector>

#include "session/runsession.h"

namespace oisverify
{

struct GreyImage
{
    uint32_t             width  = 0;
    uint32_t             height = 0;
    std::vector<uint8_t> pixels; // row after row, width bytes each
};

// Largest crop side the picture accepts (the measurement takes at most 2048).
constexpr uint32_t kMaxCropSidePx = 4096;

// The luma plane of a grey-chroma NV12 crop of side c, which is floor(1.5 c^2) bytes long. False
// with a message for any length that is no such size, or a side above kMaxCropSidePx.
bool DecodeCropYuv(const std::string& bytes, GreyImage* pImage, std::string* pError);

// An 8-bit greyscale PNG of the image; false (with a message) when the encoder fails.
bool EncodeGreyPng(const GreyImage& image, std::string* pPng, std::string* pError);

// RFC 4648 base64 with padding.
std::string Base64(const std::string& bytes);

// A circle's measured centres over the spread's frames.
struct CircleSpread
{
    uint32_t count = 0; // frames that entered; none: nothing to draw
    double   meanX = 0.0, meanY = 0.0;
    double   lowX = 0.0, highX = 0.0, lowY = 0.0, highY = 0.0;
};
CircleSpread SpreadOf(const RunResult& result, int circle);

// The picture; png is the crop encoded by EncodeGreyPng. Group ids: "chart-<circle>" per circle,
// with "chart-<circle>-centres" (one dot per frame), "chart-<circle>-spread" (the box).
std::string ChartSvg(const GreyImage& image, const std::string& png, const RunResult& result);

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_CHARTPICTURE_H
