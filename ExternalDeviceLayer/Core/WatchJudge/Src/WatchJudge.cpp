// See WatchJudge.h.
#include "WatchJudge.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "IncidentList.h"
#include "StreamFindings.h"
#include "TimeUnits.h"

namespace
{

using FindingFunction = SDomainFinding (*)(const SStreamCase&);
constexpr std::array<FindingFunction, uiNbOfHealthDomains> apfnFindings = {
    StreamFindings_GetSignal, StreamFindings_GetDelivery, StreamFindings_GetFeed, StreamFindings_GetSynchronisation,
    StreamFindings_GetObservation};

// A stream between two seconds.
struct SJudgedStream
{
    std::array<CDomainHealth, uiNbOfHealthDomains> aoDomains;
    SHealth oOverall;
    CStreamHabits oHabits;
    SStreamNews oNews;
    SLockFinding oLock;
    uint32_t uiLockedWith = 0; // bit i: it is in lock with stream i, or was when one of both stopped
    int64_t iLockedUtcNs = 0;  // when it was last in lock
    int64_t iAcrossUtcNs = 0;  // the same with those of the other direction that were told
    int64_t iSteppedUtcNs = 0; // when its grid last moved
    uint64_t uiBeyondBefore = 0;
    uint64_t uiAwayTold = 0; // fields that the present loss has cost so far
};

struct SJudgedDirection
{
    std::vector<SJudgedStream> aoStreams;
    std::vector<uint64_t> auiLockedSinceNs; // by pair; 0: not in lock
};

double GetPeriodSeconds(const SStreamFigures& roFigures)
{
    const double flRate = roFigures.flNominalRateHz;
    return roFigures.flPeriodSeconds > 0.0 ? roFigures.flPeriodSeconds : flRate > 0.0 ? 1.0 / flRate : 0.0;
}

} // namespace

struct SWatchJudgeState
{
    explicit SWatchJudgeState(const SJudgeSettings& roSettings)
        : oSettings(roSettings), oIncidents(roSettings.uiIncidentsBefore)
    {
    }

    const SStreamExpectation& GetTold(size_t uiSlot, size_t uiStream) const
    {
        const bool bIsTold = uiSlot < oSettings.aoStreams.size() && uiStream < oSettings.aoStreams[uiSlot].size();
        return bIsTold ? oSettings.aoStreams[uiSlot][uiStream] : oNothing;
    }

    SJudgeSettings oSettings;
    SStreamExpectation oNothing;
    std::vector<SJudgedDirection> aoDirections; // by StreamKey_GetSlot
    CIncidentList oIncidents;
    std::vector<SFaultBegin> aoBegun; // this second
    SHealth oOverall;
};

