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
    void Add(uint64_t uiBeginNs, uint64_t uiEndNs)
    {
        for (SStretch& roStall : std::span(m_aoStalls.data(), m_uiCount))
        {
            if (uiBeginNs <= roStall.uiEndNs && roStall.uiBeginNs <= uiEndNs)
            {
                roStall = {std::min(uiBeginNs, roStall.uiBeginNs), std::max(uiEndNs, roStall.uiEndNs)};
                return;
            }
        }
        if (m_uiCount < m_aoStalls.size())
        {
            m_aoStalls[m_uiCount++] = {uiBeginNs, uiEndNs};
            return;
        }
        for (SStretch& roStall : m_aoStalls)
        {
            if (roStall.uiEndNs - roStall.uiBeginNs < uiEndNs - uiBeginNs)
            {
                roStall = {uiBeginNs, uiEndNs};
                return;
            }
        }
    }
    /* Forgets what ended before a moment. */
    void DropBefore(uint64_t uiMomentNs)
    {
        size_t uiKept = 0;
        for (const SStretch& roStall : Get())
        {
            if (roStall.uiEndNs >= uiMomentNs)
            {
                m_aoStalls[uiKept++] = roStall;
            }
        }
        m_uiCount = uiKept;
    }
    std::span<const SStretch> Get() const { return {m_aoStalls.data(), m_uiCount}; }

private:
    std::array<SStretch, 64> m_aoStalls = {};
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
          oClock(roSettings),
          oEvents(roSettings, uiNbOfInputs, uiNbOfOutputs)
    {
    }

    uint32_t uiTickFrequencyHz;
    CTickClock oClock;
    CEventQueue oEvents;
    CStallList oStalls;
    SBoundary oNext;
};

#endif
