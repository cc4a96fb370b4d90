// See StreamWatch.h.
#include "StreamWatch.h"

#include <algorithm>
#include <cmath>

#include "BufferVerdict.h"

namespace
{

constexpr double flLateWakeShare = 0.5;    // of a period: an arrival so late is a late wake
constexpr double flMostUsualNs = 500e3;    // nothing later is usual
constexpr double flUsualLateGain = 0.02;   // of the running mean of latenesses
constexpr int64_t iWitnessNs = 60'000'000; // threads that a stall held up hand in what they have within this time

} // namespace

CStreamWatch::CStreamWatch(SWatchContext& roContext, const SStreamKey& roKey)
    : m_roContext(roContext),
      m_oSignal(roContext, m_oFigures),
      m_oTracker(roContext.uiTickFrequencyHz),
      m_oHistory(roContext.uiTickFrequencyHz)
{
    m_oFigures.oKey = roKey;
}

SWatchEvent CStreamWatch::MakeEvent(EWatchEventKind eKind, uint64_t uiTick, uint64_t uiCount) const
{
    SWatchEvent oEvent = {};
    oEvent.eKind = eKind;
    oEvent.oKey = m_oFigures.oKey;
    oEvent.uiTick = uiTick;
    oEvent.uiCount = uiCount;
    return oEvent;
}

// In ticks; 0: not known.
double CStreamWatch::GetNominalPeriod() const
{
    return m_oFigures.flNominalRateHz > 0.0 ? m_roContext.uiTickFrequencyHz / m_oFigures.flNominalRateHz : 0.0;
}

// By the fields; by the timings until these are there.
double CStreamWatch::GetPeriod() const
{
    return m_oTracker.IsKnown() ? m_oTracker.GetPeriod() : GetNominalPeriod();
}

void CStreamWatch::TakeRecord(const SFieldRecord& roRecord)
{
    m_oTrace.Take(roRecord, GetPeriod() * m_roContext.oClock.GetNsPerTick());
    if (roRecord.eResult == EWaitResult::FIELD)
    {
        TakeArrival(roRecord);
        TakeField(roRecord);
        m_oTrace.Begin(roRecord);
        m_oLast = roRecord;
        return;
    }
    m_oFigures.oCounters.uiWaitTimeOuts += roRecord.eResult == EWaitResult::TIMED_OUT ? 1 : 0;
    m_oSignal.TakeOther(roRecord, GetPeriod());
}

// How late the wait returned.
void CStreamWatch::TakeArrival(const SFieldRecord& roRecord)
{
    const double flLateNs = m_roContext.oClock.Take(roRecord.uiTick, roRecord.uiArrivalNs);
    const double flLate = flLateNs * 1e-9;
    SWakeHistogram& roWakes = m_oFigures.oWakes;
    const auto itBound = std::ranges::lower_bound(aflWakeBoundsSeconds, flLate);
    ++roWakes.auiCounts[static_cast<size_t>(itBound - aflWakeBoundsSeconds.begin())];
    roWakes.flSumSeconds += flLate;
    m_flUsualLateNs += flUsualLateGain * (std::min(flLateNs, flMostUsualNs) - m_flUsualLateNs);
    m_flLateNs = flLateNs;
}

// A wait that was held up is a witness, for this stream and all others.
void CStreamWatch::TakeStall(const SFieldRecord& roRecord, int64_t iFields)
{
    const double flPeriodNs = GetPeriod() * m_roContext.oClock.GetNsPerTick();
    m_oFigures.oCounters.uiLateWakes += flPeriodNs > 0.0 && m_flLateNs > flLateWakeShare * flPeriodNs ? 1 : 0;
    const auto uiStallNs =
        static_cast<uint64_t>(FieldGap_GetStallNs(roRecord, iFields, m_flLateNs, m_flUsualLateNs, flPeriodNs));
    if (uiStallNs > 0)
    {
        m_roContext.oStalls.Add(roRecord.uiArrivalNs - uiStallNs, roRecord.uiArrivalNs);
    }
}

