// The model against times worked out by hand, over 30 days; noise; stamps that never go back.
#include "StreamModel.h"

#include <cmath>
#include <cstring>
#include <gtest/gtest.h>

#include "ScenarioReader.h"

namespace
{

SScenario Read(const std::string& rszText)
{
    SScenario oScenario;
    SScenarioFault oFault;
    EXPECT_TRUE(Scenario_Read(rszText, oScenario, oFault)) << oFault.uiLine << ": " << oFault.szText;
    return oScenario;
}

// A chip of one input with these keys.
CStreamModel MakeModel(const std::string& rszKeys, const std::string& rszTop = "", const std::string& rszChip = "")
{
    const SScenario oScenario = Read(rszTop + "\n[[chip]]\n" + rszChip + "\n[[chip.input]]\n" + rszKeys);
    return CStreamModel(oScenario.aoChips.at(0).aoInputs.at(0));
}

} // namespace

// Field n starts n * numerator / denominator ticks after field 0, to half a tick for 30 days.
TEST(StreamModel, StampsAreExactOver30Days)
{
    struct SRow
    {
        const char* szKeys;
        uint32_t uiFreqHz;
        uint64_t uiNumerator, uiDenominator;
        uint64_t uiFieldsOf30Days;
    };
    const std::array aoRows = {
        SRow{"standard = '1080p60'", 100'000'000, 5'000'000, 3, 155'520'000},
        SRow{"standard = '1080p59.94'", 100'000'000, 5'005'000, 3, 155'364'635},
        SRow{"standard = '1080p59.94'", 27'000'000, 450'450, 1, 155'364'635},
        SRow{"standard = '1080p23.98'", 100'000'000, 12'512'500, 3, 62'145'854},
        SRow{"standard = '1080i50'", 90'000, 1800, 1, 129'600'000},
        SRow{"standard = '480i59.94'", 100'000'000, 5'005'000, 3, 155'364'635},
        SRow{"standard = '1080p60'\nppm = 4.2", 100'000'000, 50'000'000'000'000, 30'000'126, 155'520'653},
        SRow{"standard = '1080p60'\nppm = -1000", 4'000'000'000, 200'000'000'000, 2'997, 155'364'480},
    };
    for (const SRow& roRow : aoRows)
    {
        SCOPED_TRACE(roRow.szKeys);
        const CStreamModel oModel =
            MakeModel(roRow.szKeys, "", "tick_start = 7\ntick_frequency_hz = " + std::to_string(roRow.uiFreqHz));
        uint64_t uiBad = 0;
        const auto fnCheck = [&](uint64_t uiField)
        {
            const UInt128 uiScaled = UInt128{uiField} * roRow.uiNumerator;
            const auto uiTicks =
                static_cast<uint64_t>((2 * uiScaled + roRow.uiDenominator) / (2 * UInt128{roRow.uiDenominator}));
            uiBad += oModel.GetStamp(uiField) == 7 + uiTicks ? 0U : 1U;
        };
        for (uint64_t uiStep = 0; uiStep < 20'000; ++uiStep)
        {
            fnCheck(uiStep);
            fnCheck(roRow.uiFieldsOf30Days - uiStep);
            fnCheck(uiStep * 7'699 % roRow.uiFieldsOf30Days);
        }
        EXPECT_EQ(uiBad, 0U);
    }
}

TEST(StreamModel, JitterIsGaussianAndAFunctionOfSeedAndField)
{
    const std::string szKeys = "standard = '1080p60'\njitter_ticks = 50";
    const CStreamModel oModel = MakeModel(szKeys, "seed = 5");
    const CStreamModel oSame = MakeModel(szKeys, "seed = 5");
    const CStreamModel oOther = MakeModel(szKeys, "seed = 6");
    constexpr int iFields = 100'000;
    double flSum = 0.0;
    double flSquares = 0.0;
    int iEqual = 0;
    int iWithinSigma = 0;
    for (uint64_t uiField = iFields; uiField-- > 0;) // backwards: no field needs those before it
    {
        const uint64_t uiStamp = oModel.GetStamp(uiField);
        ASSERT_EQ(uiStamp, oSame.GetStamp(uiField));
        iEqual += uiStamp == oOther.GetStamp(uiField) ? 1 : 0;
        const double flError = static_cast<double>(uiStamp) - FixedTicks_ToDouble(oModel.GetExactTicks(uiField));
        flSum += flError;
        flSquares += flError * flError;
        iWithinSigma += std::abs(flError) < 50.0 ? 1 : 0;
    }
    EXPECT_NEAR(flSum / iFields, 0.0, 0.6);
    EXPECT_NEAR(std::sqrt(flSquares / iFields), 50.0, 0.5);
    EXPECT_NEAR(iWithinSigma / static_cast<double>(iFields), 0.6827, 0.006);
    EXPECT_LT(iEqual, iFields / 100);
}

// A reference does not care in which format a stream follows it, nor that a board starts a field twice.
TEST(StreamModel, StreamsOfALockGroupWanderTogetherWhateverTheirFormat)
{
    const std::string szLocked = "[[chip.input]]\nlock_group = 'house'\nstandard = ";
    const std::string szEvent = "event = [{ at_field = 60, kind = ";
    const std::string szOwn = "ppm = 3.0, wander_ticks = 500, wander_period_s = 20 }]\n";
    const SScenario oScenario =
        Read("[[chip]]\nlock_group = [{ name = 'house', " + szOwn + szLocked + "'1080p60'\n" + szLocked +
             "'1080i50'\n" + szLocked + "'1080p60'\n" + szEvent + "'format_change', standard = '1080p50' }]\n" +
             szLocked + "'1080p60'\n" + szEvent + "'doubled_field', every_fields = 61 }]\n" +
             "[[chip.input]]\nstandard = '1080p60'\nppm = 3.0\nwander_ticks = 500\nwander_period_s = 20");
    std::vector<CStreamModel> aoModels;
    for (const SStream& roInput : oScenario.aoChips[0].aoInputs)
    {
        aoModels.emplace_back(roInput);
    }
    double flLargest = 0.0;
    double flApart = 0.0;
    for (uint64_t uiSecond = 2; uiSecond < 1000; ++uiSecond) // all start a field at every tenth of a second
    {
        const auto fnOffIdeal = [&](size_t uiModel, uint64_t uiField)
        {
            return FixedTicks_ToDouble(aoModels[uiModel].GetExactTicks(uiField)) - 1e8 -
                   static_cast<double>(uiSecond) * 1e8 / 1.000003;
        };
        const double flPlain = fnOffIdeal(0, uiSecond * 60);
        ASSERT_NEAR(flPlain, fnOffIdeal(1, uiSecond * 50), 1e-3) << uiSecond;
        ASSERT_NEAR(flPlain, fnOffIdeal(2, 60 + (uiSecond - 1) * 50), 1e-3) << uiSecond;
        ASSERT_NEAR(flPlain, fnOffIdeal(3, uiSecond * 61), 1e-3) << uiSecond;
        flLargest = std::max(flLargest, std::abs(flPlain));
        flApart = std::max(flApart, std::abs(flPlain - fnOffIdeal(4, uiSecond * 60)));
    }
    EXPECT_NEAR(flLargest, 500.0, 5.0);
    EXPECT_GT(flApart, 50.0);
}

// Without lock a stream is as fast as one of its own with that rate, for 30 days.
TEST(StreamModel, DriftIsExactOver30Days)
{
    for (const std::string szPpm : {"50000", "-49999.9", "3.7"})
    {
        const CStreamModel oDrifting =
            MakeModel("standard = '1080p59.94'\nevent = [{ kind = 'lock_lost', at_field = 0, ppm = " + szPpm + " }]");
        const CStreamModel oOwn = MakeModel("standard = '1080p59.94'\nppm = " + szPpm);
        for (const uint64_t uiField : {1U, 60U, 100'003U, 155'364'635U})
        {
            const FixedTicks iApart = oDrifting.GetExactTicks(uiField) - oOwn.GetExactTicks(uiField);
            EXPECT_LT(std::abs(FixedTicks_ToDouble(iApart)), 1e-9) << szPpm << ", field " << uiField;
        }
    }
}

// Each application sets so many buffers in successive fields.
TEST(StreamModel, ApplicationsKeepTheirCadenceUntilItChanges)
{
    const std::string szEvent = "event = [{ kind = ";
    for (const auto& [szKeys, szSet] : std::vector<std::pair<std::string, std::string>>{
             {"standard = '1080p60'\nset_buffer_rate = 24", "101001010010"},
             {"standard = '1080p50'\nset_buffer_rate = 25", "101010101010"},
             {"standard = '1080p60'\nset_buffer_rate = 30", "101010101010"},
             {"standard = '1080p50'\nset_buffer_rate = 120", "323223232232"},
             {"standard = '1080p60'\nset_buffer_pattern = [1, 0, 0, 1, 0]\n" + szEvent +
                  "'buffers_run_out', at_field = 3, for_fields = 4 }]",
              "100000010100"},
             {"standard = '1080p60'\n" + szEvent + "'cadence_change', at_field = 2, set_buffer_rate = 24 }," +
                  "{ kind = 'cadence_change', at_field = 9, for_fields = 2, set_buffer_pattern = [0] }," +
                  "{ kind = 'buffers_run_out', at_field = 4, for_fields = 1 }]",
              "111001001001"},
             {"standard = '1080p60'\nset_buffer_pattern = [1, 0, 0]\n" + szEvent +
                  "'cadence_change', at_field = 2, for_fields = 3, set_buffer_pattern = [3] }]",
              "103330100100"}})
    {
        const SScenario oScenario = Read("[[chip]]\n[[chip.output]]\n" + szKeys);
        const CStreamModel oModel(oScenario.aoChips[0].aoOutputs[0]);
        std::string szFound;
        uint64_t uiBefore = 0;
        for (uint64_t uiField = 0; uiField < szSet.size(); ++uiField)
        {
            szFound += std::to_string(oModel.GetSetBufferCount(uiField) - uiBefore);
            uiBefore = oModel.GetSetBufferCount(uiField);
        }
        EXPECT_EQ(szFound, szSet) << szKeys;
    }
}

// A day at 15 buffers a second: as many as the rate says, one at a time or two, and gaps of every length up to eight.
TEST(StreamModel, AnIrregularApplicationKeepsItsRateAndNoCadence)
{
    const SScenario oScenario = Read("[[chip]]\noutput = [{ standard = '1080p60', set_buffer_rate = 15,"
                                     "set_buffer_irregular = 1 }]");
    const CStreamModel oModel(oScenario.aoChips[0].aoOutputs[0]);
    std::array<int, 10> aiGaps{};
    uint64_t uiLast = 0;
    for (uint64_t uiField = 1; uiField < 20'000; ++uiField)
    {
        const uint64_t uiSet = oModel.GetSetBufferCount(uiField) - oModel.GetSetBufferCount(uiField - 1);
        ASSERT_LE(uiSet, 2U);
        if (uiSet > 0)
        {
            ++aiGaps.at(uiField - uiLast);
            uiLast = uiField;
        }
    }
    EXPECT_EQ(aiGaps[0] + aiGaps[8] + aiGaps[9], 0);
    for (size_t uiGap = 1; uiGap < 8; ++uiGap)
    {
        EXPECT_GT(aiGaps[uiGap], 100) << uiGap;
    }
    const uint64_t uiDay = uint64_t{24} * 3600;
    EXPECT_NEAR(static_cast<double>(oModel.GetSetBufferCount(uiDay * 60)), static_cast<double>(uiDay * 15), 1.0);
}

// The queue against one that is filled and emptied field by field.
TEST(StreamModel, ASlowConsumerFillsTheQueueThenFieldsAreSkipped)
{
    const std::string szWhen = "', at_field = 5, for_fields = 40, every_fields = 50, times = 2";
    for (const uint32_t uiTakenPercent : {0U, 50U, 90U})
    {
        const CStreamModel oModel =
            MakeModel("standard = '1080p60'\nbuffers = 7\nready = 1\nready_spread = 1\nloan = 2\nloan_spread = 1\n"
                      "event = [{ kind = 'slow_consumer" +
                      szWhen + ", takes = 0." + std::to_string(uiTakenPercent) + " }]");
        uint64_t uiSkipped = 0;
        uint32_t uiWaiting = 0;
        for (uint64_t uiField = 0; uiField < 120; ++uiField)
        {
            const uint64_t uiSince = (uiField - 5) % 50;
            const bool bSlow = uiField >= 5 && uiField < 105 && uiSince < 40;
            uiWaiting = uiSince == 0 ? 0 : uiWaiting;
            const bool bTakes = bSlow && (uiSince + 1) * uiTakenPercent / 100 > uiSince * uiTakenPercent / 100;
            const bool bFits = bTakes || uiWaiting < 3; // 7 less 1 ready and 3 on loan
            uiWaiting += bSlow && !bTakes && bFits ? 1 : 0;
            uiSkipped += bSlow && !bFits ? 1 : 0;
            const SCaptureState oState = oModel.GetCaptureState(uiField);
            EXPECT_EQ(oModel.GetSkipCount(uiField), uiSkipped) << uiField;
            EXPECT_EQ(oModel.GetFilledCount(uiField), uiField + 1 - uiSkipped) << uiField;
            EXPECT_EQ(oState.uiReady + oState.uiLoan + oState.uiInternal, 7U) << uiField;
            EXPECT_TRUE(!bSlow || (oState.uiReady == 1 + uiWaiting && oState.uiLoan == 3)) << uiField;
            EXPECT_TRUE(bSlow || oState.uiReady <= 2) << uiField;
        }
        EXPECT_GT(uiSkipped, 1U);
    }
}

// Said of another stream from field 2 to 4: every member, and not a tick of the fields.
TEST(StreamModel, ADescriptionChangesMemberByMember)
{
    const std::string szShared = "h_front_porch = 7, h_sync = 8, h_back_porch = 9, v_front_porch = 3, v_sync = 2, "
                                 "v_back_porch = 5, h_active = 960, v_active = 540, interlaced = true, "
                                 "bottom_field_first = true, h_sync_positive = false, v_sync_positive = false";
    const std::string szColours = "yuv = false, color_space = 9, chroma_subsampling = 2, color_depth = 1, level_b = "
                                  "true, pixel_format = 'RGB565', width = 32, height = 16, capture_state = 'STOPPED'";
    const auto fnRead = [](const std::string& rszInput)
    { return CStreamModel(Read("[[chip]]\ninput = [{ " + rszInput + " }]").aoChips[0].aoInputs[0]); };
    const SStreamDescription oWanted =
        fnRead("timing = { pixel_clock_hz = 27_000_000, " + szShared + " }, " + szColours).GetDescription(0);
    const VtVideo_VidParam& roWanted = oWanted.oVidParam;
    const std::string szRates = ", v_rate_hz = " + std::to_string(roWanted.uiVRate_Hz) +
                                ", h_rate_khz = " + std::to_string(roWanted.uiHRate_kHz) + ", pixel_clock_khz = 27000";
    const CStreamModel oModel = fnRead("standard = '1080p60', event = [{ kind = 'description_change', at_field = 2, "
                                       "for_fields = 2, " +
                                       szShared + ", " + szColours + szRates + " }]");
    const CStreamModel oPlain = fnRead("standard = '1080p60'");
    for (uint64_t uiField = 0; uiField < 6; ++uiField)
    {
        const bool bChanged = uiField == 2 || uiField == 3;
        const SStreamDescription oSaid = oModel.GetDescription(uiField);
        const SStreamDescription oExpected = bChanged ? oWanted : oPlain.GetDescription(0);
        EXPECT_EQ(std::memcmp(&oSaid.oVidParam, &oExpected.oVidParam, sizeof(VtVideo_VidParam)), 0) << uiField;
        EXPECT_EQ(oSaid.ePixelFormat, oExpected.ePixelFormat);
        EXPECT_EQ(oSaid.uiWidth, oExpected.uiWidth);
        EXPECT_EQ(oSaid.uiHeight, oExpected.uiHeight);
        EXPECT_EQ(oSaid.eCaptureState, oExpected.eCaptureState);
        EXPECT_EQ(oModel.GetStamp(uiField), oPlain.GetStamp(uiField));
        EXPECT_FALSE(oModel.GetField(uiField).bIsTopField);
    }
}

// Everything that pulls stamps backwards at once, each at its limit.
TEST(StreamModel, StampsNeverGoBack)
{
    const CStreamModel oModel = MakeModel(R"(
standard = "1080p60"
jitter_ticks = 13020
wander_ticks = 15900
wander_period_s = 1
event = [
    { kind = "doubled_field", at_field = 100, every_fields = 2 },
    { kind = "phase_step", at_field = 100, every_fields = 4, step_ticks = -104166 },
    { kind = "lock_lost", at_field = 90, for_fields = 10, every_fields = 20, ppm = -6200 },
    { kind = "counter_jump", at_field = 50, every_fields = 7, jump = 5 },
]
)",
                                          "seed = 99", "tick_start = 100_000_000_000");
    uint64_t uiBack = 0;
    for (uint64_t uiField = 1; uiField < 300'000; ++uiField)
    {
        uiBack += oModel.GetStamp(uiField) <= oModel.GetStamp(uiField - 1) ? 1U : 0U;
    }
    EXPECT_EQ(uiBack, 0U);
    for (const uint64_t uiFrom : {0U, 77U, 5000U})
    {
        for (const uint64_t uiField : {77U, 78U, 99U, 5000U, 5001U, 123'456U})
        {
            const uint64_t uiStamp = oModel.GetStamp(uiField);
            EXPECT_EQ(oModel.FindFirstAfter(uiStamp, uiFrom), std::max(uiFrom, uiField + 1));
            EXPECT_EQ(oModel.FindFirstAfter(uiStamp - 1, uiFrom), std::max(uiFrom, uiField));
        }
    }
}
