// The calibration service's listener: one thread that waits on the listening socket and on an
// eventfd that Stop signals, serves one client at a time (clients send a word and close), and
// reloads the persist file on "gyrogain". See calibrationservice.h.
#include "chihost/services/calibrationservice.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <string.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <android/log.h>
#include <cutils/sockets.h>

#include "devicepath.h"
#include "oiscalibrationfile.h"

namespace chihost
{

const char* const kCalibrationServiceSocketName = "com.zelk.camx.loadCalibrationFiles";
const char* const kGyroGainReloadMessage        = "gyrogain";

namespace
{

const char   kLogTag[]         = "OisCalibrationService";
// Longer messages are not ours; reading stops there so a client cannot make the service buffer
// without limit.
const size_t kMaxMessageBytes  = 64;
// A client sends its word and closes at once; one that keeps the connection open this long is
// served with what it sent so far.
const int    kClientTimeoutMs  = 1000;

// Printable form of a received message for the log: bytes outside ASCII graphics become \xNN.
std::string Printable(const std::string& message)
{
    std::string text;
    for (unsigned char c : message)
    {
        if (c >= 0x20 && c < 0x7F && c != '\\')
        {
            text.push_back(static_cast<char>(c));
        }
        else
        {
            char escaped[8];
            snprintf(escaped, sizeof(escaped), "\\x%02X", c);
            text += escaped;
        }
    }
    return text;
}

void CloseIfOpen(int* pFd)
{
    if (*pFd >= 0)
    {
        close(*pFd);
        *pFd = -1;
    }
}

} // namespace

CalibrationService::~CalibrationService()
{
    Stop();
}

bool CalibrationService::Start(const CalibrationServiceOptions& options, std::string* pError)
{
    if (IsRunning())
    {
        *pError = "the calibration service is already running";
        return false;
    }
    int listenFd = socket_local_server(options.socketName.c_str(), ANDROID_SOCKET_NAMESPACE_ABSTRACT, SOCK_STREAM);
    if (listenFd < 0)
    {
        *pError = "cannot listen on the abstract socket \"" + options.socketName + "\": " + strerror(errno);
        return false;
    }
    // The descriptors must not leak into programs the host process starts, and accept must never
    // block the thread once Stop is waiting for it.
    fcntl(listenFd, F_SETFD, FD_CLOEXEC);
    fcntl(listenFd, F_SETFL, fcntl(listenFd, F_GETFL) | O_NONBLOCK);
    int stopFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (stopFd < 0)
    {
        *pError = std::string("cannot create the service's stop event: ") + strerror(errno);
        close(listenFd);
        return false;
    }
    m_options  = options;
    m_listenFd = listenFd;
    m_stopFd   = stopFd;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_snapshot     = CalibrationSnapshot();
        m_reloadCount  = 0;
        m_ignoredCount = 0;
    }
    Load();
    m_thread = std::thread(&CalibrationService::Run, this);
    __android_log_print(ANDROID_LOG_INFO, kLogTag, "listening on @%s", m_options.socketName.c_str());
    return true;
}

void CalibrationService::Stop()
{
    if (!IsRunning())
    {
        return;
    }
    const uint64_t one = 1;
    if (write(m_stopFd, &one, sizeof(one)) != static_cast<ssize_t>(sizeof(one)))
    {
        __android_log_print(ANDROID_LOG_ERROR, kLogTag, "cannot signal the listener to stop: %s", strerror(errno));
    }
    m_thread.join();
    CloseIfOpen(&m_listenFd);
    CloseIfOpen(&m_stopFd);
    __android_log_print(ANDROID_LOG_INFO, kLogTag, "stopped listening on @%s", m_options.socketName.c_str());
}

void CalibrationService::Run()
{
    for (;;)
    {
        pollfd waits[2] = { { m_stopFd, POLLIN, 0 }, { m_listenFd, POLLIN, 0 } };
        if (poll(waits, 2, -1) < 0)
        {
            if (errno == EINTR)
            {
                continue;
            }
            __android_log_print(ANDROID_LOG_ERROR, kLogTag, "poll failed: %s; listener ends", strerror(errno));
            return;
        }
        if (waits[0].revents != 0)
        {
            return;
        }
        if (waits[1].revents == 0)
        {
            continue;
        }
        SetServing(true);
        int clientFd = accept4(m_listenFd, nullptr, nullptr, SOCK_CLOEXEC);
        if (clientFd < 0)
        {
            SetServing(false);
            // The client may have gone between poll and accept; anything else is reported.
            if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR && errno != ECONNABORTED)
            {
                __android_log_print(ANDROID_LOG_ERROR, kLogTag, "accept failed: %s", strerror(errno));
            }
            continue;
        }
        ServeClient(clientFd);
        close(clientFd);
        SetServing(false);
    }
}

