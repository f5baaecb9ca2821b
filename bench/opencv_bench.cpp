// OpenCV's circle detectors timed on exactly the crops measurement_bench.cpp times our measurement
// on (same scenario, frame and node crop, 540 and 720 a side), so that one run of the program
// reports ours, the plain-read floor and the contenders side by side: Hough, and the blob detector
// at its accurate (13 threshold levels) and its fastest (1 level) settings. Each iteration is the
// whole job a caller needs: for Hough the smoothing it wants, the transform and picking the four
// discs; for the blob detector its detection and the same picking. OpenCV runs on one thread, as
// ours does. Before timing, each contender's answer is checked against the frame's truth, so a
// detector that times well by finding nothing (or the wrong discs) is reported as an error.
//   measurement_bench --benchmark_filter=OpenCv
#include "benchframes.h"
#include "opencvdetectors.h"

#include <benchmark/benchmark.h>

namespace
{

// Times one detector on the benchmark crop of the given side.
template <typename Detector>
void TimeDetector(benchmark::State& state, int side, Detector& detector)
{
    cvbench::UseOneThread();
    const std::vector<uint8_t> crop = benchframes::Crop(benchframes::CameraFrame(side));
    OISPointResult             result{};
    if (detector.Measure(crop.data(), result) != OISHighFPSSuccess ||
        !benchframes::FoundBenchFrameDiscs(result, side))
    {
        state.SkipWithError("detector did not find the four discs");
        return;
    }
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(detector.Measure(crop.data(), result));
        benchmark::ClobberMemory();
    }
}

void OpenCvHoughCircles(benchmark::State& state)
{
    const int              side = static_cast<int>(state.range(0));
    cvbench::HoughDetector detector(side);
    TimeDetector(state, side, detector);
}

// Second argument: threshold levels (13, OpenCV's step over ink to paper, for accuracy; 1 for
// speed).
void OpenCvSimpleBlobDetector(benchmark::State& state)
{
    const int             side = static_cast<int>(state.range(0));
    cvbench::BlobDetector detector(side, static_cast<int>(state.range(1)));
    TimeDetector(state, side, detector);
}

BENCHMARK(OpenCvHoughCircles)->Arg(540)->Arg(720)->Unit(benchmark::kMicrosecond);
BENCHMARK(OpenCvSimpleBlobDetector)
    ->ArgNames({"side", "levels"})
    ->ArgsProduct({{540, 720}, {13, 1}})
    ->Unit(benchmark::kMicrosecond);

} // namespace
