#include "BlockFit.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace
{

constexpr uint32_t uiLeastBlocks = 4; // a polynomial of the third degree goes through so many

// Student's t for 99.73 % beside the 3 of the normal distribution, by degrees of freedom.
constexpr std::array<double, 9> aflWidening = {0.0,      235.80 / 3, 19.21 / 3, 9.22 / 3, 6.62 / 3,
                                               5.51 / 3, 4.90 / 3,   4.53 / 3,  4.28 / 3};

// How much of a polynomial that is 1 at the window's end the points hold.
struct SPart
{
    double flProducts = 0.0;
    double flPower = 0.0;

    void Take(double flY, double flPolynomial, double flWeight)
    {
        flProducts += flWeight * flY * flPolynomial;
        flPower += flWeight * flPolynomial * flPolynomial;
    }
    double GetSumOfSquares() const { return flProducts * flProducts / flPower; }
    /* At the end. Noise makes some of it; what it hides is not known, so nothing is taken off. */
    double GetSquaredHeight() const { return GetSumOfSquares() / flPower; }
};

} // namespace

SBlockFit BlockFit_Get(std::span<const SLinePoint> aoPoints)
{
    SBlockFit oFit;
    oFit.uiBlocks = static_cast<uint32_t>(
        std::ranges::count_if(aoPoints, [](const SLinePoint& roPoint) { return roPoint.flWeight > 0.0; }));
    if (oFit.uiBlocks < uiLeastBlocks)
    {
        return oFit;
    }
    oFit.oSums = LineSums_Make(aoPoints);
    if (oFit.oSums.flXX <= 0.0)
    {
        return oFit;
    }
    oFit.bIsValid = true;
    const uint32_t uiFreedom = oFit.uiBlocks - 2;
    const double flErr = aflWidening[uiFreedom] * std::sqrt(oFit.oSums.GetRest() / uiFreedom);
    oFit.flSlopeErr = flErr / std::sqrt(oFit.oSums.flXX);
    return oFit;
}

double BlockFit_GetBend(std::span<const SLinePoint> aoPoints, const SBlockFit& roFit, double flTime, double flNoise)
{
    const SLineSums& roSums = roFit.oSums;
    const double flHalf = std::sqrt(3.0 * roSums.flXX / roSums.flWeight); // the window is -1 to 1
    SPart oSecond;
    SPart oThird;
    for (const SLinePoint& roPoint : aoPoints)
    {
        const double flX = (roPoint.flX - roSums.flMeanX) / flHalf;
        const double flRest = roPoint.flWeight > 0.0 ? roPoint.flY - roSums.GetY(roPoint.flX) : 0.0;
        oSecond.Take(flRest, 1.5 * flX * flX - 0.5, roPoint.flWeight);
        oThird.Take(flRest, (2.5 * flX * flX - 1.5) * flX, roPoint.flWeight);
    }
    const double flEnd = std::max(1.0, std::abs(flTime - roSums.flMeanX) / flHalf);
    double flBend = (oSecond.GetSquaredHeight() + oThird.GetSquaredHeight()) * flEnd * flEnd * flEnd * flEnd;
    if (roFit.uiBlocks > uiLeastBlocks)
    {
        const double flRest = (roSums.GetRest() - oSecond.GetSumOfSquares() - oThird.GetSumOfSquares()) /
                              (roFit.uiBlocks - uiLeastBlocks);
        flBend += std::max(0.0, flRest - flNoise) * roFit.uiBlocks / roSums.flWeight;
    }
    return flBend;
}
