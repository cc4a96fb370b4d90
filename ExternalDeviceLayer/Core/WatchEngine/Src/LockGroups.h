/*
 * Streams that are in lock with each other, found by the pairs and followed over time: those of a direction, or of both
 * (outputs behind the inputs). A group is what the pairs in lock connect. It keeps its identity as long as it keeps
 * most of its members: of the old groups that a new set shares members with, the one that shares most, and the oldest
 * of those that share as many.
 */
#ifndef LOCK_GROUPS_H
#define LOCK_GROUPS_H

#include <array>
#include <cstdint>
#include <span>

#include "WatchSnapshot.h"

// A group with its life; uiMembers of 0: none.
struct SGroupLife
{
    uint32_t uiGroup = 0;
    uint64_t uiMembers = 0;
    uint64_t uiSinceNs = 0; // CLOCK_MONOTONIC
};

enum class EGroupChange : uint8_t
{
    FORMED,
    CHANGED,
    ENDED
};

struct SGroupChange
{
    EGroupChange eChange;
    SGroupLife oGroup; // after it; before it when it ended
};

class CLockGroups
{
public:
    /* uiWithin, where it is not 0: only groups with members in it and with others count. */
    explicit CLockGroups(uint64_t uiWithin = 0) : m_uiWithin(uiWithin) {}

    /*
     * Takes in which pairs are in lock.
     *   auiLocked  in  by stream: the streams that it is in lock with, as bits
     * The changes, valid until the next call.
     */
    std::span<const SGroupChange> Update(std::span<const uint64_t> auiLocked, uint64_t uiNowNs);
    /* The groups, ordered by identity. */
    std::span<const SGroupLife> Get() const { return {m_aoGroups.data(), m_uiCount}; }
    /* The largest group, the oldest of equals; 0 members when there is none. */
    SGroupLife GetLargest() const;

private:
    static constexpr size_t msc_uiMostGroups = uiMaxStreamsPerDirection; // of both directions

    using Groups = std::array<SGroupLife, msc_uiMostGroups>;

    // Finds an old group for a set, the closest match of all first; false when there is none left.
    bool MatchClosest(std::span<const uint64_t> auiSets, Groups& raoNow, uint32_t& ruiTaken);
    void Note(EGroupChange eChange, const SGroupLife& roGroup) { m_aoChanges[m_uiNbOfChanges++] = {eChange, roGroup}; }

    uint64_t m_uiWithin;
    uint32_t m_uiLastGroup = 0;
    size_t m_uiCount = 0;
    Groups m_aoGroups = {};
    size_t m_uiNbOfChanges = 0;
    std::array<SGroupChange, 2 * msc_uiMostGroups> m_aoChanges = {};
};

#endif
