/*
 * One stream: its records and descriptions in, its figures out.
 */
#ifndef STREAM_WATCH_H
#define STREAM_WATCH_H

#include <memory>
#include <vector>

#include "GridTracker.h"
#include "RecentFields.h"
#include "SignalState.h"
#include "StreamPhase.h"
#include "TimeDeviation.h"

class CStreamWatch
{
public:
    CStreamWatch(SWatchContext& roContext, const SStreamKey& roKey);
    CStreamWatch(const CStreamWatch&) = delete;
    CStreamWatch& operator=(const CStreamWatch&) = delete;

    void TakeRecord(const SFieldRecord& roRecord);
    void TakeDescription(const SStreamDescription& roDescription);
    /* Judges what is open; the arrivals of all streams up to now are in. */
    void AnalyseFields(const SClockReading& roClock);
    /* Draws the figures for a new instant. */
    void AnalysePhase(const SInstant& roInstant);

    SStreamFigures& GetFigures() { return m_oFigures; }
    const SStreamFigures& GetFigures() const { return m_oFigures; }
    const SStreamPhase& GetPhase() const { return m_oPhase; }
    double GetPeriod() const;

private:
    static constexpr size_t msc_uiMostGaps = 32;

    void TakeField(const SFieldRecord& roRecord);
    void TakeArrival(const SFieldRecord& roRecord);
    void TakeRepeated(const SFieldRecord& roRecord);
    void TakeGap(const SFieldRecord& roRecord, int64_t iMissing);
    void TakeBuffers(const SFieldRecord& roRecord, int64_t iFields);
    void TakeGrid(const SFieldRecord& roRecord, int64_t iFields);
    void TakeGridEvents(const SGridResult& roResult);
    void TakeTimings(const SStreamDescription& roDescription);
    void TakeStates(const SStreamDescription& roDescription);
    void TakeStall(const SFieldRecord& roRecord, int64_t iFields);
    void JudgeGaps(uint64_t uiNowNs);
    void JudgeGap(const SFieldGap& roGap);
    double GetNominalPeriod() const;
    void RestartGrid();
    void ChooseNominal();
    void FillRates(const std::array<SRateFit, 3>& raoFits, int64_t iSecond);
    void FillRate(ERateWindow eWindow, const SRateFit& roFit);
    void FillJitter(const SRateFit& roTen, const SInstant& roInstant);
    void TakeTimeError(int64_t iSecond, double flSlope);
    SWatchEvent MakeEvent(EWatchEventKind eKind, uint64_t uiTick = 0, uint64_t uiCount = 1) const;
    void AddEvent(const SWatchEvent& roEvent) { m_roContext.oEvents.Add(roEvent, m_oLast.uiArrivalNs); }

    SWatchContext& m_roContext;
    SStreamFigures m_oFigures;
    CSignalState m_oSignal;
    CWaitTrace m_oTrace;
    CGridTracker m_oTracker;
    CRateHistory m_oHistory;
    CRecentFields m_oRecent;
    CTimeDeviation m_oTimeDeviation;
    SStreamPhase m_oPhase;

    SFieldRecord m_oLast = {}; // field
    bool m_bHasDescription = false;
    VtVideo_VidParam m_oTimings = {}; // the last ones of a signal
    bool m_bIsAmbiguous = false;      // they leave more than one nominal rate
    uint64_t m_uiSkippedBefore = 0;
    bool m_bHasSkippedBefore = false;
    double m_flUsualLateNs = 0.0;
    double m_flLateNs = 0.0;    // of the last field
    int64_t m_iLastSecond = -1; // whose time error has been taken
    size_t m_uiNbOfGaps = 0;
    std::array<SFieldGap, msc_uiMostGaps> m_aoGaps = {};
};

#endif
