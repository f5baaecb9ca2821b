// Rewriting the persist file without ever losing a record: under the folder's lock the file is
// read again (so records another writer stored since the caller's read are kept), the module's
// gains are stored, and the records go to a temporary file beside the real one that is flushed
// to the disk, given its mode and owner, and renamed over the old file; the folder is flushed
// last so the rename itself survives a power cut. A crash at any point leaves the old file or the
// new one, never a part of either. See oiscalibrationfile.h.
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "calibrationlog.h"
#include "devicepath.h"
#include "oiscalibrationfile.h"
#include "persistfileio.h"

namespace
{

const uid_t kPersistOwnerUid = 1000; // the system user, so the calibration service can read it
const gid_t kPersistOwnerGid = 1000;
const CHAR  kTemporarySuffix[] = ".tmp";

// Writes all bytes, resuming after short writes; false with errno set on an error.
bool WriteAll(int fd, const std::string& content)
{
    size_t done = 0;
    while (done < content.size())
    {
        ssize_t wrote = CurrentPersistFileIo().write(fd, content.data() + done, content.size() - done);
        if (wrote < 0 && errno == EINTR)
        {
            continue;
        }
        if (wrote <= 0)
        {
            if (wrote == 0)
            {
                errno = EIO;
            }
            return false;
        }
        done += static_cast<size_t>(wrote);
    }
    return true;
}

// Mode and owner of the new file, set through its descriptor (an owner change by path would
// follow a symbolic link planted there). Failures are printed, not fatal: the records are safe.
void SetModeAndOwner(int fd)
{
    if (0 != fchmod(fd, 0644))
    {
        printf("Error: fail to change permissions of %s to 0644: %s", OISCalibrationFile::kPersistFilePath,
               strerror(errno));
    }
    if (0 != fchown(fd, kPersistOwnerUid, kPersistOwnerGid))
    {
        fprintf(stderr, "Error changing group ownership of %s to %d: %s", OISCalibrationFile::kPersistFilePath,
                static_cast<int>(kPersistOwnerGid), strerror(errno));
    }
}

} // namespace

bool OISCalibrationFile::RewriteAttempt(const std::string& fuseId, FLOAT gainX, FLOAT gainY, INT32 enable,
                                        bool* pAbort)
{
    std::string folder;
    std::string name;
    SplitPersistPath(DevicePath(kPersistFilePath).Get(), &folder, &name);
    PersistFolderLock lock;
    switch (lock.Acquire(folder))
    {
        case PersistFolderLock::Result::NoFolder:
            CAL_LOG_ERROR("failed to open file %s\n", kPersistFilePath);
            return false;
        case PersistFolderLock::Result::Busy:
            CAL_LOG_ERROR("persist file %s stays locked by another writer; attempt failed\n", kPersistFilePath);
            return false;
        case PersistFolderLock::Result::Locked: break;
    }
    std::vector<OISCalData> current;
    if (ReadResult::Read != ReadRecords(&current, false))
    {
        // Rewriting from what could be read would drop every record after the fault.
        CAL_LOG_ERROR("persist file %s not rewritten: it cannot be read in full\n", kPersistFilePath);
        *pAbort = true;
        return false;
    }
    m_calData = current;
    StoreGains(fuseId, gainX, gainY, enable);
    return WriteAndReplace(lock.FolderFd(), name);
}

bool OISCalibrationFile::WriteAndReplace(int folderFd, const std::string& name) const
{
    // Only lock holders write the temporary file, so one left over is a dead writer's.
    const std::string temporary = name + kTemporarySuffix;
    unlinkat(folderFd, temporary.c_str(), 0);
    int fd = openat(folderFd, temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
    if (fd < 0)
    {
        CAL_LOG_ERROR("failed to open file %s\n", kPersistFilePath);
        return false;
    }
    std::string content;
    for (const OISCalData& record : m_calData)
    {
        const std::string line = FormatRecordLine(record);
        CAL_LOG_INFO("write data: %s", line.c_str());
        content += line;
    }
    bool        written = WriteAll(fd, content);
    const int   error   = errno;
    if (!written)
    {
        CAL_LOG_ERROR(((ENOSPC == error) || (EDQUOT == error)) ? "not enough space to rewrite %s: %s\n"
                                                                 : "failed to write file %s: %s\n",
                      kPersistFilePath, strerror(error));
    }
    else
    {
        SetModeAndOwner(fd);
        written = (0 == fsync(fd));
        if (!written)
        {
            CAL_LOG_ERROR("failed to flush file %s: %s\n", kPersistFilePath, strerror(errno));
        }
    }
    struct stat status = {};
    if (0 != fstat(fd, &status))
    {
        status.st_size = 0;
    }
    close(fd);
    if (written)
    {
        CAL_LOG_DEBUG("%s file size = %ld\n", kPersistFilePath, static_cast<long>(status.st_size));
        // Only the low 32 bits of the size are looked at.
        written = (0 != static_cast<UINT32>(status.st_size));
    }
    if (written && (0 != CurrentPersistFileIo().renameAt(folderFd, temporary.c_str(), folderFd, name.c_str())))
    {
        CAL_LOG_ERROR("failed to replace %s: %s\n", kPersistFilePath, strerror(errno));
        written = false;
    }
    if (!written)
    {
        unlinkat(folderFd, temporary.c_str(), 0);
        return false;
    }
    if (0 != fsync(folderFd))
    {
        // The new file is in place; only its survival of a power cut right now is uncertain.
        CAL_LOG_ERROR("failed to flush the folder of %s: %s\n", kPersistFilePath, strerror(errno));
    }
    return true;
}
