// Debug images for the node's debug mode: files that start with a 720 x 720 luma square, followed
// by grey chroma so that each file is a complete NV12 image of that square. File names carry a
// zero-padded frame number, so the node's byte-wise name sort keeps frame order.
#ifndef ZELK_SIM_DEBUGIMAGES_H
#define ZELK_SIM_DEBUGIMAGES_H

#include "sim/scenario.h"
#include "sim/simulator.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace sim
{

constexpr int     kDebugImageSidePx    = 720;
constexpr size_t  kDebugImageLumaBytes = static_cast<size_t>(kDebugImageSidePx) * kDebugImageSidePx;
constexpr size_t  kDebugImageBytes     = kDebugImageLumaBytes * 3 / 2;
constexpr uint8_t kGreyChroma          = 0x80;

// "ois_000042.yuv" for frame 42.
std::string DebugImageName(uint32_t frameIndex);

// Writes one debug image from a packed 720 x 720 luma square. False on any file error.
bool WriteDebugImage(const std::string& path, const uint8_t* lumaSquare);

// Renders frames firstFrame .. firstFrame + count - 1 of the scenario as 720 x 720 crops (the
// frame is the crop; the chart, shake and OIS are as in the scenario) and writes them into `dir`,
// creating it. Appends each frame's truth to `truths` when given.
bool WriteDebugImages(const Scenario& scenario, const std::string& dir, uint32_t firstFrame,
                      uint32_t count, std::vector<FrameTruth>* truths = nullptr);

} // namespace sim

#endif // ZELK_SIM_DEBUGIMAGES_H
