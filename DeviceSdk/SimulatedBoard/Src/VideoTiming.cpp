// See VideoTiming.h.
#include "VideoTiming.h"

#include <algorithm>
#include <array>

namespace
{

constexpr bool b1001 = true; // rates "by 1.001"
constexpr bool bWhole = false;
constexpr bool bInterlaced = true;
constexpr bool bProgressive = false;

struct SLines
{
    uint32_t uiActive, uiFPorch, uiSync, uiBPorch;
};

// Polarities of both syncs.
enum class ESyncs
{
    POSITIVE,
    NEGATIVE,
    H_ONLY,
    V_ONLY
};

constexpr SVideoStandard Row(std::string_view szName, uint64_t uiClockKHz, bool bBy1001, SLines oH, SLines oV,
                             bool bIsInterlaced, ESyncs eSyncs)
{
    return {szName,
            {.uiHActive = oH.uiActive,
             .uiHFPorch = oH.uiFPorch,
             .uiHSync = oH.uiSync,
             .uiHBPorch = oH.uiBPorch,
             .uiVActive = oV.uiActive,
             .uiVFPorch = oV.uiFPorch,
             .uiVSync = oV.uiSync,
             .uiVBPorch = oV.uiBPorch,
             .uiPixelClockHz = uiClockKHz * 1000,
             .bClockBy1001 = bBy1001,
             .bInterlaced = bIsInterlaced,
             .bBottomFieldFirst = false,
             .bHSyncPositive = eSyncs == ESyncs::POSITIVE || eSyncs == ESyncs::H_ONLY,
             .bVSyncPositive = eSyncs == ESyncs::POSITIVE || eSyncs == ESyncs::V_ONLY}};
}

// Sources: CTA-861-G table 1 (video formats by VIC) for what is named by lines and rate; its figures for 720 lines and
// more are those of SMPTE ST 296, ST 274 and ST 2036-1. The 480i and 576i rows are without pixel repetition, halving
// the horizontal figures of CTA-861. VESA DMT 1.0 rev. 13 for what is named by pixels.
constexpr std::array aoStandards = {
    // clang-format off
    Row("480i59.94",      13500, bWhole, { 720,   19,  62,  57}, { 480, 4,  3, 15}, bInterlaced,  ESyncs::NEGATIVE),
    Row("576i50",         13500, bWhole, { 720,   12,  63,  69}, { 576, 2,  3, 19}, bInterlaced,  ESyncs::NEGATIVE),
    Row("480p59.94",      27000, bWhole, { 720,   16,  62,  60}, { 480, 9,  6, 30}, bProgressive, ESyncs::NEGATIVE),
    Row("576p50",         27000, bWhole, { 720,   12,  64,  68}, { 576, 5,  5, 39}, bProgressive, ESyncs::NEGATIVE),
    Row("720p24",         59400, bWhole, {1280, 1760,  40, 220}, { 720, 5,  5, 20}, bProgressive, ESyncs::POSITIVE),
    Row("720p25",         74250, bWhole, {1280, 2420,  40, 220}, { 720, 5,  5, 20}, bProgressive, ESyncs::POSITIVE),
    Row("720p30",         74250, bWhole, {1280, 1760,  40, 220}, { 720, 5,  5, 20}, bProgressive, ESyncs::POSITIVE),
    Row("720p50",         74250, bWhole, {1280,  440,  40, 220}, { 720, 5,  5, 20}, bProgressive, ESyncs::POSITIVE),
    Row("720p59.94",      74250, b1001,  {1280,  110,  40, 220}, { 720, 5,  5, 20}, bProgressive, ESyncs::POSITIVE),
    Row("720p60",         74250, bWhole, {1280,  110,  40, 220}, { 720, 5,  5, 20}, bProgressive, ESyncs::POSITIVE),
    Row("1080i50",        74250, bWhole, {1920,  528,  44, 148}, {1080, 2,  5, 15}, bInterlaced,  ESyncs::POSITIVE),
    Row("1080i59.94",     74250, b1001,  {1920,   88,  44, 148}, {1080, 2,  5, 15}, bInterlaced,  ESyncs::POSITIVE),
    Row("1080i60",        74250, bWhole, {1920,   88,  44, 148}, {1080, 2,  5, 15}, bInterlaced,  ESyncs::POSITIVE),
    Row("1080p23.98",     74250, b1001,  {1920,  638,  44, 148}, {1080, 4,  5, 36}, bProgressive, ESyncs::POSITIVE),
    Row("1080p24",        74250, bWhole, {1920,  638,  44, 148}, {1080, 4,  5, 36}, bProgressive, ESyncs::POSITIVE),
    Row("1080p25",        74250, bWhole, {1920,  528,  44, 148}, {1080, 4,  5, 36}, bProgressive, ESyncs::POSITIVE),
    Row("1080p29.97",     74250, b1001,  {1920,   88,  44, 148}, {1080, 4,  5, 36}, bProgressive, ESyncs::POSITIVE),
    Row("1080p30",        74250, bWhole, {1920,   88,  44, 148}, {1080, 4,  5, 36}, bProgressive, ESyncs::POSITIVE),
    Row("1080p50",       148500, bWhole, {1920,  528,  44, 148}, {1080, 4,  5, 36}, bProgressive, ESyncs::POSITIVE),
    Row("1080p59.94",    148500, b1001,  {1920,   88,  44, 148}, {1080, 4,  5, 36}, bProgressive, ESyncs::POSITIVE),
    Row("1080p60",       148500, bWhole, {1920,   88,  44, 148}, {1080, 4,  5, 36}, bProgressive, ESyncs::POSITIVE),
    Row("2160p23.98",    297000, b1001,  {3840, 1276,  88, 296}, {2160, 8, 10, 72}, bProgressive, ESyncs::POSITIVE),
    Row("2160p24",       297000, bWhole, {3840, 1276,  88, 296}, {2160, 8, 10, 72}, bProgressive, ESyncs::POSITIVE),
    Row("2160p25",       297000, bWhole, {3840, 1056,  88, 296}, {2160, 8, 10, 72}, bProgressive, ESyncs::POSITIVE),
    Row("2160p29.97",    297000, b1001,  {3840,  176,  88, 296}, {2160, 8, 10, 72}, bProgressive, ESyncs::POSITIVE),
    Row("2160p30",       297000, bWhole, {3840,  176,  88, 296}, {2160, 8, 10, 72}, bProgressive, ESyncs::POSITIVE),
    Row("2160p50",       594000, bWhole, {3840, 1056,  88, 296}, {2160, 8, 10, 72}, bProgressive, ESyncs::POSITIVE),
    Row("2160p59.94",    594000, b1001,  {3840,  176,  88, 296}, {2160, 8, 10, 72}, bProgressive, ESyncs::POSITIVE),
    Row("2160p60",       594000, bWhole, {3840,  176,  88, 296}, {2160, 8, 10, 72}, bProgressive, ESyncs::POSITIVE),
    Row("640x480@60",     25200, b1001,  { 640,   16,  96,  48}, { 480, 10, 2, 33}, bProgressive, ESyncs::NEGATIVE),
    Row("640x480@75",     31500, bWhole, { 640,   16,  64, 120}, { 480, 1,  3, 16}, bProgressive, ESyncs::NEGATIVE),
    Row("800x600@60",     40000, bWhole, { 800,   40, 128,  88}, { 600, 1,  4, 23}, bProgressive, ESyncs::POSITIVE),
    Row("800x600@75",     49500, bWhole, { 800,   16,  80, 160}, { 600, 1,  3, 21}, bProgressive, ESyncs::POSITIVE),
    Row("1024x768@60",    65000, bWhole, {1024,   24, 136, 160}, { 768, 3,  6, 29}, bProgressive, ESyncs::NEGATIVE),
    Row("1024x768@75",    78750, bWhole, {1024,   16,  96, 176}, { 768, 1,  3, 28}, bProgressive, ESyncs::POSITIVE),
    Row("1152x864@75",   108000, bWhole, {1152,   64, 128, 256}, { 864, 1,  3, 32}, bProgressive, ESyncs::POSITIVE),
    Row("1280x800@60",    83500, bWhole, {1280,   72, 128, 200}, { 800, 3,  6, 22}, bProgressive, ESyncs::V_ONLY),
    Row("1280x960@60",   108000, bWhole, {1280,   96, 112, 312}, { 960, 1,  3, 36}, bProgressive, ESyncs::POSITIVE),
    Row("1280x1024@60",  108000, bWhole, {1280,   48, 112, 248}, {1024, 1,  3, 38}, bProgressive, ESyncs::POSITIVE),
    Row("1280x1024@75",  135000, bWhole, {1280,   16, 144, 248}, {1024, 1,  3, 38}, bProgressive, ESyncs::POSITIVE),
    Row("1360x768@60",    85500, bWhole, {1360,   64, 112, 256}, { 768, 3,  6, 18}, bProgressive, ESyncs::POSITIVE),
    Row("1440x900@60",   106500, bWhole, {1440,   80, 152, 232}, { 900, 3,  6, 25}, bProgressive, ESyncs::V_ONLY),
    Row("1600x1200@60",  162000, bWhole, {1600,   64, 192, 304}, {1200, 1,  3, 46}, bProgressive, ESyncs::POSITIVE),
    Row("1680x1050@60",  146250, bWhole, {1680,  104, 176, 280}, {1050, 3,  6, 30}, bProgressive, ESyncs::V_ONLY),
    Row("1920x1200@60",  193250, bWhole, {1920,  136, 200, 336}, {1200, 3,  6, 36}, bProgressive, ESyncs::V_ONLY),
    Row("1920x1200@60rb",154000, bWhole, {1920,   48,  32,  80}, {1200, 3,  6, 26}, bProgressive, ESyncs::H_ONLY),
    // clang-format on
};

// uiNumerator / uiDenominator to the nearest, halves downward.
uint32_t RoundedQuotient(UInt128 uiNumerator, UInt128 uiDenominator)
{
    return static_cast<uint32_t>((2 * uiNumerator + uiDenominator - 1) / (2 * uiDenominator));
}

uint64_t ClockNumerator(const SVideoTiming& roTiming)
{
    return roTiming.bClockBy1001 ? roTiming.uiPixelClockHz * 1000 : roTiming.uiPixelClockHz;
}

uint64_t ClockDenominator(const SVideoTiming& roTiming)
{
    return roTiming.bClockBy1001 ? 1001 : 1;
}

} // namespace

