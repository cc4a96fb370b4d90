#include "CMString.h"

#include <gtest/gtest.h>

#include "PlatformSeams.h"

TEST(CMString, CopiesShareOneBlockAndTheEmptyTextHasNone)
{
    SCountingAllocator oAllocator;
    {
        CMString szEmpty, szNull(nullptr), szBlank("");
        szEmpty.Format("%s", "");
        szEmpty.AppendFormat("%s", "");
        EXPECT_STREQ(szEmpty.GetString(), "");
        EXPECT_EQ(szNull, szBlank);
        EXPECT_EQ(oAllocator.iLive, 0);
        CMString szCopy("text");
        szEmpty = szCopy;
        const CMString szTaken(std::move(szCopy));
        EXPECT_EQ(szTaken.GetString(), szEmpty.GetString());
        EXPECT_EQ(oAllocator.iLive, 1);
    }
    EXPECT_EQ(oAllocator.iLive, 0);
}

TEST(CMString, FormatsAnyLengthAndItself)
{
    CMString szText("ab");
    szText.Format("%s-%s", szText.GetString(), szText.GetString());
    EXPECT_EQ(szText, "ab-ab");
    szText.AppendFormat("+%s", szText.GetString() + 3);
    EXPECT_EQ(szText, "ab-ab+ab");
    szText.AppendFormat("%5000d", 7);
    EXPECT_EQ(szText.GetLength(), 5008);
    EXPECT_EQ(std::string(szText.GetString()), "ab-ab+ab" + std::string(4999, ' ') + "7");
    szText.Format("%lc", static_cast<wint_t>(0xD800));
    EXPECT_EQ(szText.GetLength(), 5008) << "what cannot be formatted changes nothing";
}

TEST(CMString, CopiesPartWhenOneChanges)
{
    CMString szText("one");
    CMString szCopy = szText;
    szCopy.AppendFormat(" %s", "two");
    EXPECT_EQ(szText, "one");
    EXPECT_EQ(szCopy, "one two");
    szText = szText.GetString() + 1;
    EXPECT_EQ(szText, "ne");
    EXPECT_LT(szText, szCopy);
    EXPECT_GT(szText.Compare(nullptr), 0);
}
