// The time deviation beside its definition, written out over all phases.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <random>

#include "TimeDeviation.h"

namespace
{

TEST(TimeDeviation, IsASixthOfTheMeanSquareOfSecondDifferences)
{
    CTimeDeviation oDeviation;
    std::map<int64_t, double> oPhases;
    std::array<std::pair<double, uint32_t>, 3> aoSquares = {}; // mean, count
    std::mt19937 oRandom(5);
    std::normal_distribution oNoise(0.0, 30.0);
    double flPhase = 1e9;
    for (int64_t iSecond = 7; iSecond < 1900; ++iSecond)
    {
        flPhase += 1000.0 + oNoise(oRandom);
        if (iSecond % 600 == 500 || iSecond == 20)
        {
            continue;
        }
        oPhases[iSecond] = flPhase + oNoise(oRandom);
        oDeviation.Take(iSecond, oPhases[iSecond]);
        for (const size_t uiTime : {0U, 1U, 2U})
        {
            const int64_t iSpan = auiTdevSeconds[uiTime];
            double flDifference = 0.0;
            int64_t iBack = 0;
            for (; iBack < 3 * iSpan && oPhases.contains(iSecond - iBack); ++iBack)
            {
                flDifference += (oPhases[iSecond - iBack] - oPhases[iSecond]) * (iBack / iSpan == 1 ? -2.0 : 1.0);
            }
            auto& [rflMean, ruiCount] = aoSquares[uiTime];
            if (iBack == 3 * iSpan)
            {
                ruiCount = std::min(1000U, ruiCount + 1);
                rflMean += (std::pow(flDifference / static_cast<double>(iSpan), 2) - rflMean) / ruiCount;
            }
            const SEstimate oIs = oDeviation.Get(static_cast<ETdevTime>(uiTime));
            ASSERT_EQ(oIs.bIsValid, ruiCount > 0) << iSecond;
            const double flExpected = std::sqrt(rflMean / 6.0);
            ASSERT_NEAR(oIs.flValue, flExpected, 1e-7 * flExpected);
            const double flShare = std::sqrt(static_cast<double>(iSpan) / std::max(1U, ruiCount));
            ASSERT_NEAR(oIs.flStdErr, flExpected * std::min(1.0, flShare), 1e-7 * flExpected);
        }
    }
    oDeviation.Clear();
    EXPECT_FALSE(oDeviation.Get(ETdevTime::SECONDS_1).bIsValid);
}

} // namespace
