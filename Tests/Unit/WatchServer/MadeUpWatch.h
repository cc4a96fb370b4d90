/*
 * A watch whose figures are made up: what the server reads in place of a board. Thread-safe like the real one.
 */
#ifndef MADE_UP_WATCH_H
#define MADE_UP_WATCH_H

#include <condition_variable>
#include <mutex>
#include <vector>

#include "WatchReader.h"

class CMadeUpWatch : public IWatchReader
{
public:
    void Publish(SWatchPublication oPublication);

    /* Adds an event of a kind and returns its number. */
    uint64_t AddEvent(EWatchEventKind eKind, const SStreamKey& roKey);

    /* A history of a point per second. */
    void SetPoints(int64_t iFromUtcNs, int64_t iToUtcNs);

    WatchPublicationPtr GetLatest() const override;
    WatchPublicationPtr AwaitNewer(uint64_t uiKnownNumber, uint32_t uiTimeOutMs) override;
    std::vector<SWatchEvent> FindEvents(const SEventQuery& roQuery) override;
    std::vector<SHistoryPoint> FindHistory(const SHistoryQuery& roQuery) override;
    SHistoryReach GetReach() override;
    /* Those of the newest publication that fit. */
    std::vector<SIncident> FindIncidents(const SIncidentQuery& roQuery) override;

private:
    mutable std::mutex m_oMutex;
    std::condition_variable m_oChanged;
    WatchPublicationPtr m_poLatest;
    std::vector<SWatchEvent> m_aoEvents; // oldest first
    int64_t m_iPointsFromUtcNs = INT64_MAX;
    int64_t m_iPointsToUtcNs = INT64_MAX;
};

/* A publication of so many streams per direction, as of now, with every kind of figure known and unknown. */
SWatchPublication MadeUpWatch_Make(uint64_t uiNumber, uint32_t uiStreams);

/* The moment now, whole seconds of UTC. */
int64_t MadeUpWatch_GetUtcNs();

#endif
