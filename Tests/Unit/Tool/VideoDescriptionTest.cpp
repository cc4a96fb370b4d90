#include "VideoDescription.h"

#include <cstring>

#include "FieldRates.h"
#include "MonitorScript.h"

namespace
{

constexpr VtVideo_VidParam PROGRESSIVE = {1920, 1080, 60, 67, 148500, 88, 44, 148, 4, 5, 36,
                                          0,    0,    0,  0,  0,      0,  0,  0,   0, 0, 0};
constexpr VtVideo_VidParam INTERLACED = {1920, 1080, 50, 28, 74250, 528, 44, 148, 2, 5, 15,
                                         1,    0,    1,  0,  1,     0,   0,  0,   0, 0, 0};
TEST(VideoDescription, DescribesTimings)
{
    VtVideo_VidParam oNoPixels = PROGRESSIVE, oNoLines = PROGRESSIVE;
    oNoPixels.uiHActive = oNoLines.uiVActive = 0;
    const std::tuple<const VtVideo_VidParam*, Bool32, const char*> aoRows[] = {
        {nullptr, 1, "Invalid timings"},
        {&oNoPixels, 1, "No timings detected"},
        {&oNoLines, 0, "No timings detected"},
        {&PROGRESSIVE, 0, "1920 x 1080p @ 60 Hz (RGB)"},
        {&PROGRESSIVE, 1, "1920 x 1080p @ 60 Hz 148500 KHz,  88,  44, 148,   4,   5,  36 (-/-) (RGB)"},
        {&INTERLACED, 0, "1920 x 1080i @ 50 Hz (YUV)"},
        {&INTERLACED, 1, "1920 x 1080i @ 50 Hz  74250 KHz, 528,  44, 148,   2,   5,  15 (+/-) (YUV)"},
    };
    for (const auto& [poParam, bExtended, pszText] : aoRows)
    {
        VTSTR256 szText;
        KrvTools_memset(szText, 'x', sizeof(szText));
        g_bExtendVidTimingDetails = bExtended;
        GetVideoParamString(poParam, szText);
        EXPECT_STREQ(szText, pszText);
        EXPECT_EQ(szText[255], '\0');
    }
    g_bExtendVidTimingDetails = 0;
}

TEST(VideoDescription, ComputesTheNominalRateInSinglePrecision)
{
    VtVideo_VidParam oBy1001 = PROGRESSIVE;
    oBy1001.uiPixelClock_kHz = 148352;
    uint32_t uiPixels = 1;
    EXPECT_EQ(ComputeNominalRate(oBy1001, uiPixels), static_cast<double>(148352000.0F / 2475000.0F));
    EXPECT_EQ(uiPixels, 2475000U);
    EXPECT_EQ(ComputeNominalRate(INTERLACED, uiPixels), 25.0);
    EXPECT_EQ(uiPixels, 2970000U);
    oBy1001.uiPixelClock_kHz = 0;
    EXPECT_EQ(ComputeNominalRate(oBy1001, uiPixels), 0.0);
    EXPECT_EQ(ComputeNominalRate({}, uiPixels), 0.0);
    EXPECT_EQ(uiPixels, 0U);
}

// The values that have a text of their own, each with it.
template <typename EValue>
std::string Texts(const char* (*pfnText)(EValue), int iFirst, int iLast, const std::string& szUnknown)
{
    std::string szTexts;
    for (int iValue = iFirst; iValue <= iLast; ++iValue)
    {
        const std::string szText = pfnText(static_cast<EValue>(iValue));
        szTexts += szText == szUnknown ? "" : std::to_string(iValue) + " " + szText + ", ";
    }
    return szTexts;
}

// A value as a board writes it through a pointer: behind the compiler's back, so that it has to be loaded.
template <typename EValue> EValue FromBoard(uint32_t uiValue)
{
    EValue eValue{};
    void* volatile pvValue = &eValue;
    std::memcpy(pvValue, &uiValue, sizeof(eValue));
    return eValue;
}

TEST(VideoDescription, NamesCodes)
{
    EXPECT_STREQ(VtVideoInStateToString(VtVideoIn_State_FORCE32), "VtVideoIn_State_FORCE32");
    EXPECT_EQ(Texts(VtVideoInStateToString, 0, 5, "Unknown VtVideoIn_State"),
              "0 VtVideoIn_State_INVALID, 1 VtVideoIn_State_NOT_INITIALIZED, 2 VtVideoIn_State_STARTED, "
              "4 VtVideoIn_State_STOPPED, ");
    EXPECT_STREQ(PowerStateToString(VtVideoOut_PowerState_FORCE32), "Unknown");
    for (const uint32_t uiFromBoard : {0x80000000u, UINT32_MAX}) // a sanitizer sees it where loading is undefined
    {
        EXPECT_STREQ(VtVideoInStateToString(FromBoard<VtVideoIn_State>(uiFromBoard)), "Unknown VtVideoIn_State");
        EXPECT_STREQ(PowerStateToString(FromBoard<VtVideoOut_PowerState>(uiFromBoard)), "Unknown");
    }
    EXPECT_STREQ(VtStatusToString(FromBoard<VtStatus>(0x80000000u)), "Unknown");
    EXPECT_LT(FromBoard<VtStatus>(0x80000000u), 0);
    EXPECT_EQ(Texts(PowerStateToString, 0, 32, "Unknown"),
              "0 PowerState_DISABLED, 1 PowerState_ON, 2 PowerState_BLANKED, 4 PowerState_STANDBY, "
              "8 PowerState_SUSPEND, 16 PowerState_OFF, ");
    EXPECT_EQ(Texts(VtStatusToString, -120, 120, "Unknown"),
              "-105 VtStatus_VtStatus_CONNECTION_LOST, -104 VtStatus_STREAM_NOT_INITIALIZED, "
              "-103 VtStatus_INCOMPLETE_COMMAND, -102 VtStatus_REORDERED_SEQUENCE_PENDING, "
              "-101 VtStatus_END_OF_STREAM, -100 VtStatus_INFO_NOT_AVAILABLE, "
              "-14 VtStatus_VtStatus_CONNECTION_LOST, -13 VtStatus_COMMAND_PENDING, -12 VtStatus_CANCELED, "
              "-11 VtStatus_DEVICETHREAD_COMMAND_QUEUE_FULL, -10 VtStatus_UNSUPPORTED, -9 VtStatus_ACCESS_DENIED, "
              "-8 VtStatus_RESOURCES_BUSY, -7 VtStatus_OUT_OF_RESOURCES, -6 VtStatus_OUT_OF_MEMORY, "
              "-4 VtStatus_NO_MORE_DATA, -3 VtStatus_TIMEOUT, -2 VtStatus_INVALID_PARAM, -1 VtStatus_FAIL, "
              "0 VtStatus_OK, 1 VtStatus_NOT_OPTIMAL, 102 VtStatus_OK_INCOMPLETE_REORDERED_SEQUENCE, "
              "103 VtStatus_OK_MISSING_FIRST_SPS, 104 VtStatus_OK_STREAM_NOT_LOWLATENCY, ");
}

TEST(VideoDescription, NamesConnectors)
{
    const std::string szChip = "[time]\nmode = 'stepped'\n[[chip]]\n";
    const std::string szBoth = szChip + "[[chip.connector]]\nname = 'Both'\nvideo_in = 1\nvideo_out = 2\n"
                                        "[[chip.connector]]\nname = 'Late'\nvideo_in = 1\n";
    const std::string szAssert = "VideoDescription.cpp Assertion failed\n";
    const std::string szInfo = "VtBoard_GetConnectorInfo";
    const std::tuple<std::string, Bool32, uint32_t, VtStatus, std::string, std::string> aoRows[] = {
        {szBoth, 1, 1, VtStatus_OK, "Both", ""},
        {szBoth, 0, 2, VtStatus_OK, "Both", ""},
        {szBoth, 1, 2, VtStatus_OK, "", "\033[KError : Video input [02] does not have name\n"},
        {szBoth + FailingCall(szInfo, "NOT_OPTIMAL", "call = 2"), 0, 3, VtStatus_NOT_OPTIMAL, "",
         "\033[KError : Video output [03] does not have name\n"},
        {szBoth + FailingCall(szInfo, "UNSUPPORTED", "call = 2"), 0, 3, VtStatus_UNSUPPORTED, "",
         "\033[KError : VtBoard_GetConnectorInfo failed!\n"},
        {szBoth + FailingCall("VtBoard_GetConnectorCount", "UNSUPPORTED", ""), 1, 1, VtStatus_FAIL, "", szAssert},
        {szChip, 1, 0, VtStatus_FAIL, "", "\033[KError : No connector found!\n" + szAssert},
    };
    for (const auto& [szScenario, bIsInput, uiIndex, eExpected, szExpected, szPrinted] : aoRows)
    {
        SCOPED_TRACE(szScenario + std::to_string(uiIndex));
        const VtDevice_Handle hDev = LoadScenario(szScenario);
        VTSTR64 szName = "before";
        VtStatus eStatus = VtStatus_FORCE32;
        const auto GetName = [&, uiAt = uiIndex, bIn = bIsInput]
        { eStatus = GetVideoNameString(hDev, uiAt, bIn, szName); };
        EXPECT_EQ(Printed(GetName), szPrinted);
        EXPECT_EQ(eStatus, eExpected);
        EXPECT_EQ(szName, szExpected);
    }
}

} // namespace
