#include "RecentFields.h"

#include <algorithm>
#include <cmath>

#include "BlockFit.h"

namespace
{

constexpr int64_t iWindowSeconds = 10;
constexpr uint32_t uiParts = 8;
constexpr uint32_t uiMiddleBin = uiIntervalBins / 2;
// The inner bins reach to four standard deviations of an interval.
constexpr double flBinsPerDeviation = 5.0;

// The next of 1, 2, 5, 10, 20, 50 ... that is not smaller.
double RoundUp(double flValue)
{
    const double flDecade = std::pow(10.0, std::floor(std::log10(flValue)));
    for (const double flStep : {1.0, 2.0, 5.0})
    {
        if (flStep * flDecade >= flValue)
        {
            return flStep * flDecade;
        }
    }
    return 10.0 * flDecade;
}

} // namespace

CRecentFields::CRecentFields()
    : m_paoFields(std::make_unique_for_overwrite<SRecentField[]>(size_t{msc_uiSeconds} * msc_uiMostPerSecond))
{
}

void CRecentFields::Clear()
{
    m_aoSeconds.fill({});
}

void CRecentFields::TakeOffGrid(int64_t iSecond, uint32_t uiEarly, uint32_t uiLate)
{
    SRecentSecond& roSecond = m_aoSeconds[static_cast<size_t>(iSecond) % m_aoSeconds.size()];
    if (roSecond.iSecond == iSecond)
    {
        roSecond.uiEarly += uiEarly;
        roSecond.uiLate += uiLate;
    }
}

std::span<const SRecentField> CRecentFields::GetSecond(int64_t iSecond, const SRecentSecond*& rpoSecond) const
{
    const size_t uiSlot = static_cast<size_t>(iSecond) % m_aoSeconds.size();
    rpoSecond = &m_aoSeconds[uiSlot];
    const bool bIsThere = iSecond >= 0 && rpoSecond->iSecond == iSecond;
    return {&m_paoFields[uiSlot * msc_uiMostPerSecond], bIsThere ? rpoSecond->uiCount : 0};
}

SJitterFigures CRecentFields::GetJitter(const SLine& roLine, int64_t iEnd, double flSecondsPerTick) const
{
    SJitterFigures oFigures;
    // The deviation of an interval has twice the variance of a field's.
    double& rflBin = oFigures.oIntervals.flBinSeconds;
    rflBin = RoundUp(std::sqrt(2.0 * roLine.flNoise) / flBinsPerDeviation * flSecondsPerTick);
    const double flScale = flSecondsPerTick / rflBin;
    double flLeast = 0.0;
    double flMost = 0.0;
    bool bIsFirst = true;
    double flBefore = 0.0;
    int64_t iBefore = INT64_MIN;
    for (int64_t iSecond = iEnd - iWindowSeconds; iSecond < iEnd; ++iSecond)
    {
        const SRecentSecond* poSecond = nullptr;
        const std::span<const SRecentField> aoFields = GetSecond(iSecond, poSecond);
        const double flOrigin = static_cast<double>(poSecond->iPhase - roLine.iPhase) -
                                roLine.GetPhase(static_cast<double>(poSecond->iNumber - roLine.iNumber));
        for (const SRecentField& roField : aoFields)
        {
            const double flDeviation = flOrigin + static_cast<double>(roField.flPhase) -
                                       roLine.flSlope * static_cast<double>(roField.flNumber);
            flLeast = bIsFirst ? flDeviation : std::min(flLeast, flDeviation);
            flMost = bIsFirst ? flDeviation : std::max(flMost, flDeviation);
            bIsFirst = false;
            const int64_t iNumber = poSecond->iNumber + static_cast<int64_t>(roField.flNumber);
            if (iNumber - 1 == iBefore)
            {
                const double flBin = (flDeviation - flBefore) * flScale + uiMiddleBin + 0.5;
                ++oFigures.oIntervals.auiCounts[static_cast<size_t>(std::clamp(flBin, 0.0, uiIntervalBins - 1.0))];
            }
            flBefore = flDeviation;
            iBefore = iNumber;
        }
        if (poSecond->iSecond == iSecond)
        {
            oFigures.oIntervals.auiCounts.front() += poSecond->uiEarly;
            oFigures.oIntervals.auiCounts.back() += poSecond->uiLate;
        }
    }
    oFigures.flPeakTicks = flMost - flLeast;
    return oFigures;
}

double CRecentFields::GetSlopeErrorByParts(int64_t iSecond) const
{
    const SRecentSecond* poSecond = nullptr;
    const std::span<const SRecentField> aoFields = GetSecond(iSecond, poSecond);
    if (aoFields.size() < 2 * size_t{uiParts})
    {
        return 0.0;
    }
    std::array<SLinePoint, uiParts> aoPoints;
    const double flScale = uiParts / (static_cast<double>(aoFields.back().flNumber) + 1.0);
    for (const SRecentField& roField : aoFields)
    {
        SLinePoint& roPoint = aoPoints[std::min<size_t>(
            uiParts - 1, static_cast<size_t>(static_cast<double>(roField.flNumber) * flScale))];
        roPoint.flX += static_cast<double>(roField.flNumber);
        roPoint.flY += static_cast<double>(roField.flPhase);
        roPoint.flWeight += 1.0;
    }
    for (SLinePoint& roPoint : aoPoints)
    {
        roPoint.flX /= std::max(1.0, roPoint.flWeight);
        roPoint.flY /= std::max(1.0, roPoint.flWeight);
    }
    return BlockFit_Get(aoPoints).flSlopeErr;
}
