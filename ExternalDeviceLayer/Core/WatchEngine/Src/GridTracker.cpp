#include "GridTracker.h"

#include <algorithm>
#include <cmath>
#include <span>

#include "LineFit.h"

namespace
{

constexpr uint32_t uiLongestMemory = 32;     // fields
constexpr double flToleranceFactor = 8.0;    // of the root of the mean square
constexpr double flLargestTolerance = 0.125; // of the period
constexpr double flGapPpm = 2e-6;            // of a gap's length: what the rate may have wandered meanwhile
constexpr double flNotable = 1.0 / 256.0;    // of the period: less is jitter, whatever its spread
constexpr double flOtherSignal = 1e-3;       // a rate that jumps so far belongs to another signal

} // namespace

CGridTracker::CGridTracker(uint32_t uiTickFrequencyHz)
    : m_flFloor(std::max(2.0, 1e-6 * static_cast<double>(uiTickFrequencyHz)))
{
}

void CGridTracker::Restart()
{
    m_uiMemory = 0;
    m_uiHeld = 0;
    m_iHeldFields = 0;
    m_flMeanSquare = 0.0;
}

double CGridTracker::GetTolerance(int64_t iFields) const
{
    const double flGap = iFields > 1 ? flGapPpm * static_cast<double>(iFields) * m_flPeriod : 0.0;
    return std::min(std::max(flToleranceFactor * std::sqrt(m_flMeanSquare), m_flFloor) + flGap,
                    flLargestTolerance * m_flPeriod);
}

// Gains of the growing-memory line, frozen at the longest memory.
void CGridTracker::Correct(int64_t iFields, double flDeviation)
{
    m_uiMemory = std::min(m_uiMemory + 1, uiLongestMemory);
    const double flMemory = m_uiMemory;
    const double flPosition = 2.0 * (2.0 * flMemory - 1.0) / (flMemory * (flMemory + 1.0));
    const double flRate = 6.0 / (flMemory * (flMemory + 1.0));
    m_flPeriod += flRate * flDeviation / static_cast<double>(iFields);
    m_flAhead = (flPosition - 1.0) * flDeviation;
}

void CGridTracker::Follow(int64_t iFields, uint64_t uiTick, double flDeviation)
{
    Correct(iFields, flDeviation);
    m_uiLastTick = uiTick;
    m_iNumber += iFields;
    m_flMeanSquare += (flDeviation * flDeviation - m_flMeanSquare) / uiLongestMemory;
}

void CGridTracker::Search(int64_t iFields, uint64_t uiTick, SGridResult& roResult)
{
    const auto flTicks = static_cast<double>(static_cast<int64_t>(uiTick - m_uiLastTick));
    if (m_uiMemory == 1)
    {
        m_flPeriod = flTicks / static_cast<double>(iFields);
        m_flAhead = 0.0;
        m_uiMemory = flTicks > 0.0 ? 2 : 1;
    }
    else if (m_uiMemory >= 2)
    {
        const double flDeviation = flTicks - m_flAhead - static_cast<double>(iFields) * m_flPeriod;
        if (std::abs(flDeviation) > flLargestTolerance * m_flPeriod)
        {
            Restart();
        }
        else
        {
            Correct(iFields, flDeviation);
            // The mean of what the search sees, which is wider than what follows.
            m_flMeanSquare += (flDeviation * flDeviation - m_flMeanSquare) / (m_uiMemory - 2);
        }
    }
    m_uiMemory = std::max(m_uiMemory, 1U);
    m_uiLastTick = uiTick;
    if (IsKnown())
    {
        m_iNumber = 0;
        roResult.eVerdict = EGridVerdict::FOUND;
    }
}

// Off by whole periods, the numbers have slipped against a grid that is still there.
bool CGridTracker::TakeOnGrid(int64_t iSince, uint64_t uiTick, double flDeviation, SGridResult& roResult)
{
    const auto iSlipped = static_cast<int64_t>(std::round(flDeviation / m_flPeriod));
    const double flRest = flDeviation - static_cast<double>(iSlipped) * m_flPeriod;
    if (std::abs(flRest) > GetTolerance(iSince) || iSince + iSlipped <= 0)
    {
        return false;
    }
    if (iSlipped > 0)
    {
        roResult.uiLate = 1;
        roResult.flLatestTicks = flDeviation;
        roResult.uiOffGridTick = uiTick;
    }
    ReleaseHeld(roResult);
    Follow(iSince + iSlipped, uiTick, flRest);
    roResult.bHasDeviation = true;
    roResult.flDeviationTicks = flDeviation;
    roResult.eVerdict = EGridVerdict::ON_GRID;
    roResult.iNumber = m_iNumber;
    return true;
}

