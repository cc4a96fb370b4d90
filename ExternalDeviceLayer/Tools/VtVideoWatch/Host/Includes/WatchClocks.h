/*
 * The machine's clocks as the watch needs them. No state; any thread.
 */
#ifndef WATCH_CLOCKS_H
#define WATCH_CLOCKS_H

#include <cstdint>
#include <ctime>

#include "ClockReading.h"
#include "TimeUnits.h"

/* A clock now, nanoseconds. */
inline int64_t ReadClockNs(clockid_t iClock)
{
    timespec oNow = {};
    clock_gettime(iClock, &oNow);
    return oNow.tv_sec * iNsPerSecond + oNow.tv_nsec;
}

/* CLOCK_MONOTONIC, nanoseconds. */
inline uint64_t ReadMonotonicNs()
{
    return static_cast<uint64_t>(ReadClockNs(CLOCK_MONOTONIC));
}

/* All clocks at one moment, and what the kernel says about them. */
SClockReading ReadClocks();

#endif
