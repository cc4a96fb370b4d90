#include "KrvTools.h"

#include <cstring>
#include <gtest/gtest.h>

TEST(KrvToolsInteger, DivisionsRoundAsTheirNamesSay)
{
    const struct
    {
        uint32_t uiDividend, uiDivider, uiRounded, uiDown, uiUp;
    } aoRows[] = {
        {5, 2, 3, 2, 3},
        {4, 3, 1, 1, 2},
        {5, 3, 2, 1, 2},
        {7, 0, 0, 0, 0},
        {6, 3, 2, 2, 2},
        {7, 3, 2, 2, 3},
        {7, 4, 2, 1, 2},
        {6, 4, 2, 1, 2},
        {5, 4, 1, 1, 2},
        {0, 5, 0, 0, 0},
        {0xFFFFFFFF, 1, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF},
        {0xFFFFFFFF, 2, 0x80000000, 0x7FFFFFFF, 0x80000000},
    };
    for (const auto& roRow : aoRows)
    {
        SCOPED_TRACE(std::to_string(roRow.uiDividend) + " by " + std::to_string(roRow.uiDivider));
        EXPECT_EQ(KrvTools_RoundedDivision(roRow.uiDividend, roRow.uiDivider), roRow.uiRounded);
        EXPECT_EQ(KrvTools_RoundedDownDivision(roRow.uiDividend, roRow.uiDivider), roRow.uiDown);
        EXPECT_EQ(KrvTools_RoundedUpDivision(roRow.uiDividend, roRow.uiDivider), roRow.uiUp);
    }
}

TEST(KrvToolsInteger, SquareRootRoundsDownFromTwoOnAndOneGivesZero)
{
    EXPECT_EQ(KrvTools_SquareRoot(0), 0u);
    EXPECT_EQ(KrvTools_SquareRoot(1), 0u);
    const auto ExpectRoot = [](uint32_t uiValue)
    {
        const uint64_t uiRoot = KrvTools_SquareRoot(uiValue);
        EXPECT_LE(uiRoot * uiRoot, uiValue);
        EXPECT_GT((uiRoot + 1) * (uiRoot + 1), uiValue) << uiValue;
    };
    for (uint32_t uiValue = 2; uiValue < 5000; ++uiValue)
    {
        ExpectRoot(uiValue);
    }
    for (uint32_t uiRoot = 65000; uiRoot <= 65535; ++uiRoot)
    {
        ExpectRoot(uiRoot * uiRoot - 1);
        ExpectRoot(uiRoot * uiRoot);
    }
    ExpectRoot(0xFFFFFFFF);
}

TEST(KrvToolsInteger, GreatestCommonDivisorTakesZeroesAndAnyOrder)
{
    EXPECT_EQ(KrvTools_GCD(0, 9), 9u);
    EXPECT_EQ(KrvTools_GCD(12, 18), 6u);
    EXPECT_EQ(KrvTools_GCD(18, 12), 6u);
    EXPECT_EQ(KrvTools_GCD(0, 0), 0u);
    EXPECT_EQ(KrvTools_GCD(0xFFFFFFFF, 0xFFFFFFFE), 1u);
}

TEST(KrvToolsText, CopyIsCutToTheSizeAndTerminated)
{
    char szDest[8] = "#######";
    KrvTools_strcpy_s(szDest, 4, "abcdef");
    EXPECT_STREQ(szDest, "abc");
    EXPECT_EQ(szDest[4], '#');
    KrvTools_strcpy_s(szDest, 0, "x");
    EXPECT_STREQ(szDest, "abc");
}

TEST(KrvToolsText, CaseIsFoldedForBasicLettersAlone)
{
    EXPECT_EQ(KrvTools_stricmp("aBc", "AbC"), 0);
    EXPECT_EQ(KrvTools_stricmp("abc", "ABD"), 'c' - 'd');
    EXPECT_EQ(KrvTools_stricmp("ab", "abc"), -'c');
    EXPECT_EQ(KrvTools_stricmp("\xE9", "\xC9"), 0xE9 - 0xC9);
    EXPECT_LT(KrvTools_stricmp("\xE9", "a"), 0) << "characters compare as signed";
    EXPECT_NE(KrvTools_stricmp("[", "{"), 0);

    char szText[] = "aZ[z{\xE9";
    EXPECT_STREQ(KrvTools_strupr_s(szText, 2), "AZ[z{\xE9");
    EXPECT_STREQ(KrvTools_strupr_s(szText, 100), "AZ[Z{\xE9");
    EXPECT_STREQ(KrvTools_strlwr_s(szText, 0), "AZ[Z{\xE9");
    EXPECT_STREQ(KrvTools_strlwr_s(szText, 100), "az[z{\xE9");
    EXPECT_EQ(KrvTools_strlwr_s(nullptr, 4), nullptr);
}

TEST(KrvToolsText, ReverseAndTokensWorkInPlace)
{
    char szOdd[] = "abc";
    char szNone[] = "";
    EXPECT_STREQ(KrvTools_strrev(szOdd), "cba");
    EXPECT_STREQ(KrvTools_strrev(szNone), "");
    EXPECT_EQ(KrvTools_strrev(nullptr), nullptr);

    char szList[] = ",a,,b";
    char* pszContext = nullptr;
    EXPECT_STREQ(KrvTools_strtok_s(szList, ",", &pszContext), "a");
    EXPECT_STREQ(KrvTools_strtok_s(nullptr, ",", &pszContext), "b");
    EXPECT_EQ(KrvTools_strtok_s(nullptr, ",", &pszContext), nullptr);
}

TEST(KrvToolsText, NumbersAreCutToThirtyTwoBits)
{
    EXPECT_EQ(KrvTools_atoi(" -12x"), -12);
    EXPECT_EQ(KrvTools_atoi("4294967297"), 1);
    EXPECT_EQ(KrvTools_atoi("x"), 0);
    EXPECT_TRUE(KrvTools_isDigit('7'));
    EXPECT_FALSE(KrvTools_isDigit('a'));
}
