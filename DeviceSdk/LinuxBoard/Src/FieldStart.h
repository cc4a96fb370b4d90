/*
 * What both directions deliver for a field: the counter in the unit of the interface and the start in ticks.
 */
#ifndef LINUX_BOARD_FIELD_START_H
#define LINUX_BOARD_FIELD_START_H

#include <cstdint>

namespace LinuxBoard
{

/* Ticks of the reference counter a second: CLOCK_MONOTONIC in nanoseconds, for inputs and outputs alike. */
inline constexpr uint32_t uiTickFreqHz = 1000000000U;

/* The interface's field counters advance by this much a field. */
inline constexpr uint64_t uiCounterPerField = 16;

struct SFieldStart
{
    uint64_t uiFieldCounter = 0; /* 16 a field */
    uint64_t uiTickNs = 0;
    bool bIsTopField = false;
};

} // namespace LinuxBoard

#endif
