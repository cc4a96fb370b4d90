#include "VblankTracker.h"

#include <algorithm>
#include <array>

void CVblankTracker::Start(uint64_t uiSequence)
{
    if (m_bStarted)
    {
        m_uiOffset += m_uiSequence - uiSequence;
    }
    m_bStarted = true;
    m_bUnseen = false;
    m_bFlushed = false;
    m_uiNumbering++;
    m_uiSequence = uiSequence;
    m_uiNextToQueue = 0;
    m_uiOutstanding = 0;
}

bool CVblankTracker::Accept(uint64_t uiSequence, uint64_t uiStampNs)
{
    if (!m_bStarted || uiSequence <= m_uiSequence || uiStampNs <= m_uiStampNs)
    {
        return false;
    }
    m_bUnseen = true;
    m_uiSequence = uiSequence;
    m_uiStampNs = uiStampNs;
    return true;
}

bool CVblankTracker::Take(SFieldStart& roField)
{
    if (!m_bUnseen)
    {
        return false;
    }
    m_bUnseen = false;
    roField = {(m_uiSequence + m_uiOffset) * uiCounterPerField, m_uiStampNs, false};
    return true;
}

uint64_t CVblankTracker::NextToQueue() const
{
    const uint64_t uiNext = std::max(m_uiNextToQueue, m_uiSequence + 1);
    return uiNext > m_uiSequence + msc_uiQueueDepth ? 0 : uiNext;
}

void CVblankTracker::Queued(uint64_t uiSequence)
{
    m_uiNextToQueue = uiSequence + 1;
    m_uiOutstanding++;
}

void CVblankTracker::AcceptEvent(uint64_t uiTag, uint64_t uiSequence, uint64_t uiStampNs)
{
    const uint64_t uiAskedSequence = uiTag & ((uint64_t{1} << msc_uiSequenceBits) - 1);
    if (uiTag != TagOf(uiAskedSequence))
    {
        return;
    }
    if (m_uiOutstanding > 0)
    {
        m_uiOutstanding--;
    }
    if (uiSequence < uiAskedSequence)
    {
        m_uiNextToQueue = std::min(m_uiNextToQueue, uiAskedSequence);
        m_bFlushed = true;
    }
    Accept(uiSequence, uiStampNs);
}

bool CSetBufferEstimate::IsDue()
{
    constexpr uint32_t uiLooksAtStill = 30;
    // Two distances without a common divisor: an application that takes its buffers in turn is caught by one of them.
    constexpr std::array<uint32_t, 2> auiPauses = {7, 9};
    m_uiFields++;
    return m_uiUnchanged < uiLooksAtStill || m_uiFields >= auiPauses[m_uiUnchanged % auiPauses.size()];
}

void CSetBufferEstimate::Sample(uint32_t uiFramebufferId)
{
    m_uiFields = 0;
    m_uiUnchanged++;
    // Going dark sets no buffer.
    if (uiFramebufferId == m_uiFramebufferId || uiFramebufferId == 0)
    {
        return;
    }
    if (m_uiFramebufferId != 0)
    {
        m_uiCount++;
    }
    m_uiFramebufferId = uiFramebufferId;
    m_uiUnchanged = 0;
}
