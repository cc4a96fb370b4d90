#include "ScenarioKeys.h"

#include <algorithm>
#include <cmath>
#include <iterator>

#include "PixelFormatNames.h"

namespace
{

constexpr uint32_t uiPixelLimit = 16384;

void ReadTimingTable(const SScenarioNode& roTable, SScenarioFault& roFault, SVideoTiming& roTiming)
{
    CScenarioSection oSection(roTable, roFault);
    for (const char* szKey : {"h_active", "v_active", "pixel_clock_hz"})
    {
        oSection.Require(szKey);
    }
    (void)oSection.Read("h_active", 1U, uiPixelLimit, roTiming.uiHActive);
    (void)oSection.Read("h_front_porch", 0U, uiPixelLimit, roTiming.uiHFPorch);
    (void)oSection.Read("h_sync", 0U, uiPixelLimit, roTiming.uiHSync);
    (void)oSection.Read("h_back_porch", 0U, uiPixelLimit, roTiming.uiHBPorch);
    (void)oSection.Read("v_active", 1U, uiPixelLimit, roTiming.uiVActive);
    (void)oSection.Read("v_front_porch", 0U, uiPixelLimit, roTiming.uiVFPorch);
    (void)oSection.Read("v_sync", 0U, uiPixelLimit, roTiming.uiVSync);
    (void)oSection.Read("v_back_porch", 0U, uiPixelLimit, roTiming.uiVBPorch);
    int64_t iPixelClockHz = 0;
    (void)oSection.ReadInteger("pixel_clock_hz", 1000, 10'000'000'000, iPixelClockHz);
    roTiming.uiPixelClockHz = static_cast<uint64_t>(iPixelClockHz);
    (void)oSection.ReadBoolean("clock_by_1001", roTiming.bClockBy1001);
    (void)oSection.ReadBoolean("interlaced", roTiming.bInterlaced);
    (void)oSection.ReadBoolean("bottom_field_first", roTiming.bBottomFieldFirst);
    (void)oSection.ReadBoolean("h_sync_positive", roTiming.bHSyncPositive);
    (void)oSection.ReadBoolean("v_sync_positive", roTiming.bVSyncPositive);
    oSection.Finish();
}

} // namespace

void ScenarioClock_Read(CScenarioSection& roSection, uint32_t uiTickFreqHz, int64_t& riRatePpt, double& rflWanderTicks,
                        double& rflWanderPeriodS)
{
    double flPpm = 0.0;
    (void)roSection.ReadFloat("ppm", -50000.0, 50000.0, flPpm);
    riRatePpt = std::llround(flPpm * 1e6);
    (void)roSection.ReadFloat("wander_ticks", 0.0, 1e12, rflWanderTicks);
    (void)roSection.ReadFloat("wander_period_s", 1.0, 1e7, rflWanderPeriodS);
    if (rflWanderTicks * 2.0 * std::numbers::pi > 0.001 * rflWanderPeriodS * uiTickFreqHz)
    {
        roSection.Refuse("wander_ticks", "changes the rate by more than 1000 ppm over wander_period_s");
    }
}

bool ScenarioPixelFormat_Read(CScenarioSection& roSection, VtPixelFormat& rePixelFormat)
{
    std::string szName;
    if (!roSection.ReadText("pixel_format", 64, szName))
    {
        return false;
    }
    const auto itName = std::ranges::find(aszPixelFormats, std::string(szPixelFormatPrefix) + szName);
    if (itName == aszPixelFormats.end())
    {
        std::vector<std::string> aszNames;
        std::ranges::transform(aszPixelFormats, std::back_inserter(aszNames),
                               [](std::string_view szFormat)
                               { return std::string(szFormat.substr(szPixelFormatPrefix.size())); });
        roSection.RefuseName("pixel_format", szName, aszNames);
        return false;
    }
    rePixelFormat = static_cast<VtPixelFormat>(itName - aszPixelFormats.begin());
    return true;
}

bool ScenarioFeed_Read(CScenarioSection& roSection, const SStream& roStream, SBufferFeed& roFeed)
{
    const bool bPattern = roSection.ReadIntegers("set_buffer_pattern", 1000, 64, roFeed.auiPattern);
    double flRateHz = 0.0;
    double flIrregular = 0.0;
    const bool bRate = roSection.ReadFloat("set_buffer_rate", 0.001, 4000.0, flRateHz);
    if (bPattern && bRate)
    {
        roSection.Refuse("set_buffer_rate", "either set_buffer_pattern or set_buffer_rate");
    }
    if (roSection.ReadFloat("set_buffer_irregular", 0.0, 1.0, flIrregular) && !bRate)
    {
        roSection.Refuse("set_buffer_irregular", "goes with set_buffer_rate alone");
    }
    if (bRate)
    {
        // A counter of millionths of buffers advances by so many in a field.
        const auto uiMillionthsHz = static_cast<uint32_t>(std::llround(flRateHz * 1e6));
        roFeed.iBuffersAField = VideoTiming_GetFieldTicks(roStream.oTiming, uiMillionthsHz, 0) / 1'000'000;
        roFeed.uiIrregularPpm = static_cast<uint32_t>(std::llround(flIrregular * 1e6));
    }
    return bPattern || bRate;
}

FixedTicks ScenarioTicks_Read(CScenarioSection& roSection, std::string_view szName, const SVideoTiming& roTiming,
                              uint32_t uiTickFreqHz)
{
    const std::string szPrefix(szName);
    const double flLimitTicks = 1000.0 * uiTickFreqHz;
    double flTicks = 0.0;
    int iRead = roSection.ReadFloat(szPrefix + "_ticks", -flLimitTicks, flLimitTicks, flTicks) ? 1 : 0;
    double flUs = 0.0;
    if (roSection.ReadFloat(szPrefix + "_us", -1e9, 1e9, flUs))
    {
        flTicks = flUs * 1e-6 * uiTickFreqHz;
        ++iRead;
    }
    double flLines = 0.0;
    if (roSection.ReadFloat(szPrefix + "_lines", -1e5, 1e5, flLines))
    {
        flTicks = flLines * FixedTicks_ToDouble(VideoTiming_GetLineTicks(roTiming, uiTickFreqHz));
        ++iRead;
    }
    if (std::abs(flTicks) > flLimitTicks)
    {
        roSection.Refuse(szPrefix + "_lines", "must be at most 1000 seconds");
    }
    if (iRead > 1)
    {
        roSection.Refuse(szPrefix + (roSection.Has(szPrefix + "_lines") ? "_lines" : "_us"),
                         "only one of " + szPrefix + "_ticks, " + szPrefix + "_us and " + szPrefix + "_lines");
    }
    return FixedTicks_FromDouble(flTicks);
}

void ScenarioTiming_Read(CScenarioSection& roSection, uint32_t uiTickFreqHz, SScenarioFault& roFault,
                         SVideoTiming& roTiming)
{
    // Whatever is wrong, what goes on from here calculates with timings that make sense.
    roTiming = *VideoStandard_Find("1080p60");
    std::string szStandard;
    const bool bStandard = roSection.ReadText("standard", 64, szStandard);
    const SScenarioNode* poTable = roSection.ReadTable("timing");
    const SVideoTiming* poStandard = VideoStandard_Find(szStandard);
    if (bStandard && poTable != nullptr)
    {
        roSection.Refuse("timing", "either standard or timing");
    }
    else if (bStandard && poStandard == nullptr)
    {
        std::vector<std::string> aszStandards;
        std::ranges::transform(VideoStandard_GetAll(), std::back_inserter(aszStandards),
                               [](const SVideoStandard& roStandard) { return std::string(roStandard.szName); });
        roSection.RefuseName("standard", szStandard, aszStandards);
    }
    else if (bStandard)
    {
        roTiming = *poStandard;
    }
    else if (poTable == nullptr)
    {
        roSection.Require(roSection.Has("timing") ? "timing" : "standard");
    }
    else
    {
        SVideoTiming oTiming;
        ReadTimingTable(*poTable, roFault, oTiming);
        roTiming = roFault.IsSet() ? roTiming : oTiming;
    }
    const double flFieldTicks = FixedTicks_ToDouble(VideoTiming_GetFieldTicks(roTiming, uiTickFreqHz, 0));
    if (flFieldTicks < 64.0 || flFieldTicks > 10.0 * uiTickFreqHz)
    {
        roSection.Refuse(bStandard ? "standard" : "timing", "a field must last 64 ticks to 10 seconds");
    }
}
