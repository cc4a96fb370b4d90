#include "KrvTools.h"

#include <gtest/gtest.h>

TEST(KrvToolsInteger, DivisionsRoundAsTheirNamesSay)
{
    // Dividend, divider; to the nearest, down, up.
    const uint32_t auiRows[][5] = {
        {5, 2, 3, 2, 3}, {4, 3, 1, 1, 2}, {5, 3, 2, 1, 2},
        {7, 0, 0, 0, 0}, {6, 3, 2, 2, 2}, {7, 3, 2, 2, 3},
        {6, 4, 2, 1, 2}, {5, 4, 1, 1, 2}, {0xFFFFFFFF, 1, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF}};
    for (const auto& [uiDividend, uiDivider, uiNearest, uiDown, uiUp] : auiRows)
    {
        EXPECT_EQ(KrvTools_RoundedDivision(uiDividend, uiDivider), uiNearest) << uiDividend << " by " << uiDivider;
        EXPECT_EQ(KrvTools_RoundedDownDivision(uiDividend, uiDivider), uiDown) << uiDividend << " by " << uiDivider;
        EXPECT_EQ(KrvTools_RoundedUpDivision(uiDividend, uiDivider), uiUp) << uiDividend << " by " << uiDivider;
    }
}

TEST(KrvToolsInteger, SquareRootRoundsDownFromTwoOnAndOneGivesZero)
{
    EXPECT_EQ(KrvTools_SquareRoot(0) + KrvTools_SquareRoot(1), 0u);
    for (uint32_t uiRoot = 1; uiRoot <= 65535; ++uiRoot)
    {
        ASSERT_EQ(KrvTools_SquareRoot(uiRoot == 1 ? 2 : uiRoot * uiRoot), uiRoot);
        ASSERT_EQ(KrvTools_SquareRoot(uiRoot * uiRoot + 2 * uiRoot), uiRoot) << "the last before the next";
    }
}

TEST(KrvToolsInteger, GreatestCommonDivisorTakesZeroesAndAnyOrder)
{
    for (const auto& [uiA, uiB, uiDivisor] : {std::tuple(0u, 9u, 9u), {12, 18, 6}, {18, 12, 6}, {0, 0, 0}})
    {
        EXPECT_EQ(KrvTools_GCD(uiA, uiB), uiDivisor);
    }
}

TEST(KrvToolsText, CopyIsCutToTheSizeAndTerminated)
{
    char szDest[8] = "#######";
    KrvTools_strcpy_s(szDest, 4, "abcdef");
    EXPECT_EQ(std::string(szDest, 7), std::string("abc\0###", 7));
    KrvTools_strcpy_s(szDest, 0, "x");
    EXPECT_STREQ(szDest, "abc");
}

TEST(KrvToolsText, CaseIsFoldedForBasicLettersAlone)
{
    EXPECT_EQ(KrvTools_stricmp("aBz", "AbZ"), 0);
    EXPECT_EQ(KrvTools_stricmp("ab", "ABD"), -'d');
    EXPECT_EQ(KrvTools_stricmp("\xE9", "\xC9"), 0xE9 - 0xC9);
    EXPECT_LT(KrvTools_stricmp("\xE9", "a"), 0) << "characters compare as signed";
    EXPECT_NE(KrvTools_stricmp("[", "{"), 0);

    char szText[] = "aZ[z{\xE9";
    EXPECT_STREQ(KrvTools_strupr_s(szText, 2), "AZ[z{\xE9");
    EXPECT_STREQ(KrvTools_strupr_s(szText, 100), "AZ[Z{\xE9");
    EXPECT_STREQ(KrvTools_strlwr_s(szText, 100), "az[z{\xE9");
    EXPECT_STREQ(KrvTools_strrev(szText), "\xE9{z[za");
}
