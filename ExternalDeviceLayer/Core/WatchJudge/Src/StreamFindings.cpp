// See StreamFindings.h.
#include "StreamFindings.h"

#include <algorithm>
#include <cmath>

#include "TimeUnits.h"

namespace
{

// A single late wake of the watcher is everyday; so many seconds of fields within one second are not.
constexpr double flNotedUnobservedSeconds = 0.1;

bool IsRunning(const SStreamCase& roCase)
{
    return roCase.roFigures.eState == EStreamState::RUNNING;
}

EHealthStatus GetSeverity(bool bIsTold)
{
    return bIsTold ? EHealthStatus::UNHEALTHY : EHealthStatus::PARTIALLY_HEALTHY;
}

SDomainFinding MakeIdle()
{
    SDomainFinding oFinding;
    oFinding.eStatus = EHealthStatus::INACTIVE;
    oFinding.oReason.eReason = EHealthReason::NOT_RUNNING;
    return oFinding;
}

SDomainFinding MakeFault(bool bIsTold, EHealthReason eReason, int64_t iBeginUtcNs)
{
    SDomainFinding oFinding;
    oFinding.eStatus = GetSeverity(bIsTold);
    oFinding.oReason.eReason = eReason;
    oFinding.iBeginUtcNs = iBeginUtcNs;
    return oFinding;
}

// A fault that was over with what happened; it took flSeconds.
SDomainFinding MakeMoment(bool bIsTold, EHealthReason eReason, const SWatchEvent& roEvent, double flSeconds)
{
    SDomainFinding oFinding = MakeFault(bIsTold, eReason, roEvent.iUtcNs);
    oFinding.iEndUtcNs = roEvent.iUtcNs + static_cast<int64_t>(flSeconds * flNsPerSecond);
    oFinding.oReason.uiCount = roEvent.uiCount;
    oFinding.oReason.uiMember = roEvent.uiGroup;
    oFinding.oReason.uiBefore = roEvent.uiBefore;
    oFinding.oReason.uiAfter = roEvent.uiAfter;
    oFinding.uiLost = roEvent.uiCount;
    return oFinding;
}

double GetPeriodSeconds(const SStreamFigures& roFigures)
{
    if (roFigures.flPeriodSeconds > 0.0)
    {
        return roFigures.flPeriodSeconds;
    }
    return roFigures.flNominalRateHz > 0.0 ? 1.0 / roFigures.flNominalRateHz : 0.0;
}

// What was told of the description and is not so.
const SExpectedMember* FindOther(const SStreamCase& roCase)
{
    const auto aoMembers = DescriptionMembers_Get();
    const auto itOther = std::ranges::find_if(roCase.roTold.aoMembers,
                                              [&](const SExpectedMember& roMember) {
                                                  return aoMembers[static_cast<size_t>(roMember.eMember)].fnGet(
                                                             roCase.roFigures.oDescription) != roMember.uiValue;
                                              });
    return itOther == roCase.roTold.aoMembers.end() ? nullptr : &*itOther;
}

bool IsOtherRate(const SStreamCase& roCase)
{
    const SStreamFigures& roFigures = roCase.roFigures;
    return roCase.roTold.uiRateNumerator != 0 && roFigures.uiNominalNumerator != 0 &&
           (roFigures.uiNominalNumerator != roCase.roTold.uiRateNumerator ||
            roFigures.uiNominalDenominator != roCase.roTold.uiRateDenominator);
}

bool AreTimingsValid(const VtVideo_VidParam& roTimings)
{
    return roTimings.uiHActive == 0 || (roTimings.uiVActive != 0 && roTimings.uiVRate_Hz != 0);
}

// A signal that should be there and is not.
SDomainFinding GetAbsence(const SStreamCase& roCase)
{
    const SStreamFigures& roFigures = roCase.roFigures;
    const bool bIsTold = roCase.roTold.IsTold();
    const bool bIsOff = roFigures.eState == EStreamState::IDLE;
    const bool bIsNew = roFigures.oCounters.flWatchedSeconds < roCase.roSettings.flRecoverySeconds;
    if (bIsOff ? !bIsTold || bIsNew : !bIsTold && !roCase.roHabits.bHasRun)
    {
        return MakeIdle();
    }
    const bool bNever = roFigures.oCounters.uiFieldsObserved == 0;
    const EHealthReason eReason = roFigures.eState == EStreamState::GONE   ? EHealthReason::DEVICE_GONE
                                  : roFigures.eState == EStreamState::LOST ? EHealthReason::SIGNAL_LOST
                                  : bNever                                 ? EHealthReason::NO_SIGNAL
                                                                           : EHealthReason::SWITCHED_OFF;
    SDomainFinding oFinding = MakeFault(bIsTold, eReason, roFigures.iStateSinceUtcNs);
    oFinding.flAwaySeconds = static_cast<double>(roCase.iNowUtcNs - roFigures.iStateSinceUtcNs) * 1e-9;
    return oFinding;
}

SDomainFinding GetDescriptionFault(const SStreamCase& roCase)
{
    const SStreamFigures& roFigures = roCase.roFigures;
    const SExpectedMember* poOther = FindOther(roCase);
    const SWatchEvent* poChange = roCase.roNews.Find(EWatchEventKind::DESCRIPTION_CHANGED);
    const int64_t iSinceUtcNs = poChange != nullptr ? poChange->iUtcNs : roFigures.iStateSinceUtcNs;
    if (poOther != nullptr || IsOtherRate(roCase))
    {
        SDomainFinding oFinding = MakeFault(true, EHealthReason::OTHER_STANDARD, iSinceUtcNs);
        if (poOther != nullptr)
        {
            oFinding.oReason.uiMember = static_cast<uint32_t>(poOther->eMember);
            oFinding.oReason.uiBefore = poOther->uiValue;
            oFinding.oReason.uiAfter =
                DescriptionMembers_Get()[oFinding.oReason.uiMember].fnGet(roFigures.oDescription);
        }
        else
        {
            oFinding.oReason.uiMember = static_cast<uint32_t>(EDescriptionMember::COUNT);
            oFinding.oReason.flValue = roFigures.flNominalRateHz;
        }
        return oFinding;
    }
    if (!AreTimingsValid(roFigures.oDescription.oTimings))
    {
        return MakeFault(roCase.roTold.bRuns, EHealthReason::TIMINGS_INVALID, iSinceUtcNs);
    }
    if (poChange != nullptr && roCase.roHabits.bIsDescribed)
    {
        SDomainFinding oFinding = MakeMoment(false, EHealthReason::DESCRIPTION_CHANGED, *poChange, 0.0);
        oFinding.uiLost = 0;
        return oFinding;
    }
    return {};
}

// Who takes the pictures of an input.
SDomainFinding GetConsumer(const SStreamCase& roCase)
{
    const bool bIsTold = roCase.roTold.bRuns;
    if (!bIsTold && !roCase.roHabits.bIsTaken)
    {
        return {};
    }
    const SQueueFigures& roQueue = roCase.roFigures.oQueue;
    const SWatchEvent* poSkipped = roCase.roNews.Find(EWatchEventKind::BUFFERS_SKIPPED);
    if (roQueue.bIsConsumerStalled)
    {
        SDomainFinding oFinding =
            MakeFault(bIsTold, EHealthReason::CONSUMER_STALLED, roQueue.iConsumerStalledSinceUtcNs);
        oFinding.uiLost = poSkipped != nullptr ? poSkipped->uiCount : 0;
        return oFinding;
    }
    if (poSkipped == nullptr)
    {
        SDomainFinding oFine;
        oFine.iFineUtcNs = roQueue.iConsumerTookUtcNs;
        return oFine;
    }
    SDomainFinding oFinding = MakeMoment(bIsTold, EHealthReason::BUFFERS_SKIPPED, *poSkipped, 0.0);
    oFinding.iBeginUtcNs -= static_cast<int64_t>(poSkipped->flSeconds * flNsPerSecond);
    oFinding.iEndUtcNs = std::max(oFinding.iEndUtcNs, roQueue.iConsumerTookUtcNs);
    return oFinding;
}

// Who sets those of an output.
SDomainFinding GetFeeder(const SStreamCase& roCase)
{
    const SFeedFigures& roFeed = roCase.roFigures.oFeed;
    const bool bIsTold = roCase.roTold.bIsFed;
    if (bIsTold && !roFeed.bHasFed &&
        roCase.roFigures.oCounters.flWatchedSeconds >= roCase.roSettings.flRecoverySeconds)
    {
        return MakeFault(true, EHealthReason::NOT_FED, roCase.roFigures.iStateSinceUtcNs);
    }
    if (!bIsTold && !roCase.roHabits.bIsFed)
    {
        return {};
    }
    if (roFeed.bIsStalled)
    {
        const SWatchEvent* poRepeated = roCase.roNews.Find(EWatchEventKind::BUFFERS_REPEATED);
        SDomainFinding oFinding = MakeFault(bIsTold, EHealthReason::FEED_STALLED, roFeed.iStalledSinceUtcNs);
        oFinding.uiLost = roCase.uiBeyond > 0 || poRepeated == nullptr ? roCase.uiBeyond : poRepeated->uiCount;
        return oFinding;
    }
    const SWatchEvent* poBreak = roCase.roNews.Find(EWatchEventKind::CADENCE_CHANGED);
    if (poBreak != nullptr && poBreak->uiBefore != 0)
    {
        SDomainFinding oFinding = MakeMoment(bIsTold, EHealthReason::CADENCE_BROKEN, *poBreak, 0.0);
        oFinding.uiLost = roCase.uiBeyond;
        return oFinding;
    }
    SDomainFinding oFinding;
    const SWatchEvent* poResumed = roCase.roNews.Find(EWatchEventKind::FEED_RESUMED);
    oFinding.iFineUtcNs = poResumed != nullptr ? poResumed->iUtcNs : 0;
    return oFinding;
}

} // namespace

