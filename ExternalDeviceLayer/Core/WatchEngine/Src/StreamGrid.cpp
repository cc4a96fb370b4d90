#include "StreamGrid.h"

#include <algorithm>
#include <cmath>

namespace
{

constexpr double flWholeSecond = 0.9; // of its fields are there

} // namespace

void CStreamGrid::Restart()
{
    m_oTracker.Restart();
    m_oHistory.Stop();
    m_oTimeDeviation.Clear();
}

void CStreamGrid::Take(const SFieldRecord& roRecord, int64_t iFields)
{
    const SGridResult oResult = m_oTracker.Take(iFields, roRecord.uiTick);
    switch (oResult.eVerdict)
    {
    case EGridVerdict::FOUND:
        m_oHistory.Begin(roRecord.uiTick, std::llround(m_oTracker.GetPeriod()));
        m_oRecent.Clear();
        m_oTimeDeviation.Clear();
        m_oHistory.Take(0, roRecord.uiTick);
        m_oRecent.Take(m_oHistory.GetSecond(), 0, 0);
        break;
    case EGridVerdict::ON_GRID:
        m_oHistory.Take(oResult.iNumber, roRecord.uiTick);
        m_oRecent.Take(m_oHistory.GetSecond(), oResult.iNumber, m_oHistory.GetPhase(oResult.iNumber, roRecord.uiTick));
        break;
    case EGridVerdict::MOVED:
        m_oHistory.Stop();
        m_oTimeDeviation.Clear();
        break;
    case EGridVerdict::SEARCHING:
    case EGridVerdict::HELD:
        break;
    }
    TakePacing(oResult, roRecord.uiTick);
    TakeEvents(oResult, roRecord.uiArrivalNs);
}

// Fields of a grid that has moved tell nothing of their pacing.
void CStreamGrid::TakePacing(const SGridResult& roResult, uint64_t uiTick)
{
    for (uint32_t uiField = 0; uiField < roResult.uiReleased; ++uiField)
    {
        CountDeviation(m_oTracker.GetReleased(uiField), m_oTracker.GetReleasedTick(uiField));
    }
    if (roResult.bHasDeviation)
    {
        CountDeviation(roResult.flDeviationTicks, uiTick);
    }
}

void CStreamGrid::CountDeviation(double flTicks, uint64_t uiTick)
{
    const double flSeconds = flTicks * m_flSecondsPerTick;
    SPacingHistogram& roPacing = m_roOutput.GetFigures().oPacing;
    ++roPacing.auiCounts[Pacing_GetBin(flSeconds)];
    roPacing.flSumSeconds += flSeconds;
    if (std::abs(flSeconds) > std::abs(m_flWorstSeconds))
    {
        m_flWorstSeconds = flSeconds;
        m_uiWorstTick = uiTick;
    }
}

void CStreamGrid::Analyse(const SClockReading& roClock)
{
    const CTickClock& roTicks = m_roOutput.GetContext().oClock;
    SStreamFigures& roFigures = m_roOutput.GetFigures();
    roFigures.oPacingWorst = {};
    if (m_uiWorstTick != 0 && roTicks.IsKnown())
    {
        roFigures.oPacingWorst = {m_flWorstSeconds, roClock.GetUtcNs(roTicks.ToMonotonicNs(m_uiWorstTick))};
        m_flWorstSeconds = 0.0;
        m_uiWorstTick = 0;
    }
    if (std::abs(roFigures.oPacingWorst.flSeconds) > std::abs(roFigures.oPacing.oWorst.flSeconds))
    {
        roFigures.oPacing.oWorst = roFigures.oPacingWorst;
    }
}

void CStreamGrid::TakeEvents(const SGridResult& roResult, uint64_t uiArrivalNs)
{
    const auto Add = [&](EWatchEventKind eKind, uint64_t uiTick, uint64_t uiCount, double flTicks)
    {
        SWatchEvent oEvent = m_roOutput.MakeEvent(eKind, uiTick, uiCount);
        oEvent.flSeconds = flTicks * m_roOutput.GetSecondsPerTick();
        m_roOutput.AddEvent(oEvent, uiArrivalNs);
    };
    SStreamCounters& roCounters = m_roOutput.GetCounters();
    if (roResult.uiEarly + roResult.uiLate > 0)
    {
        m_oRecent.TakeOffGrid(m_oHistory.GetSecond(), roResult.uiEarly, roResult.uiLate);
    }
    if (roResult.uiEarly > 0)
    {
        roCounters.uiFieldsEarly += roResult.uiEarly;
        Add(EWatchEventKind::FIELD_EARLY, roResult.uiOffGridTick, roResult.uiEarly, roResult.flEarliestTicks);
    }
    if (roResult.uiLate > 0)
    {
        roCounters.uiFieldsLate += roResult.uiLate;
        Add(EWatchEventKind::FIELD_LATE, roResult.uiOffGridTick, roResult.uiLate, roResult.flLatestTicks);
    }
    if (roResult.flStepTicks != 0.0)
    {
        ++roCounters.uiPhaseSteps;
        Add(EWatchEventKind::PHASE_STEPPED, roResult.uiStepTick, 1, roResult.flStepTicks);
    }
}

void CStreamGrid::TakeTimeErrors(int64_t iSecond, double flSlope)
{
    for (int64_t iOne = std::max(m_iLastSecond + 1, iSecond - uiBlocksPerWindow); iOne < iSecond; ++iOne)
    {
        TakeTimeError(iOne, flSlope);
    }
    m_iLastSecond = iSecond - 1;
}

// The phase of a second's middle against the nominal rate, for the time deviation.
void CStreamGrid::TakeTimeError(int64_t iSecond, double flSlope)
{
    const SFitSums* poSecond = m_oHistory.FindBlock(EBlockLength::SECOND, iSecond);
    const double flTicksPerSecond = m_roOutput.GetContext().uiTickFrequencyHz;
    // The mean of a second that has just begun, or that nobody was there for, has another spread than that of a whole.
    if (poSecond == nullptr || (poSecond->GetCount() + 1.0) * GetPeriod() < flWholeSecond * flTicksPerSecond)
    {
        return;
    }
    const double flNominalPeriod = m_roOutput.GetNominalPeriod();
    const auto flGridPeriod = static_cast<double>(m_oHistory.GetPeriod());
    const double flExcess = flNominalPeriod > 0.0 ? flGridPeriod - flNominalPeriod : 0.0;
    const double flNumber = static_cast<double>(poSecond->iNumber) + poSecond->oLine.flMeanX;
    const double flPhase = static_cast<double>(poSecond->iPhase) + poSecond->oLine.flMeanY;
    // From the mean of the fields to the middle of the second, along the slope.
    const uint64_t uiBegin = static_cast<uint64_t>(iSecond) * m_roOutput.GetContext().uiTickFrequencyHz;
    const double flToMiddle =
        static_cast<double>(static_cast<int64_t>(uiBegin - m_oHistory.GetGridTick(poSecond->iNumber))) +
        flTicksPerSecond / 2.0 - poSecond->oLine.flMeanX * flGridPeriod - flPhase;
    const double flFields = flToMiddle / (flGridPeriod + flSlope);
    m_oTimeDeviation.Take(iSecond, flPhase + flNumber * flExcess + flFields * (flSlope + flExcess));
}
