// Set-up and tear-down of a node instance: construction, Initialize (test parameters from system
// properties, node properties, library bindings, working directories (oisverifynodefolders.cpp),
// ring buffer, text logs, calibration manager and EEPROM flag) and the destructor's release order.
#include <stdlib.h>
#include <string.h>

#include <cmath>
#include <limits>

#include "camxchinodezelkoisverify.h"
#include "camxosutils.h"
#include "camxsettingsmanager.h"
#include "chinodeutils.h"
#include "devicepath.h"
#include "oiscalibrationfile.h"
#include "oisverifylog.h"
#include "oisverifynodefiles.h"

namespace
{

const CHAR AlgoParaProperty[]       = "vendor.debug.camera.oisAlgoPara";
const CHAR AlgoParaDefault[]        = "1:0:0:120:4:60";
const CHAR GainCalibrateProperty[]  = "vendor.debug.camera.oisGainCalibrate";
const CHAR GainCalibrateDefault[]   = "0:0:18.0:0.05:0.2:10";
const CHAR PointPositionFile[]      = "/data/vendor/camera/oisverify/oisVerify_point_position.txt";
const CHAR CalibLogFile[]           = "/data/vendor/camera/oisverify/oisGyroGainCalibrate.txt";
const CHAR CalibLogBanner[]         = "///////////////// zelk OIS gyro gain calibrate /////////////////";
const CHAR EepromSection[]          = "org.codeaurora.qcamera3.sensor_meta_data";
const CHAR EepromTag[]              = "EEPROMInformation";
const CHAR GyroGainAndSRMatchName[] = "OISGyroGainAndSRMatch";

const UINT32 DelayedProcessingBit     = 0x800;
const UINT32 TextLineBytes            = 256;
const UINT32 DefaultDropFrameNum      = 100;
const UINT32 DefaultMinFrameCount     = 60;
const UINT32 DefaultMaxVerifyTimeMs   = 700;
const UINT32 DefaultTestFreqHz        = 4;
const INT32  DefaultTargetFps         = 60;
const INT32  FastFrameRate            = 60;
const DOUBLE FastRateDivisor          = 45.0;
const DOUBLE SlowRateDivisor          = 25.0;
// Most results a ring buffer may hold (72 bytes each): far above any test (two periods of a 1 Hz
// shake at 960 fps are 1921 frames), yet a rate or frequency typed wrong in the test parameters
// cannot make the camera process allocate gigabytes. A larger ring is refused like an empty one.
const UINT32 MaxRingBufferFrames      = 65536;

// Splits at every ':'; empty fields between colons are kept, an empty tail is dropped.
std::vector<std::string> SplitFields(const CHAR* pText)
{
    std::vector<std::string> fields;
    std::string              current;
    for (const CHAR* p = pText; '\0' != *p; ++p)
    {
        if (':' == *p)
        {
            fields.push_back(current);
            current.clear();
        }
        else
        {
            current.push_back(*p);
        }
    }
    if (!current.empty())
    {
        fields.push_back(current);
    }
    return fields;
}

// Field index or its default when the text has no such field. Conversion failures throw.
INT32 IntField(const std::vector<std::string>& fields, size_t index, INT32 fallback)
{
    return (index < fields.size()) ? std::stoi(fields[index]) : fallback;
}

FLOAT FloatField(const std::vector<std::string>& fields, size_t index)
{
    return (index < fields.size()) ? std::stof(fields[index]) : 0.0f;
}

// Float to integer truncation toward zero, saturating as the device's aarch64 conversion does,
// so out-of-range values give the same result on every build instead of undefined behaviour.
template <typename T>
T TruncateSaturating(DOUBLE value)
{
    if (std::isnan(value))
    {
        return 0;
    }
    if (value <= static_cast<DOUBLE>(std::numeric_limits<T>::min()))
    {
        return std::numeric_limits<T>::min();
    }
    if (value >= static_cast<DOUBLE>(std::numeric_limits<T>::max()))
    {
        return std::numeric_limits<T>::max();
    }
    return static_cast<T>(value);
}

// The two text logs go through the host's file helper, as on a device, once the name is known to
// hold no FIFO, special file or link: opening a FIFO for writing waits for a reader, and a link
// leads out of the node's folder. Refused like a file that cannot be created (NULL).
FILE* OpenTextLog(const CHAR* pDevicePath)
{
    const DevicePath path(pDevicePath);
    return (TRUE == IsPlainFileOrAbsent(path.Get())) ? ChiNodeUtils::FOpen(path.Get(), "w") : NULL;
}

} // namespace

