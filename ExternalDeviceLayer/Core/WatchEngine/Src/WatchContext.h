/*
 * What all streams of an engine share.
 */
#ifndef WATCH_CONTEXT_H
#define WATCH_CONTEXT_H

#include <algorithm>
#include <array>
#include <span>

#include "EventQueue.h"
#include "FieldAccounting.h"
#include "TickClock.h"

// When waits were due and did not return, in the last seconds; the longest ones. Those that touch are one.
class CStallList
{
public:
    void Add(const SStall& roNew)
    {
        for (SStall& roStall : std::span(m_aoStalls.data(), m_uiCount))
        {
            SStretch& roStretch = roStall.oStretch;
            if (roNew.oStretch.uiBeginNs <= roStretch.uiEndNs && roStretch.uiBeginNs <= roNew.oStretch.uiEndNs)
            {
                roStretch = {std::min(roNew.oStretch.uiBeginNs, roStretch.uiBeginNs),
                             std::max(roNew.oStretch.uiEndNs, roStretch.uiEndNs)};
                roStall.uiReady |= roNew.uiReady;
                roStall.uiHeld |= roNew.uiHeld;
                roStall.bIsMachine |= roNew.bIsMachine;
                return;
            }
        }
        if (m_uiCount < m_aoStalls.size())
        {
            m_aoStalls[m_uiCount++] = roNew;
            return;
        }
        const auto itShorter = std::ranges::find_if(m_aoStalls, [&](const SStall& roStall)
                                                    { return GetLength(roStall) < GetLength(roNew); });
        if (itShorter != m_aoStalls.end())
        {
            *itShorter = roNew;
        }
    }
    /* Forgets what ended before a moment. */
    void DropBefore(uint64_t uiMomentNs)
    {
        size_t uiKept = 0;
        for (const SStall& roStall : Get())
        {
            if (roStall.oStretch.uiEndNs >= uiMomentNs)
            {
                m_aoStalls[uiKept++] = roStall;
            }
        }
        m_uiCount = uiKept;
    }
    std::span<const SStall> Get() const { return {m_aoStalls.data(), m_uiCount}; }

private:
    static uint64_t GetLength(const SStall& roStall) { return roStall.oStretch.uiEndNs - roStall.oStretch.uiBeginNs; }

    std::array<SStall, 64> m_aoStalls = {};
    size_t m_uiCount = 0;
};

// Where the next instant lies: what belongs behind it waits until it has been analysed.
struct SBoundary
{
    bool bIsKnown = false;
    bool bHasTick = false;
    uint64_t uiTick = 0;
    uint64_t uiMonotonicNs = 0;

    bool IsBefore(const SFieldRecord& roRecord) const
    {
        const bool bByTick = bHasTick && roRecord.eResult == EWaitResult::FIELD;
        return bIsKnown &&
               static_cast<int64_t>(bByTick ? roRecord.uiTick - uiTick : roRecord.uiArrivalNs - uiMonotonicNs) >= 0;
    }
};

struct SWatchContext
{
    SWatchContext(const SWatchSettings& roSettings, uint32_t uiNbOfInputs, uint32_t uiNbOfOutputs)
        : uiTickFrequencyHz(roSettings.uiTickFrequencyHz),
          bSetsAreEstimated(roSettings.bSetsAreEstimated),
          oClock(roSettings),
          oEvents(roSettings, uiNbOfInputs, uiNbOfOutputs)
    {
    }

    uint32_t uiTickFrequencyHz;
    bool bSetsAreEstimated;
    CTickClock oClock;
    CEventQueue oEvents;
    CStallList oStalls;
    SBoundary oNext;
};

#endif
