/*
 * The buffers of an input whose application takes too few of them: they fill up, and then fields are skipped.
 *
 * Counted from the field at which the application became slow. Pure functions.
 */
#ifndef SIMULATED_BOARD_CAPTURE_QUEUE_H
#define SIMULATED_BOARD_CAPTURE_QUEUE_H

#include <algorithm>
#include <cstdint>

#include "Schedule.h"
#include "TickMath.h"

struct SSlowConsumer
{
    SSchedule oWhen;
    uint32_t uiTakenPpm = 0; // of the fields, below 10^6

    // Of uiFields, those that it has not taken.
    constexpr uint64_t Untaken(uint64_t uiFields) const
    {
        return uiFields - static_cast<uint64_t>(UInt128{uiFields} * uiTakenPpm / 1'000'000);
    }
    // Those of them that found none of uiRoom buffers.
    constexpr uint64_t Skipped(uint64_t uiFields, uint32_t uiRoom) const
    {
        return Untaken(uiFields) - Waiting(uiFields, uiRoom);
    }
    // And those that wait in one.
    constexpr uint32_t Waiting(uint64_t uiFields, uint32_t uiRoom) const
    {
        return static_cast<uint32_t>(std::min<uint64_t>(Untaken(uiFields), uiRoom));
    }
    // Skipped in the fields up to uiField, over all occurrences; each begins with an empty queue.
    constexpr uint64_t SkippedUpTo(uint64_t uiField, uint32_t uiRoom) const
    {
        const uint64_t uiBegun = oWhen.Occurrences(uiField);
        if (uiBegun == 0)
        {
            return 0;
        }
        const uint64_t uiNewest = std::min(oWhen.Offset(uiField) + 1, oWhen.uiLength);
        return (uiBegun - 1) * Skipped(oWhen.uiLength, uiRoom) + Skipped(uiNewest, uiRoom);
    }
};

#endif
