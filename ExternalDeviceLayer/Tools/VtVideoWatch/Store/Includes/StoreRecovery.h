/*
 * What a store needs before a new run goes on with it. The caller's connection; no state.
 */
#ifndef STORE_RECOVERY_H
#define STORE_RECOVERY_H

#include <cstdint>
#include <utility>
#include <vector>

#include "EarlierRun.h"
#include "HistoryPoint.h"
#include "StoreFile.h"
#include "WatchEvent.h"
#include "WatchHealth.h"

// What an earlier run has left.
struct SStoreRemains
{
    uint64_t uiLastEvent = 0;              // number of the last event
    std::vector<SWatchEvent> aoUntold;     // the ends that killed runs could not write
    std::vector<SMinuteSummary> aoRunning; // minutes that the new run goes on with
    std::vector<SEarlierStream> aoEarlier; // streams that ran, or were lost, when the last run ended
    uint64_t uiLastIncident = 0;           // number of the last incident
    bool bHasDelivered = false;            // somebody was told of incidents,
    uint64_t uiLastDelivered = 0;          // up to this event
    std::vector<std::pair<SWatchEvent, SIncident>> aoUndelivered; // begins and ends behind it
    std::vector<std::pair<SWatchEvent, SIncident>> aoEnded;       // what a killed run left open, and nobody told of yet
    int64_t iOwnRun = 0;                                          // row of the run itself; 0: there is none yet
};

/*
 * Ends runs that were killed with the events that they could not write (their streams are watched no longer, from the
 * last second on that they wrote, and their incidents are over), puts minutes away that will not go on, and tells which
 * streams ran.
 *   poFile        in
 *   iBeginUtcNs   in   the begin of the run that is to write: its own row, when the file comes back to it, stays open
 *   iNowUtcNs     in
 *   roRemains     out  what it goes on with
 * What the store says when it could not be written or read; nothing has changed in it then.
 */
CFault StoreRecovery_Run(sqlite3* poFile, int64_t iBeginUtcNs, int64_t iNowUtcNs, SStoreRemains& roRemains);

#endif
