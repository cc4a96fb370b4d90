// Rates, jitter, phases, drifts and their errors against the truth of the board.
#include "WatchBench.h"

#include <cmath>

namespace
{

constexpr uint32_t gc_uiInputs = 32;

// Inputs of one kind, all with other draws.
std::string MakeInputs(const std::string& rszKeys, uint32_t uiCount = gc_uiInputs)
{
    std::string szText;
    for (uint32_t uiInput = 0; uiInput < uiCount; ++uiInput)
    {
        szText += In(rszKeys);
    }
    return szText;
}

std::string MakeTiming(uint32_t uiHTotal, uint32_t uiVTotal, uint64_t uiClockHz)
{
    return "timing = { h_active = " + std::to_string(uiHTotal - 80) +
           ", h_back_porch = 80, v_active = " + std::to_string(uiVTotal - 20) +
           ", v_back_porch = 20, pixel_clock_hz = " + std::to_string(uiClockHz) + " }\n";
}

double GetPpmError(const SStreamFigures& roFigures, ERateWindow eWindow, double flTruePpm)
{
    const SEstimate& roPpm = roFigures.aoRatePpm[static_cast<size_t>(eWindow)];
    EXPECT_TRUE(roPpm.bIsValid);
    return roPpm.flValue - flTruePpm;
}

// Seconds from the instant to the nearest field start without jitter.
double GetTrueGrid(const CWatchBench& roBench, uint32_t uiInput)
{
    const uint64_t uiInstant = roBench.oSnapshot.oClock.uiTick;
    const double flFreq = roBench.oSnapshot.uiTickFrequencyHz;
    uint64_t uiLow = 0;
    uint64_t uiHigh = 1ULL << 34U;
    while (uiHigh - uiLow > 1)
    {
        const uint64_t uiMiddle = (uiLow + uiHigh) / 2;
        (CWatchBench::GetTruth(EStreamDirection::INPUT, uiInput, uiMiddle).uiExactTicks <= uiInstant ? uiLow : uiHigh) =
            uiMiddle;
    }
    const auto After = [&](uint64_t uiField)
    {
        const VtSim_Field oField = CWatchBench::GetTruth(EStreamDirection::INPUT, uiInput, uiField);
        return (static_cast<double>(static_cast<int64_t>(oField.uiExactTicks - uiInstant)) +
                std::ldexp(static_cast<double>(oField.uiExactFraction), -64)) /
               flFreq;
    };
    return std::abs(After(uiLow)) < std::abs(After(uiHigh)) ? After(uiLow) : After(uiHigh);
}

TEST(WatchRate, ErrorsHoldWhatTheyPromiseOverSeeds)
{
    uint32_t uiStreams = 0;
    uint32_t uiOutside = 0;
    double flGridErrors = 0.0;
    for (uint64_t uiSeed = 1; uiSeed <= 8; ++uiSeed)
    {
        SBenchSetup oSetup;
        oSetup.uiSeed = uiSeed;
        CWatchBench oBench(MakeInputs("ppm = 7.25\njitter_ticks = 100"), oSetup);
        oBench.Run(110);
        for (uint32_t uiInput = 0; uiInput < gc_uiInputs; ++uiInput)
        {
            const SStreamFigures& roFigures = oBench.GetInput(uiInput);
            for (const ERateWindow eWindow :
                 {ERateWindow::SECONDS_1, ERateWindow::SECONDS_10, ERateWindow::SECONDS_100})
            {
                const double flError = std::abs(GetPpmError(roFigures, eWindow, 7.25));
                const double flStdErr = roFigures.aoRatePpm[static_cast<size_t>(eWindow)].flStdErr;
                ++uiStreams;
                uiOutside += flError > 3.0 * flStdErr ? 1U : 0U;
            }
            EXPECT_LT(std::abs(GetPpmError(roFigures, ERateWindow::SECONDS_100, 7.25)), 0.01);
            EXPECT_LT(roFigures.aoRatePpm[2].flStdErr, 0.01) << "an error that says nothing";
            EXPECT_NEAR(roFigures.flJitterRmsSeconds, 1e-6, 0.12e-6);
            EXPECT_GT(roFigures.flJitterPeakSeconds, 4e-6);
            EXPECT_LE(roFigures.flJitterPeakSeconds, 8.3e-6) << "the board cuts at four sigma";
            // White noise of the fields: the deviation of means over n is sigma / sqrt(n).
            EXPECT_NEAR(roFigures.aoTdevSeconds[0].flValue, 1e-6 / std::sqrt(60.0), 0.05e-6);
            EXPECT_NEAR(roFigures.oGridSeconds.flValue, GetTrueGrid(oBench, uiInput),
                        4.0 * roFigures.oGridSeconds.flStdErr);
            flGridErrors += roFigures.oGridSeconds.flStdErr;
        }
    }
    EXPECT_LE(uiOutside, uiStreams / 100) << "of " << uiStreams;
    EXPECT_LT(flGridErrors / (8 * gc_uiInputs), 0.2e-6) << "1.3 times what fields in order leave";
}

TEST(WatchRate, EveryRateIsRightFromACameraToAFastDisplay)
{
    struct SRow
    {
        std::string szKeys;
        double flHz;
    };
    const std::vector<SRow> aoRows = {
        {"standard = '1080p23.98'", 24000.0 / 1001.0},
        {"standard = '1080i59.94'", 60000.0 / 1001.0},
        {"standard = '1080i50'", 50.0},
        {"standard = '1024x768@60'", 65e6 / (1344.0 * 806.0)},
        {MakeTiming(2080, 1313, 655'449'600), 240.0},
        {MakeTiming(2080, 1429, 1'070'035'200), 360.0},
        {MakeTiming(2080, 1429, 2'972'320'000), 1000.0},
        {MakeTiming(1000, 500, 250'000), 0.5},
    };
    std::string szChip;
    for (const SRow& roRow : aoRows)
    {
        szChip += "[[chip.input]]\n" + roRow.szKeys + "\nppm = -12\njitter_ticks = 20\nphase_us = 700\n";
    }
    CWatchBench oBench(szChip);
    oBench.Run(112);
    for (uint32_t uiInput = 0; uiInput < aoRows.size(); ++uiInput)
    {
        const SStreamFigures& roFigures = oBench.GetInput(uiInput);
        const SEstimate& roRate = roFigures.aoRateHz[2];
        const double flTrue = aoRows[uiInput].flHz * (1.0 - 12e-6);
        EXPECT_NEAR(roFigures.flNominalRateHz, aoRows[uiInput].flHz, 1e-9 * aoRows[uiInput].flHz);
        EXPECT_TRUE(roRate.bIsValid);
        EXPECT_NEAR(roRate.flValue, flTrue, 4.0 * roRate.flStdErr) << aoRows[uiInput].szKeys;
        EXPECT_NEAR(GetPpmError(roFigures, ERateWindow::SECONDS_100, -12.0), 0.0, 0.02);
        EXPECT_EQ(roFigures.oCounters.uiFieldsLost + roFigures.oCounters.uiFieldsUnobserved, 0U);
        EXPECT_NEAR(static_cast<double>(roFigures.oCounters.uiFields), 112.0 * flTrue, 0.06 * flTrue + 1.0);
    }
}

TEST(WatchRate, UnknownTaiOffsetLeavesOnlyWholeRatesAPhase)
{
    SBenchSetup oSetup;
    oSetup.iTaiOffsetSeconds = 0;
    CWatchBench oBench(In() + In("", "1080p59.94"), oSetup);
    oBench.Run(12);
    EXPECT_TRUE(oBench.GetInput(0).oTaiPhaseSeconds.bIsValid);
    EXPECT_FALSE(oBench.GetInput(1).oTaiPhaseSeconds.bIsValid);
}

TEST(WatchRate, ASecondThatHasJustBegunIsNoWholeOneAndNoIntervalIsLeftOut)
{
    SBenchSetup oSetup;
    oSetup.uiStartTick = 180'000'000;
    CWatchBench oBench("tick_start = 180000000\n" + MakeInputs("jitter_ticks = 1000\nphase_us = 900", 8), oSetup);
    oBench.Run(30);
    for (uint32_t uiInput = 0; uiInput < 8; ++uiInput)
    {
        const SEstimate& roTdev = oBench.GetInput(uiInput).aoTdevSeconds[0];
        EXPECT_NEAR(roTdev.flValue, 10e-6 / std::sqrt(60.0), 3.0 * roTdev.flStdErr);
        uint32_t uiIntervals = 0;
        for (const uint32_t uiCount : oBench.GetInput(uiInput).oIntervals.auiCounts)
        {
            uiIntervals += uiCount;
        }
        EXPECT_EQ(uiIntervals, 599U);
    }
}

TEST(WatchRate, TheMomentHoldsThreeErrorsUnderWander)
{
    uint32_t uiMoments = 0;
    uint32_t uiOutside = 0;
    uint32_t uiPairsOutside = 0;
    for (const double flPeriod : {2.0, 7.0, 13.0, 29.0, 61.0})
    {
        std::string szChip;
        for (uint32_t uiInput = 0; uiInput < 4; ++uiInput)
        {
            szChip +=
                In("phase_us = 3000\nwander_ticks = 300\njitter_ticks = " + std::to_string(uiInput < 2 ? 20 : 200) +
                   "\nwander_period_s = " + std::to_string(flPeriod * (1.0 + 0.1 * uiInput)));
        }
        CWatchBench oBench(szChip);
        oBench.Run(20);
        oBench.Run(100,
                   [&]
                   {
                       double flBefore = 0.0;
                       for (uint32_t uiInput = 0; uiInput < 4; ++uiInput)
                       {
                           const SEstimate& roGrid = oBench.GetInput(uiInput).oGridSeconds;
                           const double flTrue = GetTrueGrid(oBench, uiInput);
                           uiOutside += std::abs(roGrid.flValue - flTrue) > 3.0 * roGrid.flStdErr ? 1U : 0U;
                           EXPECT_LT(roGrid.flStdErr, 7e-6) << "an error that says nothing";
                           ++uiMoments;
                           if (uiInput > 0)
                           {
                               const SEstimate& roOffset = oBench.GetPair(uiInput - 1, uiInput).oOffsetSeconds;
                               const double flError = roOffset.flValue - (flTrue - flBefore);
                               uiPairsOutside += std::abs(flError) > 3.0 * roOffset.flStdErr ? 1U : 0U;
                           }
                           flBefore = flTrue;
                       }
                   });
    }
    EXPECT_LE(uiOutside, uiMoments / 333) << "of " << uiMoments;
    EXPECT_LE(uiPairsOutside, uiMoments / 333) << "of three quarters of as many";
}

TEST(WatchRate, OnePpbIsToldFromNoneWithinThousandSeconds)
{
    const std::string szJitter = "jitter_ticks = 100\n", szLocked = szJitter + "lock_group = 'house'\n";
    CWatchBench oBench("lock_group = [{ name = 'house', ppm = 5, wander_ticks = 300, wander_period_s = 23 }]\n" +
                       In(szLocked) + In(szLocked + "phase_us = 1") + In(szJitter + "ppm = 7") +
                       In(szJitter + "ppm = 7.001"));
    oBench.Run(1000);
    const SEstimate& roDrift = oBench.GetPair(2, 3).oDriftRatio;
    EXPECT_GT(std::abs(roDrift.flValue), 3.0 * roDrift.flStdErr);
    EXPECT_NEAR(roDrift.flValue, -1e-9, 3.0 * roDrift.flStdErr);
    const SEstimate& roNone = oBench.GetPair(0, 1).oDriftRatio;
    EXPECT_LT(std::abs(roNone.flValue), 3.0 * roNone.flStdErr);
    EXPECT_LT(roNone.flStdErr, 0.2e-9);
}

} // namespace
