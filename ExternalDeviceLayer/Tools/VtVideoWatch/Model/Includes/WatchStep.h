/*
 * What a second of the watch came to: the same for the data in memory, the store and the journal. Plain data; valid for
 * the call that hands it over.
 */
#ifndef WATCH_STEP_H
#define WATCH_STEP_H

#include <span>

#include "HistoryPoint.h"
#include "WatchEvent.h"
#include "WatchPublication.h"

struct SWatchStep
{
    WatchPublicationPtr poPublication;
    std::span<const SWatchEvent> aoEvents;     // new ones, oldest first
    std::span<const SStreamSecond> aoSeconds;  // one per stream
    std::span<const SMinuteSummary> aoMinutes; // that have changed
};

#endif
