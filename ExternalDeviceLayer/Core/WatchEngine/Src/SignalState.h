/*
 * Whether a stream has a signal: its state, and the losses with their begin, end and length.
 *
 * A field makes a stream RUNNING. A wait that the board cancels, or a second without a field (four periods where these
 * are longer) while the thread waits, ends that: the signal is lost since the last field. The next analysis decides
 * whether it is a loss: an output that is off by then, or an input whose capture has been stopped and that just says
 * nothing, is IDLE instead. What the counter jumped over meanwhile are no lost fields.
 */
#ifndef SIGNAL_STATE_H
#define SIGNAL_STATE_H

#include "WatchContext.h"
#include "WatchSnapshot.h"

class CSignalState
{
public:
    CSignalState(SWatchContext& roContext, SStreamFigures& roFigures) : m_roContext(roContext), m_roFigures(roFigures)
    {
    }

    /* A field came. True when it is the first one, or the first after a signal was away. */
    bool TakeField(const SFieldRecord& roRecord, double flPeriod);
    /* A wait ended without a field. */
    void TakeOther(const SFieldRecord& roRecord, double flPeriod);
    /* Decides what is open, and brings the figures up to now. */
    void Analyse(const SClockReading& roClock);

private:
    void Begin(uint64_t uiMonotonicNs);
    void AddSilence(const SFieldRecord& roRecord);
    void BeginAway(bool bIsCanceled);
    void EndAway(const SFieldRecord& roRecord, double flPeriod);
    void DeclareLoss();
    bool IsMeantToRun() const;
    void SetState(EStreamState eState, uint64_t uiTick, uint64_t uiMonotonicNs);
    void AddEvent(EWatchEventKind eKind, uint64_t uiTick, uint64_t uiMonotonicNs, double flSeconds = 0.0);

    SWatchContext& m_roContext;
    SStreamFigures& m_roFigures;
    bool m_bHasField = false;
    bool m_bIsAway = false;      // the signal has gone
    bool m_bIsUndecided = false; // and nobody has said yet what that is
    bool m_bIsCanceled = false;
    uint64_t m_uiLastTick = 0; // of the last field
    uint64_t m_uiLastNs = 0;
    double m_flWaitedNs = 0.0;    // in vain since then
    double m_flTimeOutNs = 250e6; // shortest wait that timed out, at most this
    uint64_t m_uiSinceTick = 0;   // of the state
    uint64_t m_uiSinceNs = 0;
    uint64_t m_uiBeganNs = 0;        // to be watched
    double m_flRunningSeconds = 0.0; // without the present run
    double m_flLostSeconds = 0.0;    // without the present loss
};

#endif
