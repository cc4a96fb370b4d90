/*
 * What the clocks of the machine say, read together by the caller. Plain data.
 */
#ifndef CLOCK_READING_H
#define CLOCK_READING_H

#include <cstdint>

struct SClockReading
{
    uint64_t uiMonotonicNs = 0;           // CLOCK_MONOTONIC
    int64_t iUtcNs = 0;                   // CLOCK_REALTIME at the same moment
    int32_t iTaiOffsetSeconds = 0;        // TAI - UTC, 0: not known
    bool bIsSynchronised = false;         // the kernel's word
    double flEstimatedErrorSeconds = 0.0; // the kernel's estimate
    double flReadingErrorSeconds = 0.0;   // how far apart both clocks may have been read
    double flLeastWakeSeconds = 0.0;      // how late a wake-up is at least, by the caller's own timers; 0: not known

    /* Another moment of CLOCK_MONOTONIC in UTC, however far away: beyond the numbers' range it wraps. */
    int64_t GetUtcNs(uint64_t uiMomentNs) const
    {
        return static_cast<int64_t>(static_cast<uint64_t>(iUtcNs) + (uiMomentNs - uiMonotonicNs));
    }
    /* The other way: before the machine started it is a moment below 0, as the same bits. */
    uint64_t GetMonotonicNs(int64_t iMomentUtcNs) const
    {
        return uiMonotonicNs + (static_cast<uint64_t>(iMomentUtcNs) - static_cast<uint64_t>(iUtcNs));
    }
};

#endif
