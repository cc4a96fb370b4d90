// See BlockFit.h.
#include "BlockFit.h"

#include <array>
#include <cmath>
#include <cstdint>

namespace
{

constexpr uint32_t uiLeastBlocks = 4;

// Student's t for 99.73 % beside the 3 of the normal distribution, by degrees of freedom.
constexpr std::array<double, 9> aflWidening = {0.0,      235.80 / 3, 19.21 / 3, 9.22 / 3, 6.62 / 3,
                                               5.51 / 3, 4.90 / 3,   4.53 / 3,  4.28 / 3};

} // namespace

SBlockFit BlockFit_Get(std::span<const SBlockPoint> aoPoints)
{
    SBlockFit oFit;
    uint32_t uiBlocks = 0;
    double flTimes = 0.0;
    double flValues = 0.0;
    for (const SBlockPoint& roPoint : aoPoints)
    {
        uiBlocks += roPoint.flWeight > 0.0 ? 1 : 0;
        oFit.flWeight += roPoint.flWeight;
        flTimes += roPoint.flWeight * roPoint.flTime;
        flValues += roPoint.flWeight * roPoint.flValue;
    }
    if (uiBlocks < uiLeastBlocks)
    {
        return oFit;
    }
    oFit.flMeanTime = flTimes / oFit.flWeight;
    oFit.flMean = flValues / oFit.flWeight;
    double flSquares = 0.0;
    double flProducts = 0.0;
    double flTotal = 0.0;
    for (const SBlockPoint& roPoint : aoPoints)
    {
        const double flTime = roPoint.flTime - oFit.flMeanTime;
        const double flValue = roPoint.flValue - oFit.flMean;
        flSquares += roPoint.flWeight * flTime * flTime;
        flProducts += roPoint.flWeight * flTime * flValue;
        flTotal += roPoint.flWeight * flValue * flValue;
    }
    if (flSquares <= 0.0)
    {
        return oFit;
    }
    oFit.bIsValid = true;
    oFit.flSlope = flProducts / flSquares;
    oFit.flSpread = flSquares / oFit.flWeight;
    const uint32_t uiFreedom = uiBlocks - 2;
    const double flVariance = std::fmax(0.0, flTotal - oFit.flSlope * flProducts) / uiFreedom;
    const double flWidening = aflWidening[uiFreedom];
    oFit.flSlopeErr = flWidening * std::sqrt(flVariance / flSquares);
    oFit.flEndErr =
        flWidening * std::sqrt(flVariance * (1.0 / oFit.flWeight + oFit.flMeanTime * oFit.flMeanTime / flSquares));
    return oFit;
}
