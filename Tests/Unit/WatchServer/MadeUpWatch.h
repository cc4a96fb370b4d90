/*
 * A watch whose figures are made up: what the server reads is the real one, which no board fills.
 */
#ifndef MADE_UP_WATCH_H
#define MADE_UP_WATCH_H

#include <vector>

#include "WatchData.h"

class CMadeUpWatch : public CWatchData
{
public:
    CMadeUpWatch() : CWatchData(32, 32, nullptr) {}

    /* With the events and points that were added since the last one. One thread. */
    void Publish(SWatchPublication oPublication);

    /* They are numbered from 1. */
    void AddEvent(EWatchEventKind eKind, const SStreamKey& roKey);

    /* A point per second. */
    void AddPoints(const SStreamKey& roKey, int64_t iFromUtcNs, int64_t iToUtcNs);

private:
    std::vector<SWatchEvent> m_aoEvents; // oldest first
    size_t m_uiToldEvents = 0;
    std::vector<SStreamSecond> m_aoSeconds;
    std::vector<SMinuteSummary> m_aoMinutes;
};

/* A publication of so many streams per direction, as of now, with every kind of figure known and unknown. */
SWatchPublication MadeUpWatch_Make(uint64_t uiNumber, uint32_t uiStreams);

/* The moment now, whole seconds of UTC. */
int64_t MadeUpWatch_GetUtcNs();

#endif
