// See IncidentList.h.
#include "IncidentList.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <numeric>

#include "WatchJudge.h"

namespace
{

constexpr double flMostPeriod = 0.1;  // seconds: slower streams do not make everything one
constexpr double flTolerance = 0.001; // of begins that are told by different streams

bool IsSameStream(const SFaultBegin& roA, const SFaultBegin& roB)
{
    return roA.oKey == roB.oKey;
}

bool BeginsWith(const SFaultBegin& roA, const SFaultBegin& roB)
{
    const double flApart = std::abs(static_cast<double>(roA.iBeginUtcNs - roB.iBeginUtcNs)) * 1e-9;
    return flApart <= std::min(std::max(roA.flPeriodSeconds, roB.flPeriodSeconds), flMostPeriod) + flTolerance;
}

bool WereInLock(const SFaultBegin& roA, const SFaultBegin& roB)
{
    return StreamKey_GetSlot(roA.oKey) == StreamKey_GetSlot(roB.oKey) &&
           ((roA.uiPeers >> roB.oKey.uiIndex & 1U) != 0 || (roB.uiPeers >> roA.oKey.uiIndex & 1U) != 0);
}

// Whether a fault that begins while another one lasts belongs to it.
bool BelongsTo(const SFaultBegin& roNew, const SFaultBegin& roLasting)
{
    return IsSameStream(roNew, roLasting) ||
           (roNew.eDomain == roLasting.eDomain &&
            (roNew.eDomain == EHealthDomain::OBSERVATION || WereInLock(roNew, roLasting)));
}

uint32_t CountStreams(const SIncident& roIncident)
{
    const auto fnAdd = [](uint32_t uiSum, uint32_t uiStreams)
    { return uiSum + static_cast<uint32_t>(std::popcount(uiStreams)); };
    return std::accumulate(roIncident.auiStreams.begin(), roIncident.auiStreams.end(), 0U, fnAdd);
}

// Whether an incident has no streams but those of the first one's chip, or direction.
bool IsOfOne(const SIncident& roIncident, size_t uiFirstSlot, size_t uiSlots)
{
    for (size_t uiSlot = 0; uiSlot < roIncident.auiStreams.size(); ++uiSlot)
    {
        if (roIncident.auiStreams[uiSlot] != 0 && uiSlot / uiSlots != uiFirstSlot / uiSlots)
        {
            return false;
        }
    }
    return true;
}

// Whether it has all that run, of the first one's chip or of all chips.
bool HasAll(const SIncident& roIncident, const StreamBits& rauiRunning, size_t uiFirstSlot, bool bOfOneChip)
{
    for (size_t uiSlot = 0; uiSlot < rauiRunning.size(); ++uiSlot)
    {
        const bool bCounts = !bOfOneChip || uiSlot / 2 == uiFirstSlot / 2;
        if (bCounts && (rauiRunning[uiSlot] & ~roIncident.auiStreams[uiSlot]) != 0)
        {
            return false;
        }
    }
    return true;
}

} // namespace

CIncidentList::SOpen* CIncidentList::FindFor(const SFaultBegin& roFault)
{
    for (SOpen& roOpen : m_aoOpen)
    {
        if (std::ranges::any_of(roOpen.aoMembers,
                                [&](const SMember& roMember) {
                                    return (roMember.bIsOpen && BelongsTo(roFault, roMember.oFault)) ||
                                           BeginsWith(roFault, roMember.oFault);
                                }))
        {
            return &roOpen;
        }
    }
    return nullptr;
}

CIncidentList::SMember* CIncidentList::FindMember(const SStreamKey& roKey, EHealthDomain eDomain, SOpen*& rpoOpen)
{
    for (SOpen& roOpen : m_aoOpen)
    {
        for (SMember& roMember : roOpen.aoMembers)
        {
            const SFaultBegin& roFault = roMember.oFault;
            if (roFault.oKey == roKey && roFault.eDomain == eDomain)
            {
                rpoOpen = &roOpen;
                return &roMember;
            }
        }
    }
    return nullptr;
}

