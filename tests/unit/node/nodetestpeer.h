// White-box access to a node for unit tests: sets the measured values a report shows and
// reaches the engine's private steps, without going through frames.
#ifndef ZELK_TESTS_UNIT_NODE_NODETESTPEER_H
#define ZELK_TESTS_UNIT_NODE_NODETESTPEER_H

#include "camxchinodezelkoisverify.h"
#include "oiscalibrationfile.h"

struct ChiOisVerifyNodeTestPeer
{
    struct Measurement
    {
        INT32  cropLength;
        FLOAT  algoFps;
        INT32  dumpImageProp;
        INT32  debugMode;
        UINT32 dropFrameNum;
        UINT32 testFreq;
        UINT32 minFrameCount;
        UINT32 maxVerifyTime;
        UINT32 skipFrames;
        INT32  algoReturn;
        FLOAT  horSR;
        FLOAT  verSR;
        FLOAT  horBlur;
        FLOAT  verBlur;
        FLOAT  baseGainX;
        FLOAT  baseGainY;
    };

    static void SetMeasurement(ChiOisVerifyNode& node, const Measurement& m)
    {
        node.m_cropLength       = m.cropLength;
        node.m_algoFps          = m.algoFps;
        node.m_DumpImageProp    = m.dumpImageProp;
        node.m_isDebugMode      = m.debugMode;
        node.m_dropFrameNum     = m.dropFrameNum;
        node.m_oisTestFreq      = m.testFreq;
        node.m_minFrameCount    = m.minFrameCount;
        node.m_maxVerifyTime    = m.maxVerifyTime;
        node.m_skipAlgoFrameNum = m.skipFrames;
        node.m_algoReturn       = m.algoReturn;
        node.m_verifyResult     = { 0, m.horSR, m.verSR, m.horBlur, m.verBlur };
        node.m_baseGainX        = m.baseGainX;
        node.m_baseGainY        = m.baseGainY;
    }

    static void SetCalibration(ChiOisVerifyNode& node, INT32 enabled, const OISSelectedGain& selected)
    {
        node.m_isGyroGainCalib = enabled;
        node.m_selectedGain    = selected;
    }

    static void SetSession(ChiOisVerifyNode& node, CHIHANDLE hSession) { node.m_hChiSession = hSession; }

    static std::mutex& StateMutex(ChiOisVerifyNode& node) { return node.m_stateMutex; }

    // The two per-port flag arrays as the node holds them (first: bit 1, second: bit 5).
    static UINT32 RealTimeFlag(const ChiOisVerifyNode& node, UINT32 port) { return node.m_pIsRealTimePort[port]; }
    static UINT32 InputDependencyFlag(const ChiOisVerifyNode& node, UINT32 port)
    {
        return node.m_pCanSetInputDependency[port];
    }
    static UINT32 OutputWidth(const ChiOisVerifyNode& node) { return node.m_outputWidth; }
    static UINT32 OutputHeight(const ChiOisVerifyNode& node) { return node.m_outputHeight; }

    static INT32 Crop(ChiOisVerifyNode& node, const UINT8* pInput, INT32 width, INT32 height, INT32 stride,
                      UINT8** ppOutput, INT32* pCropLength)
    {
        return node.CropImage(pInput, width, height, stride, height, ppOutput, pCropLength);
    }

    static void Publish(ChiOisVerifyNode& node, CHINODEPROCESSREQUESTINFO* pRequest)
    {
        node.UpdateOISVerifyInfo(pRequest);
    }

    // Gives the node a calibration file manager (the node deletes it), or none.
    static void AdoptCalibFileManager(ChiOisVerifyNode& node, OISCalibrationFile* pManager)
    {
        delete node.m_pOisCalibFileManager;
        node.m_pOisCalibFileManager = pManager;
    }

    static INT32 ApplyGyroGain(ChiOisVerifyNode& node, INT32 roleId, FLOAT gainX, FLOAT gainY)
    {
        return node.ApplyGyroGain(roleId, gainX, gainY);
    }

    // Runs a whole gain search (states 20 to 24, default step and limit, one frame of settling)
    // without frames: each measurement reads the SR that srOf gives for the target pair. The
    // state it ends in: 4, or an error.
    static INT32 RunGainSearch(ChiOisVerifyNode& node, INT32 roleId, FLOAT baseGain, FLOAT (*srOf)(FLOAT, FLOAT))
    {
        node.m_isGyroGainCalib = 1;
        node.m_oisCalibPara    = { roleId, 0, 18.0f, 0.05f, 0.2f, 1, 0, 0.0f, 0.0f };
        node.m_baseGainX       = baseGain;
        node.m_baseGainY       = baseGain;
        for (OISVerifyState state : { StartState, VerifyingState, CalibStartState })
        {
            node.SetOISVerifyState(state);
        }
        for (INT32 step = 0; step < 1000; step++)
        {
            const INT32 state = node.m_oisVerifyState.load();
            if ((VerifyDoneState == state) || (state < IdleState))
            {
                return state;
            }
            if (VerifyGainState == state)
            {
                const FLOAT sr      = srOf(node.m_oisCalibPara.gainXTarget, node.m_oisCalibPara.gainYTarget);
                node.m_verifyResult = { 0, sr, sr, 1.0f, 1.0f };
                node.RecordGainMeasurement(step);
                continue;
            }
            node.OISCalibrate();
        }
        return node.m_oisVerifyState.load();
    }

