// Persist-file access that never blocks and never leaves a half-written file; see
// persistfileio.h.
#include "persistfileio.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>

namespace
{

ssize_t SystemRead(int fd, void* pBuffer, size_t bytes)
{
    return read(fd, pBuffer, bytes);
}

ssize_t SystemWrite(int fd, const void* pBuffer, size_t bytes)
{
    return write(fd, pBuffer, bytes);
}

int SystemRenameAt(int fromFolderFd, const char* pFrom, int toFolderFd, const char* pTo)
{
    return renameat(fromFolderFd, pFrom, toFolderFd, pTo);
}

const PersistFileIo kSystemIo = { SystemRead, SystemWrite, SystemRenameAt };
const PersistFileIo* g_pPersistIo = &kSystemIo;

// Between two tries of a busy lock; short against a rewrite, so a waiter gets its turn soon
// after the holder lets go.
const long kLockRetryNs = 1000000;

} // namespace

void SetPersistFileIo(const PersistFileIo* pIo)
{
    g_pPersistIo = (pIo != nullptr) ? pIo : &kSystemIo;
}

const PersistFileIo& CurrentPersistFileIo()
{
    return *g_pPersistIo;
}

bool PersistLineReader::Fill()
{
    if (m_atEnd || m_failed)
    {
        return false;
    }
    for (;;)
    {
        ssize_t got = m_source(m_buffer, sizeof(m_buffer));
        if (got < 0 && errno == EINTR)
        {
            continue;
        }
        if (got < 0)
        {
            m_failed = true;
            m_error  = errno;
            return false;
        }
        if (got == 0)
        {
            m_atEnd = true;
            return false;
        }
        m_begin = 0;
        m_end   = static_cast<size_t>(got);
        m_bytesRead += m_end;
        return true;
    }
}

bool PersistLineReader::Next(std::string* pLine, bool* pTooLong)
{
    pLine->clear();
    *pTooLong = false;
    bool any  = false;
    for (;;)
    {
        if (m_begin == m_end && !Fill())
        {
            // A last line without a line feed still counts; a read error ends the lines.
            return any && !m_failed;
        }
        any              = true;
        const char* pEnd = static_cast<const char*>(memchr(m_buffer + m_begin, '\n', m_end - m_begin));
        const size_t len = (pEnd != nullptr) ? static_cast<size_t>(pEnd - (m_buffer + m_begin)) : m_end - m_begin;
        const size_t room = kMaxPersistLineBytes - std::min(kMaxPersistLineBytes, pLine->size());
        if (len > room)
        {
            *pTooLong = true;
        }
        pLine->append(m_buffer + m_begin, std::min(len, room));
        m_begin += len;
        if (pEnd != nullptr)
        {
            m_begin++;
            return true;
        }
    }
}

PersistOpenResult OpenPersistForReading(const char* pPath, int* pFd, int* pError)
{
    *pFd    = -1;
    *pError = 0;
    int fd  = open(pPath, O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC);
    if (fd < 0)
    {
        *pError = errno;
        if (errno == ENOENT)
        {
            return PersistOpenResult::Missing;
        }
        // O_NOFOLLOW on a symbolic link fails with ELOOP.
        return (errno == ELOOP) ? PersistOpenResult::NotRegular : PersistOpenResult::Failed;
    }
    struct stat status = {};
    if (fstat(fd, &status) != 0)
    {
        *pError = errno;
        close(fd);
        return PersistOpenResult::Failed;
    }
    if (!S_ISREG(status.st_mode))
    {
        close(fd);
        return PersistOpenResult::NotRegular;
    }
    if (status.st_size < 0 || static_cast<unsigned long long>(status.st_size) > kMaxPersistFileBytes)
    {
        close(fd);
        return PersistOpenResult::TooLarge;
    }
    // Regular files never block; clear the flag so reads behave as usual.
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK);
    *pFd = fd;
    return PersistOpenResult::Opened;
}

PersistLineReader::Source DescriptorSource(int fd)
{
    return [fd](char* pBuffer, size_t bytes) { return CurrentPersistFileIo().read(fd, pBuffer, bytes); };
}

PersistFolderLock::~PersistFolderLock()
{
    if (m_folderFd >= 0)
    {
        close(m_folderFd); // releases the lock
    }
}

PersistFolderLock::Result PersistFolderLock::Acquire(const std::string& folder)
{
    m_folderFd = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (m_folderFd < 0)
    {
        return Result::NoFolder;
    }
    // Tried without blocking: a holder that never lets go must not hold the camera's request.
    timespec start = {};
    clock_gettime(CLOCK_MONOTONIC, &start);
    for (;;)
    {
        if (flock(m_folderFd, LOCK_EX | LOCK_NB) == 0)
        {
            return Result::Locked;
        }
        if (errno != EWOULDBLOCK && errno != EINTR)
        {
            return Result::Busy;
        }
        timespec now = {};
        clock_gettime(CLOCK_MONOTONIC, &now);
        const long long elapsedMs = (now.tv_sec - start.tv_sec) * 1000LL + (now.tv_nsec - start.tv_nsec) / 1000000;
        if (elapsedMs >= kLockWaitMs)
        {
            return Result::Busy;
        }
        const timespec pause = { 0, kLockRetryNs };
        nanosleep(&pause, nullptr);
    }
}

void SplitPersistPath(const std::string& path, std::string* pFolder, std::string* pName)
{
    const size_t slash = path.find_last_of('/');
    if (slash == std::string::npos)
    {
        *pFolder = ".";
        *pName   = path;
        return;
    }
    *pFolder = (slash == 0) ? "/" : path.substr(0, slash);
    *pName   = path.substr(slash + 1);
}
