/*
 * Puts a minute of a stream's history together, second by second. No state.
 */
#ifndef MINUTE_SUMMARY_H
#define MINUTE_SUMMARY_H

#include "HistoryPoint.h"

/* Begin of the minute that a second counts in, UTC. */
int64_t MinuteSummary_GetMinute(const SHistoryPoint& roSecond);

/*
 * Adds a second, without its pacing. Counts add up; rate and phase are means, their standard errors those of a mean of
 * independent seconds; jitter is the largest; drift, lock, state and cadence are the last ones. roSummary        in/out
 * the minute that the second lies in roSecond         in      the second flSeconds        in      how long it really
 * was flPeriodSeconds  in      of the stream: a phase that jumps by more than half of it has only wrapped around
 */
void MinuteSummary_Add(SMinuteSummary& roSummary, const SHistoryPoint& roSecond, double flSeconds,
                       double flPeriodSeconds);

#endif