void CStreamWatch::TakeField(const SFieldRecord& roRecord)
{
    SStreamCounters& roCounters = m_oFigures.oCounters;
    const bool bIsFirst = m_oSignal.TakeField(roRecord, GetPeriod());
    if (bIsFirst || roRecord.uiTick < m_oLast.uiTick)
    {
        RestartGrid();
        ++roCounters.uiFieldsObserved;
        TakeGrid(roRecord, 1);
        return;
    }
    const SCounterStep oStep = CounterStep_Get(m_oLast, roRecord, GetPeriod());
    if (oStep.eStep == ECounterStep::REPEATED)
    {
        ++roCounters.uiFieldsRepeated;
        AddEvent(MakeEvent(EWatchEventKind::COUNTER_REPEATED, roRecord.uiTick));
        TakeRepeated(roRecord);
        return;
    }
    if (oStep.eStep == ECounterStep::JUMPED)
    {
        ++roCounters.uiCounterBackward;
        SWatchEvent oEvent = MakeEvent(EWatchEventKind::COUNTER_BACKWARD, roRecord.uiTick);
        oEvent.uiBefore = m_oLast.uiFieldCounter;
        oEvent.uiAfter = roRecord.uiFieldCounter;
        AddEvent(oEvent);
    }
    ++roCounters.uiFieldsObserved;
    TakeStall(roRecord, oStep.iFields);
    if (oStep.iFields > 1)
    {
        TakeGap(roRecord, oStep.iFields - 1);
    }
    TakeGrid(roRecord, oStep.iFields);
    if (m_oFigures.oKey.eDirection == EStreamDirection::OUTPUT)
    {
        TakeBuffers(roRecord, oStep.iFields);
    }
}

// A field of its own if time has passed, whatever the counter says.
void CStreamWatch::TakeRepeated(const SFieldRecord& roRecord)
{
    const double flPeriod = GetPeriod();
    const auto flTicks = static_cast<double>(roRecord.uiTick - m_oLast.uiTick);
    if (flPeriod > 0.0 && flTicks > flPeriod / 2.0)
    {
        ++m_oFigures.oCounters.uiFieldsObserved;
        TakeGrid(roRecord, std::llround(flTicks / flPeriod));
    }
}

void CStreamWatch::TakeGap(const SFieldRecord& roRecord, int64_t iMissing)
{
    if (m_uiNbOfGaps == m_aoGaps.size())
    {
        JudgeGap(m_aoGaps[--m_uiNbOfGaps]);
    }
    SFieldGap& roGap = m_aoGaps[m_uiNbOfGaps++];
    roGap.uiTick = roRecord.uiTick;
    roGap.uiArrivalNs = roRecord.uiArrivalNs;
    roGap.uiLastWaitNs = roRecord.uiWaitBeginNs;
    roGap.iMissing = iMissing;
    const double flPeriod = GetPeriod();
    const auto flTicks = static_cast<double>(roRecord.uiTick - m_oLast.uiTick);
    roGap.flPeriod = flPeriod > 0.0 ? flPeriod : flTicks / static_cast<double>(iMissing + 1);
    m_oTrace.FillGap(roGap);
}

// Those whose witnesses may not have been heard yet wait for the next time.
void CStreamWatch::JudgeGaps(uint64_t uiNowNs)
{
    size_t uiKept = 0;
    for (size_t uiGap = 0; uiGap < m_uiNbOfGaps; ++uiGap)
    {
        if (static_cast<int64_t>(uiNowNs - m_aoGaps[uiGap].uiArrivalNs) < iWitnessNs)
        {
            m_aoGaps[uiKept++] = m_aoGaps[uiGap];
        }
        else
        {
            JudgeGap(m_aoGaps[uiGap]);
        }
    }
    m_uiNbOfGaps = uiKept;
}

