/*
 * Two streams against each other: offset, drift, and the state of their lock.
 *
 * The offset is the difference of where both grids lie at the common instant, modulo the shorter period. The drift is
 * the slope of the difference of both phase series, block by block: wander that both share is not in it, and its error
 * comes from how far the differences of the blocks agree (BlockFit.h), though never below what the jitter of the single
 * fields makes of it. Of the windows of 10, 100 and 1000 s the longest counts that a shorter one does not contradict by
 * 4 standard errors.
 *
 * Hysteresis: within the threshold until it is exceeded by a tenth; passing from 4 standard errors of drift on, until
 * it has been below 3 for twice as long as it was above, a minute at most: wander takes a drift through 0 over and
 * over.
 */
#ifndef PAIR_LOCK_H
#define PAIR_LOCK_H

#include "StreamPhase.h"
#include "WatchSettings.h"
#include "WatchSnapshot.h"

// What a pair is judged by, seconds.
struct SPairContext
{
    double flThreshold = 0.0;
    double flTicksPerSecond = 1.0;
    double flLine = 0.0; // that it is told in; 0: not known
};

/* By settings and the line that a pair is told in. */
SPairContext PairContext_Make(const SWatchSettings& roSettings, double flLineSeconds);

// What a pair is judged by wherever its streams are, on one chip or on two.

/* The threshold in seconds: as it is told, or so many lines, of a usual length where theirs is not known. */
double PairLock_GetThreshold(const SLockThreshold& roThreshold, double flLineSeconds);
/* The same with its hysteresis, by the state that the pair was in. */
double PairLock_GetLimit(const SPairFigures& roPair, double flThreshold);
/* How many periods of the faster stream one of the slower has; flRatio is the longer period over the shorter. */
double PairLock_GetMultiple(double flRatio);
/* Whether one of both rates is a whole multiple of the other, by the timings or as measured. */
bool PairLock_AreComparable(const SNominalRate& roSlow, const SNominalRate& roFast, double flRatio);
/* Whether the drift is more than its error, by the state that the pair was in. */
bool PairLock_Drifts(const SPairFigures& roPair);
/* When the offset crosses zero next: a period further on once it is passed. Nothing while no drift is sure. */
SEstimate PairLock_GetSecondsToSlip(const SPairFigures& roPair, double flPeriod, double flOffsetErr);

/*
 * Draws the figures of a pair anew, once a second; its state is read for the hysteresis.
 *   roPair  in/out  all but the indexes
 */
void PairLock_Update(const SStreamPhase& roFirst, const SStreamPhase& roSecond, const SPairContext& roContext,
                     SPairFigures& roPair);

#endif
