#include "FieldCount.h"

#include <algorithm>
#include <cmath>

namespace
{

constexpr double flLateWakeShare = 0.5;    // of a period: an arrival so late is a late wake
constexpr int64_t iWitnessNs = 60'000'000; // threads that a stall held up hand in what they have within this time
constexpr double flMostUnseen = 1e6;       // fields that a thread that was away can have missed at once

} // namespace

void CFieldCount::TakeWait(const STakenRecord& roTaken, double flPeriod)
{
    m_oTrace.Take(roTaken.oRecord, flPeriod * m_roOutput.GetContext().oClock.GetNsPerTick());
    if (roTaken.oRecord.eResult == EWaitResult::FIELD)
    {
        TakeWake(roTaken.flLateNs, flPeriod);
    }
}

// How late the wait returned.
void CFieldCount::TakeWake(double flLateNs, double flPeriod)
{
    SStreamCounters& roCounters = m_roOutput.GetCounters();
    if (flLateNs < 0.0)
    {
        ++roCounters.uiForeignStamps;
        return;
    }
    const double flLate = flLateNs * flSecondsPerNs;
    SWakeHistogram& roWakes = m_roOutput.GetFigures().oWakes;
    const auto itBound = std::ranges::lower_bound(aflWakeBoundsSeconds, flLate);
    ++roWakes.auiCounts[static_cast<size_t>(itBound - aflWakeBoundsSeconds.begin())];
    roWakes.flSumSeconds += flLate;
    const double flPeriodNs = flPeriod * m_roOutput.GetContext().oClock.GetNsPerTick();
    roCounters.uiLateWakes += flPeriodNs > 0.0 && flLateNs > flLateWakeShare * flPeriodNs ? 1 : 0;
}

void CFieldCount::End(const SFieldRecord& roRecord)
{
    m_oTrace.Begin(roRecord);
    m_oLast = roRecord;
    m_iForeseen = 0;
}

void CFieldCount::TakeFirst(const SFieldRecord& roRecord)
{
    ++m_roOutput.GetCounters().uiFieldsObserved;
    End(roRecord);
}

int64_t CFieldCount::TakeNext(const STakenRecord& roTaken, double flPeriod)
{
    const SFieldRecord& roRecord = roTaken.oRecord;
    const SCounterStep oStep = CounterStep_Get(m_oLast, roRecord, flPeriod);
    int64_t iFields = oStep.iFields;
    if (oStep.eStep == ECounterStep::REPEATED)
    {
        iFields = TakeRepeated(roRecord, flPeriod);
    }
    else
    {
        if (oStep.eStep == ECounterStep::JUMPED)
        {
            TakeJump(roRecord);
        }
        ++m_roOutput.GetCounters().uiFieldsObserved;
        if (iFields - 1 > m_iForeseen)
        {
            TakeGap(roRecord, iFields - 1 - m_iForeseen, flPeriod);
        }
        if (m_roOutput.IsOutput())
        {
            TakeBuffers(roRecord, iFields);
        }
    }
    End(roRecord);
    return iFields;
}

// A field of its own if time has passed, whatever the counter says.
int64_t CFieldCount::TakeRepeated(const SFieldRecord& roRecord, double flPeriod)
{
    ++m_roOutput.GetCounters().uiFieldsRepeated;
    m_roOutput.AddEvent(m_roOutput.MakeEvent(EWatchEventKind::COUNTER_REPEATED, roRecord.uiTick), roRecord.uiArrivalNs);
    const auto flTicks = static_cast<double>(roRecord.uiTick - m_oLast.uiTick);
    if (flPeriod <= 0.0 || flTicks <= flPeriod / 2.0)
    {
        return 0;
    }
    ++m_roOutput.GetCounters().uiFieldsObserved;
    return std::llround(flTicks / flPeriod);
}

void CFieldCount::TakeJump(const SFieldRecord& roRecord)
{
    const bool bIsBack = static_cast<int64_t>(roRecord.uiFieldCounter - m_oLast.uiFieldCounter) < 0;
    SStreamCounters& roCounters = m_roOutput.GetCounters();
    ++(bIsBack ? roCounters.uiCounterBackward : roCounters.uiCounterForward);
    SWatchEvent oEvent = m_roOutput.MakeEvent(
        bIsBack ? EWatchEventKind::COUNTER_BACKWARD : EWatchEventKind::COUNTER_FORWARD, roRecord.uiTick);
    oEvent.uiBefore = m_oLast.uiFieldCounter;
    oEvent.uiAfter = roRecord.uiFieldCounter;
    m_roOutput.AddEvent(oEvent, roRecord.uiArrivalNs);
}

