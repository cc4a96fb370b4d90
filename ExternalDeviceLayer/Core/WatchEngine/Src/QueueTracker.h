/*
 * Where the buffers of an input are, field by field: levels of the last seconds, and a consumer that takes nothing out.
 */
#ifndef QUEUE_TRACKER_H
#define QUEUE_TRACKER_H

#include <algorithm>
#include <array>
#include <cstdint>

#include "FieldRecord.h"
#include "StreamTrackers.h"
#include "TimeUnits.h"

class CQueueTracker
{
public:
    explicit CQueueTracker(uint32_t uiTickFrequencyHz) : m_uiSecond(uiTickFrequencyHz) {}

    /* The signal begins anew. */
    void Restart()
    {
        m_uiLeft = 0;
        m_uiFillTick = 0;
        m_uiSkipTick = 0;
        m_bIsStalled = false;
    }
    /* Takes in a field that tells its buffers. */
    void Take(const SFieldRecord& roRecord)
    {
        const uint64_t uiSecond = roRecord.uiArrivalNs / iNsPerSecond;
        SSecond& roSecond = m_aoSeconds[uiSecond % m_aoSeconds.size()];
        if (roSecond.uiSecond != uiSecond)
        {
            roSecond = {};
            roSecond.uiSecond = uiSecond;
        }
        ++roSecond.uiFields;
        roSecond.aoLevels[0].Take(roRecord.uiReadyBuffers);
        roSecond.aoLevels[1].Take(roRecord.uiLoanedBuffers);
        roSecond.aoLevels[2].Take(roRecord.uiInternalBuffers);
        TakeConsumer(roRecord);
    }
    /*
     * The levels before a moment.
     *   flPicturesPerSecond  in  at which pictures come; 0: not known
     */
    void Fill(uint64_t uiNowNs, double flPicturesPerSecond, SQueueFigures& roFigures) const;

    /* Since when too little is taken. 0: the consumer is not stalled. */
    uint64_t GetStalledTick() const { return m_bIsStalled ? m_uiSinceTick : 0; }
    /* The field with which the last stall ended; 0: there was none. */
    uint64_t GetTakenTick() const { return m_uiTakenTick; }
    /* How long the queue took to fill, in ticks, when the field taken in last is the first one for which it had no
     * room; otherwise 0. */
    uint64_t GetFillTicks(uint64_t uiTick) const { return uiTick == m_uiSkipTick ? uiTick - m_uiSinceTick : 0; }

private:
    struct SLevel
    {
        uint32_t uiSum = 0;
        uint16_t uiLeast = UINT16_MAX;
        uint16_t uiMost = 0;

        void Take(uint16_t uiLevel)
        {
            uiSum += uiLevel;
            uiLeast = std::min(uiLeast, uiLevel);
            uiMost = std::max(uiMost, uiLevel);
        }
    };
    struct SSecond
    {
        uint64_t uiSecond = 0;
        uint32_t uiFields = 0;
        std::array<SLevel, 3> aoLevels = {};
    };

    void TakeConsumer(const SFieldRecord& roRecord)
    {
        const bool bSkips = m_bHasSkipped && roRecord.uiSkippedBuffers != m_uiSkipped;
        m_bHasSkipped = roRecord.bHasSkippedBuffers;
        m_uiSkipped = roRecord.uiSkippedBuffers;
        TakeLeft(roRecord.uiInternalBuffers, roRecord.uiTick);
        // The board has no buffer left for the next picture.
        const bool bIsFull = m_uiLeft == 0 && m_bHasSkipped;
        if (!bIsFull)
        {
            m_uiTakenTick = m_bIsStalled ? roRecord.uiTick : m_uiTakenTick;
            m_uiSkipTick = 0;
        }
        else if (bSkips && m_uiSkipTick == 0)
        {
            // Who stopped taking did so when the queue began to fill; a queue that has stood full is full by habit.
            const bool bHasFilled = m_uiFillTick != 0 && roRecord.uiTick - m_uiFullTick < m_uiSecond;
            m_uiSkipTick = roRecord.uiTick;
            m_uiSinceTick = bHasFilled ? m_uiFillTick : roRecord.uiTick;
        }
        m_bIsStalled = m_uiSkipTick != 0 && roRecord.uiTick - m_uiSkipTick >= m_uiSecond;
    }
    // The queue fills while the board has fewer buffers left from field to field, and never more.
    void TakeLeft(uint16_t uiLeft, uint64_t uiTick)
    {
        if (uiLeft > m_uiLeft)
        {
            m_uiFillTick = 0;
        }
        else if (uiLeft < m_uiLeft)
        {
            m_uiFillTick = m_uiFillTick != 0 ? m_uiFillTick : uiTick;
            m_uiFullTick = uiTick;
        }
        m_uiLeft = uiLeft;
    }
    SQueueWindow GetWindow(uint64_t uiEnd, uint32_t uiSeconds) const;

    uint64_t m_uiSecond; // ticks
    uint64_t m_uiSkipped = 0;
    bool m_bHasSkipped = false;
    uint16_t m_uiLeft = 0;      // buffers in the board's hands
    uint64_t m_uiFillTick = 0;  // the first field of those that filled the queue up to now; 0: somebody took
    uint64_t m_uiFullTick = 0;  // the last one of them
    uint64_t m_uiSkipTick = 0;  // the first field that skipped since the queue stands full; 0: none
    uint64_t m_uiSinceTick = 0; // since when too little has been taken for that
    uint64_t m_uiTakenTick = 0;
    bool m_bIsStalled = false;
    std::array<SSecond, 64> m_aoSeconds = {};
};

#endif
