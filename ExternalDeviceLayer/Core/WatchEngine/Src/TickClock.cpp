#include "TickClock.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace
{

// A line through few points has a slope of their noise; before this it is taken as level.
constexpr double flSlopeFromNs = 20e9;
// A slope that no pair of clocks has: the board's time is scaled. That cannot wait.
constexpr double flScaledSlope = 1e-2;
// How far before its start a field may seem to arrive: the first line is no more than a guess.
constexpr double flEarlyAtFirstNs = 0.5e9;
constexpr double flEarlyNs = 20e6;
// How far the oscillators of two chips may be apart while no slope has been measured.
constexpr double flUnknownRate = 100e-6;
constexpr uint32_t uiSettledPoints = 5;
// Foreign stamps that agree so closely within a second are of one clock; so many of them make it one.
constexpr double flSameClockNs = 100e6;
constexpr uint32_t uiLeastVotes = 2;

// Rounded; what lies beyond the numbers' range stays at its edge.
int64_t ToInteger(double flValue)
{
    constexpr double flMost = 9.2e18;
    return std::llround(std::clamp(flValue, -flMost, flMost));
}

} // namespace

CTickClock::CTickClock(const SWatchSettings& roSettings)
    : m_flNominalNsPerTick(flNsPerSecond / static_cast<double>(roSettings.uiTickFrequencyHz)),
      m_bIsExact(roSettings.bTicksAreMonotonic),
      m_bIsKnown(roSettings.bTicksAreMonotonic),
      m_flNsPerTick(m_flNominalNsPerTick),
      m_flMostEarlyNs(flEarlyAtFirstNs)
{
    if (m_bIsExact)
    {
        m_flOffsetNs = static_cast<double>(roSettings.iTickOffsetNs);
        m_flUncertaintyNs = m_flNsPerTick / std::sqrt(12.0);
        m_flMomentUncertaintyNs = m_flUncertaintyNs;
    }
}

void CTickClock::Tie(const SPoint& roPoint)
{
    m_bIsKnown = true;
    m_bHasPoint = false;
    m_uiCount = 0;
    m_uiTick = roPoint.uiTick;
    m_uiMonotonicNs = roPoint.uiArrivalNs;
    m_flOffsetNs = 0.0;
    m_flNsPerTick = m_flNominalNsPerTick;
    m_flUncertaintyNs = 0.0;
    m_flMomentUncertaintyNs = flEarlyAtFirstNs;
    m_flRateUncertainty = flUnknownRate;
    m_flMostEarlyNs = flEarlyAtFirstNs;
}

void CTickClock::TakeLeast(uint64_t uiTick, uint64_t uiArrivalNs, double flLateNs)
{
    m_bHasPoint = true;
    m_flLeastLateNs = flLateNs;
    m_oLeast = {uiTick, uiArrivalNs};
    if (flLateNs < 0.0)
    {
        m_flOffsetNs += flLateNs;
        m_flLeastLateNs = 0.0;
    }
}

void CTickClock::TakeForeign(const SPoint& roPoint, uint64_t uiStream)
{
    const auto flTicks = static_cast<double>(static_cast<int64_t>(roPoint.uiTick - m_oRival.uiTick));
    const auto flArrival = static_cast<double>(static_cast<int64_t>(roPoint.uiArrivalNs - m_oRival.uiArrivalNs));
    if (m_uiRivalVotes > 0 && std::abs(flArrival - flTicks * m_flNominalNsPerTick) < flSameClockNs)
    {
        ++m_uiRivalVotes;
        m_uiRivalStreams |= uiStream;
    }
    else if (m_uiRivalVotes > 0)
    {
        --m_uiRivalVotes;
    }
    else
    {
        m_oRival = roPoint;
        m_uiRivalVotes = 1;
        m_uiRivalStreams = uiStream;
    }
}

// Whether more streams show another clock than this one; that one takes its place.
bool CTickClock::Elect()
{
    const bool bIsElected =
        m_uiRivalVotes >= uiLeastVotes && std::popcount(m_uiRivalStreams) > std::popcount(m_uiAgreeing);
    m_uiRivalVotes = 0;
    m_uiAgreeing = 0;
    if (bIsElected && !m_bIsExact)
    {
        Tie(m_oRival);
        ++m_uiEpoch;
    }
    return bIsElected && !m_bIsExact;
}

// The lower convex hull of all points, left to right (A. M. Andrew's monotone chain, 1979).
uint32_t CTickClock::MakeHull(const SPoint& roNewest)
{
    uint32_t uiHull = 0;
    for (uint32_t uiPoint = 0; uiPoint < m_uiCount; ++uiPoint)
    {
        const SPoint& roPoint = m_aoPoints[(m_uiNext + msc_uiPoints - m_uiCount + uiPoint) % msc_uiPoints];
        const double flTime =
            static_cast<double>(static_cast<int64_t>(roPoint.uiTick - roNewest.uiTick)) * m_flNominalNsPerTick;
        const auto flArrival = static_cast<double>(static_cast<int64_t>(roPoint.uiArrivalNs - roNewest.uiArrivalNs));
        m_aoRelative[uiPoint] = {flTime, flArrival - flTime};
        const auto IsAbove = [&](uint32_t uiA, uint32_t uiB)
        {
            const SRelativePoint& roA = m_aoRelative[uiA];
            const SRelativePoint& roB = m_aoRelative[uiB];
            const SRelativePoint& roC = m_aoRelative[uiPoint];
            return (roB.flTime - roA.flTime) * (roC.flDelay - roA.flDelay) <=
                   (roB.flDelay - roA.flDelay) * (roC.flTime - roA.flTime);
        };
        while (uiHull >= 2 && IsAbove(m_auiHull[uiHull - 2], m_auiHull[uiHull - 1]))
        {
            --uiHull;
        }
        m_auiHull[uiHull++] = uiPoint;
    }
    return uiHull;
}

