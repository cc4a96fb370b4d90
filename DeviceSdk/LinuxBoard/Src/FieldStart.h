/*
 * What both directions deliver for a field: the counter in the unit of the interface and the start in ticks.
 */
#ifndef LINUX_BOARD_FIELD_START_H
#define LINUX_BOARD_FIELD_START_H

#include <cstdint>

#include "BoardUnits.h"

/*
 * Ticks of the reference counter a second, for inputs and outputs alike: CLOCK_MONOTONIC in steps of 10 ns. A reader
 * who reckons hundredths of lines in 32 bits can then take any phase of a signal of 24 Hz or more (2^32 / 1000 ticks
 * are 42.9 ms).
 */
inline constexpr uint32_t uiTickFreqHz = 100000000U;
inline constexpr uint64_t uiNsPerTick = uiNsPerSecond / uiTickFreqHz;

/* Rounded, not cut. */
constexpr uint64_t Ticks_FromNs(uint64_t uiNs)
{
    return (uiNs + uiNsPerTick / 2) / uiNsPerTick;
}

/* The interface's field counters advance by this much a field. */
inline constexpr uint64_t uiCounterPerField = 16;

struct SFieldStart
{
    uint64_t uiFieldCounter = 0; /* 16 a field */
    uint64_t uiStampNs = 0;      /* CLOCK_MONOTONIC */
    bool bIsTopField = false;
};

#endif
