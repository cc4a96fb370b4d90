#include <gtest/gtest.h>

#include "AssertReport.h"
#include "OsServices.h"

namespace
{

class OsMessages : public testing::Test
{
protected:
    ~OsMessages() override
    {
        OsServices::SetMsgPrefix("qz2");
        OsServices::SetMsgReferenceId(0);
        OsServices::SetMsgLevel(1, 1, 0);
        OsServices::SetMsgPrefixEnable(1);
    }
    template <typename WRITE> static std::string Written(WRITE fnWrite)
    {
        testing::internal::CaptureStdout();
        fnWrite();
        return testing::internal::GetCapturedStdout();
    }
    static std::string WrittenByAll()
    {
        const auto WriteAll = []
        {
            OsServices::WriteMsg("a%d\n", 1);
            OsServices::WriteUserMsg("b%d\n", 2);
            OsServices::WriteErrorMsg("c%d\n", 3);
        };
        return Written(WriteAll);
    }
};

} // namespace

TEST_F(OsMessages, PrefixNamesTheKindTheVersionAndTheReference)
{
    EXPECT_EQ(WrittenByAll(), "qz2(4.1.0.146)[0]: (Info) b2\nqz2(4.1.0.146)[0]: (Error) c3\n") << "debug is off";
    OsServices::SetMsgLevel(1, 1, 1);
    OsServices::SetMsgPrefix("tool");
    OsServices::SetMsgReferenceId(0xFFFFFFFFFFFFFFFF);
    EXPECT_EQ(WrittenByAll(), "tool(4.1.0.146)[18446744073709551615]: (Debug) a1\n"
                              "tool(4.1.0.146)[18446744073709551615]: (Info) b2\n"
                              "tool(4.1.0.146)[18446744073709551615]: (Error) c3\n");
    OsServices::SetMsgPrefix(std::string(70, 'x').c_str());
    EXPECT_EQ(WrittenByAll().substr(0, 64), std::string(63, 'x') + "(");
    OsServices::SetMsgPrefixEnable(0);
    EXPECT_EQ(WrittenByAll(), "a1\nb2\nc3\n");
}

TEST_F(OsMessages, EachLevelSilencesItsOwnKind)
{
    OsServices::SetMsgPrefixEnable(0);
    const char* const aszRows[] = {"", "c3\n", "b2\n", "b2\nc3\n", "a1\n", "a1\nc3\n", "a1\nb2\n", "a1\nb2\nc3\n"};
    for (Bool32 uiBits = 0; uiBits < 8; ++uiBits)
    {
        OsServices::SetMsgLevel(uiBits & 1, uiBits & 2, uiBits & 4);
        EXPECT_EQ(WrittenByAll(), aszRows[uiBits]);
    }
    OsServices::SetMsgLevel(0, 1, 2);
    int iUser = 9, iInfo = 9;
    OsServices::GetMsgLevel(nullptr, &iUser, &iInfo);
    EXPECT_EQ(std::pair(iUser, iInfo), std::pair(1, 2));
}

TEST_F(OsMessages, LineIsCutAtTwoHundredAndFiftyFiveCharacters)
{
    const auto WrittenSigns = [](char cSign)
    { return Written([=] { OsServices::WriteErrorMsg("%s", std::string(300, cSign).c_str()); }); };
    const std::string szPrefix = "qz2(4.1.0.146)[0]: (Error) ";
    EXPECT_EQ(WrittenSigns('y'), szPrefix + std::string(255 - szPrefix.size(), 'y'));
    OsServices::SetMsgPrefixEnable(0);
    EXPECT_EQ(WrittenSigns('y'), std::string(255, 'y'));
    EXPECT_EQ(WrittenSigns('%'), std::string(128, '%'));
}

TEST_F(OsMessages, SecondFormattingReadsNoArgumentsThatAreNotThere)
{
    OsServices::SetMsgPrefixEnable(0);
    const std::pair<const char*, const char*> aszRows[] = {{"50%", "50%"}, {"50%%", "50%"}, {"%s%n%d", "%s%n%d"},
                                                           {"%%s", "%s"},  {"%%%d", "%%d"}, {"%1$s%*.*f", "%1$s%*.*f"}};
    for (const auto& [szGiven, szExpected] : aszRows)
    {
        EXPECT_EQ(Written([&, szGiven = szGiven] { OsServices::WriteErrorMsg("%s", szGiven); }), szExpected);
    }
    EXPECT_EQ(Written([] { OsServices::WriteErrorMsg("5%% %d%%%%\n", 6); }), "5% 6%\n");
}

TEST_F(OsMessages, FailedAssertNamesTheFileAloneAndTheLine)
{
    OsServices::SetMsgPrefixEnable(0);
    const std::pair<const char*, const char*> aszRows[] = {
        {"a/b\\c.cpp", "c.cpp"}, {"a\\b/c.cpp", "c.cpp"}, {"KrvMFCTypes", "KrvMFCTypes"}, {"a/", ""}, {"", ""}};
    for (const auto& [szPath, szName] : aszRows)
    {
        EXPECT_EQ(Written([szPath = szPath] { ReportFailedAssert(szPath, 4309); }),
                  std::string(szName) + "(4309) Assertion failed\n");
    }
    const std::string szHere = Written([] { ReportFailedAssert(); });
    EXPECT_EQ(szHere, "OsMessagesTest.cpp(" + std::to_string(__LINE__ - 1) + ") Assertion failed\n");
}
