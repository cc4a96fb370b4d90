/*
 * The history that is kept in memory: ten minutes by the second, a day by the minute. All of its memory is taken at the
 * start. Not thread-safe; whoever shares it guards it.
 */
#ifndef WATCH_HISTORY_H
#define WATCH_HISTORY_H

#include <cstdint>
#include <span>
#include <vector>

#include "WatchQuery.h"
#include "WatchReader.h"

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
    /* Takes the memory of the streams of one more direction of a chip. */
    void AddStreams(size_t uiSlot, uint32_t uiCount);

    /* Adds seconds, and minutes: those that run on replace what there was of them. */
    void Add(std::span<const SStreamSecond> aoSeconds, std::span<const SMinuteSummary> aoMinutes);

    /* Appends the points in a query's range that the memory holds, oldest first; the running minute is the last. */
    void Find(const SHistoryQuery& roQuery, std::vector<SHistoryPoint>& raoPoints) const;

    /* Where the memory of a stream begins; INT64_MAX when there is nothing. uiSeconds: 1 or 60. */
    int64_t GetBegin(const SStreamKey& roKey, uint32_t uiSeconds) const;
    /* The earliest of all streams. */
    SHistoryReach GetReach() const;

private:
    struct SStreamHistory
    {
        CPointRing oSeconds{uiSecondsInMemory};
        CPointRing oMinutes{uiMinutesInMemory}; // complete ones
        SMinuteSummary oRunning;
    };

    const SStreamHistory* GetStream(const SStreamKey& roKey) const;
    SStreamHistory* GetStream(const SStreamKey& roKey);

    std::vector<std::vector<SStreamHistory>> m_aoStreams; // by StreamKey_GetSlot
};

#endif
