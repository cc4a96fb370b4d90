// The exact rate behind timings with a clock in whole kilohertz.
#include "NominalRate.h"

#include <VideoTiming.h>

#include <gtest/gtest.h>

#include <numeric>

namespace
{

SNominalRate GetExact(const SVideoTiming& roTiming)
{
    const uint64_t uiNumerator =
        roTiming.uiPixelClockHz * (roTiming.bClockBy1001 ? 1000 : 1) * (roTiming.bInterlaced ? 2 : 1);
    const uint64_t uiDenominator =
        VideoTiming_GetHTotal(roTiming) * VideoTiming_GetVTotal(roTiming) * (roTiming.bClockBy1001 ? 1001 : 1);
    const uint64_t uiCommon = std::gcd(uiNumerator, uiDenominator);
    return {uiNumerator / uiCommon, uiDenominator / uiCommon};
}

// A camera's record: no blanking, the clock of the visible pixels.
VtVideo_VidParam MakeCamera(uint32_t uiWidth, uint32_t uiHeight, double flRate)
{
    VtVideo_VidParam oTimings{};
    oTimings.uiHActive = uiWidth;
    oTimings.uiVActive = uiHeight;
    oTimings.uiPixelClock_kHz = static_cast<uint32_t>(uiWidth * uiHeight * flRate / 1000.0 + 0.5);
    oTimings.uiVRate_Hz = static_cast<uint32_t>(flRate + 0.5);
    return oTimings;
}

TEST(NominalRate, EveryStandardIsExactWhateverRateIsMeasured)
{
    for (const SVideoStandard& roStandard : VideoStandard_GetAll())
    {
        const VtVideo_VidParam oTimings = VideoTiming_ToVidParam(roStandard.oTiming);
        const SNominalRate oExact = GetExact(roStandard.oTiming);
        for (const double flPpm : {0.0, -300.0, 300.0, 1001.0, 200000.0})
        {
            EXPECT_EQ(NominalRate_Choose(oTimings, oExact.GetHz() * (1.0 + flPpm * 1e-6)), oExact)
                << roStandard.szName << " measured at " << flPpm << " ppm";
        }
        EXPECT_EQ(NominalRate_Choose(oTimings, 0.0), oExact) << roStandard.szName;
        const double flLines = static_cast<double>(VideoTiming_GetVTotal(roStandard.oTiming));
        EXPECT_NEAR(NominalRate_GetLineSeconds(oTimings, oExact),
                    (roStandard.oTiming.bInterlaced ? 2.0 : 1.0) / oExact.GetHz() / flLines, 1e-15);
    }
}

TEST(NominalRate, FastDisplaysAndCamerasAreRecognised)
{
    // 1920 x 1080 at 240 and 360 Hz with the blanking of CVT 2.0, 1000/1001 of 120 Hz, odd camera rates.
    struct SRow
    {
        uint32_t uiWidth, uiHeight;
        double flRate;
        SNominalRate oRate;
    };
    for (const SRow& roRow : {SRow{2080, 1313, 240.0, {240, 1}}, SRow{2080, 1429, 360.0, {360, 1}},
                              SRow{4400, 1125, 120000.0 / 1001.0, {120000, 1001}}, SRow{640, 480, 30.0, {30, 1}},
                              SRow{640, 480, 30000.0 / 1001.0, {30000, 1001}}, SRow{1280, 720, 7.5, {15, 2}},
                              SRow{1280, 720, 24000.0 / 1001.0, {24000, 1001}}, SRow{2048, 1088, 1000.0, {1000, 1}}})
    {
        EXPECT_EQ(NominalRate_Choose(MakeCamera(roRow.uiWidth, roRow.uiHeight, roRow.flRate), 0.0), roRow.oRate);
    }
}

TEST(NominalRate, TotalsThatNoSignalHasAreNone)
{
    // Their product is 0 modulo 2^64.
    VtVideo_VidParam oTimings = MakeCamera(640, 480, 60.0);
    oTimings.uiHActive = 1U << 31U;
    oTimings.uiHBPorch = 1U << 31U;
    oTimings.uiVActive = 1U << 31U;
    oTimings.uiVBPorch = 1U << 31U;
    EXPECT_FALSE(NominalRate_Choose(oTimings, 60.0).IsKnown());
    EXPECT_FALSE(NominalRate_IsAmbiguous(oTimings));
    EXPECT_EQ(NominalRate_GetLineSeconds(oTimings, {}), 0.0);
}

TEST(NominalRate, WhatTheClockCannotTellTheMeasuredRateDecides)
{
    const VtVideo_VidParam oSmall = MakeCamera(160, 120, 15.0);
    EXPECT_TRUE(NominalRate_IsAmbiguous(oSmall));
    EXPECT_EQ(NominalRate_Choose(oSmall, 0.0), (SNominalRate{15, 1}));
    EXPECT_EQ(NominalRate_Choose(oSmall, 15.001), (SNominalRate{15, 1}));
    EXPECT_EQ(NominalRate_Choose(oSmall, 14.9853), (SNominalRate{15000, 1001}));

    VtVideo_VidParam oNoClock = MakeCamera(640, 480, 60.0);
    oNoClock.uiPixelClock_kHz = 0;
    EXPECT_TRUE(NominalRate_IsAmbiguous(oNoClock));
    EXPECT_EQ(NominalRate_Choose(oNoClock, 59.9398), (SNominalRate{60000, 1001}));

    EXPECT_FALSE(NominalRate_IsAmbiguous(MakeCamera(1920, 1080, 60.0)));
    EXPECT_FALSE(NominalRate_Choose({}, 60.0).IsKnown());
}

} // namespace
