/*
 * What an output is fed: which fields show another picture, in which cadence, and since when none comes.
 *
 * Between two fields that bring another picture lies a run of fields that show one. A cadence is a sequence of at most
 * five runs that has repeated itself for a second and three times at least; the shortest that does. It breaks with the
 * first field that brings a picture too early, or none where one was due. A gap in the fields leaves it alone: behind
 * one it may go on with any of its runs. A feed
 * is stalled when no picture has come for a second and for three times the longest of its last eight runs.
 *
 * Where the board estimates what was set, a look that it missed makes an odd run or two. They break nothing, and repeat
 * nothing, while there are no more than two of them within a second and none is longer than a missed picture makes it.
 */
#ifndef FEED_TRACKER_H
#define FEED_TRACKER_H

#include <array>
#include <cstdint>

#include "StreamTrackers.h"

// What a field brought about.
struct SFeedResult
{
    bool bHasStalled = false;
    bool bHasResumed = false;
    bool bCadenceChanged = false;
    SCadence oBefore;            // of a changed cadence
    uint64_t uiTick = 0;         // when what is told here happened
    uint64_t uiStalledTicks = 0; // how long a feed that resumed stood still
    uint64_t uiBeyond = 0;       // fields that repeated a picture beyond the cadence

    bool IsOfNote() const { return bHasStalled || bHasResumed || bCadenceChanged; }
};

class CFeedTracker
{
public:
    CFeedTracker(uint32_t uiTickFrequencyHz, bool bIsEstimated)
        : m_uiSecond(uiTickFrequencyHz), m_bIsEstimated(bIsEstimated)
    {
    }

    /* The signal begins anew. */
    void Restart();
    /* Takes in a field that comes iFields (at least 1) after the one before, and the pictures set since that one. */
    SFeedResult Take(int64_t iFields, uint64_t uiSet, uint64_t uiTick);

    bool HasFed() const { return m_bHasFed; }
    bool IsStalled() const { return m_bIsStalled; }
    uint64_t GetStalledTick() const { return m_uiDueTick; }
    uint64_t GetCadenceTick() const { return m_uiCadenceTick; }
    const SCadence& GetCadence() const { return m_oCadence; }

private:
    static constexpr uint32_t msc_uiRuns = 8;
    static constexpr uint32_t msc_uiLongestRun = 16; // of a cadence, fields
    static constexpr uint32_t msc_uiRepetitions = 3;

    void TakeNew(int64_t iFields, uint64_t uiTick, SFeedResult& roResult);
    void TakeRepeat(int64_t iFields, uint64_t uiTick, SFeedResult& roResult);
    void TakeRun(uint64_t uiTick, SFeedResult& roResult);
    void FindCadence(uint64_t uiTick, SFeedResult& roResult);
    void Break(uint64_t uiTick, SFeedResult& roResult);
    void SetCadence(const SCadence& roCadence, uint64_t uiTick, SFeedResult& roResult);
    uint32_t GetRun(uint32_t uiBack) const { return m_auiRuns[(m_uiNbOfRuns - uiBack) % msc_uiRuns]; }
    uint32_t GetNextPhases() const;
    uint32_t GetDueRun() const;
    uint32_t GetSlack(uint64_t uiTick) const;
    bool IsOfEstimate(uint64_t uiTick);
    uint64_t GetPatience() const;

    uint64_t m_uiSecond; // ticks
    bool m_bIsEstimated;
    std::array<uint64_t, 2> m_auiOddTicks = {}; // the last odd runs, older one first
    bool m_bHasFed = false;
    bool m_bHasStarted = false; // a field has come since the restart
    bool m_bIsRunWhole = false; // the present run was seen from its begin, field by field
    bool m_bIsBroken = false;   // it is longer than it was due to be
    bool m_bIsStalled = false;
    uint32_t m_uiRun = 0;     // fields of the present run
    uint64_t m_uiNewTick = 0; // its begin
    uint64_t m_uiDueTick = 0; // the first field of it that another picture was due for
    uint64_t m_uiCadenceTick = 0;
    uint64_t m_uiNbOfRuns = 0; // so far
    std::array<uint32_t, msc_uiRuns> m_auiRuns = {};
    std::array<uint64_t, msc_uiRuns> m_auiRunTicks = {};
    std::array<uint32_t, SCadence::msc_uiMostRuns + 1> m_auiMatches = {}; // by length: runs that repeat
    std::array<uint64_t, SCadence::msc_uiMostRuns + 1> m_auiMatchTicks = {};
    SCadence m_oCadence;
    uint32_t m_uiPhases = 0; // bit p: the present run may be the p-th of the cadence
    SCadence m_oLastCadence; // that there was
};

#endif
