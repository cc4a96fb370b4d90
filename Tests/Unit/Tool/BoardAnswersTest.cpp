// What a board answers that no board should: texts that a terminal would obey, counts beyond the interface.
#include <string>

#include <gtest/gtest.h>

#include "BoardText.h"
#include "ConnectorNames.h"
#include "KrvTools.h"
#include "StreamCounts.h"
#include "VideoTexts.h"
#include "VtBoard.h"
#include "VtVideoIn.h"
#include "VtVideoOut.h"

namespace
{

uint32_t g_uiCount = 0;
uint32_t g_uiNbOfQueries = 0;
VtStatus g_eStatus = VtStatus_OK;

VtStatus Answer(uint32_t* puiCount)
{
    *puiCount = g_uiCount;
    return g_eStatus;
}

} // namespace

VtStatus VtVideoIn_GetCount(VtDevice_Handle, uint32_t* puiCount)
{
    return Answer(puiCount);
}
VtStatus VtVideoOut_GetCount(VtDevice_Handle, uint32_t* puiCount)
{
    return Answer(puiCount);
}
VtStatus VtBoard_GetConnectorCount(VtDevice_Handle, uint32_t* puiCount)
{
    return Answer(puiCount);
}
VtStatus VtBoard_GetConnectorInfo(VtDevice_Handle, uint32_t uiConnectorIndex, VtBoard_ConnectorInfo* poConnectorInfo)
{
    ++g_uiNbOfQueries;
    poConnectorInfo->bVideoInput = uiConnectorIndex == 3;
    KrvTools_memset(poConnectorInfo->szName, '\033', sizeof(poConnectorInfo->szName));
    return VtStatus_OK;
}
VtStatus VtPixelFormat_GetName(VtPixelFormat, char* szName)
{
    KrvTools_memset(szName, '\x9B', 200);
    return VtStatus_OK;
}

namespace
{

TEST(BoardAnswers, ArePrintable)
{
    const std::pair<std::string, std::string> aoRows[] = {
        {"SDI IN A ~", "SDI IN A ~"},
        {"\033]0;title\a\033[2J\n\x7F", "?]0;title??[2J??"},
        {"Cam\xC3\xA9ra \xE2\x82\xAC \xF0\x9F\x8E\xA5", "Cam\xC3\xA9ra \xE2\x82\xAC \xF0\x9F\x8E\xA5"},
        {"\xC2\x9B"
         "2J \x9B"
         "2J \xC2\xA0",
         "??2J ?2J \xC2\xA0"},
        {"\xC1\x9B \xE0\x83\xA9 \xF0\x80\x83\xA9", "?? ??? ????"}, // longer forms than needed
        {"\xED\xA0\x80 \xF4\x90\x80\x80 \xFF", "??? ???? ?"},      // no characters
        {"\xE2\x80\xAE"
         "A\xE2\x80\xA8"
         "B\xE2\x81\xA6",
         "???A???B???"}, // direction, line end
        {"cut \xE2\x82", "cut ??"},
    };
    for (const auto& [szGiven, szExpected] : aoRows)
    {
        std::string szText = szGiven;
        MakePrintable(szText);
        EXPECT_EQ(szText, szExpected);
    }
    VTSTR64 szCopy;
    std::string szLong(62, 'x');
    szLong += "\xC3\xA9 end";
    CopyBoardText(szLong, szCopy);
    EXPECT_EQ(szCopy, std::string(62, 'x') + "?") << "half a character at the end of the copy";
    GetPixelFormatString(VtPixelFormat_UNKOWN, szCopy);
    EXPECT_EQ(szCopy, std::string(63, '?'));
}

TEST(BoardAnswers, AreBounded)
{
    VTSTR64 szName;
    g_uiCount = UINT32_MAX;
    EXPECT_EQ(FindConnectorName(nullptr, 0, 1, szName).eOutcome, EConnectorSearch::FOUND);
    EXPECT_EQ(szName, std::string(63, '?'));
    g_uiNbOfQueries = 0;
    EXPECT_EQ(FindConnectorName(nullptr, 0, 0, szName).eOutcome, EConnectorSearch::NO_MATCH);
    EXPECT_EQ(g_uiNbOfQueries, uiMaxNbOfConnectors);

    for (const Bool32 bIsVideoInput : {0U, 1U})
    {
        uint32_t uiNbOfVideo = 1;
        EXPECT_EQ(CountStreams(nullptr, bIsVideoInput, uiNbOfVideo), EStreamCount::TOO_MANY);
        g_eStatus = VtStatus_FAIL;
        EXPECT_EQ(CountStreams(nullptr, bIsVideoInput, uiNbOfVideo), EStreamCount::FAILED);
        EXPECT_EQ(uiNbOfVideo, 0U);
        g_eStatus = VtStatus_NOT_OPTIMAL;
        g_uiCount = 32;
        EXPECT_EQ(CountStreams(nullptr, bIsVideoInput, uiNbOfVideo), EStreamCount::COUNTED);
        EXPECT_EQ(uiNbOfVideo, 32U);
        g_uiCount = 33;
        g_eStatus = VtStatus_OK;
    }
}

} // namespace
