// Putting a gyro gain pair into effect. The node never talks to the OIS driver: it stores the pair
// in the module's record of the calibration persist file and asks the device's calibration
// service, over an abstract local stream socket, to load its calibration files again. The service
// sends no reply. A failed notification is not an error for the caller once the file is written;
// the following frames show whether the gain took effect.
#include <errno.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <string>

#include "camxchinodezelkoisverify.h"
#include "oiscalibrationfile.h"
#include "oisverifylog.h"

namespace
{

const CHAR   CalibrationServiceSocket[] = "com.zelk.camx.loadCalibrationFiles";
// The whole message: no terminating zero, no line feed, no length prefix.
const CHAR   ReloadGyroGainMessage[]    = "gyrogain";
const SIZE_T ReloadGyroGainMessageBytes = sizeof(ReloadGyroGainMessage) - 1;
// The longest a request waits for the service to take the connection. A service that is up
// accepts at once; one whose queue stays full is stuck, and the gain is persisted anyway.
const INT64  ServiceConnectWaitNs       = 100 * 1000000LL;
const long   ServiceConnectRetryNs      = 2 * 1000000L;

INT64 MonotonicNs()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<INT64>(now.tv_sec) * 1000000000LL + now.tv_nsec;
}

// socket_local_client without its blocking connect: a local stream connect blocks while the
// listener's queue is full (a process that holds the name and never accepts), so the socket is
// non-blocking and a full queue is retried until ServiceConnectWaitNs has passed. -1 on failure.
int ConnectToServiceWithin()
{
    int socketFd = socket(AF_LOCAL, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (socketFd < 0)
    {
        return -1;
    }
    const INT64 deadlineNs = MonotonicNs() + ServiceConnectWaitNs;
    for (;;)
    {
        if (socket_local_client_connect(socketFd, CalibrationServiceSocket, ANDROID_SOCKET_NAMESPACE_ABSTRACT,
                                        SOCK_STREAM) >= 0)
        {
            return socketFd;
        }
        // A local connect either completes, fails, or finds the queue full (EAGAIN); it is never
        // left in progress.
        if (((EAGAIN != errno) && (EINTR != errno)) || (MonotonicNs() >= deadlineNs))
        {
            close(socketFd);
            return -1;
        }
        const timespec pause = { 0, ServiceConnectRetryNs };
        nanosleep(&pause, NULL);
    }
}

// Connects, sends the reload request and closes. Failures are printed, never returned: the gain
// is already persisted, and the service reads the file again whenever it next loads.
void NotifyCalibrationService()
{
    int socketFd = ConnectToServiceWithin();
    if (socketFd < 0)
    {
        printf("socket init failed\n");
        return;
    }
    // MSG_NOSIGNAL: a service that went away must not take the camera process down with SIGPIPE.
    // The socket is non-blocking: a full receive queue fails the send instead of waiting.
    ssize_t sent = send(socketFd, ReloadGyroGainMessage, ReloadGyroGainMessageBytes, MSG_NOSIGNAL);
    if (sent < 0)
    {
        printf("socket send failed\n");
    }
    close(socketFd);
}

} // namespace

INT32 ChiOisVerifyNode::ApplyGyroGain(INT32 roleId, FLOAT gainX, FLOAT gainY)
{
    if (NULL == m_pOisCalibFileManager)
    {
        OIS_LOG_ERROR("m_pOisCalibFileManager is NULL, please check");
        return 1;
    }

    // Reread first: the service or a tool may have changed other modules' records meanwhile.
    m_pOisCalibFileManager->ParsePersistFile();
    bool written = m_pOisCalibFileManager->OverwriteCalibrationData(std::to_string(roleId), gainX, gainY, 1);
    if (false == written)
    {
        OIS_LOG_ERROR("Write gain to persist file fail, ret = %d", written ? 1 : 0);
        return 1;
    }
    OIS_LOG_INFO("Write gain success, changed state to %d", static_cast<INT32>(GetOISVerifyState()));

    NotifyCalibrationService();
    return 0;
}
