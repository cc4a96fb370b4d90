/*
 * A watch whose figures are made up: what the server reads in place of a board. Thread-safe like the real one.
 */
#ifndef MADE_UP_WATCH_H
#define MADE_UP_WATCH_H

#include <condition_variable>
#include <mutex>
#include <vector>

#include "WatchData.h"

struct SWatchData
{
    std::mutex oMutex;
    std::condition_variable oChanged;
    std::shared_ptr<const SWatchPublication> poLatest;
    std::vector<SWatchEvent> aoEvents; // oldest first
    int64_t iPointsFromUtcNs = 0;      // history: one point per second from here on
    int64_t iPointsToUtcNs = 0;
};

/* A publication of so many streams per direction, as of now, with every kind of figure known and unknown. */
SWatchPublication MadeUpWatch_Make(uint64_t uiNumber, uint32_t uiStreams);

void MadeUpWatch_Publish(SWatchData& roData, SWatchPublication oPublication);

/* Adds an event of a kind and returns its number. */
uint64_t MadeUpWatch_AddEvent(SWatchData& roData, EWatchEventKind eKind, EStreamDirection eDirection, uint32_t uiIndex);

/* The moment now, whole seconds of UTC. */
int64_t MadeUpWatch_GetUtcNs();

#endif