SGridResult CGridTracker::Take(int64_t iFields, uint64_t uiTick)
{
    SGridResult oResult;
    if (!IsKnown())
    {
        Search(iFields, uiTick, oResult);
        return oResult;
    }
    const int64_t iSince = m_iHeldFields + iFields;
    const auto flTicks = static_cast<double>(static_cast<int64_t>(uiTick - m_uiLastTick));
    const double flDeviation = flTicks - m_flAhead - static_cast<double>(iSince) * m_flPeriod;
    if (TakeOnGrid(iSince, uiTick, flDeviation, oResult))
    {
        return oResult;
    }
    m_iHeldFields = iSince;
    m_aoHeld[m_uiHeld++] = {m_iNumber + iSince, uiTick, flDeviation};
    oResult.eVerdict = EGridVerdict::HELD;
    if (m_uiHeld == msc_uiHeldFields)
    {
        JudgeHeld(oResult);
    }
    return oResult;
}

void CGridTracker::ReleaseHeld(SGridResult& roResult)
{
    const double flTolerance = GetTolerance(1);
    for (const SHeldField& roHeld : std::span(m_aoHeld.data(), m_uiHeld))
    {
        if (std::abs(roHeld.flDeviation) <= std::max(flTolerance, flNotable * m_flPeriod))
        {
            continue;
        }
        if (roResult.uiEarly + roResult.uiLate == 0)
        {
            roResult.uiOffGridTick = roHeld.uiTick;
        }
        ++(roHeld.flDeviation < 0.0 ? roResult.uiEarly : roResult.uiLate);
        roResult.flEarliestTicks = std::min(roResult.flEarliestTicks, roHeld.flDeviation);
        roResult.flLatestTicks = std::max(roResult.flLatestTicks, roHeld.flDeviation);
    }
    roResult.uiReleased = m_uiHeld;
    m_uiHeld = 0;
    m_iHeldFields = 0;
}

// Whether the held fields stand on a line of their own: a grid that has moved, or a rate that has jumped.
bool CGridTracker::TakeNewLine(double flLeast, double flMost, SGridResult& roResult)
{
    const double flTolerance = GetTolerance(1);
    std::array<SLinePoint, msc_uiHeldFields> aoPoints;
    std::ranges::transform(
        m_aoHeld, aoPoints.begin(),
        [this](const SHeldField& roHeld) {
            return SLinePoint{static_cast<double>(roHeld.iNumber - m_iNumber), roHeld.flDeviation, 1.0};
        });
    const SLineSums oLine = LineSums_Make(aoPoints);
    const bool bIsStep = flMost - flLeast <= flTolerance;
    const auto IsBeside = [&](const SLinePoint& roPoint)
    { return std::abs(roPoint.flY - oLine.GetY(roPoint.flX)) > flTolerance; };
    if (!bIsStep && std::ranges::any_of(aoPoints, IsBeside))
    {
        return false;
    }
    const double flStep = bIsStep ? (flLeast + flMost) / 2.0 : oLine.GetY(0.0);
    const bool bIsSameSignal = bIsStep || std::abs(oLine.GetSlope()) < flOtherSignal * m_flPeriod;
    if (bIsSameSignal && std::abs(flStep) > flTolerance)
    {
        roResult.flStepTicks = flStep;
        roResult.uiStepTick = m_aoHeld.front().uiTick;
    }
    return true;
}

void CGridTracker::JudgeHeld(SGridResult& roResult)
{
    const auto [itLeast, itMost] = std::ranges::minmax_element(m_aoHeld, {}, &SHeldField::flDeviation);
    const double flLargest = std::max(std::abs(itLeast->flDeviation), std::abs(itMost->flDeviation));
    if (TakeNewLine(itLeast->flDeviation, itMost->flDeviation, roResult) || flLargest > flLargestTolerance * m_flPeriod)
    {
        BeginAgain(roResult);
        return;
    }
    // The grid is there, the jitter has grown.
    const SHeldField oLast = m_aoHeld.back();
    const int64_t iSince = oLast.iNumber - m_iNumber;
    ReleaseHeld(roResult);
    m_flMeanSquare = std::max(m_flMeanSquare, flLargest * flLargest / 4.0);
    Follow(iSince, oLast.uiTick, oLast.flDeviation);
    roResult.eVerdict = EGridVerdict::ON_GRID;
    roResult.iNumber = m_iNumber;
}

// The held fields are the first of the new search.
void CGridTracker::BeginAgain(SGridResult& roResult)
{
    const std::array<SHeldField, msc_uiHeldFields> aoFields = m_aoHeld;
    const uint32_t uiFields = m_uiHeld;
    Restart();
    SGridResult oIgnored;
    for (uint32_t uiField = 0; uiField < uiFields; ++uiField)
    {
        Search(uiField == 0 ? 1 : aoFields[uiField].iNumber - aoFields[uiField - 1].iNumber, aoFields[uiField].uiTick,
               oIgnored);
    }
    roResult.eVerdict = EGridVerdict::MOVED;
}