// Reads until the client closes, kMaxMessageBytes arrive, the client times out or Stop is
// signalled. False when Stop interrupted the read.
bool CalibrationService::ReadMessage(int clientFd, std::string* pMessage) const
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kClientTimeoutMs);
    char       buffer[kMaxMessageBytes];
    while (pMessage->size() < kMaxMessageBytes)
    {
        auto remaining =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (remaining.count() <= 0)
        {
            break;
        }
        pollfd waits[2] = { { m_stopFd, POLLIN, 0 }, { clientFd, POLLIN, 0 } };
        int    ready    = poll(waits, 2, static_cast<int>(remaining.count()));
        if (ready < 0 && errno == EINTR)
        {
            continue;
        }
        if (ready < 0 || waits[0].revents != 0)
        {
            return false;
        }
        if (ready == 0)
        {
            break;
        }
        ssize_t got = read(clientFd, buffer, kMaxMessageBytes - pMessage->size());
        if (got < 0 && errno == EINTR)
        {
            continue;
        }
        if (got <= 0)
        {
            break;
        }
        pMessage->append(buffer, static_cast<size_t>(got));
    }
    return true;
}

void CalibrationService::ServeClient(int clientFd)
{
    std::string message;
    if (!ReadMessage(clientFd, &message))
    {
        return;
    }
    if (message == kGyroGainReloadMessage)
    {
        Load();
        std::lock_guard<std::mutex> lock(m_mutex);
        m_reloadCount++;
        m_changed.notify_all();
        return;
    }
    __android_log_print(ANDROID_LOG_WARN, kLogTag, "ignored unknown message \"%s\" (%zu bytes)",
                        Printable(message).c_str(), message.size());
    std::lock_guard<std::mutex> lock(m_mutex);
    m_ignoredCount++;
    m_changed.notify_all();
}

void CalibrationService::Load()
{
    const std::string path = m_options.persistPath.empty()
                                 ? std::string(DevicePath(OISCalibrationFile::kPersistFilePath).Get())
                                 : m_options.persistPath;
    uint64_t generation = 0;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        generation = m_snapshot.generation + 1;
    }
    CalibrationSnapshot snapshot = LoadCalibrationSnapshot(path, generation);
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_snapshot = snapshot;
    }
    if (m_options.onLoad)
    {
        m_options.onLoad(snapshot);
    }
}

CalibrationSnapshot CalibrationService::Snapshot() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_snapshot;
}

bool CalibrationService::GainsOf(const std::string& fuseId, ModuleGyroGain* pGains) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    auto                        found = m_snapshot.gains.find(fuseId);
    if (found == m_snapshot.gains.end())
    {
        return false;
    }
    *pGains = found->second;
    return true;
}

uint64_t CalibrationService::ReloadCount() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_reloadCount;
}

uint64_t CalibrationService::IgnoredMessageCount() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_ignoredCount;
}

void CalibrationService::SetServing(bool serving)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_serving = serving;
    m_changed.notify_all();
}

bool CalibrationService::WaitUntilIdle(std::chrono::milliseconds timeout) const
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;)
    {
        // Queue first, then the serving flag: the flag is raised before a client leaves the queue.
        pollfd pending = { m_listenFd, POLLIN, 0 };
        const bool queued = IsRunning() && (poll(&pending, 1, 0) > 0) && ((pending.revents & POLLIN) != 0);
        std::unique_lock<std::mutex> lock(m_mutex);
        if (!queued && !m_serving)
        {
            return true;
        }
        if (m_changed.wait_until(lock, std::min(deadline, std::chrono::steady_clock::now() +
                                                              std::chrono::milliseconds(2))) ==
                std::cv_status::timeout &&
            std::chrono::steady_clock::now() >= deadline)
        {
            return false;
        }
    }
}

bool CalibrationService::WaitForReloadCount(uint64_t count, std::chrono::milliseconds timeout) const
{
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, timeout, [&] { return m_reloadCount >= count; });
}

} // namespace chihost
