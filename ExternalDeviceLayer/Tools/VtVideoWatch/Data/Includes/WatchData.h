/*
 * What the watch knows, for those who show it: the newest publication, the events, the history. One thread writes, any
 * number read. Readers hold it up for no longer than a look through what is in memory takes.
 */
#ifndef WATCH_DATA_H
#define WATCH_DATA_H

#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

#include "WatchHistory.h"
#include "WatchReader.h"
#include "WatchStep.h"

// Events kept in memory; older ones are found in the archive alone.
constexpr uint32_t uiEventsInMemory = 10000;
constexpr uint32_t uiIncidentsInMemory = 1000;

class CWatchData : public IWatchReader
{
public:
    /*
     *   uiNbOfInputs, uiNbOfOutputs  in  streams
     *   poArchive                    in  where older history and events are read from; null: nowhere
     */
    CWatchData(uint32_t uiNbOfInputs, uint32_t uiNbOfOutputs, std::unique_ptr<IWatchArchive> poArchive)
        : m_poArchive(std::move(poArchive)), m_oHistory(uiNbOfInputs, uiNbOfOutputs)
    {
    }

    /* Takes the memory of the streams of one more direction of a chip (StreamKey_GetSlot). */
    void AddStreams(size_t uiSlot, uint32_t uiCount);

    /* Takes over the minutes that an earlier run has left unfinished. Before the first step. */
    void Resume(std::span<const SMinuteSummary> aoRunning);

    /* Takes a second over: history and events first, so that who sees the moment finds them. */
    void Put(const SWatchStep& roStep);

    /* The watch ends: whoever waits for a newer publication gets none. Any thread. */
    void End();

    WatchPublicationPtr GetLatest() const override;
    WatchPublicationPtr AwaitNewer(uint64_t uiKnownNumber, uint32_t uiTimeOutMs) override;
    std::vector<SWatchEvent> FindEvents(const SEventQuery& roQuery) override;
    std::vector<SHistoryPoint> FindHistory(const SHistoryQuery& roQuery) override;
    SHistoryReach GetReach() override;
    std::vector<SIncident> FindIncidents(const SIncidentQuery& roQuery) override;

private:
    const std::unique_ptr<IWatchArchive> m_poArchive;

    mutable std::mutex m_oLatestMutex; // guards the next three
    std::condition_variable m_oNewer;
    WatchPublicationPtr m_poLatest;
    bool m_bHasEnded = false;

    std::mutex m_oMemoryMutex; // guards the rest
    CWatchHistory m_oHistory;
    std::deque<SWatchEvent> m_aoEvents;         // oldest first
    std::map<uint64_t, SIncident> m_oIncidents; // by number
};

#endif
