#include "FieldTracker.h"

#include <algorithm>

namespace LinuxBoard
{

void CFieldTracker::SetSignal(uint64_t uiFieldPeriodNs, bool bInterlaced, EFieldParity eFirstParity)
{
    m_uiPeriodNs = uiFieldPeriodNs;
    m_bInterlaced = bInterlaced;
    if (!m_bFirstParityKnown)
        m_eFirstParity = eFirstParity;
}

int64_t CFieldTracker::FieldsBetween(uint64_t uiFromNs, uint64_t uiToNs) const
{
    if (m_uiPeriodNs == 0)
        return 0;
    return static_cast<int64_t>((uiToNs - uiFromNs + m_uiPeriodNs / 2) / m_uiPeriodNs);
}

int64_t CFieldTracker::NormalStep(const SCapturedFrame& roFrame) const
{
    return m_bInterlaced && roFrame.eParity == EFieldParity::None ? 2 : 1;
}

/* Alternating fields: both fields of a frame bear its sequence, so the parity says which half it is. */
int64_t CFieldTracker::StepOfAlternating(const SCapturedFrame& roFrame, int64_t iSequences)
{
    if (iSequences == 0)
    {
        if (roFrame.eParity != m_oLast.eParity)
        {
            m_eFirstParity = m_oLast.eParity;
            m_bFirstParityKnown = true;
        }
        return 1;
    }
    const int64_t iHalf = static_cast<int64_t>(IsSecond(roFrame.eParity)) - IsSecond(m_oLast.eParity);
    const int64_t iStep = 2 * iSequences + iHalf;
    const int64_t iOther = 2 * iSequences - iHalf;
    // The first guess may be wrong, and then a step looks two fields too long or too short: the stamps know.
    if (!m_bFirstParityKnown && iHalf != 0 && FieldsBetween(m_oLast.uiStampNs, roFrame.uiStampNs) == iOther)
    {
        m_eFirstParity = m_eFirstParity == EFieldParity::Top ? EFieldParity::Bottom : EFieldParity::Top;
        return iOther;
    }
    return iStep;
}

/*
 * A frame that comes late may be late only, or a frame may be missing before it; the frame after tells. Two stamps
 * that are further apart than the sequence says mean a gap.
 */
int64_t CFieldTracker::LateGap(const SCapturedFrame& roFrame, int64_t iStep)
{
    int64_t iGap = 0;
    if (m_iHeldGap > 0)
        iGap = std::min(m_iHeldGap, FieldsBetween(m_uiHeldFromNs, roFrame.uiStampNs) - m_iHeldStep - iStep);
    m_iHeldGap = std::max<int64_t>(0, FieldsBetween(m_oLast.uiStampNs, roFrame.uiStampNs) - iStep);
    m_uiHeldFromNs = m_oLast.uiStampNs;
    m_iHeldStep = iStep;
    return std::max<int64_t>(0, iGap);
}

int64_t CFieldTracker::StepInFields(const SCapturedFrame& roFrame)
{
    // Modulo 2^32, so that a wrapped sequence goes on; a step back is a queue that was started anew.
    const auto iSequences = static_cast<int64_t>(static_cast<int32_t>(roFrame.uiSequence - m_oLast.uiSequence));
    const int64_t iNormal = NormalStep(roFrame);
    if (iSequences < 0 || !m_bRunning)
    {
        m_iHeldGap = 0;
        return std::max(iNormal, FieldsBetween(m_oLast.uiStampNs, roFrame.uiStampNs));
    }
    int64_t iStep = iNormal;
    if (roFrame.eParity != EFieldParity::None)
        iStep = StepOfAlternating(roFrame, iSequences);
    else if (iSequences > 0)
        iStep = iSequences * iNormal;
    if (iStep > iNormal)
    {
        m_bSequenceGaps = true;
        m_iHeldGap = 0;
        m_uiSkipped += static_cast<uint64_t>(iStep - iNormal);
        return iStep;
    }
    const int64_t iGap = m_bSequenceGaps ? 0 : LateGap(roFrame, iNormal);
    m_uiSkipped += static_cast<uint64_t>(iGap);
    return iNormal + iGap;
}

bool CFieldTracker::Accept(const SCapturedFrame& roFrame)
{
    if (m_bStarted && roFrame.uiStampNs <= m_oLast.uiStampNs)
        return false;
    if (m_bStarted)
        m_uiFields += static_cast<uint64_t>(StepInFields(roFrame));
    else
        m_uiFields = uint64_t{roFrame.uiSequence} * (m_bInterlaced ? 2U : 1U) +
                     (roFrame.eParity != EFieldParity::None && IsSecond(roFrame.eParity) ? 1U : 0U);
    m_bStarted = true;
    m_bRunning = true;
    m_oLast = roFrame;
    m_uiBuffers++;
    m_bFirstUnseen = true;
    m_bSecondUnseen = m_uiPeriodNs != 0 && NormalStep(roFrame) == 2;
    return true;
}

bool CFieldTracker::Take(uint64_t uiNowNs, SFieldStart& roField)
{
    if (m_bFirstUnseen)
    {
        m_bFirstUnseen = false;
        // The reckoned second field before it may have been put later than this frame really began.
        if (m_oLast.uiStampNs > m_uiDeliveredNs)
        {
            m_uiDeliveredNs = m_oLast.uiStampNs;
            roField = {m_uiFields * uiCounterPerField, m_uiDeliveredNs, m_oLast.eParity == EFieldParity::Top};
            return true;
        }
    }
    if (!m_bSecondUnseen || uiNowNs < m_oLast.uiStampNs + m_uiPeriodNs)
        return false;
    m_bSecondUnseen = false;
    m_uiDeliveredNs = m_oLast.uiStampNs + m_uiPeriodNs;
    roField = {(m_uiFields + 1) * uiCounterPerField, m_uiDeliveredNs, false};
    return true;
}

uint64_t CFieldTracker::NextDueNs() const
{
    if (m_bFirstUnseen)
        return m_oLast.uiStampNs;
    return m_bSecondUnseen ? m_oLast.uiStampNs + m_uiPeriodNs : 0;
}

void CFieldTracker::Interrupt()
{
    m_bRunning = false;
    m_bFirstUnseen = false;
    m_bSecondUnseen = false;
    m_iHeldGap = 0;
}

} // namespace LinuxBoard
