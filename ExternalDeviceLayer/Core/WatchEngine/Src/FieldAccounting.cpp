#include "FieldAccounting.h"

#include <algorithm>
#include <cmath>
#include <optional>

#include "FieldUnits.h"

namespace
{

// Fields that a counter may tell of at once: ever, and before the period is known.
constexpr double flMostFields = 1e9;
constexpr double flMostUntimed = 500.0;
// Nobody waits through so many fields: silence of a second is a lost signal.
constexpr int64_t iMostJudged = 100'000;
// Shares of a period: how near to the begin of a wait a field may start and still count as outside; how much of a
// field a stall must cover, and a thread have been ready.
constexpr double flNearBegin = 1.0 / 16.0;
constexpr double flStallShare = 0.25;
constexpr double flReadyShare = 0.75;
constexpr double flLateFactor = 4.0; // of the usual lateness
constexpr double flLeastLateNs = 200e3;
constexpr double flUnexplainedNs = 300e3;

struct SGapJudge
{
    const SFieldGap& roGap;
    std::span<const SStall> aoStalls;
    uint64_t uiSelf;
    double flPeriodNs = 0.0;

    bool IsOutside(double flStart) const;
    bool HoldsUp(const SStretch& roStall, double flStart) const;
    std::optional<EUnobservedCause> FindCause(double flStart) const;
};

// Moments are nanoseconds after the arrival of the field that came: negative.
double After(uint64_t uiNs, uint64_t uiArrivalNs)
{
    return static_cast<double>(static_cast<int64_t>(uiNs - uiArrivalNs));
}

bool SGapJudge::IsOutside(double flStart) const
{
    const double flMargin = flNearBegin * flPeriodNs;
    return std::ranges::any_of(std::span(roGap.aoOutside.data(), roGap.uiNbOfOutside),
                               [&](const SStretch& roStretch)
                               {
                                   return flStart > After(roStretch.uiBeginNs, roGap.uiArrivalNs) - flMargin &&
                                          flStart < After(roStretch.uiEndNs, roGap.uiArrivalNs) + flMargin;
                               });
}

bool SGapJudge::HoldsUp(const SStretch& roStall, double flStart) const
{
    const double flFrom = std::max(flStart, After(roStall.uiBeginNs, roGap.uiArrivalNs));
    const double flTo = std::min(flStart + flPeriodNs, After(roStall.uiEndNs, roGap.uiArrivalNs));
    return flTo - flFrom >= flStallShare * flPeriodNs;
}

// Why a field that started at a moment was not observed; nothing: it was lost.
std::optional<EUnobservedCause> SGapJudge::FindCause(double flStart) const
{
    if (IsOutside(flStart))
    {
        return EUnobservedCause::OUTSIDE_WAIT;
    }
    const bool bInLastWait = flStart >= After(roGap.uiLastWaitNs, roGap.uiArrivalNs);
    const double flReady = -flStart; // from its begin to the arrival
    if (bInLastWait && static_cast<double>(roGap.uiRunDelayNs) >= flReady - (1.0 - flReadyShare) * flPeriodNs)
    {
        return EUnobservedCause::NO_PROCESSOR;
    }
    std::optional<EUnobservedCause> oCause;
    for (const SStall& roStall : aoStalls)
    {
        if (!HoldsUp(roStall.oStretch, flStart))
        {
            continue;
        }
        const EUnobservedCause eCause = (roStall.uiReady & uiSelf) != 0 ? EUnobservedCause::NO_PROCESSOR
                                        : roStall.bIsMachine || (roStall.uiHeld & uiSelf) != 0
                                            ? EUnobservedCause::MACHINE
                                            : EUnobservedCause::NEIGHBOUR;
        oCause = std::min(oCause.value_or(eCause), eCause); // what it knows of itself before the rest
    }
    return oCause;
}

} // namespace

SCounterStep CounterStep_Get(const SFieldRecord& roBefore, const SFieldRecord& roField, double flPeriod)
{
    constexpr auto iCounts = static_cast<int64_t>(uiCountsPerField);
    // The difference in the counter's own width: it may wrap between both.
    const auto iDifference = static_cast<int64_t>(roField.uiFieldCounter - roBefore.uiFieldCounter);
    if (iDifference == 0)
    {
        return {ECounterStep::REPEATED, 0};
    }
    const int64_t iFields = iDifference / iCounts + (iDifference % iCounts >= iCounts / 2 ? 1 : 0);
    const auto flTicks = static_cast<double>(static_cast<int64_t>(roField.uiTick - roBefore.uiTick));
    const double flByTime = flPeriod > 0.0 ? flTicks / flPeriod : flMostUntimed;
    if (iDifference > 0 && iFields <= 1)
    {
        return {ECounterStep::FORWARD, 1};
    }
    // Long gaps may hide a change of rate, so only a counter that is far ahead of the time has jumped there.
    const double flMost = std::min(iFields <= 16 ? flByTime + 0.5 : 2.0 * flByTime, flMostFields);
    if (iDifference > 0 && static_cast<double>(iFields) <= flMost)
    {
        return {ECounterStep::FORWARD, iFields};
    }
    const bool bByTime = flPeriod > 0.0 && flByTime < flMostFields;
    return {ECounterStep::JUMPED, bByTime ? std::max<int64_t>(1, std::llround(flByTime)) : 1};
}

