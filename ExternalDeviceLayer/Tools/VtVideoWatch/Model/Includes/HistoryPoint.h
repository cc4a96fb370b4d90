/*
 * A stream's history: seconds, and minutes put together second by second. Plain data.
 */
#ifndef HISTORY_POINT_H
#define HISTORY_POINT_H

#include <cstdint>

#include "TimeUnits.h"
#include "WatchSnapshot.h"

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
    uint32_t uiRepeated = 0; // fields that repeated a picture beyond the feed's cadence
    // Buffers of an input, means; negative: not known.
    float flReady = -1.0F;
    float flLoaned = -1.0F;
    float flHeldSeconds = -1.0F;
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
    // How many seconds went into it, and how many of these knew their rate and their phase.
    uint32_t uiPoints = 0;
    uint32_t uiRatePoints = 0;
    uint32_t uiPhasePoints = 0;
    uint32_t uiQueuePoints = 0;
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

#endif
