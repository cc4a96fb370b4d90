// See LineFit.h.
#include "LineFit.h"

#include <algorithm>

namespace
{

constexpr double flRoundingVariance = 1.0 / 12.0; // of rounding to whole ticks

double GetResidual(const SFitSums& roSums)
{
    const double flExplained =
        roSums.flNumberNumber > 0.0 ? roSums.flNumberPhase * roSums.flNumberPhase / roSums.flNumberNumber : 0.0;
    return std::max(0.0, roSums.flPhasePhase - flExplained);
}

} // namespace

SFitSums FitSums_Combine(const SFitSums& roA, const SFitSums& roB)
{
    if (roA.flCount == 0.0 || roB.flCount == 0.0)
    {
        return roA.flCount == 0.0 ? roB : roA;
    }
    SFitSums oSums = roA;
    const double flNumber = static_cast<double>(roB.iNumber - roA.iNumber) + roB.flMeanNumber - roA.flMeanNumber;
    const double flPhase = static_cast<double>(roB.iPhase - roA.iPhase) + roB.flMeanPhase - roA.flMeanPhase;
    oSums.flCount = roA.flCount + roB.flCount;
    const double flShare = roB.flCount / oSums.flCount;
    const double flWeight = roA.flCount * flShare;
    oSums.flMeanNumber += flNumber * flShare;
    oSums.flMeanPhase += flPhase * flShare;
    oSums.flNumberNumber += roB.flNumberNumber + flNumber * flNumber * flWeight;
    oSums.flNumberPhase += roB.flNumberPhase + flNumber * flPhase * flWeight;
    oSums.flPhasePhase += roB.flPhasePhase + flPhase * flPhase * flWeight;
    oSums.flNoise += roB.flNoise;
    oSums.flNoiseFreedom += roB.flNoiseFreedom;
    return oSums;
}

SLine FitSums_GetLine(const SFitSums& roSums)
{
    SLine oLine;
    if (roSums.flCount < 3.0 || roSums.flNumberNumber <= 0.0)
    {
        return oLine;
    }
    oLine.bIsValid = true;
    oLine.iNumber = roSums.iNumber;
    oLine.iPhase = roSums.iPhase;
    oLine.flCount = roSums.flCount;
    oLine.flMeanNumber = roSums.flMeanNumber;
    oLine.flMeanPhase = roSums.flMeanPhase;
    oLine.flSlope = roSums.flNumberPhase / roSums.flNumberNumber;
    oLine.flNumberNumber = roSums.flNumberNumber;
    oLine.flVariance = std::max(flRoundingVariance, GetResidual(roSums) / (roSums.flCount - 2.0));
    oLine.flNoise = roSums.flNoiseFreedom > 0.0 ? std::max(flRoundingVariance, roSums.flNoise / roSums.flNoiseFreedom)
                                                : oLine.flVariance;
    return oLine;
}

SFitSums COpenSecond::Close() const
{
    SFitSums oSums;
    oSums.iNumber = m_iNumber;
    oSums.iPhase = m_iPhase;
    oSums.flCount = m_flCount;
    if (m_flCount == 0.0)
    {
        return oSums;
    }
    oSums.flMeanNumber = m_flNumber / m_flCount;
    oSums.flMeanPhase = m_flPhase / m_flCount;
    oSums.flNumberNumber = m_flNumberNumber - m_flNumber * oSums.flMeanNumber;
    oSums.flNumberPhase = m_flNumberPhase - m_flNumber * oSums.flMeanPhase;
    oSums.flPhasePhase = std::max(0.0, m_flPhasePhase - m_flPhase * oSums.flMeanPhase);
    if (m_flCount > 2.0)
    {
        oSums.flNoise = GetResidual(oSums);
        oSums.flNoiseFreedom = m_flCount - 2.0;
    }
    return oSums;
}
