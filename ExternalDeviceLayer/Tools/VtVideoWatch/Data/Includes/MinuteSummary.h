/*
 * A minute of a stream's history, put together second by second. Plain data; no state of its own.
 */
#ifndef MINUTE_SUMMARY_H
#define MINUTE_SUMMARY_H

#include <cstdint>

#include "WatchData.h"

struct SMinuteSummary
{
    EStreamDirection eDirection = EStreamDirection::INPUT;
    uint32_t uiIndex = 0;
    SHistoryPoint oPoint; // uiSeconds is 60 from the start
    // How many seconds went into it, and how many of these knew their rate and their phase.
    uint32_t uiPoints = 0;
    uint32_t uiRatePoints = 0;
    uint32_t uiPhasePoints = 0;
    double flWatchedSeconds = 0.0;
    bool bIsComplete = false; // nothing will be added any more
};

/* The begin of the minute that a moment lies in, UTC nanoseconds. */
int64_t MinuteSummary_GetBegin(int64_t iUtcNs);

/*
 * Adds a second. Counts add up; rate and phase are means, their standard errors those of a mean of independent
 * seconds; jitter is the largest; drift, lock and state are the last ones.
 *   roSummary        in/out  the minute that the second lies in
 *   roSecond         in      the second
 *   flSeconds        in      how long it really was
 *   flPeriodSeconds  in      of the stream: a phase that jumps by more than half of it has only wrapped around
 */
void MinuteSummary_Add(SMinuteSummary& roSummary, const SHistoryPoint& roSecond, double flSeconds,
                       double flPeriodSeconds);

#endif
