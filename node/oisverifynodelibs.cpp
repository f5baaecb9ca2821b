// Bindings made at set-up: the logical camera table (which system property holds the module's
// current gyro gains, and those gains), the OIS measurement library, and the debug images that
// replace camera frames in debug mode (all read once so no file access happens per frame).
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "camxchinodezelkoisverify.h"
#include "camxosutils.h"
#include "devicepath.h"
#include "oisverifylog.h"

namespace
{

const CHAR AlgoVersion[]        = "V1.0";
const CHAR DebugImageDirectory[] = "/data/vendor/camera/ois";

BOOL IsDebugImageName(const CHAR* pName)
{
    const CHAR* pExtension = strrchr(pName, '.');
    if (NULL == pExtension)
    {
        return FALSE;
    }
    return ((0 == strcmp(pExtension, ".yuv")) || (0 == strcmp(pExtension, ".YUV420NV12"))) ? TRUE : FALSE;
}

// Reads up to bytes bytes into pBuffer, stopping early at the end of the file or an error.
void ReadUpTo(INT32 fd, UINT8* pBuffer, SIZE_T bytes)
{
    SIZE_T offset = 0;
    while (offset < bytes)
    {
        const ssize_t got = read(fd, pBuffer + offset, bytes - offset);
        if ((got < 0) && (EINTR == errno))
        {
            continue;
        }
        if (got <= 0)
        {
            return;
        }
        offset += static_cast<SIZE_T>(got);
    }
}

} // namespace

BOOL ChiOisVerifyNode::ReadEEpromGyroGainProp()
{
    m_hLogicalCameraTableLib = CamX::OsUtils::LibMap(LOGICAL_CAMERA_TABLE_LIBRARY_PATH);
    if (NULL == m_hLogicalCameraTableLib)
    {
        return FALSE;
    }
    OIS_LOG_VERBOSE("Opened chxlogicalcameratable library");

    PFNGETLOGICALCAMERATABLE pGetTable = reinterpret_cast<PFNGETLOGICALCAMERATABLE>(
        CamX::OsUtils::LibGetAddr(m_hLogicalCameraTableLib, LOGICAL_CAMERA_TABLE_SYMBOL));
    if (NULL == pGetTable)
    {
        return FALSE;
    }
    OIS_LOG_VERBOSE("CHI obtained mGetLogicalCameraTable point function");

    m_pLogicalCameraTable = pGetTable();
    if (NULL == m_pLogicalCameraTable)
    {
        return FALSE;
    }
    OIS_LOG_VERBOSE("CHI context functions - m_pLogicalCameraTable  %p", static_cast<void*>(m_pLogicalCameraTable));

    const GyroGainPropertyTable* pRoleTable = m_pLogicalCameraTable->GetGyroGainPropertyTable();
    if (NULL == pRoleTable)
    {
        return FALSE;
    }
    auto entry = pRoleTable->roleToProperty.find(static_cast<UINT32>(m_oisCalibPara.roleId));
    if ((pRoleTable->roleToProperty.end() == entry) || (NULL == entry->second))
    {
        return FALSE;
    }

    // The property holds "gainX,gainY"; each side is converted on its own (conversion failures
    // are not caught).
    CHAR        gainText[PROPERTY_VALUE_MAX] = { 0 };
    INT         length = property_get(entry->second, gainText, "");
    const CHAR* pComma = strchr(gainText, ',');
    if ((length < 1) || (NULL == pComma))
    {
        OIS_LOG_ERROR("Get gain prop %s fail, please check!", gainText);
        return FALSE;
    }
    m_baseGainX = std::stof(std::string(gainText, static_cast<size_t>(pComma - gainText)));
    m_baseGainY = std::stof(std::string(pComma + 1));
    OIS_LOG_INFO("Get gain prop info %s:%s gainX = %.2f gainY = %.2f", entry->second, gainText, m_baseGainX, m_baseGainY);
    return TRUE;
}

