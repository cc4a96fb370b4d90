#include "VblankTracker.h"

#include <algorithm>

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
