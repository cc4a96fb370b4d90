/*
 * The history that is kept in memory: ten minutes by the second, a day by the minute. All of its memory is taken at the
 * start. Not thread-safe; whoever shares it guards it.
 */
#ifndef WATCH_HISTORY_H
#define WATCH_HISTORY_H

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "MinuteSummary.h"
#include "WatchData.h"

constexpr uint32_t uiSecondsInMemory = 600;
constexpr uint32_t uiMinutesInMemory = 1440;

// The newest points, and the oldest give way.
class CPointRing
{
public:
    explicit CPointRing(uint32_t uiCapacity) : m_aoPoints(uiCapacity) {}
    void Add(const SHistoryPoint& roPoint);
    uint32_t GetCount() const { return m_uiCount; }
    /* The points from 0, the oldest. */
    const SHistoryPoint& operator[](uint32_t uiPoint) const;

private:
    std::vector<SHistoryPoint> m_aoPoints;
    uint32_t m_uiNext = 0;
    uint32_t m_uiCount = 0;
};

class CWatchHistory
{
public:
    CWatchHistory(uint32_t uiNbOfInputs, uint32_t uiNbOfOutputs);

    /* Takes up a minute that an earlier run began and this one goes on with. */
    void Resume(const SMinuteSummary& roSummary);

    /*
     * Adds what a snapshot says of the time since the one before.
     * The minutes that it changed, until the next call: of each stream the running one, and before it the one that is
     * complete now.
     */
    std::span<const SMinuteSummary> Add(const SWatchSnapshot& roSnapshot);

    /* Appends the points in a query's range that the memory holds, oldest first; the running minute is the last. */
    void Find(const SHistoryQuery& roQuery, std::vector<SHistoryPoint>& raoPoints) const;

    /* Where the memory of a stream begins; INT64_MAX when there is nothing. uiSeconds: 1 or 60. */
    int64_t GetBegin(EStreamDirection eDirection, uint32_t uiIndex, uint32_t uiSeconds) const;
    /* The earliest of all streams. */
    int64_t GetBegin(uint32_t uiSeconds) const;

private:
    struct SStreamHistory
    {
        CPointRing oSeconds{uiSecondsInMemory};
        CPointRing oMinutes{uiMinutesInMemory}; // complete ones
        SMinuteSummary oRunning;
        SStreamCounters oCounters; // at the last snapshot
    };

    const SStreamHistory* GetStream(EStreamDirection eDirection, uint32_t uiIndex) const;
    void AddStream(const SStreamFigures& roFigures, int64_t iBeginUtcNs);

    std::array<std::vector<SStreamHistory>, 2> m_aoStreams;
    std::vector<SMinuteSummary> m_aoChanged;
    int64_t m_iLastUtcNs = 0;
};

#endif
