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

    /* 0: the consumer is not stalled. */
    uint64_t GetStalledTick() const { return m_bIsStalled ? m_uiSkipTick : 0; }

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
        // The board has no buffer left for the next picture.
        const bool bIsFull = roRecord.uiInternalBuffers == 0 && m_bHasSkipped;
        if (!bIsFull)
        {
            m_uiSkipTick = 0;
        }
        else if (bSkips && m_uiSkipTick == 0)
        {
            m_uiSkipTick = roRecord.uiTick;
        }
        m_bIsStalled = m_uiSkipTick != 0 && roRecord.uiTick - m_uiSkipTick >= m_uiSecond;
    }
    SQueueWindow GetWindow(uint64_t uiEnd, uint32_t uiSeconds) const;

    uint64_t m_uiSecond; // ticks
    uint64_t m_uiSkipped = 0;
    bool m_bHasSkipped = false;
    uint64_t m_uiSkipTick = 0; // the first field that skipped since the queue stands full; 0: none
    bool m_bIsStalled = false;
    std::array<SSecond, 64> m_aoSeconds = {};
};

#endif
