// Bindings made at set-up: the logical camera table (which system property holds the module's
// current gyro gains, and those gains), the OIS measurement library, and the debug images that
// replace camera frames in debug mode (all read once so no file access happens per frame).
#include <dirent.h>
#include <errno.h>
#include <stdlib.h>
#include <string.h>

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
    closedir(pDirectory);

    // Plain byte-wise order: frame numbers need leading zeros to sort numerically.
    std::sort(fileVector.begin(), fileVector.end());
    OIS_LOG_INFO("file vector size %d", static_cast<INT32>(fileVector.size()));

    m_imageIndex = 0;
    for (const std::string& name : fileVector)
    {
        if (FALSE == ReadDebugImageFile(name))
        {
            return FALSE;
        }
    }
    return TRUE;
}

BOOL ChiOisVerifyNode::ReadDebugImageFile(const std::string& name)
{
    const std::string path  = std::string(DebugImageDirectory) + "/" + name;
    FILE*             pFile = fopen(DevicePath(path.c_str()).Get(), "rb");
    long              size  = -1;
    if ((NULL != pFile) && (0 == fseek(pFile, 0, SEEK_END)))
    {
        size = ftell(pFile);
    }
    if ((NULL == pFile) || (size < 0) || (0 != fseek(pFile, 0, SEEK_SET)))
    {
        OIS_LOG_ERROR_IN("ReadDebugImage", "open %s failed, errno = %d", path.c_str(), errno);
        if (NULL != pFile)
        {
            fclose(pFile);
        }
        return FALSE;
    }

    // A file that shrank while being read keeps zeros where its bytes are missing.
    UINT8* pImage = static_cast<UINT8*>(calloc((size > 0) ? size : 1, 1));
    if (NULL != pImage)
    {
        (void)fread(pImage, 1, size, pFile);
    }
    fclose(pFile);
    imageVector.push_back(pImage);
    imageSizeVector.push_back((NULL != pImage) ? static_cast<SIZE_T>(size) : 0);
    OIS_LOG_INFO_IN("ReadDebugImage", "read file %s  iamge = %p imageSize = %d", path.c_str(),
                    static_cast<void*>(pImage), static_cast<INT32>(size));
    return TRUE;
}
