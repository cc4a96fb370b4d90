/*
 * Where everything that is found out about one stream comes out: its figures, its counters, its events.
 */
#ifndef STREAM_OUTPUT_H
#define STREAM_OUTPUT_H

#include "WatchContext.h"
#include "WatchSnapshot.h"

class CStreamOutput
{
public:
    CStreamOutput(SWatchContext& roContext, const SStreamKey& roKey) : m_roContext(roContext)
    {
        m_oFigures.oKey = roKey;
    }
    CStreamOutput(const CStreamOutput&) = delete;
    CStreamOutput& operator=(const CStreamOutput&) = delete;

    SWatchContext& GetContext() const { return m_roContext; }
    SStreamFigures& GetFigures() { return m_oFigures; }
    const SStreamFigures& GetFigures() const { return m_oFigures; }
    SStreamCounters& GetCounters() { return m_oFigures.oCounters; }
    bool IsOutput() const { return m_oFigures.oKey.eDirection == EStreamDirection::OUTPUT; }
    /* This stream among all. */
    uint64_t GetBit() const
    {
        return uint64_t{1} << (m_oFigures.oKey.uiIndex + (IsOutput() ? uiMaxStreamsPerDirection : 0));
    }
    double GetSecondsPerTick() const { return 1.0 / m_roContext.uiTickFrequencyHz; }
    /* Nominal duration of a field in ticks; 0: not known. */
    double GetNominalPeriod() const
    {
        return m_oFigures.flNominalRateHz > 0.0 ? m_roContext.uiTickFrequencyHz / m_oFigures.flNominalRateHz : 0.0;
    }

    /* An event of this stream; uiTick 0: its moment is the one that it is added with. */
    SWatchEvent MakeEvent(EWatchEventKind eKind, uint64_t uiTick = 0, uint64_t uiCount = 1) const
    {
        SWatchEvent oEvent = {};
        oEvent.eKind = eKind;
        oEvent.oKey = m_oFigures.oKey;
        oEvent.uiTick = uiTick;
        oEvent.uiCount = uiCount;
        return oEvent;
    }
    void AddEvent(const SWatchEvent& roEvent, uint64_t uiMonotonicNs)
    {
        m_roContext.oEvents.Add(roEvent, uiMonotonicNs);
    }

private:
    SWatchContext& m_roContext;
    SStreamFigures m_oFigures;
};

#endif