void CStreamWatch::JudgeGap(const SFieldGap& roGap)
{
    const SGapVerdict oVerdict = FieldGap_Judge(roGap, m_roContext.oClock, m_roContext.oStalls.Get());
    m_oFigures.oCounters.uiFieldsLost += oVerdict.uiLost;
    m_oFigures.oCounters.uiFieldsUnobserved += oVerdict.uiUnobserved;
    if (oVerdict.uiLost > 0)
    {
        SWatchEvent oEvent = MakeEvent(EWatchEventKind::FIELDS_LOST, oVerdict.uiFirstLostTick, oVerdict.uiLost);
        oEvent.flSeconds = static_cast<double>(oVerdict.uiLost) * roGap.flPeriod / m_roContext.uiTickFrequencyHz;
        AddEvent(oEvent);
    }
    if (oVerdict.uiUnobserved > 0)
    {
        AddEvent(MakeEvent(EWatchEventKind::FIELDS_UNOBSERVED, oVerdict.uiFirstUnobservedTick, oVerdict.uiUnobserved));
    }
}

void CStreamWatch::TakeBuffers(const SFieldRecord& roRecord, int64_t iFields)
{
    const SBufferVerdict oVerdict =
        BufferVerdict_Get(roRecord.uiSetBufferCounter - m_oLast.uiSetBufferCounter, iFields);
    SStreamCounters& roCounters = m_oFigures.oCounters;
    roCounters.uiBuffersSet += oVerdict.uiSet;
    roCounters.uiBuffersRepeated += oVerdict.uiRepeated;
    roCounters.uiBuffersOverwritten += oVerdict.uiOverwritten;
    if (oVerdict.uiRepeated > 0)
    {
        AddEvent(MakeEvent(EWatchEventKind::BUFFERS_REPEATED, roRecord.uiTick, oVerdict.uiRepeated));
    }
    if (oVerdict.uiOverwritten > 0)
    {
        AddEvent(MakeEvent(EWatchEventKind::BUFFERS_OVERWRITTEN, roRecord.uiTick, oVerdict.uiOverwritten));
    }
}

void CStreamWatch::RestartGrid()
{
    m_oTracker.Restart();
    m_oHistory.Stop();
    m_oTimeDeviation.Clear();
}

void CStreamWatch::TakeGrid(const SFieldRecord& roRecord, int64_t iFields)
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
    TakeGridEvents(oResult);
}

void CStreamWatch::TakeGridEvents(const SGridResult& roResult)
{
    const double flSecondsPerTick = 1.0 / m_roContext.uiTickFrequencyHz;
    SStreamCounters& roCounters = m_oFigures.oCounters;
    if (roResult.uiEarly + roResult.uiLate > 0)
    {
        m_oRecent.TakeOffGrid(m_oHistory.GetSecond(), roResult.uiEarly, roResult.uiLate);
    }
    if (roResult.uiEarly > 0)
    {
        roCounters.uiFieldsEarly += roResult.uiEarly;
        SWatchEvent oEvent = MakeEvent(EWatchEventKind::FIELD_EARLY, roResult.uiOffGridTick, roResult.uiEarly);
        oEvent.flSeconds = roResult.flEarliestTicks * flSecondsPerTick;
        AddEvent(oEvent);
    }
    if (roResult.uiLate > 0)
    {
        roCounters.uiFieldsLate += roResult.uiLate;
        SWatchEvent oEvent = MakeEvent(EWatchEventKind::FIELD_LATE, roResult.uiOffGridTick, roResult.uiLate);
        oEvent.flSeconds = roResult.flLatestTicks * flSecondsPerTick;
        AddEvent(oEvent);
    }
    if (roResult.flStepTicks != 0.0)
    {
        ++roCounters.uiPhaseSteps;
        SWatchEvent oEvent = MakeEvent(EWatchEventKind::PHASE_STEPPED, roResult.uiStepTick);
        oEvent.flSeconds = roResult.flStepTicks * flSecondsPerTick;
        AddEvent(oEvent);
    }
}

void CStreamWatch::AnalyseFields(const SClockReading& roClock)
{
    JudgeGaps(roClock.uiMonotonicNs);
    m_oSignal.Analyse(roClock);
    SStreamCounters& roCounters = m_oFigures.oCounters;
    roCounters.uiFields = roCounters.uiFieldsObserved + roCounters.uiFieldsLost + roCounters.uiFieldsUnobserved;
}
