/*
 * The grid of one stream's fields: follows it field by field, keeps what is on it, and tells what is off it.
 */
#ifndef STREAM_GRID_H
#define STREAM_GRID_H

#include "GridTracker.h"
#include "RateHistory.h"
#include "RecentFields.h"
#include "StreamOutput.h"
#include "TimeDeviation.h"

class CStreamGrid
{
public:
    explicit CStreamGrid(CStreamOutput& roOutput)
        : m_roOutput(roOutput),
          m_oTracker(roOutput.GetContext().uiTickFrequencyHz),
          m_oHistory(roOutput.GetContext().uiTickFrequencyHz),
          m_flSecondsPerTick(roOutput.GetSecondsPerTick())
    {
    }

    /* Forgets everything: another signal, or the same one after a break. */
    void Restart();
    /* Takes in a field that comes iFields fields (at least 1) after the one before. */
    void Take(const SFieldRecord& roRecord, int64_t iFields);
    /* Dates the field that is farthest off its grid. */
    void Analyse(const SClockReading& roClock);
    /* Closes the seconds before an instant. */
    void CloseBefore(int64_t iSecond) { m_oHistory.CloseBefore(iSecond); }
    /* Takes in the phases of whole seconds up to an instant; flSlope: of the line through the last ten. */
    void TakeTimeErrors(int64_t iSecond, double flSlope);
    /* The time deviation begins anew: its phases are told against another rate. */
    void RestartTimeErrors() { m_oTimeDeviation.Clear(); }

    /* Duration of a field in ticks: by the fields, by the timings until these are there; 0: not known. */
    double GetPeriod() const { return m_oTracker.IsKnown() ? m_oTracker.GetPeriod() : m_roOutput.GetNominalPeriod(); }
    const CRateHistory& GetHistory() const { return m_oHistory; }
    const CRecentFields& GetRecent() const { return m_oRecent; }
    const CTimeDeviation& GetTimeDeviation() const { return m_oTimeDeviation; }

private:
    void TakeEvents(const SGridResult& roResult, uint64_t uiArrivalNs);
    void TakeTimeError(int64_t iSecond, double flSlope);
    void TakePacing(const SGridResult& roResult, uint64_t uiTick);
    void CountDeviation(double flTicks, uint64_t uiTick);

    CStreamOutput& m_roOutput;
    CGridTracker m_oTracker;
    CRateHistory m_oHistory;
    CRecentFields m_oRecent;
    CTimeDeviation m_oTimeDeviation;
    int64_t m_iLastSecond = -1; // whose time error has been taken
    double m_flSecondsPerTick;
    double m_flWorstSeconds = 0.0; // of the field that is farthest off since the last analysis
    uint64_t m_uiWorstTick = 0;    // its stamp; 0: there is none
};

#endif