ChiOisVerifyNode::ChiOisVerifyNode()
    : m_hChiSession(NULL), m_nodeId(0), m_nodeInstanceId(0), m_nodeFlags(0),
      m_pCreatePrivateData(NULL), m_isDebugMode(0), m_DumpImageProp(0), m_dropFrameNum(0),
      m_oisTestFreq(0), m_targetFps(0), m_minFrameCount(0), m_maxVerifyTime(0),
      m_execAlgoFrameNum(0), m_skipAlgoFrameNum(0), m_algoReturn(0), m_execTimestamp(0),
      m_cropLength(0), m_blurValid(0), m_algoFps(0.0f), m_verifyDurationMs(0), m_pointBlur(),
      m_oisCalibPara(), m_isGyroGainCalib(0), m_OISGyroGainAndSRMatch(0), m_baseGainX(0.0f),
      m_baseGainY(0.0f), m_gainTargetSet(0), m_waitFrameCountdown(0), m_gainSRRecords(),
      m_selectedGain(), m_pOisCalibFileManager(NULL), m_hLogicalCameraTableLib(NULL),
      m_pLogicalCameraTable(NULL), m_hOisHighFpsLib(NULL), m_pOisHighFpsAlgo(NULL),
      m_algoResultBuffer(), m_BufferSize(0), m_algoResultCount(0), m_isBufferWrapped(0),
      fileVector(), imageVector(), imageSizeVector(), m_imageIndex(0),
      m_pPointPositionFile(NULL), m_calibLogFile(NULL), m_oisVerifyState(IdleState),
      m_stateMutex(), m_verifyResult(), m_isJsonGenerated(0), m_outputPortFlagStorage(),
      m_pIsRealTimePort(&m_outputPortFlagStorage[0]),
      m_pCanSetInputDependency(&m_outputPortFlagStorage[1]), m_outputWidth(0), m_outputHeight(0),
      m_flushResponseBaseMs(0)
{
    OIS_LOG_INFO("Create ChiOisVerifyNode");
}

ChiOisVerifyNode::~ChiOisVerifyNode()
{
    if (NULL != m_hLogicalCameraTableLib)
    {
        CamX::OsUtils::LibUnmap(m_hLogicalCameraTableLib);
        m_hLogicalCameraTableLib = NULL;
        m_pLogicalCameraTable    = NULL;
    }
    if (NULL != m_hOisHighFpsLib)
    {
        CamX::OsUtils::LibUnmap(m_hOisHighFpsLib);
        m_hOisHighFpsLib  = NULL;
        m_pOisHighFpsAlgo = NULL;
    }
    if (NULL != m_pPointPositionFile)
    {
        ChiNodeUtils::FClose(m_pPointPositionFile);
        m_pPointPositionFile = NULL;
    }
    if (NULL != m_calibLogFile)
    {
        ChiNodeUtils::FClose(m_calibLogFile);
        m_calibLogFile = NULL;
    }
    delete m_pOisCalibFileManager;
    m_pOisCalibFileManager = NULL;

    ReleaseDebugImages();
    std::vector<std::string>().swap(fileVector);
    std::vector<UINT8*>().swap(imageVector);
    std::vector<SIZE_T>().swap(imageSizeVector);
    std::vector<OISAlgoResult>().swap(m_algoResultBuffer);
    std::vector<OISGainSRRecord>().swap(m_gainSRRecords);
}

void ChiOisVerifyNode::ReleaseDebugImages()
{
    if (imageVector.empty())
    {
        return;
    }
    for (UINT8* pImage : imageVector)
    {
        if (NULL != pImage)
        {
            free(pImage);
        }
    }
    imageVector.clear();
    imageSizeVector.clear();
    fileVector.clear();
}

