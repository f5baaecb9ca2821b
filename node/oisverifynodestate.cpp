// The verification state shared with the test app. The app moves the early states through the
// "oisState" tag of each request; the node moves the later ones from its measurements. Every
// change goes through SetOISVerifyState, which enforces the transition table and writes the report
// when a final state is reached; the state and SR are published back on every request.
#include "camxchinodezelkoisverify.h"
#include "chinodeutils.h"
#include "oisverifylog.h"

namespace
{

const CHAR   OisVerifySection[] = "com.zelk.node.oisverify";
const CHAR   OisStateTag[]      = "oisState";
const INT32  SupportedFeature   = 1;
const UINT32 PublishedTagCount  = 4;

// Full tag id from the host's vendor-tag query; 0 when the host cannot answer.
UINT32 QueryVendorTagId(const CHAR* pTagName)
{
    CHIVENDORTAGBASEINFO info = { sizeof(CHIVENDORTAGBASEINFO), 0, OisVerifySection, pTagName };
    if (NULL != g_chiNodeInterface.pGetVendorTagBase)
    {
        g_chiNodeInterface.pGetVendorTagBase(&info);
    }
    return info.vendorTagBase;
}

CHITAGDATA TagData(UINT64 requestId, void* pValue, SIZE_T size)
{
    CHITAGDATA data = { sizeof(CHITAGDATA), requestId, pValue, size, 0, FALSE };
    return data;
}

} // namespace

void ChiOisVerifyNode::SetOISVerifyState(OISVerifyState state)
{
    if (state == m_oisVerifyState.load(std::memory_order_relaxed))
    {
        return;
    }
    const INT32 oldState = m_oisVerifyState.load(std::memory_order_relaxed);

    std::lock_guard<std::mutex> lock(m_stateMutex);
    if (state < IdleState)
    {
        m_oisVerifyState.store(state, std::memory_order_relaxed);
        GenerateJson();
        OIS_LOG_ERROR("ErrorState, need to exit m_oisVerifyState = %d", state);
    }
    ApplyStateTransition(state);

    const INT32 newState = m_oisVerifyState.load(std::memory_order_relaxed);
    if (newState != oldState)
    {
        OIS_LOG_INFO("m_oisVerifyState from %d changed to = %d", oldState, newState);
    }
    else
    {
        OIS_LOG_INFO("m_oisVerifyState  %d do not change", newState);
    }
}

// Applies one requested value to the current state; unlisted requests are ignored. Called with
// m_stateMutex held. Returns whether the request was accepted.
BOOL ChiOisVerifyNode::ApplyStateTransition(OISVerifyState requested)
{
    const INT32 current = m_oisVerifyState.load(std::memory_order_relaxed);
    INT32       next    = current;
    switch (current)
    {
        case IdleState:          next = (StartState == requested) ? StartState : current; break;
        case StartState:         next = ((PrepareState == requested) || (VerifyingState == requested)) ? requested : current; break;
        case PrepareState:       next = (VerifyingState == requested) ? VerifyingState : current; break;
        case VerifyingState:     next = ((VerifyDoneState == requested) || (CalibStartState == requested)) ? requested : current; break;
        case CalibStartState:    next = (SetGainTargetState == requested) ? SetGainTargetState : current; break;
        case SetGainTargetState: next = ((WaitApplyState == requested) || (SearchCompleteState == requested)) ? requested : current; break;
        case WaitApplyState:     next = ((VerifyGainState == requested) || (SearchCompleteState == requested)) ? requested : current; break;
        case VerifyGainState:    next = (SetGainTargetState == requested) ? SetGainTargetState : current; break;
        case SearchCompleteState: next = (VerifyDoneState == requested) ? VerifyDoneState : current; break;
        case VerifyDoneState:
            if (requested >= IdleState)
            {
                OIS_LOG_INFO_IN("SetOISVerifyState", "VerifyDoneState horSR = %.2f verSR = %.2f", m_verifyResult.horSR,
                                m_verifyResult.verSR);
                GenerateJson();
                return TRUE;
            }
            return FALSE;
        default:
            return FALSE;
    }
    if (next == current)
    {
        return FALSE;
    }
    m_oisVerifyState.store(next, std::memory_order_relaxed);
    if (VerifyDoneState == next)
    {
        GenerateJson();
    }
    return TRUE;
}

CDKResult ChiOisVerifyNode::GetOISVerifyMeta(CHINODEPROCESSREQUESTINFO* pProcessRequestInfo)
{
    const UINT32 tagId = QueryVendorTagId(OisStateTag) | ChiMetadataInputPool;
    const INT32* pRequested = static_cast<const INT32*>(ChiNodeUtils::GetMetaData(
        pProcessRequestInfo->frameNum, tagId, ChiMetadataDynamic, &g_chiNodeInterface, m_hChiSession));
    if (NULL == pRequested)
    {
        OIS_LOG_ERROR("can not get com.zelk.node.oisverify.oisState metadata");
        return CDKResultENoSuch;
    }

    // Calibration states belong to the node; from them the app may only abort.
    const INT32 requested = *pRequested;
    if ((m_oisVerifyState.load(std::memory_order_relaxed) < CalibStartState) || (ErrorState == requested))
    {
        SetOISVerifyState(static_cast<OISVerifyState>(requested));
    }
    OIS_LOG_INFO("get com.zelk.node.oisverify metadata from apk = %d oisVerifyState = %d", requested,
                 m_oisVerifyState.load(std::memory_order_relaxed));
    return CDKResultSuccess;
}

void ChiOisVerifyNode::UpdateOISVerifyInfo(CHINODEPROCESSREQUESTINFO* pProcessRequestInfo)
{
    OISVerifyResult result = m_verifyResult;
    INT32           state  = m_oisVerifyState.load(std::memory_order_relaxed);
    INT32           supported = SupportedFeature;

    std::lock_guard<std::mutex> lock(m_stateMutex);
    const UINT32 base = QueryVendorTagId(NULL);
    const UINT64 requestId = pProcessRequestInfo->frameNum;
    UINT32       tags[PublishedTagCount] = { base + 0, base + 1, base + 2, base + 3 };
    CHITAGDATA   data[PublishedTagCount] =
    {
        TagData(requestId, &supported, sizeof(supported)),
        TagData(requestId, &state, sizeof(state)),
        TagData(requestId, &result.horSR, sizeof(result.horSR)),
        TagData(requestId, &result.verSR, sizeof(result.verSR)),
    };
    CHIMETADATAINFO info = { sizeof(CHIMETADATAINFO), m_hChiSession, PublishedTagCount, tags, data, ChiMetadataDynamic };
    if (NULL != g_chiNodeInterface.pSetMetadata)
    {
        g_chiNodeInterface.pSetMetadata(&info);
    }
    OIS_LOG_INFO("set metadata com.zelk.node.oisverifysupportedFeature = %d state = %d horSR = %.2f verSR = %.2f",
                 supported, state, result.horSR, result.verSR);
}
