// Test launcher for programs that use the calibration service's abstract socket name. Abstract
// names belong to a network namespace, so a program started in a namespace of its own never
// meets another process's service and such programs can run side by side. Where the process may
// not create a namespace (no root), the launcher instead waits for a machine-wide lock file and
// holds it (the descriptor survives the exec) until the program ends: one such program at a time.
//
//   zelk_socket_namespace PROGRAM [ARG...]
//
// ZELK_SOCKET_ISOLATION=lock forces the lock, to try the fallback on a machine that has both.
#include <errno.h>
#include <fcntl.h>
#include <sched.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

const char kLockPath[] = "/tmp/zelk-calibration-socket.lock";

bool HoldMachineLock()
{
    int fd = open(kLockPath, O_RDWR | O_CREAT, 0666);
    if (fd < 0)
    {
        fprintf(stderr, "zelk_socket_namespace: cannot open %s: %s\n", kLockPath, strerror(errno));
        return false;
    }
    fchmod(fd, 0666); // other users' test runs take the same lock
    while (flock(fd, LOCK_EX) != 0)
    {
        if (errno != EINTR)
        {
            fprintf(stderr, "zelk_socket_namespace: cannot lock %s: %s\n", kLockPath, strerror(errno));
            return false;
        }
    }
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2)
    {
        fprintf(stderr, "usage: zelk_socket_namespace PROGRAM [ARG...]\n");
        return 2;
    }
    const char* pForced = getenv("ZELK_SOCKET_ISOLATION");
    const bool  lockOnly = (pForced != nullptr) && (strcmp(pForced, "lock") == 0);
    if (lockOnly || unshare(CLONE_NEWNET) != 0)
    {
        if (!HoldMachineLock())
        {
            return 125;
        }
    }
    execv(argv[1], argv + 1);
    fprintf(stderr, "zelk_socket_namespace: cannot run %s: %s\n", argv[1], strerror(errno));
    return 127;
}
