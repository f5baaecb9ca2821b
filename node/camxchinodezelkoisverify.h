// The OIS verification node: a CHI node that measures how well a camera module's optical image
// stabilisation suppresses a known shake (suppression ratio, SR, in dB per axis) from frames of a
// four-circle chart, talks to the factory test app through vendor-tag metadata, writes a JSON
// report and, when enabled, searches and persists better OIS gyro gains.
//
// One ChiOisVerifyNode exists per node instance; its address is the handle the host passes back.
// The callbacks in camxchinodezelkoisverify.cpp validate host records and forward here; the class
// is implemented across the node*.cpp files of this folder by concern.
#ifndef ZELK_NODE_CAMXCHINODEZELKOISVERIFY_H
#define ZELK_NODE_CAMXCHINODEZELKOISVERIFY_H

#include <stdio.h>

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "chinode.h"
#include "logicalcameratable.h"
#include "oishighfps.h"

class OISCalibrationFile;

// The host's node interface (metadata and vendor-tag calls) and the base id of the node's
// vendor-tag section, set once per process by the set-node-interface callback.
extern CHINODEINTERFACE g_chiNodeInterface;
extern UINT32           g_vendorTagBase;

// State shared with the test app through the "oisState" tag. Negative values are final errors.
enum OISVerifyState : INT32
{
    ErrorStateApplyGain     = -21, // writing a gyro gain failed
    ErrorStateCalibSpec     = -20, // calibration cannot start: oisSpec not above 0.1
    ErrorStateTimeout       = -13, // the measurement took m_maxVerifyTime ms or longer
    ErrorStateTooManySkips  = -12, // too many frames without a valid algorithm result
    ErrorStateBadFormat     = -11, // an input image was not NV12
    ErrorState              = -1,  // abort requested by the app
    IdleState               = 0,
    StartState              = 1,
    PrepareState            = 2,
    VerifyingState          = 3,
    VerifyDoneState         = 4,
    CalibStartState         = 20,
    SetGainTargetState      = 21,
    WaitApplyState          = 22,
    VerifyGainState         = 23,
    SearchCompleteState     = 24,
};

// One algorithm run: the four circle centres in crop pixels and the request's frame number.
struct OISAlgoResult
{
    DOUBLE upX;
    DOUBLE upY;
    DOUBLE downX;
    DOUBLE downY;
    DOUBLE leftX;
    DOUBLE leftY;
    DOUBLE rightX;
    DOUBLE rightY;
    INT32  frameNum;
};

// Result of the last evaluation; SR in dB, blur in crop pixels.
struct OISVerifyResult
{
    INT32 reserved;
    FLOAT horSR;
    FLOAT verSR;
    FLOAT horBlur;
    FLOAT verBlur;
};

// Spread (max - min over the ring buffer) of each circle coordinate, in crop pixels.
struct OISPointBlur
{
    FLOAT upBlur[2];
    FLOAT downBlur[2];
    FLOAT leftBlur[2];
    FLOAT rightBlur[2];
};

// Gyro-gain calibration parameters ("vendor.debug.camera.oisGainCalibrate") and the search's
// working fields.
struct OISCalibPara
{
    INT32 roleId;            // camera role whose gain is calibrated
    INT32 calibSingleAxis;   // 0 both axes, 1 X only, 2 Y only
    FLOAT oisSpec;           // SR pass limit in dB
    FLOAT oisCalibGainStep;  // step between targets, fraction of the base gain
    FLOAT oisCalibGainLimit; // half-width of the search, fraction of the base gain
    INT32 waitApplyFrameCnt; // frames to wait after a gain is applied
    INT32 oisCalibCnt;       // gain targets set so far
    FLOAT gainXTarget;
    FLOAT gainYTarget;
};

// One tried gain pair with what it measured.
struct OISGainSRRecord
{
    FLOAT gainX;
    FLOAT gainY;
    FLOAT srX;
    FLOAT srY;
    FLOAT horBlur;
    FLOAT verBlur;
    INT32 index;
    INT32 reserved;
};

