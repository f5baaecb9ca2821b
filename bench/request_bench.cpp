// Whole per-request cost of the node in its measuring state, as a camera framework pays it: a
// 1440 x 1080 NV12 frame in, the app's state read, crop, measurement, ring buffer, blur and SR,
// metadata published. Frames are rendered before timing; each request is timed on its own and
// the median and 90th percentile are reported (a node is recreated, untimed, once it reaches its
// verdict). Log lines below error level are switched off, as on a production device; the
// "Logged" variant keeps info logging on with lines captured in memory.
//   request_bench --benchmark_filter=Request
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <vector>

#include "chihost/emulator/logcapture.h"
#include "chihost/emulator/nodesession.h"
#include "chilog.h"
#include "simframesource.h"

namespace
{

const int kFrameCount = 64;

class PrerenderedFrames
{
public:
    PrerenderedFrames()
    {
        simsource::SimFrameSource source(sim::OisOnScenario(0.95, 0.95));
        m_images.resize(kFrameCount);
        m_buffers.resize(kFrameCount);
        for (int i = 0; i < kFrameCount; i++)
        {
            source.Simulator().Render(static_cast<uint32_t>(i), m_images[i]);
            const sim::Nv12Image& image = m_images[i];
            chihost::Nv12View     view{ static_cast<uint32_t>(image.width), static_cast<uint32_t>(image.height),
                                    static_cast<uint32_t>(image.stride), static_cast<uint32_t>(image.scanline),
                                    image.Luma(), image.Chroma() };
            m_buffers[i].Wrap(view, 0);
        }
    }

    chihost::InputProvider Provider()
    {
        return [this](UINT64 frameNum) {
            return std::vector<CHINODEBUFFERHANDLE>{ m_buffers[frameNum % kFrameCount].Handle() };
        };
    }

private:
    std::vector<sim::Nv12Image>       m_images;
    std::vector<chihost::ImageBuffer> m_buffers;
};

std::unique_ptr<chihost::NodeSession> OpenSession(PrerenderedFrames& frames)
{
    chihost::NodeSessionOptions options;
    options.nodeLibraryPath      = ZELK_NODE_LIBRARY;
    options.root.buildProperties = { { "persist.vendor.camera.oisgyrogain.w", "1.0,1.0" },
                                     { "vendor.debug.camera.oisAlgoPara", "1:0:0:0:4:60" } };
    std::unique_ptr<chihost::NodeSession> session(new chihost::NodeSession());
    if (!session->Open(options))
    {
        return nullptr;
    }
    session->SetInputProvider(frames.Provider());
    session->Step(); // the app's start request
    return session;
}

void SetLogging(bool infoOn)
{
    g_chiLogGroupEnable[ChiLogLevelInfo]    = infoOn ? 0xFFFFFFFF : 0;
    g_chiLogGroupEnable[ChiLogLevelVerbose] = infoOn ? 0xFFFFFFFF : 0;
    g_enableSystemLog                       = infoOn ? 1 : 0;
}

void RunRequests(benchmark::State& state, bool infoLogging)
{
    PrerenderedFrames   frames;
    chihost::LogCapture capture;
    auto                session = OpenSession(frames);
    if (!session)
    {
        state.SkipWithError("cannot open an emulated node session");
        return;
    }
    SetLogging(infoLogging);
    std::vector<double> requestUs;
    for (auto _ : state)
    {
        auto                   start  = std::chrono::steady_clock::now();
        chihost::RequestRecord record = session->Step();
        requestUs.push_back(std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count());
        if (chihost::IsFinalState(record.published.state))
        {
            state.PauseTiming();
            session.reset();
            capture.Clear();
            session = OpenSession(frames);
            SetLogging(infoLogging);
            state.ResumeTiming();
        }
    }
    std::sort(requestUs.begin(), requestUs.end());
    state.counters["median_us"] = requestUs[requestUs.size() / 2];
    state.counters["p90_us"]    = requestUs[requestUs.size() * 9 / 10];
}

void BM_RequestMeasuring(benchmark::State& state) { RunRequests(state, false); }
void BM_RequestMeasuringLogged(benchmark::State& state) { RunRequests(state, true); }

BENCHMARK(BM_RequestMeasuring)->Unit(benchmark::kMicrosecond)->Iterations(2000);
BENCHMARK(BM_RequestMeasuringLogged)->Unit(benchmark::kMicrosecond)->Iterations(2000);

} // namespace

BENCHMARK_MAIN();
