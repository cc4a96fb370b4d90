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

/* Whether one of both rates is a whole multiple of the other. */
bool PairLock_AreComparable(const SStreamPhase& roFirst, const SStreamPhase& roSecond);

/*
 * Draws the figures of a pair anew, once a second; its state is read for the hysteresis.
 *   roPair  in/out  all but the indexes
 */
void PairLock_Update(const SStreamPhase& roFirst, const SStreamPhase& roSecond, const SPairContext& roContext,
                     SPairFigures& roPair);

#endif
