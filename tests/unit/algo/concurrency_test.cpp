// The measurement library on several threads at once: each thread keeps its own work buffers, so
// results must not depend on what other threads measure at the same time, nor on the size or the
// content of the images a thread measured before.
#include "measurementlibrary.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <thread>
#include <vector>

namespace
{

using algotest::MeasurementLibrary;

struct Frame
{
    int                  side;
    std::vector<uint8_t> luma;
    OISPointResult       expected;
    INT32                expectedStatus;
};

// Sizes that give every block size of the coarse stage, ragged row ends, and one image with no
// chart, in an order that alternates large and small.
std::vector<Frame> MakeFrames()
{
    const int          sides[] = {2048, 256, 540, 301, 1000, 720, 1535};
    std::vector<Frame> frames;
    for (size_t i = 0; i < std::size(sides); ++i)
    {
        sim::Scenario scenario         = algotest::SquareScenario(sides[i]);
        scenario.optics.motionBlurXPx  = 4.0 * i;
        scenario.optics.defocusSigmaPx = 0.5 * i;
        Frame frame{
            sides[i], std::vector<uint8_t>(static_cast<size_t>(sides[i]) * sides[i]), {}, 0};
        sim::Simulator(scenario).RenderLuma(static_cast<uint32_t>(i), frame.luma.data(), sides[i]);
        frames.push_back(std::move(frame));
    }
    Frame blank{540, std::vector<uint8_t>(540 * 540, 190), {}, 0};
    frames.insert(frames.begin() + 3, std::move(blank));
    return frames;
}

TEST(MeasurementThreads, ResultsDoNotDependOnOtherThreadsOrEarlierImages)
{
    const MeasurementLibrary library;
    ASSERT_TRUE(library.Loaded());
    std::vector<Frame> frames = MakeFrames();
    for (Frame& f : frames)
    {
        f.expectedStatus = library.Measure(f.luma.data(), f.side, f.side, &f.expected);
    }
    ASSERT_EQ(frames[0].expectedStatus, OISHighFPSSuccess);
    ASSERT_EQ(frames[3].expectedStatus, OISHighFPSNotFound);

    constexpr int            kThreads = 4, kRounds = 20;
    std::vector<int>         mismatches(kThreads, 0);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
    {
        threads.emplace_back(
            [&, t]
            {
                // Each thread walks the frames from a different start and in its own direction.
                const size_t n = frames.size();
                for (size_t k = 0; k < kRounds * n; ++k)
                {
                    const size_t   i = t % 2 ? (t + k) % n : (n - 1) - (t + k) % n;
                    Frame&         f = frames[i];
                    OISPointResult result{};
                    const INT32    status = library.Measure(f.luma.data(), f.side, f.side, &result);
                    mismatches[t] += status != f.expectedStatus ||
                                     std::memcmp(&result, &f.expected, sizeof(result)) != 0;
                }
            });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    for (int t = 0; t < kThreads; ++t)
    {
        EXPECT_EQ(mismatches[t], 0) << "thread " << t;
    }
}

} // namespace