SDomainFinding StreamFindings_GetSignal(const SStreamCase& roCase)
{
    const SStreamFigures& roFigures = roCase.roFigures;
    if (!IsRunning(roCase))
    {
        return GetAbsence(roCase);
    }
    // It was away and came back within this second.
    const SWatchEvent* poLost = roCase.roNews.Find(EWatchEventKind::SIGNAL_LOST);
    const bool bIsTold = roCase.roTold.IsTold();
    if (poLost != nullptr && (bIsTold || roCase.roHabits.bHasRun))
    {
        SDomainFinding oFinding = MakeMoment(bIsTold, EHealthReason::SIGNAL_LOST, *poLost, 0.0);
        oFinding.iEndUtcNs = std::max(poLost->iUtcNs, roFigures.iStateSinceUtcNs);
        oFinding.uiLost = 0;
        return oFinding;
    }
    SDomainFinding oFinding = GetDescriptionFault(roCase);
    if (!oFinding.IsFault() && roFigures.oFieldOrder.bIsSwapped)
    {
        oFinding =
            MakeFault(roCase.roTold.bRuns, EHealthReason::FIELD_ORDER_SWAPPED, roFigures.oFieldOrder.iSwappedUtcNs);
    }
    oFinding.iFineUtcNs = roFigures.iStateSinceUtcNs;
    for (const EWatchEventKind eKind : {EWatchEventKind::FIELD_ORDER_SWAPPED, EWatchEventKind::DESCRIPTION_CHANGED})
    {
        const SWatchEvent* poChange = roCase.roNews.Find(eKind);
        oFinding.iFineUtcNs = std::max(oFinding.iFineUtcNs, poChange != nullptr ? poChange->iUtcNs : 0);
    }
    return oFinding;
}

