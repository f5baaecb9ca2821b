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
};

#endif // ZELK_TESTS_UNIT_NODE_NODETESTPEER_H