SFieldGap CFieldCount::MakeGap(const SFieldRecord& roRecord, int64_t iMissing, const CWaitTrace& roTrace,
                               double flPeriod) const
{
    SFieldGap oGap;
    oGap.uiTick = roRecord.uiTick;
    oGap.uiArrivalNs = roRecord.uiArrivalNs;
    oGap.uiLastWaitNs = roRecord.uiWaitBeginNs;
    oGap.iMissing = iMissing;
    const auto flTicks = static_cast<double>(roRecord.uiTick - m_oLast.uiTick);
    oGap.flPeriod = flPeriod > 0.0 ? flPeriod : flTicks / static_cast<double>(iMissing + 1);
    roTrace.FillGap(oGap);
    return oGap;
}

void CFieldCount::TakeGap(const SFieldRecord& roRecord, int64_t iMissing, double flPeriod)
{
    if (m_uiNbOfGaps == m_aoGaps.size())
    {
        JudgeGap(m_aoGaps[--m_uiNbOfGaps]);
    }
    m_aoGaps[m_uiNbOfGaps++] = MakeGap(roRecord, iMissing, m_oTrace, flPeriod);
}

void CFieldCount::TakeBuffers(const SFieldRecord& roRecord, int64_t iFields)
{
    const uint64_t uiGrowth = roRecord.uiSetBufferCounter - m_oLast.uiSetBufferCounter;
    SBufferVerdict oVerdict = BufferVerdict_Get(uiGrowth, iFields);
    if (m_roOutput.GetContext().bSetsAreEstimated)
    {
        oVerdict = {oVerdict.uiSet, m_oRepeats.Take(iFields, uiGrowth, roRecord.uiTick), 0};
    }
    SStreamCounters& roCounters = m_roOutput.GetCounters();
    roCounters.uiBuffersSet += oVerdict.uiSet;
    roCounters.uiBuffersRepeated += oVerdict.uiRepeated;
    roCounters.uiBuffersOverwritten += oVerdict.uiOverwritten;
    const auto Add = [&](EWatchEventKind eKind, uint64_t uiCount)
    {
        if (uiCount > 0)
        {
            m_roOutput.AddEvent(m_roOutput.MakeEvent(eKind, roRecord.uiTick, uiCount), roRecord.uiArrivalNs);
        }
    };
    Add(EWatchEventKind::BUFFERS_REPEATED, oVerdict.uiRepeated);
    Add(EWatchEventKind::BUFFERS_OVERWRITTEN, oVerdict.uiOverwritten);
}

// The begin of the cancelled wait is the last moment at which there may have been a field that nobody waited for.
void CFieldCount::TakeLoss(const SFieldRecord& roRecord, double flPeriod)
{
    const CTickClock& roClock = m_roOutput.GetContext().oClock;
    const double flAwayNs = -roClock.GetNsAfter(m_oLast.uiTick, roRecord.uiWaitBeginNs);
    const double flOutsideNs = m_oTrace.GetLongestOutsideNs();
    if (flPeriod <= 0.0 || flOutsideNs < flPeriod * roClock.GetNsPerTick())
    {
        return;
    }
    const double flUnseen = std::floor(std::min(flAwayNs / (flPeriod * roClock.GetNsPerTick()), flMostUnseen));
    if (flUnseen >= 1.0)
    {
        AddUnobserved(static_cast<uint64_t>(flUnseen), m_oLast.uiTick + static_cast<uint64_t>(flPeriod),
                      roRecord.uiArrivalNs);
        m_roOutput.GetCounters().auiUnobservedCauses[static_cast<size_t>(EUnobservedCause::OUTSIDE_WAIT)] +=
            static_cast<uint64_t>(flUnseen);
    }
}

bool CFieldCount::HasWitnesses(const SFieldGap& roGap, uint64_t uiNowNs) const
{
    return static_cast<int64_t>(uiNowNs - roGap.uiArrivalNs) >= iWitnessNs;
}

