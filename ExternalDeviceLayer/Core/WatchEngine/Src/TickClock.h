/*
 * Ties the board's ticks to CLOCK_MONOTONIC by the lower envelope of (arrival - tick) over all streams: a wait can
 * return late, never early. One point per analysis, the arrival least late; through the points of the last minutes the
 * line that lies under all of them and closest to them on average (S. Moon, P. Skelly, D. Towsley, "Estimation and
 * removal of clock skew from network delay measurements", 1999). It is one edge of their lower convex hull.
 *
 * The delay that no wait ever undercuts cannot be seen in this: the caller bounds it. Nothing of this is needed when
 * the board says that its ticks are that clock.
 *
 * A stamp that cannot be of this clock, because it lies after its arrival or long before its wait, is foreign and ties
 * nothing. Where more streams agree on another clock than on this one, that one becomes it: the board's counter began
 * anew, or the stream that was heard first had a clock of its own.
 */
#ifndef TICK_CLOCK_H
#define TICK_CLOCK_H

#include <array>
#include <cstdint>

#include "TimeUnits.h"
#include "WatchSettings.h"

class CTickClock
{
public:
    explicit CTickClock(const SWatchSettings& roSettings);

    /*
     * Takes in that a field of this tick arrived.
     *   uiStream    in  which stream says so, as a bit
     *   flWaitedNs  in  how long it may have been on its way
     * How late it arrived, in nanoseconds, by what is known so far; negative: the tick is not of this clock.
     */
    double Take(uint64_t uiTick, uint64_t uiArrivalNs, uint64_t uiStream, double flWaitedNs)
    {
        if (!m_bIsKnown)
        {
            Tie({uiTick, uiArrivalNs});
        }
        const double flLateNs = GetLateNs(uiTick, uiArrivalNs);
        if (flLateNs < -m_flMostEarlyNs || flLateNs > flWaitedNs + msc_flMostLateNs)
        {
            TakeForeign({uiTick, uiArrivalNs}, uiStream);
            return -1.0;
        }
        m_uiAgreeing |= uiStream;
        if (!m_bIsExact && (!m_bHasPoint || flLateNs < m_flLeastLateNs))
        {
            TakeLeast(uiTick, uiArrivalNs, flLateNs);
        }
        return flLateNs > 0.0 ? flLateNs : 0.0;
    }
    /* Draws the line anew: once per instant. */
    void Update();
    /* Grows whenever another clock has become this one: what was before has nothing to do with what comes. */
    uint32_t GetEpoch() const { return m_uiEpoch; }

    bool IsKnown() const { return m_bIsKnown; }
    double GetUncertaintySeconds() const { return m_flUncertaintyNs * flSecondsPerNs; }
    double GetNsPerTick() const { return m_flNsPerTick; }
    /* How far the line's slope may be off, as a ratio; 0: it is exact. */
    double GetRateUncertainty() const { return m_flRateUncertainty; }
    /* The same of the line at its newest point, seconds, for who compares it with another chip's. */
    double GetMomentUncertaintySeconds() const { return m_flMomentUncertaintyNs * flSecondsPerNs; }
    /* The moment of a tick in nanoseconds of CLOCK_MONOTONIC, relative to a moment near it. */
    double GetNsAfter(uint64_t uiTick, uint64_t uiMomentNs) const;
    uint64_t ToMonotonicNs(uint64_t uiTick) const;
    uint64_t ToTick(uint64_t uiMonotonicNs) const;

private:
    static constexpr uint32_t msc_uiPoints = 256;

    struct SPoint
    {
        uint64_t uiTick;
        uint64_t uiArrivalNs;
    };
    // Relative to the newest point, nanoseconds.
    struct SRelativePoint
    {
        double flTime;
        double flDelay;
    };

    static constexpr double msc_flMostLateNs = 0.5e9; // beyond its wait

    double GetLateNs(uint64_t uiTick, uint64_t uiArrivalNs) const
    {
        const auto flTicks = static_cast<double>(static_cast<int64_t>(uiTick - m_uiTick));
        const auto flArrival = static_cast<double>(static_cast<int64_t>(uiArrivalNs - m_uiMonotonicNs));
        return flArrival - flTicks * m_flNsPerTick - m_flOffsetNs;
    }
    void Tie(const SPoint& roPoint);
    void TakeLeast(uint64_t uiTick, uint64_t uiArrivalNs, double flLateNs);
    void TakeForeign(const SPoint& roPoint, uint64_t uiStream);
    bool Elect();
    // A line over the time after the newest point, nanoseconds.
    struct SDelayLine
    {
        double flAtNewest;
        double flSlope;
        double flLength; // from one point that it touches to the other; 0: it is level
    };

    uint32_t MakeHull(const SPoint& roNewest);
    SDelayLine ChooseEdge(uint32_t uiHull, const SRelativePoint& roMean) const;
    void DrawLine(const SPoint& roNewest);

    double m_flNominalNsPerTick;
    bool m_bIsExact;
    bool m_bIsKnown;
    // The line: at m_uiTick the clock shows m_uiMonotonicNs + m_flOffsetNs.
    uint64_t m_uiTick = 0;
    uint64_t m_uiMonotonicNs = 0;
    double m_flOffsetNs = 0.0;
    double m_flNsPerTick;
    double m_flUncertaintyNs = 0.0;
    double m_flMomentUncertaintyNs = 0.0;
    double m_flRateUncertainty = 0.0;
    double m_flMostEarlyNs;
    uint32_t m_uiEpoch = 0;
    uint64_t m_uiAgreeing = 0; // streams that showed this clock since the last update, as bits

    // Another clock that foreign stamps agree on, found by their majority (R. Boyer, J Moore, 1981).
    SPoint m_oRival = {};
    uint32_t m_uiRivalVotes = 0;
    uint64_t m_uiRivalStreams = 0;

    bool m_bHasPoint = false;
    double m_flLeastLateNs = 0.0;
    SPoint m_oLeast = {};
    uint32_t m_uiCount = 0; // points in the ring
    uint32_t m_uiNext = 0;
    std::array<SPoint, msc_uiPoints> m_aoPoints = {};
    std::array<SRelativePoint, msc_uiPoints> m_aoRelative = {};
    std::array<uint32_t, msc_uiPoints> m_auiHull = {};
};

#endif
