// The table of standards against what each name promises, and the SDK's record of timings.
#include "VideoTiming.h"

#include <charconv>
#include <cmath>
#include <gtest/gtest.h>
#include <string>

namespace
{

double ParseNumber(std::string_view szText)
{
    return std::strtod(std::string(szText).c_str(), nullptr);
}

} // namespace

// A wrong figure in a row shows in the rate or the size that its name gives.
TEST(VideoTiming, EveryStandardHasTheSizeAndRateOfItsName)
{
    constexpr uint32_t uiFreqHz = 100'000'000;
    for (const SVideoStandard& roStandard : VideoStandard_GetAll())
    {
        SCOPED_TRACE(std::string(roStandard.szName));
        const std::string_view szName = roStandard.szName;
        const SVideoTiming& roTiming = roStandard.oTiming;
        const double flRate = uiFreqHz / FixedTicks_ToDouble(VideoTiming_GetFieldTicks(roTiming, uiFreqHz, 0));
        const size_t uiAt = szName.find('@');
        if (uiAt == std::string_view::npos)
        {
            const size_t uiScan = szName.find_first_of("ip");
            EXPECT_EQ(roTiming.uiVActive, ParseNumber(szName.substr(0, uiScan)));
            EXPECT_EQ(roTiming.bInterlaced, szName[uiScan] == 'i');
            EXPECT_NEAR(flRate, ParseNumber(szName.substr(uiScan + 1)), 0.005);
            const bool bBy1001 = szName.find('.') != std::string_view::npos;
            EXPECT_NEAR(flRate * (bBy1001 ? 1.001 : 1.0), std::round(flRate), 1e-4);
            continue;
        }
        EXPECT_EQ(roTiming.uiHActive, ParseNumber(szName));
        EXPECT_EQ(roTiming.uiVActive, ParseNumber(szName.substr(szName.find('x') + 1)));
        EXPECT_NEAR(flRate, ParseNumber(szName.substr(uiAt + 1)), 0.35); // VESA's own rates are only near
    }
}

TEST(VideoTiming, RecordHasNominalRatesRoundedToTheNearest)
{
    struct SRow
    {
        const char* szStandard;
        uint32_t uiVRate, uiHRate, uiClock;
    };
    for (const SRow& roRow :
         {SRow{"1080p60", 60, 67, 148500}, SRow{"1080p59.94", 60, 67, 148352}, SRow{"1080p23.98", 24, 27, 74176},
          SRow{"1080i50", 50, 28, 74250}, SRow{"480i59.94", 60, 16, 13500}, SRow{"1024x768@60", 60, 48, 65000}})
    {
        SCOPED_TRACE(roRow.szStandard);
        const VtVideo_VidParam oParam = VideoTiming_ToVidParam(*VideoStandard_Find(roRow.szStandard));
        EXPECT_EQ(oParam.uiVRate_Hz, roRow.uiVRate);
        EXPECT_EQ(oParam.uiHRate_kHz, roRow.uiHRate);
        EXPECT_EQ(oParam.uiPixelClock_kHz, roRow.uiClock);
    }
    EXPECT_EQ(VideoTiming_ToVidParam(*VideoStandard_Find("1920x1200@60rb")).bHorizontalSyncPositive, 1U);
}