// The part before the instant of a gap that a field behind it ends.
void CFieldCount::Foresee(const SInstant& roInstant, std::span<const STakenRecord> aoLater, double flPeriod)
{
    CWaitTrace oTrace = m_oTrace;
    const double flPeriodNs = flPeriod * m_roOutput.GetContext().oClock.GetNsPerTick();
    auto itTaken = aoLater.begin();
    for (; itTaken != aoLater.end() && itTaken->oRecord.eResult == EWaitResult::TIMED_OUT; ++itTaken)
    {
        oTrace.Take(itTaken->oRecord, flPeriodNs);
    }
    if (itTaken == aoLater.end() || itTaken->oRecord.eResult != EWaitResult::FIELD || !roInstant.bHasTick ||
        itTaken->uiClockEpoch != m_roOutput.GetContext().oClock.GetEpoch())
    {
        return;
    }
    const SFieldRecord& roField = itTaken->oRecord;
    oTrace.Take(roField, flPeriodNs);
    const int64_t iMissing = CounterStep_Get(m_oLast, roField, flPeriod).iFields - 1 - m_iForeseen;
    if (iMissing <= 0)
    {
        return;
    }
    SFieldGap oGap = MakeGap(roField, iMissing, oTrace, flPeriod);
    const auto flBehind = static_cast<double>(static_cast<int64_t>(roField.uiTick - roInstant.uiTick));
    oGap.iLater = std::clamp<int64_t>(static_cast<int64_t>(std::floor(flBehind / oGap.flPeriod)), 0, iMissing);
    if (oGap.iLater < iMissing && HasWitnesses(oGap, roInstant.uiNowNs))
    {
        JudgeGap(oGap);
        m_iForeseen += iMissing - oGap.iLater;
    }
}

// Those whose witnesses may not have been heard yet wait for the next time.
void CFieldCount::Analyse(const SInstant& roInstant, std::span<const STakenRecord> aoLater, double flPeriod)
{
    size_t uiKept = 0;
    for (size_t uiGap = 0; uiGap < m_uiNbOfGaps; ++uiGap)
    {
        if (HasWitnesses(m_aoGaps[uiGap], roInstant.uiNowNs))
        {
            JudgeGap(m_aoGaps[uiGap]);
        }
        else
        {
            m_aoGaps[uiKept++] = m_aoGaps[uiGap];
        }
    }
    m_uiNbOfGaps = uiKept;
    Foresee(roInstant, aoLater, flPeriod);
    SStreamCounters& roCounters = m_roOutput.GetCounters();
    roCounters.uiFields = roCounters.uiFieldsObserved + roCounters.uiFieldsLost + roCounters.uiFieldsUnobserved;
}

void CFieldCount::AddUnobserved(uint64_t uiCount, uint64_t uiTick, uint64_t uiArrivalNs)
{
    m_roOutput.GetCounters().uiFieldsUnobserved += uiCount;
    m_roOutput.AddEvent(m_roOutput.MakeEvent(EWatchEventKind::FIELDS_UNOBSERVED, uiTick, uiCount), uiArrivalNs);
}

void CFieldCount::JudgeGap(const SFieldGap& roGap)
{
    const SWatchContext& roContext = m_roOutput.GetContext();
    const SGapVerdict oVerdict = FieldGap_Judge(roGap, roContext.oClock, roContext.oStalls.Get(), m_roOutput.GetBit());
    m_roOutput.GetCounters().uiFieldsLost += oVerdict.uiLost;
    for (size_t uiCause = 0; uiCause < oVerdict.auiCauses.size(); ++uiCause)
    {
        m_roOutput.GetCounters().auiUnobservedCauses[uiCause] += oVerdict.auiCauses[uiCause];
    }
    if (oVerdict.uiLost > 0)
    {
        SWatchEvent oEvent =
            m_roOutput.MakeEvent(EWatchEventKind::FIELDS_LOST, oVerdict.uiFirstLostTick, oVerdict.uiLost);
        oEvent.flSeconds = static_cast<double>(oVerdict.uiLost) * roGap.flPeriod * m_roOutput.GetSecondsPerTick();
        m_roOutput.AddEvent(oEvent, roGap.uiArrivalNs);
    }
    if (oVerdict.uiUnobserved > 0)
    {
        AddUnobserved(oVerdict.uiUnobserved, oVerdict.uiFirstUnobservedTick, roGap.uiArrivalNs);
    }
}
