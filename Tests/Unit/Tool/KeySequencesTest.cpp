#include "KeySequences.h"

#include <string>

#include <gtest/gtest.h>

namespace
{

// The keys among the bytes. "|20," is 20 ms in which none comes.
std::string Keys(const std::string& szBytes)
{
    SKeySequence oSequence = {};
    std::string szKeys;
    uint64_t uiNowMs = 1000;
    for (size_t uiAt = 0; uiAt < szBytes.size(); ++uiAt)
    {
        if (szBytes[uiAt] == '|')
        {
            size_t uiLength = 0;
            uiNowMs += std::stoul(szBytes.substr(uiAt + 1), &uiLength);
            ForgetOverdueSequence(oSequence, uiNowMs);
            uiAt += uiLength + 1;
        }
        else if (IsKeyOfItsOwn(oSequence, szBytes[uiAt], uiNowMs))
        {
            szKeys += szBytes[uiAt];
        }
    }
    return szKeys;
}

} // namespace

TEST(KeySequences, AreNoKeys)
{
    const std::pair<const char*, const char*> aoRows[] = {
        {"qG1", "qG1"},
        {"a\033OQb\033[12~c\033[1;2Qd\033O2Qe", "abcde"},              // F2 of several terminals, Shift with it
        {"a\033[[Bb\033[Ac\033[2~d\033\033[Fe", "abcde"},              // Linux console, arrow, Insert, Alt and End
        {"a\033qb\033 Fc\033(Bd", "abcd"},                             // Alt, codes with intermediates
        {"a\033]11;rgb:1/1\007b\033P1+r\033\\c\033]q\033[Ad", "abcd"}, // replies of terminals, one of them cut short
        {"\033|49,q\033|50,q", "q"},                                   // a lone ESC, and the bound behind it
        {"\033|20,[|20,1|199,2|199,~q\033[1|200,q", "qq"},             // in pieces, and given up
    };
    for (const auto& [szBytes, szKeys] : aoRows)
    {
        EXPECT_EQ(Keys(szBytes), szKeys) << szBytes + 1;
    }
}
