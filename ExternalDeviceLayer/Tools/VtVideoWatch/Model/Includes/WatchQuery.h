/*
 * What is asked of events and history, and what fits. No state; any thread.
 */
#ifndef WATCH_QUERY_H
#define WATCH_QUERY_H

#include <cstdint>

#include "HistoryPoint.h"
#include "WatchEvent.h"
#include "WatchHealth.h"

struct SHistoryQuery
{
    SStreamKey oKey;
    int64_t iFromUtcNs = 0;
    int64_t iToUtcNs = 0;   // exclusive
    uint32_t uiSeconds = 1; // 1 or 60
    uint32_t uiMost = 1000; // points at most; the newest ones
};

/* Every stream that there can be. */
constexpr StreamBits StreamBits_GetAll()
{
    StreamBits auiAll = {};
    auiAll.fill(~0U);
    return auiAll;
}

struct SEventQuery
{
    int64_t iFromUtcNs = INT64_MIN;
    int64_t iToUtcNs = INT64_MAX;         // exclusive
    uint64_t uiAfterNumber = 0;           // only newer ones
    uint64_t uiBeforeNumber = UINT64_MAX; // only older ones
    uint64_t uiKinds = ~0ULL;             // bit k: EWatchEventKind k
    StreamBits auiStreams = StreamBits_GetAll();
    uint32_t uiMost = 1000; // the newest ones
};

struct SIncidentQuery
{
    int64_t iFromUtcNs = INT64_MIN; // those that end later, or are open
    int64_t iToUtcNs = INT64_MAX;   // and begin before
    bool bOnlyOpen = false;
    bool bOnlyEnded = false;
    uint32_t uiMost = 1000; // the newest ones
};

/* Whether an incident fits. */
bool WatchQuery_Fits(const SIncident& roIncident, const SIncidentQuery& roQuery);

/* Whether a point begins in the range that is asked for. */
bool WatchQuery_Fits(const SHistoryPoint& roPoint, const SHistoryQuery& roQuery);

/*
 * Whether an event fits: its moment, number, kind and stream; one of a lock group fits by any of its members, one of a
 * pair by either stream.
 */
bool WatchQuery_Fits(const SWatchEvent& roEvent, const SEventQuery& roQuery);

#endif
