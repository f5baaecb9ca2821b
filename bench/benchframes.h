// Frames and the measurement library shared by the benchmark programs, so that every contender is
// timed and scored on the very same bytes: camera frames cropped as the node crops them, square
// chart images with exact truth for the accuracy comparison, the library bound by path and symbol
// as the node binds it, and the centre errors against the simulator's truth.
#ifndef ZELK_BENCH_BENCHFRAMES_H
#define ZELK_BENCH_BENCHFRAMES_H

#include "oishighfps.h"
#include "sim/simulator.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <dlfcn.h>
#include <vector>

namespace benchframes
{

// The library as the node binds it: by path and symbol. Null when it cannot be loaded.
inline PFNOISHIGHFPS LoadMeasurement()
{
    static const PFNOISHIGHFPS measure = []
    {
        void* handle = dlopen(OIS_HIGH_FPS_LIBRARY_FILE, RTLD_NOW | RTLD_LOCAL);
        return handle ? reinterpret_cast<PFNOISHIGHFPS>(dlsym(handle, OIS_HIGH_FPS_SYMBOL))
                      : nullptr;
    }();
    return measure;
}

// The OIS-off session at a frame size whose node crop is `cropSide`: 4:3 for 540, 16:9 for 720.
// Default sensor noise (2 DN) and the shake's own motion blur over the 4 ms exposure.
inline sim::Scenario CameraScenario(int cropSide)
{
    sim::Scenario s   = sim::OisOffScenario();
    s.sensor.widthPx  = cropSide == 720 ? 1920 : cropSide * 8 / 3;
    s.sensor.heightPx = cropSide == 720 ? 1080 : cropSide * 2;
    return s;
}

// The frame every speed benchmark uses.
constexpr uint32_t kBenchFrameIndex = 7;

inline sim::Nv12Image CameraFrame(int cropSide)
{
    sim::Nv12Image frame;
    sim::Simulator(CameraScenario(cropSide)).Render(kBenchFrameIndex, frame);
    return frame;
}

inline std::vector<uint8_t> Crop(const sim::Nv12Image& frame)
{
    return sim::CentreCropLuma(frame.Luma(), frame.width, frame.height, frame.stride,
                               sim::NodeCropSide(frame.width, frame.height));
}

// A square chart image that is its own crop, with the disc centres known exactly: no exposure
// smear from the shake and no residual floor, only a few pixels of shake between frames so that
// successive frames put the discs at different sub-pixel phases. Noise and motion blur are the
// conditions under comparison.
inline sim::Scenario SquareScenario(int side, double noiseDn, double blurXPx, double blurYPx)
{
    sim::Scenario s        = sim::OisOffScenario();
    s.sensor.widthPx       = side;
    s.sensor.heightPx      = side;
    s.sensor.exposureS     = 0.0;
    s.sensor.noiseStdDn    = noiseDn;
    s.ois.residualFloorPx  = 0.0;
    s.shake.amplitudeXPx   = 7.3;
    s.shake.amplitudeYPx   = 5.1;
    s.optics.motionBlurXPx = blurXPx;
    s.optics.motionBlurYPx = blurYPx;
    return s;
}

// Distance (px) of each measured centre from the true one: up, down, left, right.
inline std::array<double, 4> CentreErrorsPx(const OISPointResult& r, const sim::FourCentres& truth)
{
    return {std::hypot(r.upX - truth.up.x, r.upY - truth.up.y),
            std::hypot(r.downX - truth.down.x, r.downY - truth.down.y),
            std::hypot(r.leftX - truth.left.x, r.leftY - truth.left.y),
            std::hypot(r.rightX - truth.right.x, r.rightY - truth.right.y)};
}

// Whether a result found the four discs of the speed benchmarks' frame. Two pixels is three times
// Hough's error on that frame (its centres are whole accumulator cells; the others are within a
// twentieth of a pixel) yet well under a disc radius: it only rejects a missing or wrong disc, so
// nothing is timed that does not actually measure the chart.
inline bool FoundBenchFrameDiscs(const OISPointResult& r, int cropSide)
{
    constexpr double     kWrongDiscPx = 2.0;
    const sim::Simulator simulator(CameraScenario(cropSide));
    const auto errors = CentreErrorsPx(r, simulator.Truth(kBenchFrameIndex).CropCentres());
    return *std::max_element(errors.begin(), errors.end()) <= kWrongDiscPx;
}

} // namespace benchframes

#endif // ZELK_BENCH_BENCHFRAMES_H
