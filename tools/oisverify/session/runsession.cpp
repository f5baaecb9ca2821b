// One verification session; see runsession.h and referencesession.h.
#include "session/runsession.h"

#include <stdio.h>
#include <time.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <thread>

#include "cli/calibrationoptions.h"
#include "chihost/emulator/nodesession.h"
#include "session/framesources.h"
#include "session/referencesession.h"
#include "session/stoprequest.h"
#include "sim/debugimages.h"
#include "simframesource.h"
#include "verdict/calibrationresult.h"

namespace oisverify
{

namespace fs = std::filesystem;

namespace
{

const char kNodeOutputFolder[]  = "/data/vendor/camera/oisverify";
const char kPointPositionFile[] = "oisVerify_point_position.txt";
const char kDebugImageFolder[]  = "/data/vendor/camera/ois";
const char kCalibLogFile[]      = "oisGyroGainCalibrate.txt";
// The node's states while it sets, settles and measures a gain target.
constexpr int32_t kFirstTargetState = 21;
constexpr int32_t kLastTargetState  = 23;
// How often a taken socket name is tried again while waiting for it.
constexpr std::chrono::milliseconds kSocketRetryInterval(100);
// Debug images beyond the frames for a verdict, so that failed frames never make the node cycle
// back to an image it measured already.
constexpr uint32_t kSpareDebugImages = 8;

// CPU time of the calling thread in seconds.
double ThreadCpuSeconds()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

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
    chihost::Status StartService();
    void            CollectCalibration(const fs::path& nodeOutput);
    ProgressInfo    Progress(const chihost::RequestRecord& record) const;
    void            PairWithTruth();
    void            ReleaseRoot();

