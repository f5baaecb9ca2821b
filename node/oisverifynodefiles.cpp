// Node output files that never block and never leave the folder; see oisverifynodefiles.h.
#include "oisverifynodefiles.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

const mode_t OutputFileMode = 0644;

} // namespace

FILE* OpenNodeOutputFile(const CHAR* pPath)
{
    // O_NONBLOCK keeps the open of a FIFO from waiting for a reader; it is cleared again before
    // the stream is made, so writes to the regular file behave as usual.
    const INT32 flags = O_WRONLY | O_CREAT | O_TRUNC | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC;
    const INT32 fd    = open(pPath, flags, OutputFileMode);
    if (fd < 0)
    {
        return NULL;
    }
    struct stat status;
    FILE*       pFile = NULL;
    if ((0 == fstat(fd, &status)) && S_ISREG(status.st_mode) && (0 == fcntl(fd, F_SETFL, 0)))
    {
        pFile = fdopen(fd, "wb");
    }
    if (NULL == pFile)
    {
        close(fd);
    }
    return pFile;
}

BOOL IsPlainFileOrAbsent(const CHAR* pPath)
{
    struct stat status;
    if (0 != lstat(pPath, &status))
    {
        return (ENOENT == errno) ? TRUE : FALSE;
    }
    return S_ISREG(status.st_mode) ? TRUE : FALSE;
}
