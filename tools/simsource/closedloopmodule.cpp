// The shake-table module closed over the calibration service; see closedloopmodule.h.
#include "closedloopmodule.h"

#include <stdio.h>

namespace simsource
{

namespace
{
// Longest a reload may take before a frame is rendered anyway (and the session then differs).
const std::chrono::milliseconds kServiceIdleTimeout(5000);
} // namespace

std::string FuseIdPropertyValue(const std::string& fuseId)
{
    char length[8];
    snprintf(length, sizeof(length), "%04zu", fuseId.size());
    return std::string("FUSE") + length + fuseId;
}

ClosedLoopModule::ClosedLoopModule(SimFrameSource& source, const std::string& fuseId)
    : m_source(source), m_fuseId(fuseId)
{
}

ClosedLoopModule::~ClosedLoopModule()
{
    Stop();
}

bool ClosedLoopModule::Start(std::string* pError, const std::string& socketName)
{
    chihost::CalibrationServiceOptions options;
    options.socketName = socketName;
    options.onLoad     = [this](const chihost::CalibrationSnapshot& snapshot) { OnLoad(snapshot); };
    return m_service.Start(options, pError);
}

void ClosedLoopModule::Stop()
{
    m_service.Stop();
}

void ClosedLoopModule::OnLoad(const chihost::CalibrationSnapshot& snapshot)
{
    auto found = snapshot.gains.find(m_fuseId);
    if (found == snapshot.gains.end())
    {
        return;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    const AppliedGain gain{ m_nextFrame, found->second.gainX, found->second.gainY };
    if (!m_applied.empty() && m_applied.back().gainX == gain.gainX && m_applied.back().gainY == gain.gainY)
    {
        return;
    }
    m_applied.push_back(gain);
    m_source.Simulator().SetGyroGains(gain.gainX, gain.gainY, gain.fromFrame);
}

chihost::InputProvider ClosedLoopModule::Provider()
{
    return [this](UINT64 frameNum) {
        if (m_service.IsRunning() && !m_service.WaitUntilIdle(kServiceIdleTimeout))
        {
            fprintf(stderr, "chihost: the calibration service is still busy; frame %llu rendered anyway\n",
                    static_cast<unsigned long long>(frameNum));
        }
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_nextFrame = static_cast<uint32_t>(frameNum) + 1;
        }
        CHINODEBUFFERHANDLE handle = m_source.Frame(static_cast<uint32_t>(frameNum));
        return (handle != nullptr) ? std::vector<CHINODEBUFFERHANDLE>{ handle } : std::vector<CHINODEBUFFERHANDLE>{};
    };
}

std::vector<AppliedGain> ClosedLoopModule::Applied() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_applied;
}

} // namespace simsource
