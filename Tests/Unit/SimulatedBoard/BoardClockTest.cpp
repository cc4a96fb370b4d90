// The counter of real time against arithmetic of 128 bits, for a year.
#include "BoardClock.h"

#include <gtest/gtest.h>

#include "TickMath.h"

TEST(BoardClock, TicksAndMomentsAreExactForAYearBothWays)
{
    constexpr int64_t iStartNs = 5'000'000'000'123;
    constexpr uint64_t uiTickStart = 77;
    for (const uint32_t uiFreqHz : {1000U, 27'000'000U, 100'000'000U, 4'000'000'000U})
    {
        const CBoardClock oClock(iStartNs, 1.0, uiFreqHz, uiTickStart);
        for (const int64_t iSinceNs : {0L, 1L, 999'999L, 1'000'000'000L, 200'000'000'007L, 31'536'000'987'654'321L})
        {
            const auto uiTicks = static_cast<uint64_t>(UInt128(iSinceNs) * uiFreqHz / 1'000'000'000);
            EXPECT_EQ(oClock.ToTicks(iStartNs + iSinceNs), uiTickStart + uiTicks) << iSinceNs << " at " << uiFreqHz;
            const int64_t iFirstNs = oClock.ToNs(uiTickStart + uiTicks + 1);
            EXPECT_GT(oClock.ToTicks(iFirstNs), uiTickStart + uiTicks);
            EXPECT_LE(oClock.ToTicks(iFirstNs - 1), uiTickStart + uiTicks) << "the first one";
        }
        EXPECT_EQ(oClock.ToNs(uiTickStart), iStartNs);
        EXPECT_EQ(oClock.ToNs(0), iStartNs) << "nothing was before";
    }
    const CBoardClock oFast(iStartNs, 2.5, 1'000'000, uiTickStart);
    EXPECT_EQ(oFast.ToTicks(iStartNs + 4'000'000'000), uiTickStart + 10'000'000);
    EXPECT_EQ(oFast.ToNs(uiTickStart + 10'000'000), iStartNs + 4'000'000'000);
    EXPECT_EQ(oFast.ToRealNs(100), 40'000'000);
}