std::span<const SVideoStandard> VideoStandard_GetAll()
{
    return aoStandards;
}

const SVideoTiming* VideoStandard_Find(std::string_view szName)
{
    const auto itRow = std::ranges::find(aoStandards, szName, &SVideoStandard::szName);
    return itRow == aoStandards.end() ? nullptr : &itRow->oTiming;
}

FixedTicks VideoTiming_GetFieldTicks(const SVideoTiming& roTiming, uint32_t uiTickFreqHz, int64_t iRatePpt)
{
    // At most 32 + 34 + 10 + 40 bits above and 1 + 44 + 41 below.
    constexpr int64_t iUnity = 1'000'000'000'000;
    const UInt128 uiPixels = UInt128{VideoTiming_GetHTotal(roTiming)} * VideoTiming_GetVTotal(roTiming);
    const UInt128 uiFields = roTiming.bInterlaced ? 2 : 1;
    return FixedTicks_Divide(uiPixels * uiTickFreqHz * ClockDenominator(roTiming) * UInt128{iUnity},
                             uiFields * ClockNumerator(roTiming) * static_cast<UInt128>(iUnity + iRatePpt));
}

FixedTicks VideoTiming_GetLineTicks(const SVideoTiming& roTiming, uint32_t uiTickFreqHz)
{
    return FixedTicks_Divide(UInt128{VideoTiming_GetHTotal(roTiming)} * uiTickFreqHz * ClockDenominator(roTiming),
                             ClockNumerator(roTiming));
}

