#include "LockGroups.h"

#include <algorithm>
#include <bit>

namespace
{

// All that is connected with a stream.
uint64_t FindConnected(std::span<const uint64_t> auiLocked, uint32_t uiStream)
{
    uint64_t uiMembers = uint64_t{1} << uiStream;
    uint64_t uiOpen = uiMembers;
    while (uiOpen != 0)
    {
        const auto uiNext = static_cast<uint32_t>(std::countr_zero(uiOpen));
        uiOpen &= uiOpen - 1;
        const uint64_t uiNew = auiLocked[uiNext] & ~uiMembers;
        uiMembers |= uiNew;
        uiOpen |= uiNew;
    }
    return uiMembers;
}

// The sets of streams that locked pairs connect; their number.
size_t FindSets(std::span<const uint64_t> auiLocked, uint64_t uiWithin, std::span<uint64_t> auiSets)
{
    size_t uiCount = 0;
    uint64_t uiSeen = 0;
    for (uint32_t uiStream = 0; uiStream < auiLocked.size(); ++uiStream)
    {
        if ((uiSeen >> uiStream & 1U) == 0 && auiLocked[uiStream] != 0)
        {
            const uint64_t uiSet = FindConnected(auiLocked, uiStream);
            uiSeen |= uiSet;
            if (uiWithin == 0 || ((uiSet & uiWithin) != 0 && (uiSet & ~uiWithin) != 0))
            {
                auiSets[uiCount++] = uiSet;
            }
        }
    }
    return uiCount;
}

} // namespace

bool CLockGroups::MatchClosest(std::span<const uint64_t> auiSets, Groups& raoNow, uint32_t& ruiTaken)
{
    size_t uiBestSet = 0;
    size_t uiBestGroup = 0;
    int iBest = 0;
    for (size_t uiGroup = 0; uiGroup < m_uiCount; ++uiGroup)
    {
        for (size_t uiSet = 0; uiSet < auiSets.size(); ++uiSet)
        {
            const int iShared = std::popcount(auiSets[uiSet] & m_aoGroups[uiGroup].uiMembers);
            if ((ruiTaken >> uiGroup & 1U) == 0 && raoNow[uiSet].uiMembers == 0 && iShared > iBest)
            {
                iBest = iShared;
                uiBestSet = uiSet;
                uiBestGroup = uiGroup;
            }
        }
    }
    if (iBest == 0)
    {
        return false;
    }
    ruiTaken |= 1U << uiBestGroup;
    raoNow[uiBestSet] = m_aoGroups[uiBestGroup];
    if (raoNow[uiBestSet].uiMembers != auiSets[uiBestSet])
    {
        raoNow[uiBestSet].uiMembers = auiSets[uiBestSet];
        Note(EGroupChange::CHANGED, raoNow[uiBestSet]);
    }
    return true;
}

std::span<const SGroupChange> CLockGroups::Update(std::span<const uint64_t> auiLocked, uint64_t uiNowNs)
{
    m_uiNbOfChanges = 0;
    std::array<uint64_t, msc_uiMostGroups> auiAllSets = {};
    const std::span<const uint64_t> auiSets = std::span(auiAllSets).first(FindSets(auiLocked, m_uiWithin, auiAllSets));
    Groups aoNow = {};
    uint32_t uiTaken = 0; // old groups, as bits: 32 of them at most
    while (MatchClosest(auiSets, aoNow, uiTaken))
    {
    }
    for (size_t uiGroup = 0; uiGroup < m_uiCount; ++uiGroup)
    {
        if ((uiTaken >> uiGroup & 1U) == 0)
        {
            Note(EGroupChange::ENDED, m_aoGroups[uiGroup]);
        }
    }
    for (size_t uiSet = 0; uiSet < auiSets.size(); ++uiSet)
    {
        if (aoNow[uiSet].uiMembers == 0)
        {
            aoNow[uiSet] = {++m_uiLastGroup, auiSets[uiSet], uiNowNs};
            Note(EGroupChange::FORMED, aoNow[uiSet]);
        }
    }
    std::ranges::sort(std::span(aoNow).first(auiSets.size()), {}, &SGroupLife::uiGroup);
    m_aoGroups = aoNow;
    m_uiCount = auiSets.size();
    return {m_aoChanges.data(), m_uiNbOfChanges};
}

SGroupLife CLockGroups::GetLargest() const
{
    SGroupLife oLargest;
    for (const SGroupLife& roGroup : Get())
    {
        if (std::popcount(roGroup.uiMembers) > std::popcount(oLargest.uiMembers))
        {
            oLargest = roGroup;
        }
    }
    return oLargest;
}
