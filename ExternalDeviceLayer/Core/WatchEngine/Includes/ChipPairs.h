/*
 * Streams of different chips against each other. Each chip counts by itself: what ties them is how each one's ticks
 * stand to CLOCK_MONOTONIC, or a clock that they share. A pair carries the uncertainty of both ties beside its standard
 * error, and is in lock only as far as both are within the threshold together.
 *
 * One thread owns it.
 */
#ifndef CHIP_PAIRS_H
#define CHIP_PAIRS_H

#include <vector>

#include "WatchSnapshot.h"

class CChipPairs
{
public:
    /*
     * Compares the streams of one direction of all chips anew, once a second.
     *   roSnapshot  in/out  its chips and their figures in, its pairs of chips out
     */
    void Update(SWatchSnapshot& roSnapshot);

private:
    std::vector<SChipPairFigures> m_aoPairs; // of the last second: who was in lock stays so a little beyond
};

#endif