CDKResult ChiOisVerifyNode::Initialize(CHINODECREATEINFO* pCreateInfo)
{
    CDKResult result = CDKResultSuccess;

    m_hChiSession        = pCreateInfo->hChiSession;
    m_nodeId             = pCreateInfo->nodeId;
    m_nodeInstanceId     = pCreateInfo->nodeInstanceId;
    m_nodeFlags          = pCreateInfo->nodeFlags;
    m_pCreatePrivateData = pCreateInfo->pPrivateCreateData;

    m_DumpImageProp          = 0;
    m_isDebugMode            = 0;
    m_dropFrameNum           = DefaultDropFrameNum;
    m_execAlgoFrameNum       = 0;
    m_skipAlgoFrameNum       = 0;
    m_algoReturn             = 0;
    m_minFrameCount          = DefaultMinFrameCount;
    m_maxVerifyTime          = DefaultMaxVerifyTimeMs;
    m_execTimestamp          = 0;
    m_baseGainX              = 0.0f;
    m_baseGainY              = 0.0f;
    m_pPointPositionFile     = NULL;
    m_calibLogFile           = NULL;
    m_hLogicalCameraTableLib = NULL;
    m_pLogicalCameraTable    = NULL;
    m_hOisHighFpsLib         = NULL;
    m_pOisHighFpsAlgo        = NULL;
    m_pOisCalibFileManager   = NULL;

    InitParam();
    ApplyNodeProperties(pCreateInfo);

    const CamX::SettingsManager* pSettingsManager = CamX::SettingsManager::GetInstance();
    const CamX::StaticSettings*  pSettings        =
        (NULL != pSettingsManager) ? pSettingsManager->GetStaticSettings() : NULL;
    m_isGyroGainCalib = ((NULL != pSettings) && pSettings->enableOISGyroGainCalibration) ? 1 : 0;

    if (FALSE == ReadEEpromGyroGainProp())
    {
        OIS_LOG_ERROR("Get gain prop fail, please check!");
        result = CDKResultEInvalidState;
    }
    if (FALSE == ImportOISHighFpsAlgo())
    {
        OIS_LOG_ERROR("m_pOisHighFpsAlgo library import failed");
        result = CDKResultEInvalidPointer;
    }
    if ((1 == m_isDebugMode) && imageVector.empty() && (FALSE == ReadDebugImage()))
    {
        OIS_LOG_ERROR("ReadDebugImage failed, please check data/vendor/camera/ois path");
    }
    if (FALSE == PrepareDumpImage())
    {
        OIS_LOG_ERROR("prepare dump image folder fail, please check");
    }
    InitializeAlgoResultBuffer();

    m_pPointPositionFile = OpenTextLog(PointPositionFile);
    OIS_LOG_INFO("Initialzie ringbuffer size = %d", m_BufferSize);

    if (1 == m_isGyroGainCalib)
    {
        m_pOisCalibFileManager = new OISCalibrationFile();
        OpenCalibrationOutputs();
        GetGyroGainSRMatchInfo();
    }

    SetOISVerifyState(StartState);
    return result;
}

void ChiOisVerifyNode::InitParam()
{
    InitAlgoParam();
    InitCalibParam();
}

void ChiOisVerifyNode::InitAlgoParam()
{
    CHAR propertyText[PROPERTY_VALUE_MAX] = { 0 };
    if (property_get(AlgoParaProperty, propertyText, AlgoParaDefault) < 1)
    {
        return;
    }

    // Field 0 is never read: each value sits one field further than its guard counts.
    const std::vector<std::string> fields = SplitFields(propertyText);
    m_isDebugMode   = IntField(fields, 1, 0);
    m_DumpImageProp = IntField(fields, 2, 0);
    m_dropFrameNum  = static_cast<UINT32>(IntField(fields, 3, 0));
    m_oisTestFreq   = static_cast<UINT32>(IntField(fields, 4, DefaultTestFreqHz));
    m_targetFps     = IntField(fields, 5, DefaultTargetFps);

    // Two shake periods of frames plus one, and the time they may take at a measured rate of
    // 45 fps (60 fps tests) or 25 fps (all others).
    if (0 != m_oisTestFreq)
    {
        DOUBLE frames   = (2.0f * static_cast<FLOAT>(m_targetFps)) / static_cast<FLOAT>(m_oisTestFreq) + 1.0;
        m_minFrameCount = TruncateSaturating<UINT32>(frames);
    }
    const DOUBLE divisor = (FastFrameRate == m_targetFps) ? FastRateDivisor : SlowRateDivisor;
    m_maxVerifyTime     = TruncateSaturating<UINT32>(static_cast<FLOAT>(m_minFrameCount * 1000u) / divisor);

    OIS_LOG_INFO_IN("InitParam",
                    "algoParaInfo: %s m_isDebugMode %d m_DumpImageProp %d m_dropFrameNum %d m_oisTestFreq %d "
                    "m_minFrameCount %d m_targetFps %d m_maxVerifyTime %d", propertyText, m_isDebugMode,
                    m_DumpImageProp, m_dropFrameNum, m_oisTestFreq, m_minFrameCount, m_targetFps, m_maxVerifyTime);
}