namespace
{

void TakeNews(SWatchJudgeState& roJudge, const SJudgeInput& roInput)
{
    roJudge.aoDirections.resize(roInput.roSnapshot.aoDirections.size());
    for (size_t uiDirection = 0; uiDirection < roJudge.aoDirections.size(); ++uiDirection)
    {
        SJudgedDirection& roDirection = roJudge.aoDirections[uiDirection];
        const SDirectionFigures& roFigures = roInput.roSnapshot.aoDirections[uiDirection];
        roDirection.aoStreams.resize(roFigures.aoStreams.size());
        roDirection.auiLockedSinceNs.resize(roFigures.aoPairs.size());
        for (SJudgedStream& roStream : roDirection.aoStreams)
        {
            roStream.oNews = {};
        }
    }
    for (const SWatchEvent& roEvent : roInput.aoHappenings)
    {
        const size_t uiSlot = StreamKey_GetSlot(roEvent.oKey);
        if (uiSlot >= roJudge.aoDirections.size() ||
            roEvent.oKey.uiIndex >= roJudge.aoDirections[uiSlot].aoStreams.size() ||
            roEvent.eKind >= EWatchEventKind::COUNT)
        {
            continue;
        }
        SJudgedStream& roStream = roJudge.aoDirections[uiSlot].aoStreams[roEvent.oKey.uiIndex];
        const SWatchEvent*& rpoFirst = roStream.oNews.apoFirst[static_cast<size_t>(roEvent.eKind)];
        rpoFirst = rpoFirst == nullptr || roEvent.iUtcNs < rpoFirst->iUtcNs ? &roEvent : rpoFirst;
        if (roEvent.eKind == EWatchEventKind::PHASE_STEPPED)
        {
            roStream.iSteppedUtcNs = roEvent.iUtcNs;
        }
    }
}

// A pair that does not run says nothing of what it was.
void KeepLock(SJudgedStream& roStream, uint32_t uiPeer, ELockState eLock)
{
    if (eLock != ELockState::IDLE)
    {
        const uint32_t uiOthers = roStream.uiLockedWith & ~(1U << uiPeer);
        roStream.uiLockedWith = uiOthers | (eLock == ELockState::LOCKED ? 1U << uiPeer : 0U);
    }
}

// A stream against another one of a pair.
void TakeLock(SJudgedStream& roStream, uint32_t uiPeer, ELockState eLock, const SStreamExpectation& roTold)
{
    const bool bIsTold = (roTold.uiLockedWith >> uiPeer & 1U) != 0;
    const bool bIsPeer = (roStream.oHabits.Get().uiPeers >> uiPeer & 1U) != 0;
    SLockFinding& roLock = roStream.oLock;
    // Who only passes is still where it was; told is more than that.
    roLock.bIsLocked |= bIsPeer && (eLock == ELockState::LOCKED || eLock == ELockState::PASSING);
    if (eLock == ELockState::IDLE || eLock == ELockState::LOCKED || (!bIsTold && !bIsPeer))
    {
        return;
    }
    const bool bDrifts = eLock == ELockState::PASSING;
    if (bIsTold && (!roLock.bIsTold || (roLock.bDrifts && !bDrifts)))
    {
        roLock.bIsTold = true;
        roLock.bDrifts = bDrifts;
        roLock.uiPeer = uiPeer;
    }
    else if (!roLock.bIsTold && !bDrifts)
    {
        roLock.bIsMissing = true;
        roLock.uiPeer = uiPeer;
    }
}

// A stream against one of the other direction: nothing is learned there, for who is in step by chance is no peer.
void TakeLockAcross(SJudgedStream& roStream, const SStreamExpectation& roTold, const SStreamKey& roPeer,
                    ELockState eLock, int64_t iInstantUtcNs)
{
    if ((roTold.uiLockedAcross >> roPeer.uiIndex & 1U) == 0 || eLock == ELockState::IDLE)
    {
        return;
    }
    SLockFinding& roLock = roStream.oLock;
    const bool bDrifts = eLock == ELockState::PASSING;
    if (eLock == ELockState::LOCKED)
    {
        roStream.iAcrossUtcNs = iInstantUtcNs;
    }
    else if (!roLock.bIsTold || (roLock.bDrifts && !bDrifts))
    {
        roLock.bIsTold = true;
        roLock.bDrifts = bDrifts;
        roLock.uiPeer = roPeer.uiIndex;
        roLock.bIsAcross = true;
    }
}

// The clock of the chip that a direction is of.
const SClockFigures& GetClock(const SJudgeInput& roInput, size_t uiSlot)
{
    return roInput.roSnapshot.GetClock(StreamKey_FromSlot(uiSlot, 0).uiChip);
}

void TakeLocks(SWatchJudgeState& roJudge, const SJudgeInput& roInput, size_t uiDirection)
{
    SJudgedDirection& roDirection = roJudge.aoDirections[uiDirection];
    const SDirectionFigures& roFigures = roInput.roSnapshot.aoDirections[uiDirection];
    const int64_t iInstantUtcNs = GetClock(roInput, uiDirection).iUtcNs;
    for (SJudgedStream& roStream : roDirection.aoStreams)
    {
        roStream.oLock = {};
    }
    for (const SPairFigures& roPair : roFigures.aoPairs)
    {
        SJudgedStream& roFirst = roDirection.aoStreams[roPair.uiFirst];
        SJudgedStream& roSecond = roDirection.aoStreams[roPair.uiSecond];
        KeepLock(roFirst, roPair.uiSecond, roPair.eLock);
        KeepLock(roSecond, roPair.uiFirst, roPair.eLock);
        TakeLock(roFirst, roPair.uiSecond, roPair.eLock, roJudge.GetTold(uiDirection, roPair.uiFirst));
        TakeLock(roSecond, roPair.uiFirst, roPair.eLock, roJudge.GetTold(uiDirection, roPair.uiSecond));
        if (roPair.eLock == ELockState::LOCKED)
        {
            roFirst.iLockedUtcNs = iInstantUtcNs;
            roSecond.iLockedUtcNs = iInstantUtcNs;
        }
    }
    for (const SAcrossFigures& roPair : roInput.roSnapshot.aoAcross)
    {
        const bool bIsFirst = StreamKey_GetSlot(roPair.oFirst) == uiDirection;
        if (!bIsFirst && StreamKey_GetSlot(roPair.oSecond) != uiDirection)
        {
            continue;
        }
        const SStreamKey& roKey = bIsFirst ? roPair.oFirst : roPair.oSecond;
        TakeLockAcross(roDirection.aoStreams[roKey.uiIndex], roJudge.GetTold(uiDirection, roKey.uiIndex),
                       bIsFirst ? roPair.oSecond : roPair.oFirst, roPair.oPair.eLock, iInstantUtcNs);
    }
    for (SJudgedStream& roStream : roDirection.aoStreams)
    {
        SLockFinding& roLock = roStream.oLock;
        roLock.bIsMissing = roLock.bIsTold || (roLock.bIsMissing && !roLock.bIsLocked);
        const int64_t iLockedUtcNs = roLock.bIsAcross ? roStream.iAcrossUtcNs : roStream.iLockedUtcNs;
        roLock.iSinceUtcNs = std::max(iLockedUtcNs, roStream.iSteppedUtcNs);
        roLock.iSinceUtcNs = roLock.iSinceUtcNs != 0 ? roLock.iSinceUtcNs : iInstantUtcNs;
    }
}

void LearnLocks(SWatchJudgeState& roJudge, const SJudgeInput& roInput, size_t uiDirection)
{
    SJudgedDirection& roDirection = roJudge.aoDirections[uiDirection];
    const std::vector<SPairFigures>& raoPairs = roInput.roSnapshot.aoDirections[uiDirection].aoPairs;
    const uint64_t uiNowNs = GetClock(roInput, uiDirection).uiMonotonicNs;
    for (size_t uiPair = 0; uiPair < raoPairs.size(); ++uiPair)
    {
        uint64_t& ruiSinceNs = roDirection.auiLockedSinceNs[uiPair];
        if (raoPairs[uiPair].eLock != ELockState::LOCKED)
        {
            ruiSinceNs = 0;
            continue;
        }
        ruiSinceNs = ruiSinceNs != 0 ? ruiSinceNs : uiNowNs;
        if (static_cast<double>(uiNowNs - ruiSinceNs) >= roJudge.oSettings.flLearnSeconds * flNsPerSecond)
        {
            roDirection.aoStreams[raoPairs[uiPair].uiFirst].oHabits.AddPeer(raoPairs[uiPair].uiSecond);
            roDirection.aoStreams[raoPairs[uiPair].uiSecond].oHabits.AddPeer(raoPairs[uiPair].uiFirst);
        }
    }
}

// Fields of a signal that is away: those that were not told yet.
uint64_t GetAwayGrowth(SJudgedStream& roStream, const SDomainFinding& roFinding, double flRateHz)
{
    const SWatchEvent* poBack = roStream.oNews.Find(EWatchEventKind::SIGNAL_BACK);
    const double flAway = roFinding.flAwaySeconds >= 0.0 ? roFinding.flAwaySeconds
                          : poBack != nullptr            ? poBack->flSeconds
                                                         : -1.0;
    if (flAway < 0.0)
    {
        roStream.uiAwayTold = 0;
        return 0;
    }
    const auto uiSoFar = static_cast<uint64_t>(std::llround(flAway * flRateHz));
    const uint64_t uiGrowth = uiSoFar - std::min(uiSoFar, roStream.uiAwayTold);
    roStream.uiAwayTold = roFinding.flAwaySeconds >= 0.0 ? std::max(uiSoFar, roStream.uiAwayTold) : 0;
    return uiGrowth;
}

// The first event of a stream that can belong to a fault.
uint64_t FindEvent(const SJudgeInput& roInput, const SStreamFigures& roFigures, int64_t iBeginUtcNs)
{
    const auto iPeriodNs = static_cast<int64_t>(GetPeriodSeconds(roFigures) * flNsPerSecond);
    const auto itEvent =
        std::ranges::find_if(roInput.aoEvents, [&](const SWatchEvent& roEvent)
                             { return roEvent.oKey == roFigures.oKey && roEvent.iUtcNs >= iBeginUtcNs - iPeriodNs; });
    return itEvent != roInput.aoEvents.end() ? itEvent->uiNumber : roFigures.oLastEvent.uiNumber;
}

// Those that it is in lock with; of one that has just left all of them, those that it used to be with.
uint32_t GetPeers(const SJudgedStream& roStream)
{
    return roStream.uiLockedWith != 0 ? roStream.uiLockedWith : roStream.oHabits.Get().uiPeers;
}

void JudgeDomain(SWatchJudgeState& roJudge, const SJudgeInput& roInput, const SStreamCase& roCase,
                 SJudgedStream& roStream, uint32_t uiDomain)
{
    const SStreamFigures& roFigures = roCase.roFigures;
    const auto eDomain = static_cast<EHealthDomain>(uiDomain);
    SDomainFinding oFinding = apfnFindings[uiDomain](roCase);
    CDomainHealth& roDomain = roStream.aoDomains[uiDomain];
    const SClockFigures& roClock = roInput.roSnapshot.GetClock(roFigures.oKey.uiChip);
    const SDomainChange oChange =
        roDomain.Take(oFinding, {roClock.iUtcNs, roClock.uiMonotonicNs}, roJudge.oSettings.flRecoverySeconds);
    if (eDomain == EHealthDomain::SIGNAL)
    {
        oFinding.uiLost += GetAwayGrowth(roStream, oFinding, roFigures.flNominalRateHz);
    }
    if (oChange.bEnded)
    {
        roJudge.oIncidents.End(roFigures.oKey, eDomain, oChange.iUtcNs);
    }
    if (oChange.bBegan)
    {
        roJudge.aoBegun.push_back({roFigures.oKey, eDomain, oFinding.iBeginUtcNs, oFinding.iEndUtcNs, oFinding.eStatus,
                                   oFinding.oReason, GetPeriodSeconds(roFigures), GetPeers(roStream),
                                   FindEvent(roInput, roFigures, oFinding.iBeginUtcNs), oFinding.uiLost});
    }
    else if (roDomain.Get().eStatus > EHealthStatus::HEALTHY)
    {
        roJudge.oIncidents.Take(roFigures.oKey, eDomain, oFinding.uiLost, oFinding.eStatus, oFinding.oReason);
    }
}

// The worst domain; a stream without a signal that nobody misses is inactive.
void JudgeOverall(SJudgedStream& roStream)
{
    const SHealth* poWorst = &roStream.aoDomains[0].Get();
    for (const CDomainHealth& roDomain : roStream.aoDomains)
    {
        poWorst = HealthStatus_IsWorse(roDomain.Get().eStatus, poWorst->eStatus) ? &roDomain.Get() : poWorst;
    }
    Health_Enter(roStream.oOverall, poWorst->eStatus, poWorst->oReason, poWorst->iSinceUtcNs);
}

void JudgeStream(SWatchJudgeState& roJudge, const SJudgeInput& roInput, const SStreamFigures& roFigures,
                 SJudgedStream& roStream)
{
    const SStreamExpectation& roTold = roJudge.GetTold(StreamKey_GetSlot(roFigures.oKey), roFigures.oKey.uiIndex);
    const SClockFigures& roClock = roInput.roSnapshot.GetClock(roFigures.oKey.uiChip);
    const uint64_t uiBeyond = roFigures.oCounters.uiRepeatedBeyond - roStream.uiBeyondBefore;
    roStream.uiBeyondBefore = roFigures.oCounters.uiRepeatedBeyond;
    const SStreamCase oCase = {roFigures,      roStream.oNews,    roTold,         roStream.oHabits.Get(),
                               roStream.oLock, roJudge.oSettings, roClock.iUtcNs, uiBeyond};
    for (uint32_t uiDomain = 0; uiDomain < uiNbOfHealthDomains; ++uiDomain)
    {
        JudgeDomain(roJudge, roInput, oCase, roStream, uiDomain);
    }
    JudgeOverall(roStream);
    roStream.oHabits.Take(roFigures, roStream.oNews, roClock.uiMonotonicNs, roJudge.oSettings.flLearnSeconds,
                          roJudge.oSettings.flMostPpm);
}

void FillHealth(SWatchJudgeState& roJudge, SJudgement& roJudgement)
{
    SHealth oWorst;
    roJudgement.aoStreams.resize(roJudge.aoDirections.size());
    for (size_t uiDirection = 0; uiDirection < roJudge.aoDirections.size(); ++uiDirection)
    {
        const std::vector<SJudgedStream>& raoStreams = roJudge.aoDirections[uiDirection].aoStreams;
        std::vector<SStreamHealth>& raoHealth = roJudgement.aoStreams[uiDirection];
        raoHealth.resize(raoStreams.size());
        for (size_t uiStream = 0; uiStream < raoStreams.size(); ++uiStream)
        {
            raoHealth[uiStream].oOverall = raoStreams[uiStream].oOverall;
            for (uint32_t uiDomain = 0; uiDomain < uiNbOfHealthDomains; ++uiDomain)
            {
                raoHealth[uiStream].aoDomains[uiDomain] = raoStreams[uiStream].aoDomains[uiDomain].Get();
            }
            oWorst = raoStreams[uiStream].oOverall.eStatus > oWorst.eStatus ? raoStreams[uiStream].oOverall : oWorst;
        }
    }
    Health_Enter(roJudge.oOverall, oWorst.eStatus, oWorst.oReason, oWorst.iSinceUtcNs);
    roJudgement.oOverall = roJudge.oOverall;
    roJudge.oIncidents.Fill(roJudgement);
}

StreamBits GetRunning(const SWatchSnapshot& roSnapshot)
{
    StreamBits auiRunning = {};
    for (size_t uiSlot = 0; uiSlot < roSnapshot.aoDirections.size(); ++uiSlot)
    {
        for (const SStreamFigures& roFigures : roSnapshot.aoDirections[uiSlot].aoStreams)
        {
            auiRunning[uiSlot] |= roFigures.eState == EStreamState::RUNNING ? 1U << roFigures.oKey.uiIndex : 0U;
        }
    }
    return auiRunning;
}

} // namespace

