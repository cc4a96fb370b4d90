#include "TimeDeviation.h"

#include <algorithm>
#include <cmath>

namespace
{

constexpr uint32_t uiFadeCount = 1000;

} // namespace

void CTimeDeviation::Clear()
{
    *this = {};
}

// Mean of uiCount phases relative to the newest one; the last of them is uiBack seconds old.
double CTimeDeviation::GetMean(uint32_t uiBack, uint32_t uiCount) const
{
    const double flNewest = m_aflPhases[(m_uiNext + msc_uiPhases - 1) % msc_uiPhases];
    double flSum = 0.0;
    for (uint32_t uiPhase = uiBack; uiPhase < uiBack + uiCount; ++uiPhase)
    {
        flSum += m_aflPhases[(m_uiNext + msc_uiPhases - 1 - uiPhase) % msc_uiPhases] - flNewest;
    }
    return flSum / uiCount;
}

void CTimeDeviation::Take(int64_t iSecond, double flPhase)
{
    m_uiInRow = iSecond == m_iSecond + 1 ? std::min(m_uiInRow + 1, msc_uiPhases) : 1;
    m_iSecond = iSecond;
    m_aflPhases[m_uiNext] = flPhase;
    m_uiNext = (m_uiNext + 1) % msc_uiPhases;
    for (size_t uiTime = 0; uiTime < m_aoSquares.size(); ++uiTime)
    {
        const uint32_t uiSpan = auiTdevSeconds[uiTime];
        if (m_uiInRow < 3 * uiSpan)
        {
            continue;
        }
        const double flDifference = GetMean(0, uiSpan) - 2.0 * GetMean(uiSpan, uiSpan) + GetMean(2 * uiSpan, uiSpan);
        SMeanSquare& roSquare = m_aoSquares[uiTime];
        roSquare.uiCount = std::min(roSquare.uiCount + 1, uiFadeCount);
        roSquare.flMean += (flDifference * flDifference - roSquare.flMean) / roSquare.uiCount;
    }
}

SEstimate CTimeDeviation::Get(ETdevTime eTime) const
{
    const SMeanSquare& roSquare = m_aoSquares[static_cast<size_t>(eTime)];
    SEstimate oEstimate;
    if (roSquare.uiCount == 0)
    {
        return oEstimate;
    }
    oEstimate.bIsValid = true;
    oEstimate.flValue = std::sqrt(roSquare.flMean / 6.0);
    // Second differences that share phases say much the same: of white noise about one in two spans is new.
    const double flSpan = auiTdevSeconds[static_cast<size_t>(eTime)];
    oEstimate.flStdErr = oEstimate.flValue * std::min(1.0, std::sqrt(flSpan / roSquare.uiCount));
    return oEstimate;
}