// Chosen gains: gainX, gainY, SR of X, SR of Y.
struct OISSelectedGain
{
    FLOAT gainX;
    FLOAT gainY;
    FLOAT srX;
    FLOAT srY;
};

class ChiOisVerifyNode
{
public:
    ChiOisVerifyNode();
    virtual ~ChiOisVerifyNode();

    CDKResult Initialize(CHINODECREATEINFO* pCreateInfo);
    CDKResult QueryBufferInfo(CHINODEQUERYBUFFERINFO* pQueryBufferInfo);
    CDKResult SetBufferInfo(CHINODESETBUFFERPROPERTIESINFO* pSetBufferInfo);
    CDKResult ProcessRequest(CHINODEPROCESSREQUESTINFO* pProcessRequestInfo);
    void      FlushRequest(CHINODEFLUSHREQUESTINFO* pFlushRequestInfo);
    UINT32    GetFlushResponseBaseMs() const { return m_flushResponseBaseMs; }

    void           SetOISVerifyState(OISVerifyState state);
    OISVerifyState GetOISVerifyState() const
    {
        return static_cast<OISVerifyState>(m_oisVerifyState.load(std::memory_order_relaxed));
    }

private:
    friend struct ChiOisVerifyNodeTestPeer; // white-box unit tests only

    ChiOisVerifyNode(const ChiOisVerifyNode&)            = delete;
    ChiOisVerifyNode& operator=(const ChiOisVerifyNode&) = delete;

    // Set-up
    void InitParam();
    void InitAlgoParam();
    void InitCalibParam();
    void ApplyNodeProperties(CHINODECREATEINFO* pCreateInfo);
    BOOL PrepareDumpImage();
    BOOL RenewDumpDirectory(BOOL failed);
    void RemoveDumpFolderLink(INT32 workFd);
    void InitializeAlgoResultBuffer();
    void OpenCalibrationOutputs();
    void GetGyroGainSRMatchInfo();
    BOOL ReadEEpromGyroGainProp();
    BOOL ImportOISHighFpsAlgo();
    BOOL ReadDebugImage();
    BOOL ReadDebugImageFile(INT32 directoryFd, const std::string& name);
    void ReleaseDebugImages();

    // Engine
    CDKResult GetOISVerifyMeta(CHINODEPROCESSREQUESTINFO* pProcessRequestInfo);
    void      ExecOISVerifyAlgo(CHINODEPROCESSREQUESTINFO* pProcessRequestInfo);
    void      MeasureBuffer(const CHIIMAGELIST* pBuffer, INT32 frameNum);
    UINT8*    TakeDebugImage();
    BOOL      SaveAlgoResultToBuffer(const OISPointResult& points, INT32 frameNum);
    void      RecordSavedResult(const OISPointResult& points, INT32 frameNum, INT32 algoReturn);
    void      ActOnAlgoReturn(INT32 algoReturn, const OISPointResult& points);
    void      CalculatePointBlur();
    void      CalculateSR();
    void      IsVerifyDone(INT32 frameNum);

    // Calibration
    void OISCalibrate();
    void StartCalibration();
    void SetNextGainTarget();
    void WaitForAppliedGain();
    void RecordGainMeasurement(INT32 frameNum);
    void WriteSelectedGain();

    // Images
    static UINT32       InputCount(const CHINODEPROCESSREQUESTINFO* pProcessRequestInfo);
    static BOOL         CropWindowFits(INT32 width, INT32 height, INT32 stride, INT32 cropLength);
    // pOperation names the operation in the log line of a refused plane (frame dumps by default).
    const UINT8*        LumaPlane(const CHIIMAGELIST* pBuffer, UINT32 imageIndex,
                                  const CHAR* pOperation = "DumpInputImage");
    INT32               CropImage(const UINT8* pInput, INT32 width, INT32 height, INT32 stride, INT32 scanline,
                                  UINT8** ppOutput, INT32* pCropLength);
    void                DumpInputImage(CHINODEPROCESSREQUESTINFO* pProcessRequestInfo);
    void                DumpInputCrop(const CHIIMAGELIST* pBuffer, UINT32 imageIndex, INT32 frameNum);
    void                DumpDebugYUV(const UINT8* pCrop, INT32 cropLength);
    void UpdateOISVerifyInfo(CHINODEPROCESSREQUESTINFO* pProcessRequestInfo);
    BOOL ApplyStateTransition(OISVerifyState requested);
    void GenerateJson();

