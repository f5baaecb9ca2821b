// Per-request work of the node: read the app's requested state, optionally dump the inputs,
// measure the frames, evaluate blur and SR and decide, publish state and SR back to the app, and
// take the next step of a gain calibration.
// Problems never fail a request: they become node states and log lines.
#include "camxchinodezelkoisverify.h"
#include "oisverifylog.h"

namespace
{
// Failed algorithm runs (in total, not in a row) that end a measurement.
const UINT32 MaxSkippedFrames = 6;
} // namespace

CDKResult ChiOisVerifyNode::ProcessRequest(CHINODEPROCESSREQUESTINFO* pProcessRequestInfo)
{
    if (CDKResultSuccess != GetOISVerifyMeta(pProcessRequestInfo))
    {
        OIS_LOG_ERROR("Error state = %d", m_oisVerifyState.load(std::memory_order_relaxed));
    }
    OIS_LOG_INFO("frameNum = %d oisVerifyState = %d m_dropFrameNum = %d",
                 static_cast<INT32>(pProcessRequestInfo->frameNum), m_oisVerifyState.load(std::memory_order_relaxed),
                 m_dropFrameNum);
    if (1 == m_DumpImageProp)
    {
        DumpInputImage(pProcessRequestInfo);
    }
    ExecOISVerifyAlgo(pProcessRequestInfo);
    CalculateSR();
    IsVerifyDone(static_cast<INT32>(pProcessRequestInfo->frameNum));
    if (m_skipAlgoFrameNum >= MaxSkippedFrames)
    {
        OIS_LOG_ERROR("m_skipAlgoFrameNum: %d m_algoReturn: %d too many skip algo frame", m_skipAlgoFrameNum, m_algoReturn);
        SetOISVerifyState(ErrorStateTooManySkips);
    }
    UpdateOISVerifyInfo(pProcessRequestInfo);
    OISCalibrate();
    return CDKResultSuccess;
}

void ChiOisVerifyNode::FlushRequest(CHINODEFLUSHREQUESTINFO* pFlushRequestInfo)
{
    OIS_LOG_INFO("Flush request Id %lu from node", static_cast<unsigned long>(pFlushRequestInfo->frameNum));
}
