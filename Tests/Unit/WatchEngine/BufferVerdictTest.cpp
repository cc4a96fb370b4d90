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
