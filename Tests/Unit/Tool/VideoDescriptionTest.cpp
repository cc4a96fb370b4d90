#include "VideoDescription.h"

#include "FrameRateTotals.h"
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
    const struct
    {
        VtVideo_VidParam oParam;
        uint32_t uiPixels;
        double flRate;
    } aoRows[] = {
        {PROGRESSIVE, 2475000, 60.0},
        {INTERLACED, 2970000, 25.0},
        {oBy1001, 2475000, static_cast<double>(148352000.0F / 2475000.0F)},
        {WithZero(&VtVideo_VidParam::uiPixelClock_kHz), 2475000, 0.0},
        {{}, 0, 0.0},
    };
    for (const auto& roRow : aoRows)
    {
        uint32_t uiPixels = 1;
        EXPECT_EQ(ComputeNominalRate(roRow.oParam, uiPixels), roRow.flRate);
        EXPECT_EQ(uiPixels, roRow.uiPixels);
    }
}

TEST(VideoDescription, NamesCodes)
{
    const struct
    {
        const char* szName;
        const char* szText;
    } aoRows[] = {
        {VtStatusToString(VtStatus_CRITICAL_END_OF_STREAM), "VtStatus_VtStatus_CONNECTION_LOST"},
        {VtStatusToString(VtStatus_CONNECTION_LOST), "VtStatus_VtStatus_CONNECTION_LOST"},
        {VtStatusToString(VtStatus_NO_DATA), "Unknown"},
        {VtStatusToString(VtStatus_SEIOVERSIZE), "Unknown"},
        {VtStatusToString(VtStatus_HARDWARE_MALFUNCTION), "Unknown"},
        {VtStatusToString(VtStatus_NOTHING_DONE), "Unknown"},
        {VtVideoInStateToString(VtVideoIn_State_FORCE32), "VtVideoIn_State_FORCE32"},
        {VtVideoInStateToString(static_cast<VtVideoIn_State>(3)), "Unknown VtVideoIn_State"},
        {PowerStateToString(VtVideoOut_PowerState_SUSPEND), "PowerState_SUSPEND"},
        {PowerStateToString(VtVideoOut_PowerState_FORCE32), "Unknown"},
    };
    for (const auto& roRow : aoRows)
    {
        EXPECT_STREQ(roRow.szName, roRow.szText);
    }
    // The codes whose name is their text.
    for (const int iStatus :
         {-104, -103, -102, -101, -100, -13, -12, -11, -10, -9, -8, -7, -6, -4, -3, -2, -1, 0, 1, 102, 103, 104})
    {
        EXPECT_EQ(std::string(VtStatusToString(static_cast<VtStatus>(iStatus))).find("VtStatus_"), 0U) << iStatus;
    }
}

TEST(VideoDescription, NamesConnectors)
{
    const std::string szChip = "[time]\nmode = \"stepped\"\n[[chip]]\n";
    const std::string szConnectors = "[[chip.connector]]\nname = \"Both\"\nvideo_in = 1\nvideo_out = 2\n"
                                     "[[chip.connector]]\nname = \"Late\"\nvideo_in = 1\n";
    const std::string szFailingCount = FailingCall("VtBoard_GetConnectorCount", "VtStatus_UNSUPPORTED", "");
    const std::string szFailingInfo = FailingCall("VtBoard_GetConnectorInfo", "VtStatus_UNSUPPORTED", "call = 2");
    const std::string szOddInfo = FailingCall("VtBoard_GetConnectorInfo", "VtStatus_NOT_OPTIMAL", "call = 2");
    const std::string szAssert = "VideoDescription.cpp Assertion failed\n";
    const struct
    {
        std::string szScenario;
        Bool32 bIsInput;
        uint32_t uiIndex;
        VtStatus eStatus;
        std::string szName;
        std::string szPrinted;
    } aoRows[] = {
        {szConnectors, 1, 1, VtStatus_OK, "Both", ""},
        {szConnectors, 0, 2, VtStatus_OK, "Both", ""},
        {szConnectors, 1, 2, VtStatus_OK, "", "\033[KError : Video input [02] does not have name\n"},
        {szConnectors, 0, 0, VtStatus_OK, "", "\033[KError : Video output [00] does not have name\n"},
        {szConnectors + szOddInfo, 0, 3, VtStatus_NOT_OPTIMAL, "",
         "\033[KError : Video output [03] does not have name\n"},
        {szConnectors + szFailingInfo, 0, 3, VtStatus_UNSUPPORTED, "",
         "\033[KError : VtBoard_GetConnectorInfo failed!\n"},
        {szConnectors + szFailingCount, 1, 1, VtStatus_FAIL, "", szAssert},
        {"", 1, 0, VtStatus_FAIL, "", "\033[KError : No connector found!\n" + szAssert},
    };
    for (const auto& roRow : aoRows)
    {
        SCOPED_TRACE(roRow.szScenario + std::to_string(roRow.uiIndex));
        const VtDevice_Handle hDev = LoadScenario(szChip + roRow.szScenario);
        VTSTR64 szName = "before";
        BeginPrinted();
        EXPECT_EQ(GetVideoNameString(hDev, roRow.uiIndex, roRow.bIsInput, szName), roRow.eStatus);
        EXPECT_EQ(EndPrinted(), roRow.szPrinted);
        EXPECT_EQ(szName, roRow.szName);
        Veltrano_UnLoad();
    }
}

TEST(FrameRateTotals, MakesAPassEveryHalfSecond)
{
    const uint32_t auiRows[][2] = {{0, 120}, {1, 1}, {2, 1}, {3, 1}, {59, 29}, {60, 30}, {241, 120}, {242, 121}};
    for (const auto& rauiRow : auiRows)
    {
        EXPECT_EQ(FieldsPerPass(rauiRow[0]), rauiRow[1]) << rauiRow[0];
    }
}

TEST(FrameRateTotals, KeepsExtremesSinceTheLastReset)
{
    SMonitorUserData oData = {};
    oData.fFpsRef = 40.0;
    AddPassToTotals(oData, 160, 1000, 1000, 10.0);
    AddPassToTotals(oData, 480, 500, 1000, 60.0);
    EXPECT_EQ(oData.fFpsMin, 10.0);
    EXPECT_EQ(oData.fFpsMax, 60.0);
    EXPECT_EQ(oData.fFpsAvg, 640 * 0.0625 / 1.5);
    EXPECT_EQ(oData.fFpsPpm, (oData.fFpsAvg - 40.0) * 1000000.0 / 40.0);
    oData.fFpsMin = oData.fFpsMax = oData.fFpsRef = 0.0;
    AddPassToTotals(oData, 0, 0, 1000, 30.0);
    EXPECT_EQ(oData.fFpsMin, 30.0);
    EXPECT_EQ(oData.fFpsMax, 30.0);
    EXPECT_EQ(oData.fFpsPpm, 0.0);
}

} // namespace
