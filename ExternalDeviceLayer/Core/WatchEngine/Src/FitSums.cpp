#include "FitSums.h"

#include <algorithm>
#include <cmath>

namespace
{

constexpr double flChanceSigmas = 2.0;

} // namespace

SFitSums FitSums_Combine(const SFitSums& roA, const SFitSums& roB)
{
    if (roA.IsEmpty() || roB.IsEmpty())
    {
        return roA.IsEmpty() ? roB : roA;
    }
    SLineSums oMoved = roB.oLine;
    oMoved.flMeanX += static_cast<double>(roB.iNumber - roA.iNumber);
    oMoved.flMeanY += static_cast<double>(roB.iPhase - roA.iPhase);
    SFitSums oSums = roA;
    oSums.oLine = LineSums_Combine(roA.oLine, oMoved);
    oSums.flNoise += roB.flNoise;
    oSums.flNoiseFreedom += roB.flNoiseFreedom;
    oSums.flSteps += roB.flSteps;
    oSums.flStepFreedom += roB.flStepFreedom;
    return oSums;
}

SLine FitSums_GetLine(const SFitSums& roSums)
{
    SLine oLine;
    if (roSums.GetCount() < 3.0 || roSums.oLine.flXX <= 0.0)
    {
        return oLine;
    }
    oLine.bIsValid = true;
    oLine.iNumber = roSums.iNumber;
    oLine.iPhase = roSums.iPhase;
    oLine.oSums = roSums.oLine;
    oLine.flSlope = roSums.oLine.GetSlope();
    oLine.flVariance = std::max(flRoundingVariance, roSums.oLine.GetRest() / (roSums.GetCount() - 2.0));
    oLine.flNoise = roSums.flNoiseFreedom > 0.0 ? std::max(flRoundingVariance, roSums.flNoise / roSums.flNoiseFreedom)
                                                : oLine.flVariance;
    if (roSums.flStepFreedom > 0.0 && roSums.flNoiseFreedom > 0.0)
    {
        // J. von Neumann (1941): of independent fields the mean square of the steps is twice their variance. What
        // chance makes of the difference is not counted.
        const double flAlone = roSums.flSteps / roSums.flStepFreedom / 2.0;
        const double flChance = flAlone * flChanceSigmas / std::sqrt(roSums.flNoiseFreedom);
        oLine.flWander = std::max(0.0, oLine.flVariance - flAlone - flChance);
        oLine.flWanderInSecond = std::max(0.0, roSums.flNoise / roSums.flNoiseFreedom - flAlone - flChance);
    }
    return oLine;
}

SFitSums COpenSecond::Close() const
{
    SFitSums oSums;
    oSums.iNumber = m_iNumber;
    oSums.iPhase = m_iPhase;
    if (m_flCount == 0.0)
    {
        return oSums;
    }
    SLineSums& roLine = oSums.oLine;
    roLine.flWeight = m_flCount;
    roLine.flMeanX = m_flNumber / m_flCount;
    roLine.flMeanY = m_flPhase / m_flCount;
    roLine.flXX = m_flNumberNumber - m_flNumber * roLine.flMeanX;
    roLine.flXY = m_flNumberPhase - m_flNumber * roLine.flMeanY;
    roLine.flYY = std::max(0.0, m_flPhasePhase - m_flPhase * roLine.flMeanY);
    if (m_flCount > 2.0)
    {
        oSums.flNoise = roLine.GetRest();
        oSums.flNoiseFreedom = m_flCount - 2.0;
    }
    if (m_flSteps > 1.0)
    {
        oSums.flSteps = std::max(0.0, m_flStepStep - m_flStep * m_flStep / m_flSteps);
        oSums.flStepFreedom = m_flSteps - 1.0;
    }
    return oSums;
}
