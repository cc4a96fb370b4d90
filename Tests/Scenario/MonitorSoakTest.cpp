// Long runs of the monitors' thread functions, compared with what the board's truth about the same fields implies: an
// hour around the end of day 30; VT_SOAK_DAYS=30 runs all the days from the first on, VT_SOAK_SEED another draw.
#include "MonitorScript.h"
#include "VideoInMonitor.h"
#include "VideoOutMonitor.h"

namespace
{

constexpr uint64_t TICK_FREQ = 100000000;
constexpr uint64_t SECONDS_A_DAY = 86400;

struct SSoakStream
{
    const char* szName;
    VtSim_Direction eDirection;
    bool bInterlaced;
    uint32_t uiPeriod;  // fields from pass to pass
    double flFieldRate; // nominal
    std::string szKeys;
    double flPpm = 0.0; // of a stream that runs free: no jitter, no events
    friend void PrintTo(const SSoakStream& roPrinted, std::ostream* poStream) { *poStream << roPrinted.szName; }
};

const SSoakStream STREAMS[] = {
    {"InFree", VtSim_Direction_INPUT, false, 30, 60000.0 / 1001, "standard = '1080p59.94'\nppm = -7.3\n", -7.3},
    {"InMissing", VtSim_Direction_INPUT, true, 25, 50,
     "standard = '1080i50'\nppm = 30\njitter_ticks = 2000\n" +
         Event("missed_field", "at_field = 77\nevery_fields = 3607") +
         Event("skipped_buffers", "count = 3\nat_field = 10\nevery_fields = 991")},
    {"InLosing", VtSim_Direction_INPUT, false, 25, 50,
     "standard = '2160p50'\njitter_ticks = 5000\nskip_count_start = 9\n" +
         Event("signal_loss", "at_s = 70\nevery_s = 181\nfor_fields = 9") +
         Event("doubled_field", "at_field = 90\nevery_fields = 2999")},
    {"OutSkipping", VtSim_Direction_OUTPUT, false, 12, 25,
     "standard = '1080p25'\nset_buffer_start = '0xFFFFFFFFFFFFFF00'\njitter_ticks = 9000\n" +
         Event("skipped_buffers", "count = 2\nat_field = 10\nevery_fields = 503") +
         Event("buffers_run_out", "at_field = 40\nevery_fields = 2003\nfor_fields = 3")},
    {"OutLosing", VtSim_Direction_OUTPUT, false, 30, 60,
     "standard = '1080p60'\nppm = -40\njitter_ticks = 6000\n" +
         Event("power_state", "state = 'OFF'\nat_s = 90\nevery_s = 97\nfor_s = 1.3")},
};

// What the truth about the fields implies for a monitor's last pass.
struct SImplied
{
    uint64_t uiSkipped = 0; // as a row shows it, and the next two
    uint64_t uiMissedOrSet = 0;
    uint64_t uiDoubled = 0;
    uint64_t uiCounts = 0; // over all passes
    uint64_t uiTicks = 0;
    double flRateMin = 1e9; // of a pass
    double flRateMax = 0.0;
};

double Rate(uint64_t uiCounts, uint64_t uiTicks)
{
    return static_cast<double>(uiCounts) * 0.0625 / (static_cast<double>(uiTicks) / static_cast<double>(TICK_FREQ));
}

void AddInterval(const SSoakStream& roStream, const VtSim_Field& roBefore, const VtSim_Field& roField,
                 SImplied& roImplied)
{
    if (roStream.eDirection == VtSim_Direction_OUTPUT)
    {
        const uint64_t uiSet = roField.uiSetBufferCounter - roBefore.uiSetBufferCounter;
        roImplied.uiMissedOrSet += uiSet;
        roImplied.uiSkipped += uiSet > 1 ? uiSet - 1 : 0;
        roImplied.uiDoubled += uiSet == 0 ? 1 : 0;
        return;
    }
    const uint64_t uiTicks = roField.uiExactTicks - roBefore.uiExactTicks; // without jitter
    const double flFields = static_cast<double>(uiTicks) / static_cast<double>(TICK_FREQ) * roStream.flFieldRate;
    roImplied.uiMissedOrSet += flFields > 1.5 ? 1 : 0;
    roImplied.uiDoubled += flFields < 0.5 ? 1 : 0;
    roImplied.uiSkipped = roField.uiSkipBufferCount;
}

void AddPass(const SSoakStream& roStream, const VtSim_Field& roFirst, const VtSim_Field& roLast, SImplied& roImplied)
{
    const uint64_t uiCounts = roLast.uiFieldCounter - roFirst.uiFieldCounter;
    const uint64_t uiTicks = roLast.uiTickRefCounter - roFirst.uiTickRefCounter;
    const double flRate = Rate(uiCounts, uiTicks) * (roStream.bInterlaced ? 0.5 : 1.0);
    roImplied.uiCounts += uiCounts;
    roImplied.uiTicks += uiTicks;
    roImplied.flRateMin = std::min(roImplied.flRateMin, flRate);
    roImplied.flRateMax = std::max(roImplied.flRateMax, flRate);
}

SImplied Imply(const SSoakStream& roStream, uint64_t uiWaits)
{
    SImplied oDone; // until the last pass
    SImplied oSoFar;
    VtSim_Field oPassStart = {};
    VtSim_Field oBefore = {};
    uint64_t uiFields = 0; // since the start or the last loss
    for (uint64_t uiField = 0; uiWaits > 0; ++uiField)
    {
        VtSim_Field oField = {};
        EXPECT_EQ(VtSim_GetField({0, roStream.eDirection, 0}, uiField, &oField), VtStatus_OK);
        uiWaits -= oField.eFate == VtSim_Fate_MISSED ? 0 : 1;
        if (oField.eFate != VtSim_Fate_STARTED)
        {
            uiFields = oField.eFate == VtSim_Fate_LOST ? 0 : uiFields;
            continue;
        }
        if (uiFields++ == 0)
        {
            oPassStart = oField;
            oSoFar = oDone;
        }
        else
        {
            AddInterval(roStream, oBefore, oField, oSoFar);
        }
        oBefore = oField;
        if (uiFields % roStream.uiPeriod == 0)
        {
            AddPass(roStream, oPassStart, oField, oSoFar);
            oDone = oSoFar;
            oPassStart = oField;
        }
    }
    return oDone;
}

class MonitorSoak : public testing::TestWithParam<SSoakStream>
{
};

TEST_P(MonitorSoak, CountsAndRatesAreThoseOfTheTruth)
{
    const SSoakStream& roStream = GetParam();
    const char* szDays = std::getenv("VT_SOAK_DAYS");
    const char* szSeed = std::getenv("VT_SOAK_SEED");
    const uint64_t uiSeconds = szDays != nullptr ? std::stoull(szDays) * SECONDS_A_DAY : 3600;
    const uint64_t uiStart = szDays != nullptr ? 1 : 30 * SECONDS_A_DAY - uiSeconds / 2;
    const std::string szHead = std::string("seed = ") + (szSeed != nullptr ? szSeed : "20261116") + "\n";
    SCOPED_TRACE(szHead);

    SMonitorScript oScript(roStream.eDirection == VtSim_Direction_INPUT ? "In" : "Out",
                           roStream.eDirection == VtSim_Direction_INPUT ? VtVideoInMonitorThreadFunc
                                                                        : VtVideoOutMonitorThreadFunc);
    oScript.szHead = szHead;
    oScript.szChip = "tick_frequency_hz = 100000000\ntick_start = " + std::to_string(uiStart * TICK_FREQ);
    const uint64_t uiWaits = static_cast<uint64_t>(static_cast<double>(uiSeconds) * roStream.flFieldRate);
    const std::string szCounter = "field_counter_start = " + std::to_string(uiStart * 960) + "\n";
    oScript.Run(szCounter + roStream.szKeys, uiWaits);

    const SImplied oImplied = Imply(roStream, uiWaits);
    const std::string szRow = oScript.oData.szStatusData;
    char szCounts[64];
    snprintf(szCounts, sizeof(szCounts), "  %8lu %8lu %8lu %8lu", oImplied.uiSkipped, oImplied.uiMissedOrSet,
             oImplied.uiDoubled, oImplied.uiCounts / 16);
    EXPECT_TRUE(szRow.ends_with(szCounts)) << szRow << "\nbut in truth" << szCounts;
    EXPECT_EQ(oScript.oData.uiFpsTotalFieldCounter, oImplied.uiCounts);
    EXPECT_EQ(oScript.oData.fFpsAvg, Rate(oImplied.uiCounts, oImplied.uiTicks));
    EXPECT_EQ(oScript.oData.fFpsMin, oImplied.flRateMin);
    EXPECT_EQ(oScript.oData.fFpsMax, oImplied.flRateMax);
    if (roStream.flPpm != 0.0)
    {
        const double flTrueRate = roStream.flFieldRate * (1.0 + roStream.flPpm * 1e-6);
        EXPECT_NEAR(oScript.oData.fFpsAvg, flTrueRate, flTrueRate * 2.0 / static_cast<double>(oImplied.uiTicks));
    }
}

INSTANTIATE_TEST_SUITE_P(Streams, MonitorSoak, testing::ValuesIn(STREAMS),
                         [](const auto& roInfo) { return std::string(roInfo.param.szName); });

} // namespace
