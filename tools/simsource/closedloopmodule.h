// A camera module on the shake table whose OIS runs on the gyro gains the calibration service
// accepted: the emulated phone's calibration service listens for the node's reload message,
// reads the persist file, and the module's gains change from the next frame on. Frames are
// rendered only once the service has handled every message sent before, so a session is the
// same on every run however the threads are scheduled.
#ifndef ZELK_TOOLS_SIMSOURCE_CLOSEDLOOPMODULE_H
#define ZELK_TOOLS_SIMSOURCE_CLOSEDLOOPMODULE_H

#include <mutex>
#include <string>
#include <vector>

#include "chihost/services/calibrationservice.h"
#include "simframesource.h"

namespace simsource
{

// The fuse-ID property text for a fuse ID: four ignored characters, the length in four digits,
// then the ID.
std::string FuseIdPropertyValue(const std::string& fuseId);

struct AppliedGain
{
    uint32_t fromFrame = 0;
    double   gainX     = 0.0;
    double   gainY     = 0.0;
};

class ClosedLoopModule
{
public:
    ClosedLoopModule(SimFrameSource& source, const std::string& fuseId);
    ~ClosedLoopModule();
    ClosedLoopModule(const ClosedLoopModule&)            = delete;
    ClosedLoopModule& operator=(const ClosedLoopModule&) = delete;

    // Starts the calibration service under the device's socket name (or another for tests).
    bool Start(std::string* pError, const std::string& socketName = chihost::kCalibrationServiceSocketName);
    void Stop();

    // The source's frames, each rendered after the service went idle.
    chihost::InputProvider Provider();

    std::vector<AppliedGain>           Applied() const;
    const chihost::CalibrationService& Service() const { return m_service; }

private:
    void OnLoad(const chihost::CalibrationSnapshot& snapshot);

    SimFrameSource&             m_source;
    std::string                 m_fuseId;
    chihost::CalibrationService m_service;
    mutable std::mutex          m_mutex;
    uint32_t                    m_nextFrame = 0;
    std::vector<AppliedGain>    m_applied;
};

} // namespace simsource

#endif // ZELK_TOOLS_SIMSOURCE_CLOSEDLOOPMODULE_H
