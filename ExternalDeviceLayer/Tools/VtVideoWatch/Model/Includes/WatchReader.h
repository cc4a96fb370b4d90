/*
 * How what the watch knows is read: by those who show it from the watch, and by the watch from what is kept on disk.
 * Whoever implements these is thread-safe.
 */
#ifndef WATCH_READER_H
#define WATCH_READER_H

#include <cstdint>
#include <vector>

#include "WatchPublication.h"
#include "WatchQuery.h"

// The moments that the history reaches back to, UTC nanoseconds; INT64_MAX: there is none.
struct SHistoryReach
{
    int64_t iSecondsFromUtcNs = INT64_MAX;
    int64_t iMinutesFromUtcNs = INT64_MAX;
};

class IWatchReader
{
public:
    virtual ~IWatchReader() = default;

    /* The newest publication; null before the first one. Does not block. */
    virtual WatchPublicationPtr GetLatest() const = 0;

    /*
     * Waits for a publication newer than one that is known.
     *   uiKnownNumber  in  its snapshot's number, 0: any
     *   uiTimeOutMs    in  longest wait, milliseconds
     * The newest one, or null after the time-out and when the watch ends. Blocks.
     */
    virtual WatchPublicationPtr AwaitNewer(uint64_t uiKnownNumber, uint32_t uiTimeOutMs) = 0;

    /* Events, newest first; from the archive as well when the memory does not reach back far enough. */
    virtual std::vector<SWatchEvent> FindEvents(const SEventQuery& roQuery) = 0;

    /* Points of a stream's history, oldest first; likewise. */
    virtual std::vector<SHistoryPoint> FindHistory(const SHistoryQuery& roQuery) = 0;

    virtual SHistoryReach GetReach() = 0;

    /* Incidents, newest first; from the archive as well. */
    virtual std::vector<SIncident> FindIncidents(const SIncidentQuery& roQuery) = 0;
};

// What is older than the memory.
class IWatchArchive
{
public:
    virtual ~IWatchArchive() = default;

    /* Appends events that fit a query and are older than one, newest first; uiMost counts what is there already. */
    virtual void FindEvents(const SEventQuery& roQuery, uint64_t uiBeforeNumber,
                            std::vector<SWatchEvent>& raoEvents) = 0;

    /* Appends the minutes of a stream that begin in a query's range, oldest first, at most uiMost, the newest ones. */
    virtual void FindMinutes(const SHistoryQuery& roQuery, std::vector<SMinuteSummary>& raoMinutes) = 0;

    /* Appends incidents that fit a query and are older than one, newest first; uiMost counts what is there already. */
    virtual void FindIncidents(const SIncidentQuery& roQuery, uint64_t uiBeforeNumber,
                               std::vector<SIncident>& raoIncidents) = 0;

    /* Begin of the oldest minute; INT64_MAX when there is none. */
    virtual int64_t GetBegin() = 0;
};

#endif
