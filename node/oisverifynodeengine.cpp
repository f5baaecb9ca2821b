// Per-request work of the node. Each request reads the app's requested state, then publishes the
// node's state and SR back to the app. Problems never fail a request: they become node states
// and log lines.
#include "camxchinodezelkoisverify.h"
#include "oisverifylog.h"

CDKResult ChiOisVerifyNode::ProcessRequest(CHINODEPROCESSREQUESTINFO* pProcessRequestInfo)
{
    if (CDKResultSuccess != GetOISVerifyMeta(pProcessRequestInfo))
    {
        OIS_LOG_ERROR("Error state = %d", m_oisVerifyState.load(std::memory_order_relaxed));
    }
    OIS_LOG_INFO("frameNum = %d oisVerifyState = %d m_dropFrameNum = %d",
                 static_cast<INT32>(pProcessRequestInfo->frameNum), m_oisVerifyState.load(std::memory_order_relaxed),
                 m_dropFrameNum);
    UpdateOISVerifyInfo(pProcessRequestInfo);
    return CDKResultSuccess;
}

void ChiOisVerifyNode::FlushRequest(CHINODEFLUSHREQUESTINFO* pFlushRequestInfo)
{
    OIS_LOG_INFO("Flush request Id %lu from node", static_cast<unsigned long>(pFlushRequestInfo->frameNum));
}
