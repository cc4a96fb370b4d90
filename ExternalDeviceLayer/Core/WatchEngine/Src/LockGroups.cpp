// See LockGroups.h.
#include "LockGroups.h"

#include <algorithm>
#include <bit>

namespace
{

// All that is connected with a stream.
uint32_t FindConnected(std::span<const uint32_t> auiLocked, uint32_t uiStream)
{
    uint32_t uiMembers = 1U << uiStream;
    uint32_t uiOpen = uiMembers;
    while (uiOpen != 0)
    {
        const auto uiNext = static_cast<uint32_t>(std::countr_zero(uiOpen));
        uiOpen &= uiOpen - 1;
        const uint32_t uiNew = auiLocked[uiNext] & ~uiMembers;
        uiMembers |= uiNew;
        uiOpen |= uiNew;
    }
    return uiMembers;
}

} // namespace

std::span<const SGroupChange> CLockGroups::Update(std::span<const uint32_t> auiLocked, uint64_t uiNowNs)
{
    m_uiNbOfChanges = 0;
    std::array<uint32_t, msc_uiMostGroups> auiSets = {};
    size_t uiNbOfSets = 0;
    uint32_t uiSeen = 0;
    for (uint32_t uiStream = 0; uiStream < auiLocked.size(); ++uiStream)
    {
        if ((uiSeen >> uiStream & 1U) == 0 && auiLocked[uiStream] != 0)
        {
            auiSets[uiNbOfSets] = FindConnected(auiLocked, uiStream);
            uiSeen |= auiSets[uiNbOfSets++];
        }
    }
    std::array<SGroupLife, msc_uiMostGroups> aoNow = {};
    uint32_t uiTaken = 0; // old groups, as bits
    for (size_t uiRound = 0; uiRound < uiNbOfSets; ++uiRound)
    {
        // The closest match of all goes first, so that no set takes another one's group.
        size_t uiBestSet = uiNbOfSets;
        size_t uiBestGroup = m_uiCount;
        int iBest = 0;
        for (size_t uiGroup = 0; uiGroup < m_uiCount; ++uiGroup)
        {
            for (size_t uiSet = 0; uiSet < uiNbOfSets; ++uiSet)
            {
                const int iShared = std::popcount(auiSets[uiSet] & m_aoGroups[uiGroup].uiMembers);
                if ((uiTaken >> uiGroup & 1U) == 0 && aoNow[uiSet].uiMembers == 0 && iShared > iBest)
                {
                    iBest = iShared;
                    uiBestSet = uiSet;
                    uiBestGroup = uiGroup;
                }
            }
        }
        if (uiBestSet == uiNbOfSets)
        {
            break;
        }
        uiTaken |= 1U << uiBestGroup;
        aoNow[uiBestSet] = m_aoGroups[uiBestGroup];
        if (aoNow[uiBestSet].uiMembers != auiSets[uiBestSet])
        {
            aoNow[uiBestSet].uiMembers = auiSets[uiBestSet];
            Note(EGroupChange::CHANGED, aoNow[uiBestSet]);
        }
    }
    for (size_t uiGroup = 0; uiGroup < m_uiCount; ++uiGroup)
    {
        if ((uiTaken >> uiGroup & 1U) == 0)
        {
            Note(EGroupChange::ENDED, m_aoGroups[uiGroup]);
        }
    }
    for (size_t uiSet = 0; uiSet < uiNbOfSets; ++uiSet)
    {
        if (aoNow[uiSet].uiMembers == 0)
        {
            aoNow[uiSet] = {++m_uiLastGroup, auiSets[uiSet], uiNowNs};
            Note(EGroupChange::FORMED, aoNow[uiSet]);
        }
    }
    std::sort(aoNow.begin(), aoNow.begin() + static_cast<ptrdiff_t>(uiNbOfSets),
              [](const SGroupLife& roA, const SGroupLife& roB) { return roA.uiGroup < roB.uiGroup; });
    m_aoGroups = aoNow;
    m_uiCount = uiNbOfSets;
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
