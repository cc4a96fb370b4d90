/*
 * The writing side of what the watch knows (WatchData.h). One thread writes: the one that analyses.
 */
#ifndef WATCH_DATA_WRITER_H
#define WATCH_DATA_WRITER_H

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "MinuteSummary.h"
#include "WatchData.h"

// Events kept in memory; older ones are found in the store alone.
constexpr uint32_t uiEventsInMemory = 10000;

void WatchData_Destroy(SWatchData* poData);
struct SWatchDataDeleter
{
    void operator()(SWatchData* poData) const { WatchData_Destroy(poData); }
};
using WatchDataPtr = std::unique_ptr<SWatchData, SWatchDataDeleter>;

/*
 * Makes the data of a watch.
 *   uiNbOfInputs, uiNbOfOutputs  in  streams
 *   rszStoreFile                 in  where older history and events are read from; empty: nowhere
 */
WatchDataPtr WatchData_Create(uint32_t uiNbOfInputs, uint32_t uiNbOfOutputs, const std::string& rszStoreFile);

/* Goes on with the minutes that an earlier run has left unfinished. Before the first publication. */
void WatchData_Resume(SWatchData& roData, std::span<const SMinuteSummary> aoRunning);

/*
 * Publishes a moment: history and events first, so that who sees the moment finds them.
 *   poPublication  in  never changed any more
 *   aoEvents       in  that came with it, oldest first
 * The minutes that it changed, valid until the next call.
 */
std::span<const SMinuteSummary> WatchData_Publish(SWatchData& roData,
                                                  std::shared_ptr<const SWatchPublication> poPublication,
                                                  std::span<const SWatchEvent> aoEvents);

/* The watch ends: whoever waits for a newer publication gets none. Any thread. */
void WatchData_End(SWatchData& roData);

#endif
