#include "FieldTracker.h"

#include <algorithm>
#include <utility>

namespace
{

/* A stamp that lies further ahead than this is a mistake, not the end of a frame to come. */
constexpr uint64_t uiMostAheadNs = 200000000;

} // namespace

void CFieldTracker::SetSignal(const SFieldTiming& roTiming)
{
    const EFieldParity eFirstParity = m_bFirstParityKnown ? m_oTiming.eFirstParity : roTiming.eFirstParity;
    m_oTiming = roTiming;
    m_oTiming.eFirstParity = eFirstParity;
}

int64_t CFieldTracker::FieldsBetween(uint64_t uiFromNs, uint64_t uiToNs) const
{
    if (m_oTiming.uiFieldPeriodNs == 0)
    {
        return 0;
    }
    return static_cast<int64_t>((uiToNs - uiFromNs + m_oTiming.uiFieldPeriodNs / 2) / m_oTiming.uiFieldPeriodNs);
}

int64_t CFieldTracker::NormalStep(const SCapturedFrame& roFrame) const
{
    return m_oTiming.bInterlaced && roFrame.eParity == EFieldParity::NONE ? 2 : 1;
}

/* Alternating fields: both fields of a frame bear its sequence, so the parity says which half it is. */
int64_t CFieldTracker::StepOfAlternating(const SCapturedFrame& roFrame, int64_t iSequences)
{
    if (iSequences == 0)
    {
        if (roFrame.eParity != m_oLast.eParity)
        {
            m_oTiming.eFirstParity = m_oLast.eParity;
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
        m_oTiming.eFirstParity = m_oTiming.eFirstParity == EFieldParity::TOP ? EFieldParity::BOTTOM : EFieldParity::TOP;
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
    {
        iGap = std::min(m_iHeldGap, FieldsBetween(m_uiHeldFromNs, roFrame.uiStampNs) - m_iHeldStep - iStep);
    }
    m_iHeldGap = std::max<int64_t>(0, FieldsBetween(m_oLast.uiStampNs, roFrame.uiStampNs) - iStep);
    m_uiHeldFromNs = m_oLast.uiStampNs;
    m_iHeldStep = iStep;
    return std::max<int64_t>(0, iGap);
}

/*
 * Where we looked away, the sequence says how many fields have been, and how many buffers have been is known or not.
 * Stamps help a driver that counts neither.
 */
int64_t CFieldTracker::StepOverUnseen(const SCapturedFrame& roFrame, int64_t iStep, int64_t iNormal)
{
    m_iHeldGap = 0;
    const auto uiGap = static_cast<uint64_t>(iStep / iNormal - 1);
    if (uiGap == 0)
    {
        return std::max(iStep, FieldsBetween(m_oLast.uiStampNs, roFrame.uiStampNs));
    }
    if (m_uiUnseen == msc_uiUnknown)
    {
        return iStep;
    }
    const uint64_t uiMet = std::min(uiGap, m_uiUnseen);
    m_uiUnseen -= uiMet;
    CountSkipped(static_cast<int64_t>(uiGap - uiMet) * iNormal);
    return iStep;
}

void CFieldTracker::AllSeen()
{
    m_bLossUnknown = m_bLossUnknown || m_uiUnseen != 0;
    m_uiUnseen = 0;
}

int64_t CFieldTracker::StepInFields(const SCapturedFrame& roFrame)
{
    // Modulo 2^32, so that a wrapped sequence goes on; a step back is a queue that was started anew.
    const auto iSequences = static_cast<int64_t>(static_cast<int32_t>(roFrame.uiSequence - m_oLast.uiSequence));
    const int64_t iNormal = NormalStep(roFrame);
    if (iSequences < 0 || !m_bRunning)
    {
        m_iHeldGap = 0;
        m_uiUnseen = 0;
        return std::max(iNormal, FieldsBetween(m_oLast.uiStampNs, roFrame.uiStampNs));
    }
    int64_t iStep = iNormal;
    if (roFrame.eParity != EFieldParity::NONE)
    {
        iStep = StepOfAlternating(roFrame, iSequences);
    }
    else if (iSequences > 0)
    {
        iStep = iSequences * iNormal;
    }
    if (m_uiUnseen != 0)
    {
        return StepOverUnseen(roFrame, iStep, iNormal);
    }
    if (iStep > iNormal)
    {
        m_bSequenceGaps = true;
        m_iHeldGap = 0;
        CountSkipped(iStep - iNormal);
        return iStep;
    }
    const int64_t iGap = m_bSequenceGaps || !m_oTiming.bGapsInStamps ? 0 : LateGap(roFrame, iNormal);
    CountSkipped(iGap);
    return iNormal + iGap;
}

/*
 * Nobody can fetch a field before it has started. Stamps of the end of a frame that is still to come are all moved back
 * alike, so that their distances stay true.
 */
uint64_t CFieldTracker::StartedNs(uint64_t uiStampNs, uint64_t uiNowNs)
{
    m_uiAheadNs = std::max(m_uiAheadNs, uiStampNs - std::min(uiNowNs, uiStampNs));
    return uiStampNs - std::min(m_uiAheadNs, uiStampNs);
}

void CFieldTracker::CountSkipped(int64_t iFields)
{
    const int64_t iKnown = std::clamp<int64_t>(iFields, 0, m_iUnplaced);
    m_iUnplaced -= iKnown;
    m_uiSkipped += static_cast<uint64_t>(std::max<int64_t>(0, iFields - iKnown));
}

void CFieldTracker::CountError(const SCapturedFrame& roFrame, bool bPlaced)
{
    const int64_t iFields = NormalStep(roFrame);
    m_uiSkipped += static_cast<uint64_t>(iFields);
    m_iUnplaced += bPlaced ? 0 : iFields;
}

void CFieldTracker::Unseen(uint64_t uiBuffers)
{
    m_uiUnseen = uiBuffers == msc_uiUnknown || m_uiUnseen == msc_uiUnknown ? msc_uiUnknown : m_uiUnseen + uiBuffers;
}

bool CFieldTracker::Accept(SCapturedFrame oFrame, uint64_t uiNowNs)
{
    if (oFrame.uiStampNs > uiNowNs + uiMostAheadNs)
    {
        oFrame.uiStampNs = uiNowNs;
    }
    const bool bPlaced = !m_bStarted || oFrame.uiStampNs > m_uiLastStampNs;
    if (oFrame.bError)
    {
        CountError(oFrame, bPlaced);
    }
    if (!bPlaced)
    {
        return false;
    }
    m_uiLastStampNs = oFrame.uiStampNs;
    oFrame.uiStampNs = StartedNs(oFrame.uiStampNs, uiNowNs);
    if (m_bStarted)
    {
        oFrame.uiStampNs = std::max(oFrame.uiStampNs, m_oLast.uiStampNs + 1);
        m_uiFields += static_cast<uint64_t>(StepInFields(oFrame));
    }
    else
    {
        m_uiFields = uint64_t{oFrame.uiSequence} * (m_oTiming.bInterlaced ? 2U : 1U) +
                     (oFrame.eParity != EFieldParity::NONE && IsSecond(oFrame.eParity) ? 1U : 0U);
    }
    m_bStarted = true;
    m_bRunning = true;
    m_oLast = oFrame;
    m_uiBuffers += oFrame.bError ? 0U : 1U;
    m_bFirstUnseen = true;
    m_bSecondUnseen = m_oTiming.uiFieldPeriodNs != 0 && NormalStep(oFrame) == 2;
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
            roField = {m_uiFields * uiCounterPerField, m_uiDeliveredNs, m_oLast.eParity == EFieldParity::TOP};
            return true;
        }
    }
    if (!m_bSecondUnseen || uiNowNs < m_oLast.uiStampNs + m_oTiming.uiFieldPeriodNs)
    {
        return false;
    }
    m_bSecondUnseen = false;
    m_uiDeliveredNs = m_oLast.uiStampNs + m_oTiming.uiFieldPeriodNs;
    roField = {(m_uiFields + 1) * uiCounterPerField, m_uiDeliveredNs, false};
    return true;
}

uint64_t CFieldTracker::NextDueNs() const
{
    if (m_bFirstUnseen)
    {
        return m_oLast.uiStampNs;
    }
    return m_bSecondUnseen ? m_oLast.uiStampNs + m_oTiming.uiFieldPeriodNs : 0;
}

void CFieldTracker::Interrupt()
{
    m_bRunning = false;
    m_bFirstUnseen = false;
    m_bSecondUnseen = false;
    m_iHeldGap = 0;
    m_uiUnseen = 0;
}
