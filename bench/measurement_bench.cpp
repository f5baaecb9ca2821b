// Per-frame cost of the measurement path on one core: a plain read of a crop's bytes (the floor
// any measurement pays), the node's centre crop out of a camera frame, the four-circle measurement
// of the crop, and both together; plus the time the simulator takes to render a frame.
//   measurement_bench --benchmark_filter=Render When OpenCV
// is found, opencv_bench.cpp adds its two circle detectors on the same crops to this program.
//   measurement_bench --benchmark_filter=Measure
#include "benchframes.h"

#include <benchmark/benchmark.h>

#include <algorithm>

namespace
{

using benchframes::CameraFrame;
using benchframes::Crop;
using benchframes::LoadMeasurement;

void PlainRead(benchmark::State& state)
{
    const std::vector<uint8_t> crop = Crop(CameraFrame(static_cast<int>(state.range(0))));
    for (auto _ : state)
    {
        // Sums in 16-bit lanes that cannot overflow within a row: a loop the compiler vectorises,
        // as fast as reading the bytes gets.
        uint64_t total = 0;
        for (size_t row = 0; row < crop.size(); row += 256)
        {
            uint16_t     partial = 0;
            const size_t end     = std::min(crop.size(), row + 256);
            for (size_t i = row; i < end; ++i)
            {
                partial = static_cast<uint16_t>(partial + crop[i]);
            }
            total += partial;
        }
        benchmark::DoNotOptimize(total);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * crop.size()));
}

void CentreCrop(benchmark::State& state)
{
    const sim::Nv12Image frame = CameraFrame(static_cast<int>(state.range(0)));
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(Crop(frame).data());
    }
}

void Measure(benchmark::State& state)
{
    const PFNOISHIGHFPS  measure = LoadMeasurement();
    std::vector<uint8_t> crop    = Crop(CameraFrame(static_cast<int>(state.range(0))));
    const int            side    = static_cast<int>(state.range(0));
    OISPointResult       result{};
    if (measure == nullptr || measure(crop.data(), {side, side}, &result) != OISHighFPSSuccess ||
        !benchframes::FoundBenchFrameDiscs(result, side))
    {
        state.SkipWithError("measurement library missing or chart not found");
        return;
    }
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(measure(crop.data(), {side, side}, &result));
    }
}

void CropAndMeasure(benchmark::State& state)
{
    const PFNOISHIGHFPS  measure = LoadMeasurement();
    const sim::Nv12Image frame   = CameraFrame(static_cast<int>(state.range(0)));
    const int            side    = static_cast<int>(state.range(0));
    OISPointResult       result{};
    if (measure == nullptr)
    {
        state.SkipWithError("measurement library missing");
        return;
    }
    for (auto _ : state)
    {
        std::vector<uint8_t> crop = Crop(frame);
        benchmark::DoNotOptimize(measure(crop.data(), {side, side}, &result));
    }
}

// One 1440 x 1080 NV12 frame of the default session (OIS on at the ideal gain, or off), by the
// cached path the sessions use or by the full evaluation of every pixel, with the default rolling
// shutter or a global one.
void RenderFrame(benchmark::State& state)
{
    sim::Scenario s     = state.range(0) ? sim::OisOffScenario() : sim::OisOnScenario(1.0, 1.0);
    s.sensor.readoutS   = state.range(2) ? s.sensor.readoutS : 0.0;
    const auto path     = state.range(1) ? sim::Simulator::RenderPath::Full
                                         : sim::Simulator::RenderPath::Cached;
    const sim::Simulator simulator(s);
    sim::Nv12Image       frame;
    simulator.Render(0, frame);
    uint32_t index = 0;
    for (auto _ : state)
    {
        simulator.RenderLuma(index++, frame.Luma(), frame.stride, path);
        benchmark::DoNotOptimize(frame.data.data());
    }
    state.counters["fps"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

// The whole NV12 buffer as a frame source fills it: luma by the cached path, chroma and padding.
void RenderNv12Frame(benchmark::State& state)
{
    const sim::Simulator simulator(sim::OisOnScenario(1.0, 1.0));
    sim::Nv12Image       frame;
    uint32_t             index = 0;
    for (auto _ : state)
    {
        simulator.Render(index++, frame);
        benchmark::DoNotOptimize(frame.data.data());
    }
}

BENCHMARK(PlainRead)->Arg(540)->Arg(720)->Unit(benchmark::kMicrosecond);
BENCHMARK(CentreCrop)->Arg(540)->Arg(720)->Unit(benchmark::kMicrosecond);
BENCHMARK(Measure)->Arg(540)->Arg(720)->Unit(benchmark::kMicrosecond);
BENCHMARK(CropAndMeasure)->Arg(540)->Arg(720)->Unit(benchmark::kMicrosecond);
BENCHMARK(RenderFrame)
    ->ArgNames({"oisOff", "full", "rolling"})
    ->ArgsProduct({{0, 1}, {0, 1}, {0, 1}})
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(RenderNv12Frame)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
