// The node's working folders at Initialize: the working directory is made when missing and, with
// image dumping on, the dump folder is emptied, removed and made again. Its log lines belong to
// PrepareDumpImage, the operation that runs them.
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "camxchinodezelkoisverify.h"
#include "oisverifylog.h"

namespace
{

const CHAR WorkingDirectory[] = "data/vendor/camera/oisverify/";
const CHAR DumpDirectory[]    = "data/vendor/camera/oisverify/dumpImage/";
const CHAR DumpFolderName[]   = "dumpImage"; // DumpDirectory within WorkingDirectory

// The directory tests pass this creation mode as the access mode. The platform rejects it, so a
// directory is never reported present and is always (re)created; the messages follow from that.
const int DirectoryMode = 0700;

// Removes every entry of the open dump folder as remove() would, but relative to the folder itself:
// a file or link is unlinked, an (empty) folder removed; nothing is recursed into.
void RemoveDumpFolderEntries(DIR* pDirectory)
{
    for (struct dirent* pEntry = readdir(pDirectory); NULL != pEntry; pEntry = readdir(pDirectory))
    {
        if ((0 == strcmp(pEntry->d_name, ".")) || (0 == strcmp(pEntry->d_name, "..")))
        {
            continue;
        }
        const std::string path    = std::string(DumpDirectory) + pEntry->d_name;
        const BOOL        removed = (0 == unlinkat(dirfd(pDirectory), pEntry->d_name, 0)) ||
                                    ((EISDIR == errno) && (0 == unlinkat(dirfd(pDirectory), pEntry->d_name, AT_REMOVEDIR)));
        if (removed)
        {
            OIS_LOG_INFO_IN("PrepareDumpImage", "rm %s ", path.c_str());
        }
        else
        {
            OIS_LOG_ERROR_IN("PrepareDumpImage", "rm %s fail", path.c_str());
        }
    }
}

} // namespace

BOOL ChiOisVerifyNode::PrepareDumpImage()
{
    BOOL failed = FALSE;
    if (0 == access(WorkingDirectory, DirectoryMode))
    {
        failed = TRUE;
    }
    else if (0 == mkdir(WorkingDirectory, DirectoryMode))
    {
        OIS_LOG_INFO("create dir %s", WorkingDirectory);
    }
    else
    {
        OIS_LOG_INFO("do not need create dir %s", WorkingDirectory);
        failed = TRUE;
    }

    if (1 != m_DumpImageProp)
    {
        return TRUE;
    }
    return (FALSE == RenewDumpDirectory(failed)) ? TRUE : FALSE;
}

// Empties, removes and recreates the dump directory; returns the failure flag afterwards. Nothing
// here follows a symbolic link: the folder is opened with O_NOFOLLOW, its entries are removed with
// unlinkat (a link entry loses the link, never its target), and a dump folder that is itself a
// link is removed as a link, so a link can never make the node empty or fill another folder.
BOOL ChiOisVerifyNode::RenewDumpDirectory(BOOL failed)
{
    const INT32 workFd = open(WorkingDirectory, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const INT32 dumpFd = (workFd >= 0) ? openat(workFd, DumpFolderName, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)
                                       : -1;
    DIR* pDirectory = (dumpFd >= 0) ? fdopendir(dumpFd) : NULL;
    if (NULL == pDirectory)
    {
        OIS_LOG_INFO_IN("PrepareDumpImage", "open dir fail errno = %d %s, do not need delete old files", errno,
                        DumpDirectory);
        failed = FALSE;
        if (dumpFd >= 0)
        {
            close(dumpFd);
        }
        RemoveDumpFolderLink(workFd);
    }
    else
    {
        RemoveDumpFolderEntries(pDirectory);
        closedir(pDirectory);
        if (0 == unlinkat(workFd, DumpFolderName, AT_REMOVEDIR))
        {
            OIS_LOG_INFO_IN("PrepareDumpImage", "rm %s ", DumpDirectory);
        }
    }

    if ((0 != access(DumpDirectory, DirectoryMode)) && (workFd >= 0) && (0 == mkdirat(workFd, DumpFolderName, DirectoryMode)))
    {
        OIS_LOG_INFO_IN("PrepareDumpImage", "create dir %s", DumpDirectory);
        failed = FALSE;
    }
    else
    {
        OIS_LOG_ERROR_IN("PrepareDumpImage", "create dir %s fail", DumpDirectory);
    }
    if (workFd >= 0)
    {
        close(workFd);
    }
    return failed;
}

// A dump folder that is a symbolic link is removed as the link, so that the real folder is made
// in its place; any other non-folder is left for the folder creation to fail on.
void ChiOisVerifyNode::RemoveDumpFolderLink(INT32 workFd)
{
    struct stat status;
    if ((workFd < 0) || (0 != fstatat(workFd, DumpFolderName, &status, AT_SYMLINK_NOFOLLOW)) || !S_ISLNK(status.st_mode))
    {
        return;
    }
    if (0 == unlinkat(workFd, DumpFolderName, 0))
    {
        OIS_LOG_INFO_IN("PrepareDumpImage", "rm %s ", DumpDirectory);
    }
    else
    {
        OIS_LOG_ERROR_IN("PrepareDumpImage", "rm %s fail", DumpDirectory);
    }
}
