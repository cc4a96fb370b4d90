// Phases against TAI in whole numbers of 128 bits.
#include <gtest/gtest.h>

#include <random>

#include "TaiGrid.h"

namespace
{

__extension__ using Int128 = __int128;

TEST(TaiGrid, TellsWhatLiesBetweenAMomentAndTheNearestGridPoint)
{
    std::mt19937_64 oRandom(9);
    for (const SNominalRate& roRate : {SNominalRate{60, 1}, {60000, 1001}, {24000, 1001}, {25, 2}, {144000, 1001}})
    {
        const Int128 iPeriod = Int128{1'000'000'000} * static_cast<Int128>(roRate.uiDenominator);
        const auto iNumerator = static_cast<int64_t>(roRate.uiNumerator);
        for (int iTry = 0; iTry < 200; ++iTry)
        {
            // A moment of some year that is a part of half a period before or behind a grid point.
            const Int128 iPoint = iPeriod * (static_cast<int64_t>(oRandom() % 100'000'000'000) - 20'000'000'000);
            const auto iHalf = static_cast<int64_t>(iPeriod / iNumerator / 2);
            const int64_t iAside = static_cast<int64_t>(oRandom() % static_cast<uint64_t>(2 * iHalf - 2)) - iHalf + 1;
            const auto iMoment = static_cast<int64_t>(iPoint / iNumerator) + iAside;
            const auto flExpected =
                static_cast<double>(Int128{iMoment} * iNumerator - iPoint) / static_cast<double>(roRate.uiNumerator);
            EXPECT_NEAR(TaiGrid_GetPhase(iMoment, -0.5, roRate), (flExpected - 0.5) * 1e-9, 1e-15);
        }
        EXPECT_EQ(TaiGrid_IsWholePerSecond(roRate), roRate.uiDenominator == 1);
    }
}

} // namespace