bool FieldGap_IsNotablyLate(double flLateNs, double flUsualLateNs, double flPeriodNs)
{
    return flPeriodNs > 0.0 && flLateNs > std::clamp(flLateFactor * flUsualLateNs, flLeastLateNs,
                                                     std::max(flLeastLateNs, flPeriodNs / 4.0));
}

SStallLength FieldGap_GetStall(const SFieldRecord& roField, int64_t iFields, double flLateNs, double flPeriodNs)
{
    const auto flReady = static_cast<double>(roField.uiRunDelayNs);
    const double flSinceDue = flLateNs + static_cast<double>(iFields - 1) * flPeriodNs;
    const bool bIsExplained = flReady > 0.0 && flLateNs <= flReady + flUnexplainedNs;
    const double flWaited = After(roField.uiArrivalNs, roField.uiWaitBeginNs);
    return {std::clamp(bIsExplained ? flReady : flSinceDue, 0.0, std::min(flSinceDue, std::max(0.0, flWaited))),
            bIsExplained};
}

SGapVerdict FieldGap_Judge(const SFieldGap& roGap, const CTickClock& roClock, std::span<const SStall> aoStalls,
                           uint64_t uiSelf)
{
    SGapVerdict oVerdict;
    const double flTick = static_cast<double>(roGap.iMissing) * roGap.flPeriod;
    oVerdict.uiFirstUnobservedTick = roGap.uiTick - static_cast<uint64_t>(flTick);
    if (roGap.iMissing > iMostJudged || !roClock.IsKnown())
    {
        oVerdict.uiUnobserved = static_cast<uint64_t>(roGap.iMissing - roGap.iLater);
        oVerdict.auiCauses[static_cast<size_t>(EUnobservedCause::MACHINE)] = oVerdict.uiUnobserved;
        return oVerdict;
    }
    SGapJudge oJudge{roGap, aoStalls, uiSelf, roGap.flPeriod * roClock.GetNsPerTick()};
    const double flLastStart = roClock.GetNsAfter(roGap.uiTick, roGap.uiArrivalNs);
    for (int64_t iBack = roGap.iMissing; iBack > roGap.iLater; --iBack)
    {
        const double flStart = flLastStart - static_cast<double>(iBack) * oJudge.flPeriodNs;
        const uint64_t uiTick = roGap.uiTick - static_cast<uint64_t>(static_cast<double>(iBack) * roGap.flPeriod);
        if (const std::optional<EUnobservedCause> oCause = oJudge.FindCause(flStart); oCause)
        {
            oVerdict.uiFirstUnobservedTick = oVerdict.uiUnobserved == 0 ? uiTick : oVerdict.uiFirstUnobservedTick;
            ++oVerdict.uiUnobserved;
            ++oVerdict.auiCauses[static_cast<size_t>(*oCause)];
        }
        else
        {
            oVerdict.uiFirstLostTick = oVerdict.uiLost == 0 ? uiTick : oVerdict.uiFirstLostTick;
            ++oVerdict.uiLost;
        }
    }
    return oVerdict;
}

void CWaitTrace::Take(const SFieldRecord& roRecord, double flPeriodNs)
{
    m_uiRunDelayNs += roRecord.uiRunDelayNs;
    const uint64_t uiSinceNs = m_uiOutsideSinceNs;
    m_uiOutsideSinceNs = roRecord.uiArrivalNs;
    const auto flOutside = static_cast<double>(static_cast<int64_t>(roRecord.uiWaitBeginNs - uiSinceNs));
    // A field that starts between two waits is given to the second one, if no other starts meanwhile.
    if (uiSinceNs == 0 || (m_uiNbOfOutside > 0 && flOutside < flNearBegin * flPeriodNs))
    {
        return;
    }
    if (m_uiNbOfOutside < m_aoOutside.size())
    {
        m_aoOutside[m_uiNbOfOutside++] = {uiSinceNs, roRecord.uiWaitBeginNs};
    }
    else
    {
        m_aoOutside.back().uiEndNs = roRecord.uiWaitBeginNs;
    }
}

void CWaitTrace::Begin(const SFieldRecord& roField)
{
    m_uiOutsideSinceNs = roField.uiArrivalNs;
    m_uiRunDelayNs = 0;
    m_uiNbOfOutside = 0;
}

void CWaitTrace::FillGap(SFieldGap& roGap) const
{
    roGap.uiRunDelayNs = m_uiRunDelayNs;
    roGap.aoOutside = m_aoOutside;
    roGap.uiNbOfOutside = m_uiNbOfOutside;
}

double CWaitTrace::GetLongestOutsideNs() const
{
    double flLongest = 0.0;
    for (const SStretch& roStretch : std::span(m_aoOutside.data(), m_uiNbOfOutside))
    {
        flLongest = std::max(flLongest, After(roStretch.uiEndNs, roStretch.uiBeginNs));
    }
    return flLongest;
}
