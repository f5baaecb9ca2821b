// The JSON report written once per node when a verification or calibration ends: report version,
// the algorithm's running environment and the results. Built, printed and freed with cJSON; its
// numbers use the report's own fixed text form (see ReportNumberText), which the factory line's
// tools parse.
#include <float.h>
#include <limits.h>
#include <math.h>
#include <stdlib.h>
#include <string.h>

#include <cjson/cJSON.h>

#include "camxchinodezelkoisverify.h"
#include "oisverifylog.h"
#include "oisverifynodefiles.h"

namespace
{

const CHAR ReportPath[]    = "data/vendor/camera/oisverify/oisVerify.json";
const CHAR ReportVersion[] = "V1.0";

// Everything the report shows, read once so the document is consistent.
struct ReportSnapshot
{
    INT32  algoInputSide;
    FLOAT  algoExecFps;
    INT32  isDumpImage;
    INT32  isDebugMode;
    INT32  dropFrameNum;
    UINT32 oisTestFreq;   // unsigned parameters show as unsigned: a frequency of "-4" reads 4294967292
    UINT32 minFrameCount;
    UINT32 maxVerifyTime;
    INT32  state;
    INT32  skipAlgoFrameNum;
    INT32  algoReturn;
    FLOAT  horSR;
    FLOAT  verSR;
    FLOAT  horBlur;
    FLOAT  verBlur;
    INT32  isGyroGainCalib;
    FLOAT  horGain;
    FLOAT  verGain;
};

// Number text of the report: 0 as "0"; integral values in the int32 range with %d; other
// integral values below 1e60 in magnitude with %.0f; magnitudes within [1e-6, 1e9] with %f
// (an SR of 0.85 reads 0.850000); everything else, NaN and infinities included, with %e.
void ReportNumberText(DOUBLE value, CHAR* pText, SIZE_T size)
{
    const DOUBLE magnitude = fabs(value);
    if (0.0 == value)
    {
        snprintf(pText, size, "0");
    }
    else if ((floor(value) == value) && (value >= INT_MIN) && (value <= INT_MAX))
    {
        snprintf(pText, size, "%d", static_cast<INT32>(value));
    }
    else if ((floor(value) == value) && (magnitude < 1.0e60))
    {
        snprintf(pText, size, "%.0f", value);
    }
    else if ((magnitude >= 1.0e-6) && (magnitude <= 1.0e9))
    {
        snprintf(pText, size, "%f", value);
    }
    else
    {
        snprintf(pText, size, "%e", value);
    }
}

// Gives every number item of the tree its report text. The item keeps its numeric value and
// becomes a raw item, which cJSON prints verbatim and frees with the tree.
void ApplyReportNumberText(cJSON* pItem)
{
    for (cJSON* pChild = (NULL != pItem) ? pItem->child : NULL; NULL != pChild; pChild = pChild->next)
    {
        if (cJSON_IsNumber(pChild))
        {
            CHAR text[512];
            ReportNumberText(pChild->valuedouble, text, sizeof(text));
            pChild->valuestring = static_cast<char*>(malloc(strlen(text) + 1));
            if (NULL != pChild->valuestring)
            {
                memcpy(pChild->valuestring, text, strlen(text) + 1);
                pChild->type = cJSON_Raw;
            }
        }
        else
        {
            ApplyReportNumberText(pChild);
        }
    }
}

cJSON* AddObject(cJSON* pParent, const CHAR* pName)
{
    cJSON* pObject = cJSON_CreateObject();
    cJSON_AddItemToObject(pParent, pName, pObject);
    return pObject;
}

void AddNumber(cJSON* pParent, const CHAR* pName, DOUBLE value)
{
    cJSON_AddItemToObject(pParent, pName, cJSON_CreateNumber(value));
}

cJSON* BuildReport(const ReportSnapshot& report)
{
    cJSON* pRoot = cJSON_CreateObject();
    cJSON_AddItemToObject(AddObject(pRoot, "Version"), "version", cJSON_CreateString(ReportVersion));

    cJSON* pEnv   = AddObject(pRoot, "AlgoRunningEnvInfo");
    cJSON* pInput = AddObject(pEnv, "algoInput");
    AddNumber(pInput, "width", report.algoInputSide);
    AddNumber(pInput, "height", report.algoInputSide);
    AddNumber(pInput, "algoExecFPS", report.algoExecFps);
    cJSON* pParam = AddObject(pEnv, "InitParam");
    AddNumber(pParam, "isDumpImage", report.isDumpImage);
    AddNumber(pParam, "isDebugMode", report.isDebugMode);
    AddNumber(pParam, "dropFrameNum", report.dropFrameNum);
    AddNumber(pParam, "oisStationFreq", report.oisTestFreq);
    AddNumber(pParam, "minFrameLimit", report.minFrameCount);
    AddNumber(pParam, "maxExecTime", report.maxVerifyTime);

    cJSON* pResult = AddObject(pRoot, "Result");
    cJSON* pSR     = AddObject(pResult, "SR");
    AddNumber(pSR, "oisVerifyState", report.state);
    AddNumber(pSR, "skipAlgoFrameNum", report.skipAlgoFrameNum);
    AddNumber(pSR, "algoReturnValue", report.algoReturn);
    AddNumber(pSR, "horSR", report.horSR);
    AddNumber(pSR, "verSR", report.verSR);
    AddNumber(pSR, "horBlur", report.horBlur);
    AddNumber(pSR, "verBlur", report.verBlur);
    cJSON* pGain = AddObject(pResult, "GyroGainCalibrate");
    AddNumber(pGain, "isGyroGainCalibrate", report.isGyroGainCalib);
    AddNumber(pGain, "horGain", report.horGain);
    AddNumber(pGain, "verGain", report.verGain);
    return pRoot;
}

} // namespace

