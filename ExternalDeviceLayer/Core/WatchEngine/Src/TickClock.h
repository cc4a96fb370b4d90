/*
 * Ties the board's ticks to CLOCK_MONOTONIC by the lower envelope of (arrival - tick) over all streams: a wait can
 * return late, never early. One point per analysis, the arrival least late; through the points of the last minutes the
 * line that lies under all of them and closest to them on average (S. Moon, P. Skelly, D. Towsley, "Estimation and
 * removal of clock skew from network delay measurements", 1999). It is one edge of their lower convex hull.
 *
 * The delay that no wait ever undercuts cannot be seen in this; the uncertainty, the mean height of the points above
 * the line, is of its order. Nothing of this is needed when the board says that its ticks are that clock.
 */
#ifndef TICK_CLOCK_H
#define TICK_CLOCK_H

#include <array>
#include <cstdint>

#include "WatchEngine.h"

class CTickClock
{
public:
    explicit CTickClock(const SWatchSettings& roSettings);

    /* Takes in that a field of this tick arrived; returns how late, in nanoseconds, by what is known so far. */
    double Take(uint64_t uiTick, uint64_t uiArrivalNs)
    {
        const auto flTicks = static_cast<double>(static_cast<int64_t>(uiTick - m_uiTick));
        const auto flArrival = static_cast<double>(static_cast<int64_t>(uiArrivalNs - m_uiMonotonicNs));
        const double flLateNs = flArrival - flTicks * m_flNsPerTick - m_flOffsetNs;
        if (m_bIsExact)
        {
            return flLateNs > 0.0 ? flLateNs : 0.0;
        }
        const bool bCanTell = m_bIsKnown; // the first of all ties the clocks, and cannot be late
        if (!m_bHasPoint || flLateNs < m_flLeastLateNs)
        {
            TakeLeast(uiTick, uiArrivalNs, flLateNs);
        }
        return flLateNs > 0.0 && bCanTell ? flLateNs : 0.0;
    }
    /* Draws the line anew. */
    void Update();

    bool IsKnown() const { return m_bIsKnown; }
    double GetUncertaintySeconds() const { return m_flUncertaintyNs * 1e-9; }
    double GetNsPerTick() const { return m_flNsPerTick; }
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

    void TakeLeast(uint64_t uiTick, uint64_t uiArrivalNs, double flLateNs);
    // A line over the time after the newest point, nanoseconds.
    struct SDelayLine
    {
        double flAtNewest;
        double flSlope;
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