void CIncidentList::Join(SOpen& roOpen, const SFaultBegin& roFault)
{
    SOpen* poOpen = nullptr;
    SMember* poMember = FindMember(roFault.oKey, roFault.eDomain, poOpen);
    if (poMember != nullptr && poOpen == &roOpen)
    {
        *poMember = {roFault, true};
    }
    else
    {
        roOpen.aoMembers.push_back({roFault, true});
    }
    SIncident& roIncident = roOpen.oIncident;
    roIncident.auiStreams[StreamKey_GetSlot(roFault.oKey)] |= 1U << roFault.oKey.uiIndex;
    roIncident.eWorst = std::max(roIncident.eWorst, roFault.eStatus);
    if (roFault.eDomain == EHealthDomain::OBSERVATION && roFault.iEndUtcNs != 0)
    {
        roIncident.flStoodSeconds =
            std::max(roIncident.flStoodSeconds, static_cast<double>(roFault.iEndUtcNs - roFault.iBeginUtcNs) * 1e-9);
    }
    roOpen.bHasChanged = true;
}

void CIncidentList::Begin(const SFaultBegin& roFault)
{
    if (SOpen* poOpen = FindFor(roFault); poOpen != nullptr)
    {
        Join(*poOpen, roFault);
        return;
    }
    SOpen& roOpen = m_aoOpen.emplace_back();
    SIncident& roIncident = roOpen.oIncident;
    roIncident.uiNumber = ++m_uiLast;
    roIncident.iBeginUtcNs = roFault.iBeginUtcNs;
    roIncident.eDomain = roFault.eDomain;
    roIncident.oFirstStream = roFault.oKey;
    roIncident.oFirst = roFault.oReason;
    roIncident.uiFirstEvent = roFault.uiFirstEvent;
    ++m_uiBegun;
    Join(roOpen, roFault);
}

void CIncidentList::Take(const SStreamKey& roKey, EHealthDomain eDomain, uint64_t uiLost, EHealthStatus eStatus,
                         const SHealthReason& roReason)
{
    SOpen* poOpen = nullptr;
    const SMember* poMember = FindMember(roKey, eDomain, poOpen);
    if (poMember == nullptr)
    {
        return;
    }
    SIncident& roIncident = poOpen->oIncident;
    roIncident.uiLost += uiLost;
    roIncident.eWorst = std::max(roIncident.eWorst, eStatus);
    // What began as a broken cadence or a few skipped pictures turned out to be more.
    const bool bIsStall =
        roReason.eReason == EHealthReason::FEED_STALLED || roReason.eReason == EHealthReason::CONSUMER_STALLED;
    if (bIsStall && poMember == &poOpen->aoMembers.front())
    {
        roIncident.oFirst = roReason;
    }
}

void CIncidentList::End(const SStreamKey& roKey, EHealthDomain eDomain, int64_t iEndUtcNs)
{
    SOpen* poOpen = nullptr;
    if (SMember* poMember = FindMember(roKey, eDomain, poOpen); poMember != nullptr)
    {
        poMember->bIsOpen = false;
        poOpen->oIncident.iEndUtcNs = std::max(poOpen->oIncident.iEndUtcNs, iEndUtcNs);
    }
}

