// One verification session; see runsession.h.
#include "runsession.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>

#include "chihost/emulator/nodesession.h"
#include "framesources.h"
#include "sim/debugimages.h"
#include "simframesource.h"

namespace oisverify
{

namespace fs = std::filesystem;

namespace
{

const char kNodeOutputFolder[]  = "/data/vendor/camera/oisverify";
const char kPointPositionFile[] = "oisVerify_point_position.txt";
const char kDebugImageFolder[]  = "/data/vendor/camera/ois";
// Debug images beyond the frames for a verdict, so that failed frames never make the node cycle
// back to an image it measured already.
constexpr uint32_t kSpareDebugImages = 8;

std::string ReadFile(const std::string& path)
{
    std::ifstream      in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

class SessionRunner
{
public:
    SessionRunner(const RunConfig& config, RunResult* pResult)
        : m_config(config), m_result(*pResult), m_tap(config.echoLog)
    {
    }

    chihost::Status Prepare();
    chihost::Status Open();
    void            Stream(const ProgressSink& progress);
    chihost::Status Collect();

private:
    chihost::Status WriteDebugImages(chihost::DeviceRoot& root);
    ProgressInfo    Progress(const chihost::RequestRecord& record) const;
    void            PairWithTruth();
    void            ReleaseRoot();

    const RunConfig&                           m_config;
    RunResult&                                 m_result;
    NodeLogTap                                 m_tap; // before the session: it must see the node load
    std::unique_ptr<simsource::SimFrameSource> m_simulated;
    std::unique_ptr<StaticFrame>               m_static;
    ReplayFrames                               m_replay;
    std::vector<sim::FrameTruth>               m_debugTruths;
    chihost::NodeSession                       m_session;
};

// Frames first: a folder that cannot be replayed is the user's input problem, whatever the node.
chihost::Status SessionRunner::Prepare()
{
    chihost::Status status = chihost::Status::Ok();
    switch (m_config.source)
    {
    case FrameSource::Simulator: m_simulated.reset(new simsource::SimFrameSource(m_config.scenario)); break;
    case FrameSource::DebugImages: m_static.reset(new StaticFrame(m_config.layout)); break;
    case FrameSource::Replay: status = m_replay.Open(m_config.replayDir, m_config.layout); break;
    }
    // The first request only starts the test, so measuring begins at frame 1 at the earliest.
    const AlgoParams& params = m_config.params;
    const uint64_t    first  = std::max<uint64_t>(params.dropFrames, 1);
    const uint64_t    needed = first + params.verdictFrames + 1;
    if (status && m_config.source == FrameSource::Replay && m_replay.Count() < needed)
    {
        status = chihost::Status::Error(
            "replay folder " + m_config.replayDir + " holds " + std::to_string(m_replay.Count()) +
            " frames, but the node measures from frame " + std::to_string(first) + " on and needs " +
            std::to_string(params.verdictFrames + 1) + " measured frames: at least " + std::to_string(needed) +
            " frames (a smaller --drop may fit)");
    }
    m_result.nodeLibraryPath = m_config.device.nodeLibraryPath;
    if (status)
    {
        status = ResolveNodeLibrary(&m_result.nodeLibraryPath);
    }
    std::error_code error;
    if (status && !m_config.outDir.empty() && !fs::create_directories(m_config.outDir, error) && error)
    {
        status = chihost::Status::Error("cannot create output folder " + m_config.outDir + ": " + error.message());
    }
    return status;
}

chihost::Status SessionRunner::WriteDebugImages(chihost::DeviceRoot& root)
{
    const uint32_t count = m_config.params.verdictFrames + 1 + kSpareDebugImages;
    if (!sim::WriteDebugImages(m_config.scenario, root.Map(kDebugImageFolder), 0, count, &m_debugTruths))
    {
        return chihost::Status::Error("cannot write debug images into " + root.Map(kDebugImageFolder));
    }
    return chihost::Status::Ok();
}

chihost::Status SessionRunner::Open()
{
    chihost::NodeSessionOptions options;
    options.nodeLibraryPath = m_result.nodeLibraryPath;
    options.root            = m_config.device.root;
    // The root stays until the node's files are collected: the node closes its point-position
    // file only when it is destroyed, which closing the session does.
    options.root.keep   = true;
    options.host        = m_config.device.host;
    options.frameWidth  = m_config.layout.width;
    options.frameHeight = m_config.layout.height;
    options.frameRateHz = static_cast<double>(m_config.params.frameRateHz);
    // Runs as soon as the root exists, so that even a session that fails to open can remove it.
    options.prepareRoot = [this](chihost::DeviceRoot& root) {
        m_result.rootPath = root.Path();
        return (m_config.source == FrameSource::DebugImages) ? WriteDebugImages(root) : chihost::Status::Ok();
    };
    chihost::Status status = m_session.Open(options);
    m_tap.Drain();
    if (!status)
    {
        std::string message = status.Message();
        for (const std::string& line : m_tap.Events().errors)
        {
            message += "\n  node error: " + line;
        }
        m_session.Close();
        ReleaseRoot();
        return chihost::Status::Error(message);
    }
    m_session.SetInputProvider(m_simulated ? m_simulated->Provider()
                               : m_static  ? m_static->Provider()
                                           : m_replay.Provider());
    return status;
}

ProgressInfo SessionRunner::Progress(const chihost::RequestRecord& record) const
{
    const NodeEvents& events = m_tap.Events();
    ProgressInfo      info;
    info.frameNum   = record.frameNum;
    info.state      = record.published.state;
    info.dropFrames = m_config.params.dropFrames;
    info.measured   = events.measured;
    info.needed     = m_config.params.verdictFrames + 1;
    info.failed     = events.failed;
    info.hasSr      = events.hasSr;
    info.horSrDb    = record.published.horSR;
    info.verSrDb    = record.published.verSR;
    return info;
}

void SessionRunner::Stream(const ProgressSink& progress)
{
    const uint64_t          maxRequests = MaxRequests(m_config.params);
    chihost::RequestRecord  record;
    while (m_result.requests < maxRequests)
    {
        if (m_config.source == FrameSource::Replay && m_result.requests >= m_replay.Count())
        {
            m_result.stopReason = "the replay folder ran out after " + std::to_string(m_replay.Count()) +
                                  " frames before the node reached a verdict";
            break;
        }
        record = m_session.Step();
        m_tap.Drain();
        m_result.requests++;
        m_result.finalState = record.published.state;
        m_result.horSrDb    = record.published.horSR;
        m_result.verSrDb    = record.published.verSR;
        m_result.finished   = record.published.hasState && chihost::IsFinalState(record.published.state);
        if (!m_replay.ReadError().empty())
        {
            m_result.stopReason = m_replay.ReadError();
            break;
        }
        if (progress && !m_result.finished)
        {
            progress(Progress(record), false);
        }
        if (m_result.finished)
        {
            break;
        }
    }
    if (progress)
    {
        progress(Progress(record), true);
    }
}

// Pairs each measured frame with the truth of what the node measured: the simulator's frame of
// that number, or in debug mode the n-th debug image for the n-th measured frame.
void SessionRunner::PairWithTruth()
{
    const size_t count = m_result.frames.size();
    for (size_t i = 0; i < count; i++)
    {
        RunFrame& frame = m_result.frames[i];
        if (m_simulated)
        {
            frame.truth    = m_simulated->Simulator().Truth(frame.measured.frameNum).CropCentres();
            frame.hasTruth = true;
        }
        else if (!m_debugTruths.empty())
        {
            frame.truth    = m_debugTruths[i % m_debugTruths.size()].CropCentres();
            frame.hasTruth = true;
        }
    }
    // The ring holds the last saves; its spread is the SR the node published.
    const size_t ring = m_config.params.verdictFrames;
    if (!m_result.events.hasSr || ring == 0 || count < ring)
    {
        return;
    }
    std::vector<sim::FourCentres> window;
    for (size_t i = count - ring; i < count; i++)
    {
        m_result.frames[i].inRing = true;
        window.push_back(m_result.frames[i].truth);
    }
    m_result.hasTruth = m_result.frames.back().hasTruth;
    if (m_result.hasTruth)
    {
        m_result.truth = sim::ComputeBlurSr(window);
    }
}

chihost::Status SessionRunner::Collect()
{
    m_session.Close();
    m_tap.Drain();
    m_result.events  = m_tap.Events();
    m_result.logText = m_tap.Text();
    const fs::path  nodeOutput = fs::path(m_result.rootPath) / fs::path(kNodeOutputFolder).relative_path();
    std::error_code error;
    m_result.frames.clear();
    for (const MeasuredFrame& measured : ParsePointPositions(ReadFile((nodeOutput / kPointPositionFile).string())))
    {
        m_result.frames.push_back({ measured, false, {}, false });
    }
    PairWithTruth();
    chihost::Status status = chihost::Status::Ok();
    if (!m_config.outDir.empty())
    {
        for (fs::recursive_directory_iterator it(nodeOutput, error), end; !error && it != end; it.increment(error))
        {
            if (it->is_regular_file(error))
            {
                m_result.nodeFiles.push_back(fs::relative(it->path(), nodeOutput, error).string());
            }
        }
        fs::copy(nodeOutput, m_config.outDir, fs::copy_options::recursive | fs::copy_options::overwrite_existing,
                 error);
        if (error)
        {
            status = chihost::Status::Error("cannot copy the node's files into " + m_config.outDir + ": " +
                                            error.message());
        }
    }
    std::sort(m_result.nodeFiles.begin(), m_result.nodeFiles.end());
    ReleaseRoot();
    return status;
}

// A fresh root goes unless the user asked to keep it; a root the user named always stays.
void SessionRunner::ReleaseRoot()
{
    m_result.rootKept = m_config.device.root.keep || !m_config.device.root.existingPath.empty();
    std::error_code error;
    if (!m_result.rootKept && !m_result.rootPath.empty())
    {
        fs::remove_all(m_result.rootPath, error);
    }
}

} // namespace

chihost::Status RunVerification(const RunConfig& config, const ProgressSink& progress, RunResult* pResult)
{
    *pResult = RunResult();
    SessionRunner   runner(config, pResult);
    chihost::Status status = runner.Prepare();
    if (status)
    {
        status = runner.Open();
    }
    if (!status)
    {
        return status;
    }
    runner.Stream(progress);
    return runner.Collect();
}

} // namespace oisverify
