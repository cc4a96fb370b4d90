#include "BlockFit.h"

#include <algorithm>
#include <array>
#include <cstdint>

namespace
{

constexpr uint32_t uiLeastBlocks = 4;

// Student's t for 99.73 % beside the 3 of the normal distribution, by degrees of freedom.
constexpr std::array<double, 9> aflWidening = {0.0,      235.80 / 3, 19.21 / 3, 9.22 / 3, 6.62 / 3,
                                               5.51 / 3, 4.90 / 3,   4.53 / 3,  4.28 / 3};

} // namespace

SBlockFit BlockFit_Get(std::span<const SLinePoint> aoPoints)
{
    SBlockFit oFit;
    const auto uiBlocks = static_cast<uint32_t>(
        std::ranges::count_if(aoPoints, [](const SLinePoint& roPoint) { return roPoint.flWeight > 0.0; }));
    if (uiBlocks < uiLeastBlocks)
    {
        return oFit;
    }
    oFit.oSums = LineSums_Make(aoPoints);
    if (oFit.oSums.flXX <= 0.0)
    {
        return oFit;
    }
    oFit.bIsValid = true;
    const uint32_t uiFreedom = uiBlocks - 2;
    const double flErr = aflWidening[uiFreedom] * std::sqrt(oFit.oSums.GetRest() / uiFreedom);
    oFit.flSlopeErr = flErr / std::sqrt(oFit.oSums.flXX);
    oFit.flHeightErr = flErr / std::sqrt(oFit.oSums.flWeight);
    return oFit;
}