void ChiOisVerifyNode::GenerateJson()
{
    if (0 != m_isJsonGenerated)
    {
        OIS_LOG_WARN("Json file has generated, m_oisVerifyState = %d", m_oisVerifyState.load(std::memory_order_relaxed));
        return;
    }

    // In calibration mode the report shows the selected gains and the SR they gave.
    const BOOL     calibrated = (0 != m_isGyroGainCalib) ? TRUE : FALSE;
    ReportSnapshot report     =
    {
        m_cropLength, m_algoFps, (0 != m_DumpImageProp) ? 1 : 0, (0 != m_isDebugMode) ? 1 : 0,
        static_cast<INT32>(m_dropFrameNum), m_oisTestFreq, m_minFrameCount, m_maxVerifyTime,
        m_oisVerifyState.load(std::memory_order_relaxed), static_cast<INT32>(m_skipAlgoFrameNum), m_algoReturn,
        calibrated ? m_selectedGain.srX : m_verifyResult.horSR,
        calibrated ? m_selectedGain.srY : m_verifyResult.verSR,
        m_verifyResult.horBlur, m_verifyResult.verBlur, m_isGyroGainCalib,
        calibrated ? m_selectedGain.gainX : m_baseGainX,
        calibrated ? m_selectedGain.gainY : m_baseGainY,
    };

    cJSON* pRoot = BuildReport(report);
    ApplyReportNumberText(pRoot);
    CHAR*  pText = cJSON_Print(pRoot);

    // Relative path: the report lands under the host process's working directory. A missing
    // folder means no report and no message; so does a FIFO, special file or link at its name.
    FILE* pFile = OpenNodeOutputFile(ReportPath);
    if (NULL != pFile)
    {
        if (NULL != pText)
        {
            fwrite(pText, 1, strlen(pText), pFile);
        }
        fclose(pFile);
    }
    cJSON_Delete(pRoot);
    free(pText);

    m_isJsonGenerated = 1;
    OIS_LOG_INFO("Generate json file, m_isGyroGainCalib = %d,  SR[%.2f, %.2f]", m_isGyroGainCalib, report.horSR, report.verSR);
}
