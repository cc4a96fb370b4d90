/*
 * The newest event of every stream. A snapshot knows its number only; what it was is looked up once and kept.
 */
#ifndef LAST_EVENTS_H
#define LAST_EVENTS_H

#include <map>
#include <vector>

#include "WatchData.h"

// One thread at a time.
class CLastEvents
{
public:
    explicit CLastEvents(SWatchData& roData) : m_roData(roData) {}

    /* Those of a publication's streams, in no order; without those that are no longer kept. */
    const std::vector<SWatchEvent>& Find(const SWatchPublication& roPublication);

private:
    void LookUp(const SStreamFigures& roStream, SWatchEvent& roKept);

    SWatchData& m_roData;
    std::vector<SWatchEvent> m_aoEvents;
    std::map<std::pair<EStreamDirection, uint32_t>, SWatchEvent> m_oByStream;
};

#endif