void ChiOisVerifyNode::InitCalibParam()
{
    m_oisCalibPara        = OISCalibPara();
    m_oisCalibPara.roleId = -1;

    CHAR propertyText[PROPERTY_VALUE_MAX] = { 0 };
    if (property_get(GainCalibrateProperty, propertyText, GainCalibrateDefault) < 1)
    {
        return;
    }

    const std::vector<std::string> fields = SplitFields(propertyText);
    m_oisCalibPara.roleId            = IntField(fields, 0, 0);
    m_oisCalibPara.calibSingleAxis   = IntField(fields, 1, 0);
    m_oisCalibPara.oisSpec           = FloatField(fields, 2);
    m_oisCalibPara.oisCalibGainStep  = FloatField(fields, 3);
    m_oisCalibPara.oisCalibGainLimit = FloatField(fields, 4);
    m_oisCalibPara.waitApplyFrameCnt = TruncateSaturating<INT32>(FloatField(fields, 5));

    OIS_LOG_INFO_IN("InitParam",
                    "oisPropInfo = %s m_oisCalibPara.roleId %d calibSingleAxis %d oisSpec %.2f oisCalibGainStep %.2f "
                    "oisCalibGainLimit %.2f waitApplyFrameCnt %d", propertyText, m_oisCalibPara.roleId,
                    m_oisCalibPara.calibSingleAxis, m_oisCalibPara.oisSpec, m_oisCalibPara.oisCalibGainStep,
                    m_oisCalibPara.oisCalibGainLimit, m_oisCalibPara.waitApplyFrameCnt);
}

// A node property whose value has bit 11 set asks for delayed-processing notification, which the
// node reports back through the host's create information.
void ChiOisVerifyNode::ApplyNodeProperties(CHINODECREATEINFO* pCreateInfo)
{
    if (NULL == pCreateInfo->pNodeProperties)
    {
        return;
    }
    for (UINT32 i = 0; i < pCreateInfo->nodePropertyCount; i++)
    {
        const void* pValue = pCreateInfo->pNodeProperties[i].pValue;
        if (NULL == pValue)
        {
            continue;
        }
        if (0 != (static_cast<UINT32>(atoi(static_cast<const CHAR*>(pValue))) & DelayedProcessingBit))
        {
            pCreateInfo->nodeFlags |= ChiNodeFlagDelayedProcessingNotify;
            OIS_LOG_INFO_IN("Initialize", "Delayed processing notifying enabled");
        }
    }
}

void ChiOisVerifyNode::InitializeAlgoResultBuffer()
{
    m_BufferSize      = m_minFrameCount;
    m_algoResultCount = 0;
    m_isBufferWrapped = 0;
    if ((0 == m_BufferSize) || (m_BufferSize > MaxRingBufferFrames))
    {
        OIS_LOG_ERROR("Initialzie m_algoResultBuffer failed, bufferSize = %d", m_BufferSize);
        return;
    }
    m_algoResultBuffer.resize(m_BufferSize, OISAlgoResult());
}

void ChiOisVerifyNode::OpenCalibrationOutputs()
{
    m_calibLogFile = OpenTextLog(CalibLogFile);
    if (NULL == m_calibLogFile)
    {
        OIS_LOG_ERROR_IN("Initialize", "create file %s fail", CalibLogFile);
        return;
    }
    OIS_LOG_INFO_IN("Initialize", "create file %s", CalibLogFile);
    CHAR line[TextLineBytes];
    ChiNodeUtils::SNPrintF(line, sizeof(line), "%s\n", CalibLogBanner);
    ChiNodeUtils::FWrite(line, strlen(line), 1, m_calibLogFile);
}

void ChiOisVerifyNode::GetGyroGainSRMatchInfo()
{
    m_OISGyroGainAndSRMatch = 0;

    CHIVENDORTAGBASEINFO baseInfo = { sizeof(CHIVENDORTAGBASEINFO), 0, EepromSection, EepromTag };
    if (NULL != g_chiNodeInterface.pGetVendorTagBase)
    {
        g_chiNodeInterface.pGetVendorTagBase(&baseInfo);
    }
    const EEPROMInformation* pEeprom = static_cast<const EEPROMInformation*>(
        ChiNodeUtils::GetMetaData(0, baseInfo.vendorTagBase | ChiMetadataStaticPool, ChiMetadataStatic,
                                  &g_chiNodeInterface, m_hChiSession, 0));
    if (NULL == pEeprom)
    {
        OIS_LOG_ERROR("can not get eeprom custom info OISGyroGainAndSRMatch");
        return;
    }

    const UINT32 count = (pEeprom->customInfoCount < EEPROMCustomInfoMaxCount) ?
                         pEeprom->customInfoCount : EEPROMCustomInfoMaxCount;
    for (UINT32 i = 0; i < count; i++)
    {
        const EEPROMCustomInfo& entry = pEeprom->customInfo[i];
        if (0 == strncmp(entry.name, GyroGainAndSRMatchName, sizeof(entry.name)))
        {
            m_OISGyroGainAndSRMatch = static_cast<INT32>(entry.value);
            OIS_LOG_INFO("get OISGyroGainAndSRMatch = %d from eeprom xml", m_OISGyroGainAndSRMatch);
            return;
        }
    }
}