    // Calibration: persist a gain pair for a camera role and tell the calibration service.
    INT32 ApplyGyroGain(INT32 roleId, FLOAT gainX, FLOAT gainY);

    // Host session and identity, copied from the create information.
    CHIHANDLE m_hChiSession;
    UINT32    m_nodeId;
    UINT32    m_nodeInstanceId;
    UINT32    m_nodeFlags;
    void*     m_pCreatePrivateData;

    // Test parameters ("vendor.debug.camera.oisAlgoPara"), fixed after Initialize.
    INT32  m_isDebugMode;
    INT32  m_DumpImageProp;
    UINT32 m_dropFrameNum;
    UINT32 m_oisTestFreq;    // shake frequency, Hz
    INT32  m_targetFps;
    UINT32 m_minFrameCount;  // results needed for a verdict; ring buffer size
    UINT32 m_maxVerifyTime;  // ms

    // Engine counters.
    UINT32 m_execAlgoFrameNum;
    UINT32 m_skipAlgoFrameNum;
    INT32  m_algoReturn;
    INT64  m_execTimestamp;  // ns, first successful run; 0 = not yet
    INT32  m_cropLength;
    INT32  m_blurValid;
    FLOAT  m_algoFps;
    INT32  m_verifyDurationMs;
    OISPointBlur m_pointBlur;

    // Calibration.
    OISCalibPara        m_oisCalibPara;
    INT32               m_isGyroGainCalib;
    INT32               m_OISGyroGainAndSRMatch;
    FLOAT               m_baseGainX;
    FLOAT               m_baseGainY;
    INT32               m_gainTargetSet;
    INT32               m_waitFrameCountdown;
    std::vector<OISGainSRRecord> m_gainSRRecords;
    OISSelectedGain     m_selectedGain;
    OISCalibrationFile* m_pOisCalibFileManager;

    // Run-time libraries.
    void*               m_hLogicalCameraTableLib;
    LogicalCameraTable* m_pLogicalCameraTable;
    void*               m_hOisHighFpsLib;
    PFNOISHIGHFPS       m_pOisHighFpsAlgo;

    // Ring buffer of algorithm results.
    std::vector<OISAlgoResult> m_algoResultBuffer;
    UINT32 m_BufferSize;
    UINT32 m_algoResultCount; // saves so far; the slot is this modulo m_BufferSize
    INT32  m_isBufferWrapped;

    // Debug images, all read at set-up (names sorted byte-wise, buffers owned, sizes in bytes).
    // A debug frame is the 720 x 720 luma square at the start of its file; no more is kept.
    static constexpr INT32  DebugImageSide  = 720;
    static constexpr SIZE_T DebugImageBytes = static_cast<SIZE_T>(DebugImageSide) * DebugImageSide;
    std::vector<std::string> fileVector;
    std::vector<UINT8*>      imageVector;
    std::vector<SIZE_T>      imageSizeVector;
    UINT32                   m_imageIndex;

    // Text outputs kept open for the node's life.
    FILE* m_pPointPositionFile;
    FILE* m_calibLogFile;

    // State shared with the app; transitions and metadata publication are serialised.
    std::atomic<INT32> m_oisVerifyState;
    std::mutex         m_stateMutex;
    OISVerifyResult    m_verifyResult;
    UINT32             m_isJsonGenerated;

    // Buffer negotiation results. The bit-5 flags alias the bit-1 flags shifted by one element.
    static const UINT32 MaxOutputPorts = 8;
    UINT32  m_outputPortFlagStorage[MaxOutputPorts + 1];
    UINT32* m_pIsRealTimePort;
    UINT32* m_pCanSetInputDependency;
    UINT32  m_outputWidth;
    UINT32  m_outputHeight;

    UINT32 m_flushResponseBaseMs;
};

#endif // ZELK_NODE_CAMXCHINODEZELKOISVERIFY_H
