/*
 * Makes history out of one snapshot after another: a second per stream, and the minute that it belongs to. One thread.
 */
#ifndef HISTORY_MAKER_H
#define HISTORY_MAKER_H

#include <array>
#include <cstdint>
#include <map>
#include <span>
#include <vector>

#include "HistoryPoint.h"

class CHistoryMaker
{
public:
    /* aoRunning: minutes that an earlier run began and this one goes on with. */
    explicit CHistoryMaker(std::span<const SMinuteSummary> aoRunning);

    /* Takes in what a snapshot says of the time since the one before. */
    void Take(const SWatchSnapshot& roSnapshot);

    // What came of the last snapshot.
    std::span<const SStreamSecond> GetSeconds() const { return m_aoSeconds; }
    /* The minutes that it changed: of each stream the running one, and before it the one that is complete now. */
    std::span<const SMinuteSummary> GetMinutes() const { return m_aoMinutes; }

private:
    struct SStreamPast
    {
        SMinuteSummary oRunning;
        SStreamCounters oCounters; // at the last snapshot
        SPacingHistogram oPacing;  // likewise
    };

    // The last snapshot of a chip.
    struct SChipPast
    {
        int64_t iUtcNs = 0;
        uint64_t uiInstants = 0;
    };

    void TakeDirection(const SWatchSnapshot& roSnapshot, size_t uiSlot);
    void TakeStream(const SStreamFigures& roFigures, int64_t iBeginUtcNs);

    std::map<SStreamKey, SStreamPast> m_oStreams;
    std::vector<SStreamSecond> m_aoSeconds;
    std::vector<SMinuteSummary> m_aoMinutes;
    std::array<SChipPast, uiMaxSlots / 2> m_aoChips; // as in SStreamKey
};

#endif