// The edge of the hull under the mean of all points; level through the lowest one as long as slopes are noise.
CTickClock::SDelayLine CTickClock::ChooseEdge(uint32_t uiHull, const SRelativePoint& roMean) const
{
    double flLeast = m_aoRelative[0].flDelay;
    for (uint32_t uiCorner = 0; uiCorner < uiHull; ++uiCorner)
    {
        flLeast = std::min(flLeast, m_aoRelative[m_auiHull[uiCorner]].flDelay);
    }
    const bool bSlopeCounts = -m_aoRelative[0].flTime >= flSlopeFromNs;
    for (uint32_t uiEdge = 0; uiEdge + 1 < uiHull; ++uiEdge)
    {
        const SRelativePoint& roLeft = m_aoRelative[m_auiHull[uiEdge]];
        const SRelativePoint& roRight = m_aoRelative[m_auiHull[uiEdge + 1]];
        const double flSlope = (roRight.flDelay - roLeft.flDelay) / (roRight.flTime - roLeft.flTime);
        if (roMean.flTime >= roLeft.flTime && roMean.flTime <= roRight.flTime &&
            (bSlopeCounts || std::abs(flSlope) > flScaledSlope))
        {
            return {roLeft.flDelay - flSlope * roLeft.flTime, flSlope, roRight.flTime - roLeft.flTime};
        }
    }
    return {flLeast, 0.0, 0.0};
}

void CTickClock::DrawLine(const SPoint& roNewest)
{
    const uint32_t uiHull = MakeHull(roNewest);
    SRelativePoint oMean = {0.0, 0.0};
    for (uint32_t uiPoint = 0; uiPoint < m_uiCount; ++uiPoint)
    {
        oMean.flTime += m_aoRelative[uiPoint].flTime / m_uiCount;
        oMean.flDelay += m_aoRelative[uiPoint].flDelay / m_uiCount;
    }
    const SDelayLine oLine = ChooseEdge(uiHull, oMean);
    m_uiTick = roNewest.uiTick;
    m_uiMonotonicNs = roNewest.uiArrivalNs;
    m_flOffsetNs = oLine.flAtNewest;
    m_flNsPerTick = m_flNominalNsPerTick * (1.0 + oLine.flSlope);
    m_flUncertaintyNs = std::max(0.0, oMean.flDelay - oLine.flAtNewest - oLine.flSlope * oMean.flTime);
    if (oLine.flLength > 0.0)
    {
        // Either point that the line touches may be as late as the mean one is.
        m_flRateUncertainty = m_flUncertaintyNs / oLine.flLength;
        m_flMomentUncertaintyNs = m_flUncertaintyNs - m_flRateUncertainty * oMean.flTime;
        return;
    }
    // A level line stands for one that rises or falls, at the mean by half of what it does over all points.
    const double flSpan = -m_aoRelative[0].flTime;
    m_flMomentUncertaintyNs = 2.0 * m_flUncertaintyNs;
    m_flRateUncertainty = std::min(flUnknownRate, m_flMomentUncertaintyNs / std::max(flSpan, 1.0));
}

void CTickClock::Update()
{
    if (Elect() || m_bIsExact || !m_bHasPoint)
    {
        return;
    }
    m_bHasPoint = false;
    const SPoint& roBefore = m_aoPoints[(m_uiNext + msc_uiPoints - 1) % msc_uiPoints];
    const auto flAfterNs = static_cast<double>(static_cast<int64_t>(m_oLeast.uiTick - roBefore.uiTick)) * m_flNsPerTick;
    if (m_uiCount > 0 && flAfterNs <= 0.0)
    {
        return; // the streams' records come one stream after the other
    }
    m_aoPoints[m_uiNext] = m_oLeast;
    m_uiNext = (m_uiNext + 1) % msc_uiPoints;
    m_uiCount = std::min(m_uiCount + 1, msc_uiPoints);
    m_flMostEarlyNs = m_uiCount >= uiSettledPoints ? flEarlyNs : flEarlyAtFirstNs;
    DrawLine(m_oLeast);
}

double CTickClock::GetNsAfter(uint64_t uiTick, uint64_t uiMomentNs) const
{
    return static_cast<double>(static_cast<int64_t>(m_uiMonotonicNs - uiMomentNs)) + m_flOffsetNs +
           static_cast<double>(static_cast<int64_t>(uiTick - m_uiTick)) * m_flNsPerTick;
}

uint64_t CTickClock::ToMonotonicNs(uint64_t uiTick) const
{
    return m_uiMonotonicNs + static_cast<uint64_t>(ToInteger(GetNsAfter(uiTick, m_uiMonotonicNs)));
}

uint64_t CTickClock::ToTick(uint64_t uiMonotonicNs) const
{
    const double flNs = static_cast<double>(static_cast<int64_t>(uiMonotonicNs - m_uiMonotonicNs)) - m_flOffsetNs;
    return m_uiTick + static_cast<uint64_t>(ToInteger(flNs / m_flNsPerTick));
}
