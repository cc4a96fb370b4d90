/*
 * The moment of everything in an analysis: a whole second of the chip's clock.
 */
#ifndef INSTANT_H
#define INSTANT_H

#include <array>
#include <cstdint>

#include "RateHistory.h"

struct SInstant
{
    bool bHasTick = false; // ticks are tied to CLOCK_MONOTONIC; without that only the next one is set
    uint64_t uiMonotonicNs = 0;
    uint64_t uiTick = 0;
    int64_t iSecond = 0;                 // since tick 0
    uint64_t uiNowNs = 0;                // of the analysis: what has been handed in until then is known
    std::array<SWindowTimes, 3> aoTimes; // by EBlockLength
};

#endif