SDomainFinding StreamFindings_GetDelivery(const SStreamCase& roCase)
{
    const SWatchEvent* poLost = roCase.roNews.Find(EWatchEventKind::FIELDS_LOST);
    if (poLost != nullptr)
    {
        const double flSeconds = static_cast<double>(poLost->uiCount) * GetPeriodSeconds(roCase.roFigures);
        return MakeMoment(roCase.roTold.IsTold(), EHealthReason::FIELDS_LOST, *poLost, flSeconds);
    }
    return IsRunning(roCase) ? SDomainFinding{} : MakeIdle();
}

SDomainFinding StreamFindings_GetFeed(const SStreamCase& roCase)
{
    if (!IsRunning(roCase))
    {
        return MakeIdle();
    }
    return roCase.roFigures.oKey.eDirection == EStreamDirection::INPUT ? GetConsumer(roCase) : GetFeeder(roCase);
}

SDomainFinding StreamFindings_GetSynchronisation(const SStreamCase& roCase)
{
    const SStreamFigures& roFigures = roCase.roFigures;
    const SLockFinding& roLock = roCase.roLock;
    if (!IsRunning(roCase))
    {
        return MakeIdle();
    }
    if (roLock.bIsMissing)
    {
        SDomainFinding oFinding = MakeFault(
            roLock.bIsTold, roLock.bDrifts ? EHealthReason::LOCK_DRIFTS : EHealthReason::LOCK_LOST, roLock.iSinceUtcNs);
        oFinding.oReason.uiMember = roLock.uiPeer;
        oFinding.oReason.uiBefore = roLock.bIsAcross ? 1 : 0;
        return oFinding;
    }
    const SEstimate& roPpm = roFigures.aoRatePpm[static_cast<size_t>(ERateWindow::SECONDS_10)];
    const bool bIsTold = roCase.roTold.uiRateNumerator != 0;
    if (roPpm.bIsValid && std::abs(roPpm.flValue) > roCase.roSettings.flMostPpm &&
        (bIsTold || roCase.roHabits.bRateWasNear))
    {
        SDomainFinding oFinding = MakeFault(bIsTold, EHealthReason::RATE_OFF, roCase.iNowUtcNs);
        oFinding.oReason.flValue = roPpm.flValue;
        return oFinding;
    }
    return {};
}

SDomainFinding StreamFindings_GetObservation(const SStreamCase& roCase)
{
    const SWatchEvent* poUnobserved = roCase.roNews.Find(EWatchEventKind::FIELDS_UNOBSERVED);
    const double flPeriod = GetPeriodSeconds(roCase.roFigures);
    if (poUnobserved != nullptr && static_cast<double>(poUnobserved->uiCount) * flPeriod >= flNotedUnobservedSeconds)
    {
        return MakeMoment(false, EHealthReason::FIELDS_UNOBSERVED, *poUnobserved,
                          static_cast<double>(poUnobserved->uiCount) * flPeriod);
    }
    return IsRunning(roCase) ? SDomainFinding{} : MakeIdle();
}
