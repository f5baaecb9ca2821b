// The emulated phone's OIS calibration service. On a device a vendor daemon owns the OIS
// calibration data; the node only writes the persist file and asks the daemon, over the abstract
// local stream socket "com.zelk.camx.loadCalibrationFiles", to load its calibration files again
// (the 8-byte message "gyrogain", then the client closes). This service plays the daemon: it
// loads the persist file when started and on every "gyrogain", checks each record's CRC, keeps
// the gains of the good records per fuse ID and hands them to whoever drives the module model
// (the simulator) through an accessor and an optional callback. A record whose CRC does not match
// is reported and not applied, so that module runs on its default gains, as on a device.
// Other messages are logged and ignored. The listener runs on its own thread between Start and
// Stop, which are called from one owning thread; the accessors are safe from any thread.
#ifndef ZELK_CHIHOST_SERVICES_CALIBRATIONSERVICE_H
#define ZELK_CHIHOST_SERVICES_CALIBRATIONSERVICE_H

#include <stdint.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace chihost
{

extern const char* const kCalibrationServiceSocketName; // "com.zelk.camx.loadCalibrationFiles"
extern const char* const kGyroGainReloadMessage;        // "gyrogain"

// The gains of one module, from its first good record in the persist file.
struct ModuleGyroGain
{
    std::string fuseId;
    bool        calibrated = false; // the record's flag is "1"
    float       gainX      = 0.0f;
    float       gainY      = 0.0f;
    int         line       = 0;     // 1-based line of the record in the file
};

// A line of the persist file that was not applied, and why.
struct RejectedPersistLine
{
    int         line = 0;
    std::string fuseId; // empty when the line is not a record at all
    std::string reason;
};

// What one load of the persist file gave.
struct CalibrationSnapshot
{
    uint64_t                              generation = 0;     // loads so far, the first one included
    bool                                  fileRead   = false; // false: no readable persist file
    std::map<std::string, ModuleGyroGain> gains;              // by fuse ID
    std::vector<RejectedPersistLine>      rejected;
};

// Reads a persist file: records whose stored CRC matches the computed one and whose gains are
// numbers become gains (the first record of a fuse ID wins); everything else is rejected with a
// reason. A missing or unreadable file gives no gains and fileRead false.
CalibrationSnapshot LoadCalibrationSnapshot(const std::string& path, uint64_t generation);

struct CalibrationServiceOptions
{
    // Tests may listen under another name so they do not compete for the device's name.
    std::string socketName = kCalibrationServiceSocketName;
    // Host path of the persist file; empty maps the device path under CHIHOST_DEVICE_ROOT at
    // every load.
    std::string persistPath;
    // Called after every load with its result: the first load on the thread calling Start, the
    // later ones on the service thread. It must not call Start or Stop.
    std::function<void(const CalibrationSnapshot&)> onLoad;
};

class CalibrationService
{
public:
    CalibrationService() = default;
    ~CalibrationService();
    CalibrationService(const CalibrationService&)            = delete;
    CalibrationService& operator=(const CalibrationService&) = delete;

    // Listens on the socket, loads the persist file once and starts the listener thread. False
    // with a message when already running or when the name cannot be bound (another listener).
    bool Start(const CalibrationServiceOptions& options, std::string* pError);
    // Stops the thread and closes every descriptor; a client being read is dropped. Idempotent.
    void Stop();
    bool IsRunning() const { return m_thread.joinable(); }

    CalibrationSnapshot Snapshot() const;
    // The current gains of a module; false when it has no applied record.
    bool GainsOf(const std::string& fuseId, ModuleGyroGain* pGains) const;
    // "gyrogain" messages handled (each one reloads the file), and other messages ignored.
    uint64_t ReloadCount() const;
    uint64_t IgnoredMessageCount() const;
    // Waits until at least count reloads were handled; false on timeout.
    bool WaitForReloadCount(uint64_t count, std::chrono::milliseconds timeout) const;
    // Waits until no client is waiting to be accepted and none is being served, so that every
    // message sent before the call has been handled; false on timeout. A client that connected
    // before the call is always seen: it is either still queued or already being served.
    bool WaitUntilIdle(std::chrono::milliseconds timeout) const;

private:
    void Run();
    void ServeClient(int clientFd);
    bool ReadMessage(int clientFd, std::string* pMessage) const;
    void Load();
    void SetServing(bool serving);

    CalibrationServiceOptions m_options;
    int                       m_listenFd = -1;
    int                       m_stopFd   = -1; // eventfd that wakes the thread to stop
    std::thread               m_thread;

    mutable std::mutex              m_mutex;
    mutable std::condition_variable m_changed;
    CalibrationSnapshot             m_snapshot;
    uint64_t                        m_reloadCount  = 0;
    uint64_t                        m_ignoredCount = 0;
    bool                            m_serving      = false; // set before accept, cleared after serving
};

} // namespace chihost

#endif // ZELK_CHIHOST_SERVICES_CALIBRATIONSERVICE_H
