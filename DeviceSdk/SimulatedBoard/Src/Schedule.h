/*
 * When an event of a stream happens, in field numbers: once or periodically, for a number of fields.
 *
 * Every question is answered in closed form, so that the state of any field is known without those before it. A
 * periodic schedule's length is below its period, which the scenario reader sees to. Pure functions.
 */
#ifndef SIMULATED_BOARD_SCHEDULE_H
#define SIMULATED_BOARD_SCHEDULE_H

#include <algorithm>
#include <cstdint>
#include <limits>

inline constexpr uint64_t uiForEver = std::numeric_limits<uint64_t>::max();

struct SSchedule
{
    uint64_t uiFirst = 0;         // first field of the first occurrence
    uint64_t uiLength = 1;        // fields of an occurrence, uiForEver for one that does not end
    uint64_t uiPeriod = 0;        // fields from one occurrence to the next, 0: once
    uint64_t uiTimes = uiForEver; // occurrences of a periodic one, at least 1

    // Occurrences that have begun at uiField or before.
    constexpr uint64_t Occurrences(uint64_t uiField) const
    {
        if (uiField < uiFirst)
        {
            return 0;
        }
        return uiPeriod == 0 ? 1 : 1 + BegunAfterTheFirst(uiField);
    }

    // Fields since the beginning of the last occurrence; uiField must not be before the first.
    constexpr uint64_t Offset(uint64_t uiField) const
    {
        return uiField - uiFirst - (uiPeriod == 0 ? 0 : BegunAfterTheFirst(uiField) * uiPeriod);
    }

    constexpr bool IsActive(uint64_t uiField) const { return uiField >= uiFirst && Offset(uiField) < uiLength; }

    constexpr bool IsFirstOf(uint64_t uiField) const { return uiField >= uiFirst && Offset(uiField) == 0; }

    // Active fields among those before uiField.
    constexpr uint64_t ActiveBefore(uint64_t uiField) const
    {
        if (uiField <= uiFirst)
        {
            return 0;
        }
        const uint64_t uiWhole = uiPeriod == 0 ? 0 : BegunAfterTheFirst(uiField);
        return uiWhole * uiLength + std::min(uiField - uiFirst - uiWhole * uiPeriod, uiLength);
    }

private:
    // Of a periodic one, from its first on.
    constexpr uint64_t BegunAfterTheFirst(uint64_t uiField) const
    {
        return std::min((uiField - uiFirst) / uiPeriod, uiTimes - 1);
    }
};

#endif