BOOL ChiOisVerifyNode::ImportOISHighFpsAlgo()
{
    m_hOisHighFpsLib = CamX::OsUtils::LibMap(OIS_HIGH_FPS_LIBRARY_PATH);
    if (NULL == m_hOisHighFpsLib)
    {
        OIS_LOG_ERROR("m_pOisHighFpsAlgo library open failed");
        m_pOisHighFpsAlgo = NULL;
        return FALSE;
    }
    OIS_LOG_INFO("OisVerify node Opened OisHighFpsAlgo library");

    m_pOisHighFpsAlgo = reinterpret_cast<PFNOISHIGHFPS>(CamX::OsUtils::LibGetAddr(m_hOisHighFpsLib, OIS_HIGH_FPS_SYMBOL));
    if (NULL == m_pOisHighFpsAlgo)
    {
        return FALSE;
    }
    OIS_LOG_INFO("OisVerify node functions m_pOisHighFpsAlgo:%p version is:%s",
                 reinterpret_cast<void*>(m_pOisHighFpsAlgo), AlgoVersion);
    return TRUE;
}

BOOL ChiOisVerifyNode::ReadDebugImage()
{
    DIR* pDirectory = opendir(DevicePath(DebugImageDirectory).Get());
    if (NULL == pDirectory)
    {
        OIS_LOG_ERROR("open dir failed errno = %d", errno);
        return FALSE;
    }
    for (struct dirent* pEntry = readdir(pDirectory); NULL != pEntry; pEntry = readdir(pDirectory))
    {
        if ((0 == strcmp(pEntry->d_name, ".")) || (0 == strcmp(pEntry->d_name, "..")))
        {
            continue;
        }
        if (TRUE == IsDebugImageName(pEntry->d_name))
        {
            fileVector.push_back(pEntry->d_name);
        }
    }

    // Plain byte-wise order: frame numbers need leading zeros to sort numerically.
    std::sort(fileVector.begin(), fileVector.end());
    OIS_LOG_INFO("file vector size %d", static_cast<INT32>(fileVector.size()));

    // The files are opened relative to the scanned folder, so they are the entries just listed.
    m_imageIndex = 0;
    BOOL allRead = TRUE;
    for (const std::string& name : fileVector)
    {
        if (FALSE == ReadDebugImageFile(dirfd(pDirectory), name))
        {
            allRead = FALSE;
            break;
        }
    }
    closedir(pDirectory);
    return allRead;
}

// Keeps the first DebugImageBytes bytes of one debug image (all of a shorter one). The file is
// opened without blocking and without following a link, and anything but a regular file is
// refused like a file that cannot be opened: a FIFO would wait for a writer forever, a directory
// or device has no size to read, and a link may lead out of the folder.
BOOL ChiOisVerifyNode::ReadDebugImageFile(INT32 directoryFd, const std::string& name)
{
    const std::string path = std::string(DebugImageDirectory) + "/" + name;
    const INT32       fd   = openat(directoryFd, name.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0)
    {
        OIS_LOG_ERROR_IN("ReadDebugImage", "open %s failed, errno = %d", path.c_str(), errno);
        return FALSE;
    }
    struct stat status;
    if ((0 != fstat(fd, &status)) || !S_ISREG(status.st_mode))
    {
        OIS_LOG_ERROR_IN("ReadDebugImage", "open %s failed, not a regular file", path.c_str());
        close(fd);
        return FALSE;
    }

    // Only the frame's luma square is ever used; a larger file is not read past it. A file that
    // shrank meanwhile keeps zeros where its bytes are missing.
    const SIZE_T fileSize = static_cast<SIZE_T>(status.st_size);
    const SIZE_T keep     = (fileSize < DebugImageBytes) ? fileSize : DebugImageBytes;
    UINT8*       pImage   = static_cast<UINT8*>(calloc((keep > 0) ? keep : 1, 1));
    if (NULL != pImage)
    {
        ReadUpTo(fd, pImage, keep);
    }
    close(fd);
    imageVector.push_back(pImage);
    imageSizeVector.push_back((NULL != pImage) ? keep : 0);
    OIS_LOG_INFO_IN("ReadDebugImage", "read file %s  iamge = %p imageSize = %lld", path.c_str(),
                    static_cast<void*>(pImage), static_cast<long long>(status.st_size));
    return TRUE;
}
