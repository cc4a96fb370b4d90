#include "BufferVerdict.h"

#include <gtest/gtest.h>

TEST(BufferVerdict, BlamesNoOutputForFieldsThatNobodyObserved)
{
    EXPECT_EQ(BufferVerdict_Get(1, 1).uiRepeated, 0U);
    EXPECT_EQ(BufferVerdict_Get(0, 1).uiRepeated, 1U);
    EXPECT_EQ(BufferVerdict_Get(1, 120).uiRepeated, 0U) << "119 of them went by unobserved";
    EXPECT_EQ(BufferVerdict_Get(122, 120).uiOverwritten, 2U) << "more than all of them can have shown";
    EXPECT_EQ(BufferVerdict_Get(UINT64_MAX - 5, 1).uiSet, 0U) << "the counter began anew";
}

TEST(BufferVerdict, JudgesAnEstimateByWholeSeconds)
{
    constexpr uint64_t uiSecond = 60;
    CEstimatedRepeats oRepeats(uiSecond);
    uint64_t uiTick = 100;
    const auto Run = [&](uint64_t uiFields, uint64_t uiEvery)
    {
        uint64_t uiRepeated = 0;
        for (uint64_t uiField = 1; uiField <= uiFields; ++uiField)
        {
            uiRepeated += oRepeats.Take(1, uiField % uiEvery == 0 ? 0 : 1, ++uiTick);
        }
        return uiRepeated;
    };
    static_cast<void>(oRepeats.Take(1, 1, uiTick));
    EXPECT_EQ(Run(600, 20), 0U) << "three a second may be its own";
    EXPECT_EQ(Run(600, 2), 300U);
    EXPECT_EQ(Run(600, 10), 60U);
    // A buffer that is seen a field late is no repeat; fields that nobody observed are none either.
    for (int iField = 0; iField < 120; ++iField)
    {
        EXPECT_EQ(oRepeats.Take(1, iField % 2 == 0 ? 0 : 2, ++uiTick), 0U);
    }
    EXPECT_EQ(oRepeats.Take(120, 1, uiTick += 120), 0U);
}
