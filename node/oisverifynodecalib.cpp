// Gyro-gain calibration: after a verification below the SR limit, the node steps the module's
// gyro gains from base × (1 − limit) upwards in steps of base × step, applies each pair (persist
// file and calibration service), waits for it to settle, measures SR with it, and finally writes
// the pair that gave the best SR per axis. One state per request: 20 start, 21 set the next
// target, 22 wait, 23 measure, 24 select and write.
#include <string.h>

#include "camxchinodezelkoisverify.h"
#include "chinodeutils.h"
#include "oisverifylog.h"

namespace
{
// The smallest usable SR limit, as the property text "0.1" reads into the float limit: a limit
// given as 0.1 is not above it.
const DOUBLE MinimumOisSpec = static_cast<DOUBLE>(0.1f);
const UINT32 TextLineBytes  = 256;
} // namespace

void ChiOisVerifyNode::OISCalibrate()
{
    const INT32 state = m_oisVerifyState.load(std::memory_order_relaxed);
    if ((0 == m_isGyroGainCalib) || (state < CalibStartState))
    {
        return;
    }
    OIS_LOG_INFO("oisVerifyState = %d SR[%.2f, %.2f] oisSpec = %.2f", state, m_verifyResult.horSR, m_verifyResult.verSR,
                 m_oisCalibPara.oisSpec);
    switch (state)
    {
        case CalibStartState:     StartCalibration(); break;
        case SetGainTargetState:  SetNextGainTarget(); break;
        case WaitApplyState:      WaitForAppliedGain(); break;
        case VerifyGainState:
            OIS_LOG_INFO("Verifying GainTarget[%.2f, %.2f] execAlgoFrameNum = %d", m_oisCalibPara.gainXTarget,
                         m_oisCalibPara.gainYTarget, m_execAlgoFrameNum);
            break;
        case SearchCompleteState: WriteSelectedGain(); break;
        default: break;
    }
}

void ChiOisVerifyNode::StartCalibration()
{
    if (static_cast<DOUBLE>(m_oisCalibPara.oisSpec) > MinimumOisSpec)
    {
        SetOISVerifyState(SetGainTargetState);
        OIS_LOG_INFO_IN("OISCalibrate", "m_oisVerifyState changed to %d",
                        m_oisVerifyState.load(std::memory_order_relaxed));
        return;
    }
    OIS_LOG_INFO_IN("OISCalibrate", "oisVerifyState is %d and will not be changed. please check: oisSpec = %.2f",
                    m_oisVerifyState.load(std::memory_order_relaxed), m_oisCalibPara.oisSpec);
    // Stored directly on purpose: this error takes no lock, writes no report and logs no change.
    m_oisVerifyState.store(ErrorStateCalibSpec, std::memory_order_relaxed);
}

// Target n of an axis is base × step × n + base × (1 − limit), in single precision.
static FLOAT GainTarget(FLOAT base, FLOAT step, FLOAT limit, INT32 count)
{
    const FLOAT stepped = (base * step) * static_cast<FLOAT>(count);
    const FLOAT lowest  = base * (1.0f - limit);
    return stepped + lowest;
}

void ChiOisVerifyNode::SetNextGainTarget()
{
    OISCalibPara& para = m_oisCalibPara;
    m_gainTargetSet    = 1;
    para.gainXTarget   = GainTarget(m_baseGainX, para.oisCalibGainStep, para.oisCalibGainLimit, para.oisCalibCnt);
    para.gainYTarget   = GainTarget(m_baseGainY, para.oisCalibGainStep, para.oisCalibGainLimit, para.oisCalibCnt);
    if (2 == para.calibSingleAxis)
    {
        para.gainXTarget = m_baseGainX;
    }
    else if (1 == para.calibSingleAxis)
    {
        para.gainYTarget = m_baseGainY;
    }
    OIS_LOG_INFO_IN("OISCalibrate", "Set gain target oisCalibCnt = %d gainXTarget = %.2f gainYTarget = %.2f",
                    para.oisCalibCnt, para.gainXTarget, para.gainYTarget);
    para.oisCalibCnt++;

    // The search ends only when both axes passed their upper bound, so a held axis never ends it.
    if ((para.gainXTarget > m_baseGainX * (1.0f + para.oisCalibGainLimit)) &&
        (para.gainYTarget > m_baseGainY * (1.0f + para.oisCalibGainLimit)))
    {
        SetOISVerifyState(SearchCompleteState);
        OIS_LOG_INFO_IN("OISCalibrate", "Search complete, changed state to %d",
                        m_oisVerifyState.load(std::memory_order_relaxed));
        return;
    }
    if (0 != ApplyGyroGain(para.roleId, para.gainXTarget, para.gainYTarget))
    {
        SetOISVerifyState(ErrorStateApplyGain);
        return;
    }
    SetOISVerifyState(WaitApplyState);
    m_waitFrameCountdown = para.waitApplyFrameCnt;
}