CWatchJudge::CWatchJudge(const SJudgeSettings& roSettings) : m_poState(std::make_unique<SWatchJudgeState>(roSettings))
{
}

CWatchJudge::~CWatchJudge() = default;

std::span<const SWatchEvent> CWatchJudge::Take(const SJudgeInput& roInput, SJudgement& roJudgement)
{
    SWatchJudgeState& roJudge = *m_poState;
    roJudge.oIncidents.ForgetEvents();
    roJudge.aoBegun.clear();
    TakeNews(roJudge, roInput);
    for (size_t uiDirection = 0; uiDirection < roJudge.aoDirections.size(); ++uiDirection)
    {
        TakeLocks(roJudge, roInput, uiDirection);
        const std::vector<SStreamFigures>& raoFigures = roInput.roSnapshot.aoDirections[uiDirection].aoStreams;
        for (size_t uiStream = 0; uiStream < raoFigures.size(); ++uiStream)
        {
            JudgeStream(roJudge, roInput, raoFigures[uiStream], roJudge.aoDirections[uiDirection].aoStreams[uiStream]);
        }
        LearnLocks(roJudge, roInput, uiDirection);
    }
    // In the order of their moments, so that the first one names the incident.
    std::ranges::stable_sort(roJudge.aoBegun, {}, &SFaultBegin::iBeginUtcNs);
    for (const SFaultBegin& roFault : roJudge.aoBegun)
    {
        roJudge.oIncidents.Begin(roFault);
        roJudge.oIncidents.Take(roFault.oKey, roFault.eDomain, roFault.uiLost, roFault.eStatus, roFault.oReason);
    }
    roJudge.oIncidents.Close(GetRunning(roInput.roSnapshot));
    FillHealth(roJudge, roJudgement);
    return roJudge.oIncidents.GetEvents();
}

std::span<const SWatchEvent> CWatchJudge::End(int64_t iNowUtcNs, SJudgement& roJudgement)
{
    SWatchJudgeState& roJudge = *m_poState;
    roJudge.oIncidents.ForgetEvents();
    for (size_t uiDirection = 0; uiDirection < roJudge.aoDirections.size(); ++uiDirection)
    {
        std::vector<SJudgedStream>& raoStreams = roJudge.aoDirections[uiDirection].aoStreams;
        for (uint32_t uiStream = 0; uiStream < raoStreams.size(); ++uiStream)
        {
            for (uint32_t uiDomain = 0; uiDomain < uiNbOfHealthDomains; ++uiDomain)
            {
                const SDomainChange oChange = raoStreams[uiStream].aoDomains[uiDomain].End(iNowUtcNs);
                if (oChange.bEnded)
                {
                    roJudge.oIncidents.End(StreamKey_FromSlot(uiDirection, uiStream),
                                           static_cast<EHealthDomain>(uiDomain), oChange.iUtcNs);
                }
            }
        }
    }
    roJudge.oIncidents.Close({});
    roJudge.oIncidents.Fill(roJudgement);
    return roJudge.oIncidents.GetEvents();
}
