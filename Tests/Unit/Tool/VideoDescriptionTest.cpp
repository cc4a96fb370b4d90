#include "VideoDescription.h"

#include <set>

#include "MonitorScript.h"
#include "VideoInMonitor.h"

namespace
{

constexpr VtVideo_VidParam PROGRESSIVE = {1920, 1080, 60, 67, 148500, 88, 44, 148, 4, 5, 36,
                                          0,    0,    0,  0,  0,      0,  0,  0,   0, 0, 0};
constexpr VtVideo_VidParam INTERLACED = {1920, 1080, 50, 28, 74250, 528, 44, 148, 2, 5, 15,
                                         1,    0,    1,  0,  1,     0,   0,  0,   0, 0, 0};

VtVideo_VidParam WithZero(uint32_t VtVideo_VidParam::*puiField)
{
    VtVideo_VidParam oParam = PROGRESSIVE;
    oParam.*puiField = 0;
    return oParam;
}

TEST(VideoDescription, DescribesTimings)
{
    const VtVideo_VidParam oNoPixels = WithZero(&VtVideo_VidParam::uiHActive);
    const VtVideo_VidParam oNoLines = WithZero(&VtVideo_VidParam::uiVActive);
    const struct
    {
        const VtVideo_VidParam* poParam;
        Bool32 bExtended;
        const char* szText;
    } aoRows[] = {
        {nullptr, 1, "Invalid timings"},
        {&oNoPixels, 1, "No timings detected"},
        {&oNoLines, 0, "No timings detected"},
        {&PROGRESSIVE, 0, "1920 x 1080p @ 60 Hz (RGB)"},
        {&PROGRESSIVE, 1, "1920 x 1080p @ 60 Hz 148500 KHz,  88,  44, 148,   4,   5,  36 (-/-) (RGB)"},
        {&INTERLACED, 0, "1920 x 1080i @ 50 Hz (YUV)"},
        {&INTERLACED, 1, "1920 x 1080i @ 50 Hz  74250 KHz, 528,  44, 148,   2,   5,  15 (+/-) (YUV)"},
    };
    for (const auto& roRow : aoRows)
    {
        VTSTR256 szText;
        KrvTools_memset(szText, 'x', sizeof(szText));
        g_bExtendVidTimingDetails = roRow.bExtended;
        GetVideoParamString(roRow.poParam, szText);
        EXPECT_STREQ(szText, roRow.szText);
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
    EXPECT_EQ(ComputeNominalRate(WithZero(&VtVideo_VidParam::uiPixelClock_kHz), uiPixels), 0.0);
    EXPECT_EQ(ComputeNominalRate({}, uiPixels), 0.0);
    EXPECT_EQ(uiPixels, 0U);
}

TEST(VideoDescription, NamesCodes)
{
    EXPECT_STREQ(VtStatusToString(VtStatus_CRITICAL_END_OF_STREAM), "VtStatus_VtStatus_CONNECTION_LOST");
    EXPECT_STREQ(VtStatusToString(VtStatus_CONNECTION_LOST), "VtStatus_VtStatus_CONNECTION_LOST");
    EXPECT_STREQ(VtVideoInStateToString(VtVideoIn_State_FORCE32), "VtVideoIn_State_FORCE32");
    EXPECT_STREQ(VtVideoInStateToString(static_cast<VtVideoIn_State>(3)), "Unknown VtVideoIn_State");
    EXPECT_STREQ(PowerStateToString(VtVideoOut_PowerState_SUSPEND), "PowerState_SUSPEND");
    EXPECT_STREQ(PowerStateToString(VtVideoOut_PowerState_FORCE32), "Unknown");
    // The codes that have a text; those between and behind them have none.
    const std::set<int> oNamed = {-105, -104, -103, -102, -101, -100, -14, -13, -12, -11, -10, -9,
                                  -8,   -7,   -6,   -4,   -3,   -2,   -1,  0,   1,   102, 103, 104};
    for (int iStatus = -110; iStatus <= 110; ++iStatus)
    {
        const std::string szText = VtStatusToString(static_cast<VtStatus>(iStatus));
        EXPECT_EQ(szText.starts_with("VtStatus_"), oNamed.contains(iStatus)) << iStatus;
        EXPECT_EQ(szText == "Unknown", !oNamed.contains(iStatus)) << iStatus;
    }
}

TEST(VideoDescription, NamesConnectors)
{
    const std::string szChip = "[time]\nmode = 'stepped'\n[[chip]]\n";
    const std::string szBoth = szChip + "[[chip.connector]]\nname = 'Both'\nvideo_in = 1\nvideo_out = 2\n"
                                        "[[chip.connector]]\nname = 'Late'\nvideo_in = 1\n";
    const std::string szAssert = "VideoDescription.cpp Assertion failed\n";
    const std::string szInfo = "VtBoard_GetConnectorInfo";
    const struct
    {
        std::string szScenario;
        Bool32 bIsInput;
        uint32_t uiIndex;
        VtStatus eStatus;
        std::string szName;
        std::string szPrinted;
    } aoRows[] = {
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
    for (const auto& roRow : aoRows)
    {
        SCOPED_TRACE(roRow.szScenario + std::to_string(roRow.uiIndex));
        const VtDevice_Handle hDev = LoadScenario(roRow.szScenario);
        VTSTR64 szName = "before";
        VtStatus eStatus = VtStatus_FORCE32;
        EXPECT_EQ(Printed([&] { eStatus = GetVideoNameString(hDev, roRow.uiIndex, roRow.bIsInput, szName); }),
                  roRow.szPrinted);
        EXPECT_EQ(eStatus, roRow.eStatus);
        EXPECT_EQ(szName, roRow.szName);
    }
}

} // namespace
