/*
 * A stream's history: seconds, and minutes put together second by second. Plain data.
 */
#ifndef HISTORY_POINT_H
#define HISTORY_POINT_H

#include <cstdint>

#include "TimeUnits.h"
#include "WatchSnapshot.h"

// Buffers of an input in one place.
struct SBufferLevel
{
    float flMean = -1.0F; // negative: not known
    uint16_t uiLeast = 0;
    uint16_t uiMost = 0;

    bool IsKnown() const { return flMean >= 0.0F; }
};

// How far fields were off their grid, seconds; percentiles as those of SPacingFigures. Without fields all is 0.
struct SPacingPoint
{
    uint32_t uiFields = 0;
    float flP50 = 0.0F;
    float flP95 = 0.0F;
    float flP99 = 0.0F;
    float flP999 = 0.0F;
    float flWorst = 0.0F; // signed
};

// A second, or a minute with its extremes.
struct SHistoryPoint
{
    int64_t iUtcNs = 0;     // begin
    uint32_t uiSeconds = 0; // 1 or 60
    uint32_t uiFields = 0;
    uint32_t uiObserved = 0;
    uint32_t uiLost = 0;
    uint32_t uiUnobserved = 0;
    uint32_t uiSkipped = 0;
    uint32_t uiRepeated = 0;     // fields that repeated a picture beyond the feed's cadence
    float flHeldSeconds = -1.0F; // how long a picture waited in the queue of an input, mean; negative: not known
    // Buffers of an input.
    SBufferLevel oReady;
    SBufferLevel oLoaned;
    SBufferLevel oInternal;
    uint64_t uiCadence = 0; // of an output at its end, as Cadence_Pack makes it; 0: none
    SPacingPoint oPacing;
    double flRunningSeconds = 0.0;
    SEstimate oRateHz;
    SEstimate oPhaseSeconds; // against the reference; the mean of a minute
    double flPhaseMinSeconds = 0.0;
    double flPhaseMaxSeconds = 0.0;
    SEstimate oDriftRatio;
    double flJitterRmsSeconds = 0.0;
    ELockState eLock = ELockState::IDLE; // at its end
    EStreamState eState = EStreamState::IDLE;
};

struct SStreamSecond
{
    SStreamKey oKey;
    SHistoryPoint oPoint;
};

struct SMinuteSummary
{
    SStreamKey oKey;
    SHistoryPoint oPoint; // uiSeconds is 60 from the start
    // How many seconds went into it, and how many of these knew their rate, their phase, their buffers, and how long
    // these were held.
    uint32_t uiPoints = 0;
    uint32_t uiRatePoints = 0;
    uint32_t uiPhasePoints = 0;
    uint32_t uiQueuePoints = 0;
    uint32_t uiHeldPoints = 0;
    SPacingHistogram oPacing; // of its fields
    double flWatchedSeconds = 0.0;
    bool bIsComplete = false; // nothing will be added any more
};

/* The begin of the minute that a moment lies in, UTC nanoseconds. */
constexpr int64_t HistoryPoint_GetMinute(int64_t iUtcNs)
{
    const int64_t iRest = iUtcNs % iNsPerMinute;
    return iUtcNs - (iRest < 0 ? iRest + iNsPerMinute : iRest);
}

/* What a histogram says, for a point. */
inline SPacingPoint HistoryPoint_GetPacing(const SPacingHistogram& roPacing)
{
    const SPacingFigures oFigures = Pacing_GetFigures(roPacing);
    return {static_cast<uint32_t>(oFigures.uiCount), static_cast<float>(oFigures.flP50),
            static_cast<float>(oFigures.flP95),      static_cast<float>(oFigures.flP99),
            static_cast<float>(oFigures.flP999),     static_cast<float>(roPacing.oWorst.flSeconds)};
}

#endif
