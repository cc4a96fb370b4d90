#include "PacingHistogram.h"

#include <algorithm>
#include <cmath>

namespace
{

constexpr uint32_t uiMiddle = uiPacingBinsPerSign;

uint64_t Count(const SPacingHistogram& roHistogram)
{
    uint64_t uiCount = 0;
    for (const uint64_t uiBin : roHistogram.auiCounts)
    {
        uiCount += uiBin;
    }
    return uiCount;
}

} // namespace

uint32_t Pacing_GetBin(double flSeconds)
{
    const auto itAbove = std::ranges::upper_bound(aflPacingBounds, std::abs(flSeconds));
    const auto uiFromMiddle = static_cast<uint32_t>(itAbove - aflPacingBounds.begin());
    return flSeconds < 0.0 ? uiMiddle - uiFromMiddle : uiMiddle + uiFromMiddle;
}

void Pacing_Merge(SPacingHistogram& roInto, const SPacingHistogram& roFrom)
{
    for (uint32_t uiBin = 0; uiBin < uiPacingBins; ++uiBin)
    {
        roInto.auiCounts[uiBin] += roFrom.auiCounts[uiBin];
    }
    roInto.flSumSeconds += roFrom.flSumSeconds;
    if (std::abs(roFrom.oWorst.flSeconds) > std::abs(roInto.oWorst.flSeconds))
    {
        roInto.oWorst = roFrom.oWorst;
    }
}

SPacingHistogram Pacing_GetGrowth(const SPacingHistogram& roNow, const SPacingHistogram& roBefore,
                                  const SPacingWorst& roWorst)
{
    SPacingHistogram oGrowth;
    for (uint32_t uiBin = 0; uiBin < uiPacingBins; ++uiBin)
    {
        oGrowth.auiCounts[uiBin] = roNow.auiCounts[uiBin] - roBefore.auiCounts[uiBin];
    }
    oGrowth.flSumSeconds = roNow.flSumSeconds - roBefore.flSumSeconds;
    oGrowth.oWorst = roWorst;
    return oGrowth;
}

double Pacing_GetPercentile(const SPacingHistogram& roHistogram, double flShare)
{
    const auto flWanted = flShare * static_cast<double>(Count(roHistogram));
    auto flBelow = static_cast<double>(roHistogram.auiCounts[uiMiddle]);
    if (flWanted <= flBelow)
    {
        return 0.0;
    }
    for (uint32_t uiStep = 1; uiStep < uiPacingBinsPerSign; ++uiStep)
    {
        flBelow += static_cast<double>(roHistogram.auiCounts[uiMiddle - uiStep]) +
                   static_cast<double>(roHistogram.auiCounts[uiMiddle + uiStep]);
        if (flWanted <= flBelow)
        {
            return aflPacingBounds[uiStep];
        }
    }
    return std::max(std::abs(roHistogram.oWorst.flSeconds), aflPacingBounds.back());
}

SPacingFigures Pacing_GetFigures(const SPacingHistogram& roHistogram)
{
    return {Pacing_GetPercentile(roHistogram, 0.5), Pacing_GetPercentile(roHistogram, 0.95),
            Pacing_GetPercentile(roHistogram, 0.99), Pacing_GetPercentile(roHistogram, 0.999), Count(roHistogram)};
}