// The requests after a gain was applied are not measured; the last of them starts a fresh
// measurement (ring contents and write counter stay, the wrapped flag is recomputed on save).
void ChiOisVerifyNode::WaitForAppliedGain()
{
    m_waitFrameCountdown--;
    if (m_waitFrameCountdown > 0)
    {
        return;
    }
    m_execTimestamp    = 0;
    m_execAlgoFrameNum = 0;
    m_skipAlgoFrameNum = 0;
    m_blurValid        = 0;
    m_isBufferWrapped  = 0;
    SetOISVerifyState(VerifyGainState);
    OIS_LOG_INFO_IN("OISCalibrate", "Wait finish, changed state to %d",
                    m_oisVerifyState.load(std::memory_order_relaxed));
}

// A measurement with the current target is complete: keep what it gave, pairing the gyro axes
// with the image axes as the module's EEPROM says, and go on to the next target.
void ChiOisVerifyNode::RecordGainMeasurement(INT32 frameNum)
{
    const BOOL      swapped = (1 == m_OISGyroGainAndSRMatch) ? TRUE : FALSE;
    OISGainSRRecord record  = {};
    record.gainX   = m_oisCalibPara.gainXTarget;
    record.gainY   = m_oisCalibPara.gainYTarget;
    record.srX     = swapped ? m_verifyResult.verSR : m_verifyResult.horSR;
    record.srY     = swapped ? m_verifyResult.horSR : m_verifyResult.verSR;
    record.horBlur = m_verifyResult.horBlur;
    record.verBlur = m_verifyResult.verBlur;
    record.index   = m_oisCalibPara.oisCalibCnt - 1;
    m_gainSRRecords.push_back(record);

    if (NULL != m_calibLogFile)
    {
        CHAR line[TextLineBytes];
        ChiNodeUtils::SNPrintF(line, sizeof(line),
                               "Verify Done frameNum = %d oisCalibCnt = %d m_OISGyroGainAndSRMatch = %d Gain[%.2f, %.2f] "
                               "SR[%.2f, %.2f] Blur[%.2f, %.2f]\n",
                               frameNum, record.index, m_OISGyroGainAndSRMatch, record.gainX, record.gainY, record.srX,
                               record.srY, record.horBlur, record.verBlur);
        ChiNodeUtils::FWrite(line, strlen(line), 1, m_calibLogFile);
    }
    OIS_LOG_VERBOSE_IN("IsVerifyDone",
                       "oisCalibCnt = %d Gain[%.2f, %.2f] SR[%.2f, %.2f] Blur[%.2f, %.2f] push_back to vector",
                       record.index, record.gainX, record.gainY, record.srX, record.srY, record.horBlur,
                       record.verBlur);
    SetOISVerifyState(SetGainTargetState);
}

// Per axis the first record with the largest SR wins; the two axes may come from different
// records. No record at all (not reachable with positive base gains) counts as a failed write.
void ChiOisVerifyNode::WriteSelectedGain()
{
    OIS_LOG_INFO_IN("OISCalibrate", "Ois Calibrate complete, exit");
    if (m_gainSRRecords.empty())
    {
        SetOISVerifyState(ErrorStateApplyGain);
        return;
    }
    const OISGainSRRecord* pBestX = &m_gainSRRecords[0];
    const OISGainSRRecord* pBestY = &m_gainSRRecords[0];
    for (const OISGainSRRecord& record : m_gainSRRecords)
    {
        pBestX = (record.srX > pBestX->srX) ? &record : pBestX;
        pBestY = (record.srY > pBestY->srY) ? &record : pBestY;
    }
    m_selectedGain = { pBestX->gainX, pBestY->gainY, pBestX->srX, pBestY->srY };
    OIS_LOG_INFO_IN("OISCalibrate", "select Gain write to persist, vertorSize = %d Gain[%.2f, %.2f]  SR[%.2f, %.2f]",
                    static_cast<INT32>(m_gainSRRecords.size()), m_selectedGain.gainX, m_selectedGain.gainY,
                    m_selectedGain.srX, m_selectedGain.srY);
    if (0 != ApplyGyroGain(m_oisCalibPara.roleId, m_selectedGain.gainX, m_selectedGain.gainY))
    {
        SetOISVerifyState(ErrorStateApplyGain);
    }
    SetOISVerifyState(VerifyDoneState);
}