    const RunConfig&                             m_config;
    RunResult&                                   m_result;
    NodeLogTap                                   m_tap; // before the session: it must see the node load
    std::unique_ptr<simsource::SimFrameSource>   m_simulated;
    std::unique_ptr<simsource::ClosedLoopModule> m_loop; // the module on the service's gains
    std::unique_ptr<StaticFrame>                 m_static;
    ReplayFrames                                 m_replay;
    std::vector<sim::FrameTruth>                 m_debugTruths;
    chihost::NodeSession                         m_session;
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
    if (m_simulated && m_config.calibration.enabled)
    {
        m_loop.reset(new simsource::ClosedLoopModule(*m_simulated, m_config.calibration.fuseId));
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
    // The service maps the persist file under the device root, which exists only from here on.
    status = m_loop ? StartService() : chihost::Status::Ok();
    if (!status)
    {
        m_session.Close();
        ReleaseRoot();
        return status;
    }
    chihost::InputProvider provider = m_loop        ? m_loop->Provider()
                                      : m_simulated ? m_simulated->Provider()
                                      : m_static    ? m_static->Provider()
                                                    : m_replay.Provider();
    m_session.SetInputProvider([provider, this](UINT64 frameNum) {
        const double start  = ThreadCpuSeconds();
        auto         inputs = provider(frameNum);
        m_result.timing.sourceS += ThreadCpuSeconds() - start;
        return inputs;
    });
    return status;
}

// The socket name is the device's, one per machine: another calibration run or test may hold it
// for a while, so wait for it before giving up.
chihost::Status SessionRunner::StartService()
{
    const CalibrationConfig& calibration = m_config.calibration;
    const std::string        socket =
        calibration.socketName.empty() ? chihost::kCalibrationServiceSocketName : calibration.socketName;
    const auto  deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(calibration.socketWaitMs);
    std::string error;
    bool        told = false;
    while (!m_loop->Start(&error, socket))
    {
        if (StopSignal() != 0)
        {
            return chihost::Status::Error("interrupted by " + DescribeStopSignal(StopSignal()) +
                                          " while waiting for the calibration service's socket name");
        }
        if (std::chrono::steady_clock::now() >= deadline)
        {
            return chihost::Status::Error("cannot start the calibration service after waiting " +
                                          std::to_string(calibration.socketWaitMs / 1000) + " s: " + error +
                                          "; another calibration run or test holds the socket name @" + socket);
        }
        if (!told)
        {
            fprintf(stderr, "oisverify: the abstract socket @%s is taken; waiting up to %u s for it\n", socket.c_str(),
                    calibration.socketWaitMs / 1000);
            told = true;
        }
        std::this_thread::sleep_for(kSocketRetryInterval);
    }
    return chihost::Status::Ok();
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
    if (record.published.state >= kFirstTargetState && record.published.state <= kLastTargetState)
    {
        // Each target is measured afresh.
        info.targets     = events.targets;
        info.targetGainX = events.targetGainX;
        info.targetGainY = events.targetGainY;
        info.measured    = events.measured - events.measuredBeforeTarget;
        // The published SR belongs to the last target measured, which the node has already left
        // when the line is printed: it is shown as that target's. The verdicts are the base
        // gains' and one per measured target.
        info.hasSr = false;
        if (events.verdicts.size() >= 2)
        {
            info.measuredTarget  = static_cast<int32_t>(events.verdicts.size()) - 2;
            info.measuredHorSrDb = events.verdicts.back().horSrDb;
            info.measuredVerSrDb = events.verdicts.back().verSrDb;
        }
    }
    else if (events.targets != 0 && !events.verdicts.empty())
    {
        // The search is over: every verdict after the first measured one gain pair.
        info.measuredPairs = static_cast<uint32_t>(events.verdicts.size() - 1);
    }
    return info;
}

void SessionRunner::Stream(const ProgressSink& progress)
{
    double baseX = 0.0, baseY = 0.0;
    BaseGains(m_config, &baseX, &baseY);
    const uint64_t maxRequests =
        m_config.calibration.enabled
            ? MaxCalibrationRequests(m_config.params, m_config.calibration, std::min(baseX, baseY))
            : MaxRequests(m_config.params);
    chihost::RequestRecord  record;
    const double            start = ThreadCpuSeconds();
    while (m_result.requests < maxRequests)
    {
        if (StopSignal() != 0)
        {
            m_result.stopSignal = StopSignal();
            m_result.stopReason = "interrupted by " + DescribeStopSignal(m_result.stopSignal) + " after " +
                                  std::to_string(m_result.requests) + " frames, before the node reached a verdict";
            break;
        }
        if (m_config.source == FrameSource::Replay && m_result.requests >= m_replay.Count())
        {
            m_result.stopReason = "the replay folder ran out after " + std::to_string(m_replay.Count()) +
                                  " frames before the node reached a verdict";
            break;
        }
        record = m_session.Step();
        m_result.timing.nodeS += static_cast<double>(record.nodeCpuNs) * 1e-9;
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
    m_result.timing.streamS = ThreadCpuSeconds() - start;
    if (progress)
    {
        progress(Progress(record), true);
    }
}

// Pairs each measured frame with the truth of what the node measured: the simulator's frame of
// that number, or in debug mode the n-th debug image for the n-th measured frame. The truth of the
// ring's frames gives the SR the node should have found and the suppression of the applied shake.
void SessionRunner::PairWithTruth()
{
    const size_t          count = m_result.frames.size();
    std::vector<uint32_t> truthIndices(count, 0);
    for (size_t i = 0; i < count; i++)
    {
        RunFrame& frame = m_result.frames[i];
        if (m_simulated)
        {
            truthIndices[i] = frame.measured.frameNum;
            frame.truth     = m_simulated->Simulator().Truth(frame.measured.frameNum).CropCentres();
            frame.hasTruth  = true;
        }
        else if (!m_debugTruths.empty())
        {
            const sim::FrameTruth& truth = m_debugTruths[i % m_debugTruths.size()];
            truthIndices[i]              = truth.index;
            frame.truth                  = truth.CropCentres();
            frame.hasTruth               = true;
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
        const std::vector<uint32_t> ringIndices(truthIndices.end() - static_cast<std::ptrdiff_t>(ring),
                                                truthIndices.end());
        m_result.suppression = ShakeSuppression(m_config.scenario, ringIndices, m_result.truth);
    }
}

// The node's calibration log and the persist file, read before the root goes.
void SessionRunner::CollectCalibration(const fs::path& nodeOutput)
{
    CalibrationArtifacts& artifacts = m_result.calibration;
    artifacts.applied               = m_loop->Applied();
    artifacts.reloads               = m_loop->Service().ReloadCount();
    artifacts.calibLogText          = ReadFile((nodeOutput / kCalibLogFile).string());
    if (!artifacts.applied.empty())
    {
        artifacts.hasFinalTruth = true;
        artifacts.finalTruth =
            m_simulated->Simulator().TrueBlurSr(artifacts.applied.back().fromFrame, m_config.params.verdictFrames);
    }
    const fs::path persist =
        fs::path(m_result.rootPath) / fs::path(OISCalibrationFile::kPersistFilePath).relative_path();
    FILE* pFile = fopen(persist.c_str(), "rb");
    if (pFile != nullptr)
    {
        artifacts.persistRead = OISCalibrationFile::ReadPersistLines(pFile, &artifacts.persistLines);
        fclose(pFile);
        artifacts.hasPersistFile = true;
        artifacts.persistBytes   = ReadFile(persist.string());
    }
}

chihost::Status SessionRunner::Collect()
{
    if (m_loop)
    {
        m_loop->Stop();
    }
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
    if (m_loop)
    {
        CollectCalibration(nodeOutput);
        if (m_result.events.targets != 0 && m_result.events.hasSelection)
        {
            // After a search the SR that counts is the selection's, measured over earlier frames.
            MarkSelectedFrames(ParseCalibrationLog(m_result.calibration.calibLogText), m_result.events.selection,
                               m_config.params.verdictFrames, &m_result.frames);
        }
    }
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

chihost::Status RunSession(const RunConfig& config, const ProgressSink& progress, RunResult* pResult)
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