// What the streams share, by what the data tell and no further.
void CIncidentList::Explain(SOpen& roOpen, const StreamBits& rauiRunning)
{
    SIncident& roIncident = roOpen.oIncident;
    const SFaultBegin& roFirst = roOpen.aoMembers.front().oFault;
    const size_t uiSlot = StreamKey_GetSlot(roFirst.oKey);
    const uint32_t uiGroup = roFirst.uiPeers | 1U << roFirst.oKey.uiIndex;
    int64_t iLastBegin = roIncident.iBeginUtcNs;
    roIncident.bIsTogether = true;
    for (const SMember& roMember : roOpen.aoMembers)
    {
        const bool bIsOfFirst = BeginsWith(roMember.oFault, roFirst);
        roIncident.bIsTogether = roIncident.bIsTogether && bIsOfFirst;
        iLastBegin = bIsOfFirst ? std::max(iLastBegin, roMember.oFault.iBeginUtcNs) : iLastBegin;
    }
    roIncident.flSpreadSeconds = static_cast<double>(iLastBegin - roIncident.iBeginUtcNs) * 1e-9;
    const bool bHasAll = HasAll(roIncident, rauiRunning, uiSlot, false);
    const bool bIsSingle = CountStreams(roIncident) == 1;
    const bool bIsGroup =
        !bIsSingle && IsOfOne(roIncident, uiSlot, 1) && (roIncident.auiStreams[uiSlot] & ~uiGroup) == 0;
    if (roIncident.eDomain == EHealthDomain::OBSERVATION && (bHasAll || !bIsSingle))
    {
        roIncident.eShared = EIncidentShare::MACHINE;
        roIncident.bIsWhole = bHasAll;
        return;
    }
    const bool bIsOfOneChip = IsOfOne(roIncident, uiSlot, 2);
    roIncident.eShared = bIsSingle      ? EIncidentShare::STREAM
                         : bIsGroup     ? EIncidentShare::LOCK_GROUP
                         : bIsOfOneChip ? EIncidentShare::BOARD
                                        : EIncidentShare::MACHINE;
    roIncident.bIsWhole =
        bIsGroup ? roIncident.auiStreams[uiSlot] == uiGroup : HasAll(roIncident, rauiRunning, uiSlot, bIsOfOneChip);
}

SWatchEvent WatchJudge_MakeEvent(const SIncident& roIncident, EWatchEventKind eKind)
{
    SWatchEvent oEvent = {};
    oEvent.eKind = eKind;
    oEvent.oKey = roIncident.oFirstStream;
    oEvent.uiCount = 1;
    oEvent.uiGroup = static_cast<uint32_t>(roIncident.uiNumber);
    oEvent.uiBefore = static_cast<uint64_t>(roIncident.eDomain);
    oEvent.iUtcNs = roIncident.iBeginUtcNs;
    if (eKind == EWatchEventKind::INCIDENT_ENDED)
    {
        oEvent.iUtcNs = roIncident.iEndUtcNs;
        oEvent.uiAfter = roIncident.uiLost;
        oEvent.flSeconds = static_cast<double>(roIncident.iEndUtcNs - roIncident.iBeginUtcNs) * 1e-9;
    }
    return oEvent;
}

void CIncidentList::Close(const StreamBits& rauiRunning)
{
    for (SOpen& roOpen : m_aoOpen)
    {
        if (roOpen.bHasChanged)
        {
            Explain(roOpen, rauiRunning);
            roOpen.bHasChanged = false;
        }
        if (roOpen.bIsNew)
        {
            m_aoEvents.push_back(WatchJudge_MakeEvent(roOpen.oIncident, EWatchEventKind::INCIDENT_BEGAN));
            roOpen.bIsNew = false;
        }
        if (std::ranges::none_of(roOpen.aoMembers, &SMember::bIsOpen))
        {
            m_aoEvents.push_back(WatchJudge_MakeEvent(roOpen.oIncident, EWatchEventKind::INCIDENT_ENDED));
            m_aoEnded.push_front(roOpen.oIncident);
        }
    }
    std::erase_if(m_aoOpen,
                  [](const SOpen& roOpen) { return std::ranges::none_of(roOpen.aoMembers, &SMember::bIsOpen); });
    m_aoEnded.resize(std::min(m_aoEnded.size(), msc_uiKept));
}

void CIncidentList::Fill(SJudgement& roJudgement) const
{
    roJudgement.aoIncidents.assign(m_aoEnded.begin(), m_aoEnded.end());
    for (const SOpen& roOpen : m_aoOpen)
    {
        roJudgement.aoIncidents.push_back(roOpen.oIncident);
        roJudgement.aoIncidents.back().iEndUtcNs = 0;
    }
    std::ranges::sort(roJudgement.aoIncidents, std::ranges::greater{}, &SIncident::uiNumber);
    roJudgement.uiIncidentsOpen = static_cast<uint32_t>(m_aoOpen.size());
    roJudgement.uiIncidents = m_uiBegun;
}
