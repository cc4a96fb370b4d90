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

#include "EarlierRun.h"
#include "StreamOutput.h"

class CSignalState
{
public:
    explicit CSignalState(CStreamOutput& roOutput) : m_roOutput(roOutput), m_roFigures(roOutput.GetFigures()) {}

    /* What earlier runs knew. */
    void TellEarlier(const SEarlierRun& roEarlier) { m_oEarlier = roEarlier; }
    /* A field came. True when it is the first one, or the first after a signal was away. */
    bool TakeField(const SFieldRecord& roRecord, double flPeriod);
    /* A wait ended without a field. */
    void TakeOther(const SFieldRecord& roRecord, double flPeriod);
    /* Decides what is open, and brings the figures up to an instant; roClock: the clocks at it. */
    void Analyse(const SClockReading& roClock);
    /* Another clock has become the board's: what was told by the old one is told by arrivals. */
    void ForgetTicks()
    {
        m_uiSinceTick = 0;
        m_uiLastTick = 0;
    }
    /* Whether fields come: nothing has said yet that the signal has gone. */
    bool IsPresent() const { return m_bHasField && !m_bIsAway && m_roFigures.eState == EStreamState::RUNNING; }

private:
    void Begin(uint64_t uiMonotonicNs);
    void AddSilence(const SFieldRecord& roRecord);
    void BeginAway(bool bIsCanceled);
    void EndAway(const SFieldRecord& roRecord, double flPeriod);
    void ComeBack(const SFieldRecord& roRecord);
    void DeclareLoss();
    void InheritLoss(const SClockReading& roClock);
    bool IsMeantToRun() const;
    void SetState(EStreamState eState, uint64_t uiTick, uint64_t uiMonotonicNs);
    void AddEvent(EWatchEventKind eKind, uint64_t uiTick, uint64_t uiMonotonicNs, double flSeconds = 0.0);

    CStreamOutput& m_roOutput;
    SStreamFigures& m_roFigures;
    bool m_bHasField = false;
    bool m_bIsAway = false;      // the signal has gone
    bool m_bIsUndecided = false; // and nobody has said yet what that is
    bool m_bIsCanceled = false;
    bool m_bIsBackWithout = false; // the device came back, and no field yet
    SEarlierRun m_oEarlier;
    uint64_t m_uiLastTick = 0; // of the last field; of the device's return: 0
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