VtVideo_VidParam VideoTiming_ToVidParam(const SVideoTiming& roTiming)
{
    const UInt128 uiClock = ClockNumerator(roTiming);
    const UInt128 uiLine = UInt128{VideoTiming_GetHTotal(roTiming)} * ClockDenominator(roTiming);
    const UInt128 uiField = uiLine * VideoTiming_GetVTotal(roTiming);
    VtVideo_VidParam oParam{};
    oParam.uiHActive = roTiming.uiHActive;
    oParam.uiVActive = roTiming.uiVActive;
    oParam.uiVRate_Hz = RoundedQuotient(uiClock * (roTiming.bInterlaced ? 2U : 1U), uiField);
    oParam.uiHRate_kHz = RoundedQuotient(uiClock, uiLine * 1000);
    oParam.uiPixelClock_kHz = RoundedQuotient(uiClock, UInt128{ClockDenominator(roTiming)} * 1000);
    oParam.uiHFPorch = roTiming.uiHFPorch;
    oParam.uiHSync = roTiming.uiHSync;
    oParam.uiHBPorch = roTiming.uiHBPorch;
    oParam.uiVFPorch = roTiming.uiVFPorch;
    oParam.uiVSync = roTiming.uiVSync;
    oParam.uiVBPorch = roTiming.uiVBPorch;
    oParam.bInterlaced = roTiming.bInterlaced ? 1U : 0U;
    oParam.bBottomFieldFirst = roTiming.bBottomFieldFirst ? 1U : 0U;
    oParam.bHorizontalSyncPositive = roTiming.bHSyncPositive ? 1U : 0U;
    oParam.bVerticalSyncPositive = roTiming.bVSyncPositive ? 1U : 0U;
    return oParam;
}