    // Engine rig: the measurement library replaced, parameters set after Initialize, the ring
    // buffer sized for them.
    static void UseAlgorithm(ChiOisVerifyNode& node, PFNOISHIGHFPS pAlgo) { node.m_pOisHighFpsAlgo = pAlgo; }
    static void SetVerdictLimits(ChiOisVerifyNode& node, UINT32 minFrameCount, UINT32 maxVerifyTimeMs)
    {
        node.m_minFrameCount = minFrameCount;
        node.m_maxVerifyTime = maxVerifyTimeMs;
        node.InitializeAlgoResultBuffer();
    }
    static void SetBaseGains(ChiOisVerifyNode& node, FLOAT gainX, FLOAT gainY)
    {
        node.m_baseGainX = gainX;
        node.m_baseGainY = gainY;
    }
    // Calibration mode as Initialize sets it up: file manager, calibration log, EEPROM axis pairing.
    static void EnableCalibration(ChiOisVerifyNode& node, INT32 gyroGainAndSRMatch)
    {
        node.m_isGyroGainCalib = 1;
        if (NULL == node.m_pOisCalibFileManager)
        {
            node.m_pOisCalibFileManager = new OISCalibrationFile();
        }
        if (NULL == node.m_calibLogFile)
        {
            node.OpenCalibrationOutputs();
        }
        node.m_OISGyroGainAndSRMatch = gyroGainAndSRMatch;
    }
    static void SetDumpImage(ChiOisVerifyNode& node, INT32 dump) { node.m_DumpImageProp = dump; }
    static BOOL PrepareDumpImage(ChiOisVerifyNode& node) { return node.PrepareDumpImage(); }
    static void InitParam(ChiOisVerifyNode& node) { node.InitParam(); }
    static BOOL ReadDebugImage(ChiOisVerifyNode& node) { return node.ReadDebugImage(); }

    // Point blur as the ring gave it, then the SR step.
    static void SetPointBlur(ChiOisVerifyNode& node, const OISPointBlur& blur)
    {
        node.m_pointBlur = blur;
        node.m_blurValid = 1;
    }
    static void CalculateSR(ChiOisVerifyNode& node) { node.CalculateSR(); }
    static OISVerifyResult VerifyResult(const ChiOisVerifyNode& node) { return node.m_verifyResult; }
    static OISPointBlur    PointBlur(const ChiOisVerifyNode& node) { return node.m_pointBlur; }
    static INT32           BlurValid(const ChiOisVerifyNode& node) { return node.m_blurValid; }

    static const std::vector<OISGainSRRecord>& GainRecords(const ChiOisVerifyNode& node)
    {
        return node.m_gainSRRecords;
    }
    static OISSelectedGain SelectedGain(const ChiOisVerifyNode& node) { return node.m_selectedGain; }
    static UINT32          SkippedFrames(const ChiOisVerifyNode& node) { return node.m_skipAlgoFrameNum; }
    static INT32           VerifyDurationMs(const ChiOisVerifyNode& node) { return node.m_verifyDurationMs; }
    static INT32           CalibCount(const ChiOisVerifyNode& node) { return node.m_oisCalibPara.oisCalibCnt; }

    // What the destructor releases: both library handles and both text logs.
    static void SetReleasables(ChiOisVerifyNode& node, void* hTableLib, void* hAlgoLib, FILE* pPointFile,
                               FILE* pCalibFile)
    {
        node.m_hLogicalCameraTableLib = hTableLib;
        node.m_hOisHighFpsLib         = hAlgoLib;
        node.m_pPointPositionFile     = pPointFile;
        node.m_calibLogFile           = pCalibFile;
    }

    // Writes out what the two text logs hold so far.
    static void FlushTextLogs(ChiOisVerifyNode& node)
    {
        for (FILE* pFile : { node.m_pPointPositionFile, node.m_calibLogFile })
        {
            if (NULL != pFile)
            {
                fflush(pFile);
            }
        }
    }
};

#endif // ZELK_TESTS_UNIT_NODE_NODETESTPEER_H
