/*
 * What a stream has done for long enough to be expected to go on.
 */
#ifndef STREAM_HABITS_H
#define STREAM_HABITS_H

#include <array>

#include "WatchEvent.h"
#include "WatchSnapshot.h"

// What happened to a stream in a second, by kind.
struct SStreamNews
{
    std::array<const SWatchEvent*, static_cast<size_t>(EWatchEventKind::COUNT)> apoFirst = {}; // null: it did not

    const SWatchEvent* Find(EWatchEventKind eKind) const { return apoFirst[static_cast<size_t>(eKind)]; }
};

struct SStreamHabits
{
    bool bHasRun = false;
    bool bIsFed = false;   // an output, in a steady cadence
    bool bIsTaken = false; // an input, without skipping
    bool bRateWasNear = false;
    bool bIsDescribed = false; // its description has stayed as it was
    uint32_t uiPeers = 0;      // bit i: it was in lock with stream i
};

class CStreamHabits
{
public:
    /* Takes in a second, after it has been judged by what was learned before. */
    void Take(const SStreamFigures& roFigures, const SStreamNews& roNews, uint64_t uiNowNs, double flLearnSeconds,
              double flMostPpm);
    void AddPeer(uint32_t uiStream) { m_oHabits.uiPeers |= 1U << uiStream; }

    const SStreamHabits& Get() const { return m_oHabits; }

private:
    // A thing that is so since a moment; 0: it is not.
    struct SStretchOf
    {
        uint64_t uiSinceNs = 0;

        bool Take(bool bIs, uint64_t uiNowNs, uint64_t uiLongNs)
        {
            uiSinceNs = bIs ? (uiSinceNs != 0 ? uiSinceNs : uiNowNs) : 0;
            return bIs && uiNowNs - uiSinceNs >= uiLongNs;
        }
    };

    void TakeFeed(const SStreamFigures& roFigures, uint64_t uiNowNs, uint64_t uiLongNs);

    SStreamHabits m_oHabits;
    SStretchOf m_oSteady;
    SStretchOf m_oIrregular;
    SStretchOf m_oTaken;
    SStretchOf m_oNear;
    SStretchOf m_oDescribed;
};

#endif
