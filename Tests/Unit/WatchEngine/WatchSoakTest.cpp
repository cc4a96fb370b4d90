// Long runs: nothing invented, nothing grown, nothing worn out. VT_WATCH_SOAK_DAYS makes it as long as one likes.
#include "WatchBench.h"

#include <array>
#include <cmath>
#include <cstdlib>
#include <malloc.h>

namespace
{

TEST(WatchSoak, HealthyStreamsStayHealthyAndNothingGrows)
{
    const char* szDays = std::getenv("VT_WATCH_SOAK_DAYS");
    const double flDays = szDays != nullptr ? std::atof(szDays) : 0.05;
    // Ticks and counters of a board that has run for long.
    SBenchSetup oSetup;
    oSetup.uiStartTick = 1'000'000'000'000'000;
    CWatchBench oBench("tick_start = 1_000_000_000_000_000\n"
                       "lock_group = [{ name = 'house', ppm = 11, wander_ticks = 500, wander_period_s = 3600 }]\n" +
                           In("lock_group = 'house'\njitter_ticks = 100\nfield_counter_start = '0xFFFFFFFFFFF00000'") +
                           In("ppm = -50\njitter_ticks = 3", "1080p59.94") + Out("set_buffer_pattern = [1, 0]"),
                       oSetup);
    oBench.Run(60);
    const struct mallinfo2 oBefore = mallinfo2();
    const auto uiSeconds = static_cast<uint32_t>(flDays * 86400.0);
    oBench.Run(uiSeconds);
    for (uint32_t uiInput = 0; uiInput < 2; ++uiInput)
    {
        const SStreamFigures& roFigures = oBench.GetInput(uiInput);
        const SStreamCounters& roCounters = roFigures.oCounters;
        EXPECT_EQ(roCounters.uiFieldsLost + roCounters.uiFieldsUnobserved, 0U);
        EXPECT_EQ(roCounters.uiFieldsEarly + roCounters.uiFieldsLate + roCounters.uiPhaseSteps, 0U);
        EXPECT_EQ(roCounters.uiCounterBackward + roCounters.uiFieldsRepeated + roCounters.uiSignalLosses, 0U);
        EXPECT_NEAR(static_cast<double>(roCounters.uiFields), (uiSeconds + 60.0) * roFigures.aoRateHz[3].flValue, 4.0);
        EXPECT_NEAR(roFigures.aoRatePpm[3].flValue, uiInput == 0 ? 11.0 : -50.0, uiInput == 0 ? 0.01 : 1e-4);
    }
    // The events that the bench keeps are all that there is more of.
    const size_t uiKept = oBench.aoEvents.capacity() * sizeof(SWatchEvent);
    EXPECT_LT(mallinfo2().uordblks, oBefore.uordblks + uiKept + 65536);
    EXPECT_LT(oBench.aoEvents.size(), 40U + static_cast<size_t>(flDays * 24.0));
}

// Whatever a broken board or driver says: the books balance, and no figure that is called valid is no number.
TEST(WatchSoak, NothingThatABoardSaysBreaksTheEngine)
{
    std::mt19937_64 oRandom(3);
    CWatchEngine oEngine({.uiTickFrequencyHz = 1'000'000}, 3, 3);
    const auto Draw = [&](uint64_t uiBelow) { return oRandom() % uiBelow; };
    const auto Extreme = [&](uint64_t uiSane) {
        return Draw(40) != 0 ? uiSane : std::array<uint64_t, 4>{0, ~0ULL, 1ULL << 63U, oRandom()}[Draw(4)];
    };
    SWatchSnapshot oSnapshot;
    uint64_t uiEvents = 0;
    for (uint64_t uiStep = 1; uiStep < 60'000; ++uiStep)
    {
        const auto eDirection = static_cast<EStreamDirection>(Draw(2));
        SFieldRecord oRecord = {};
        oRecord.uiArrivalNs = Extreme(10'000'000'000 + uiStep * 3'000'000);
        oRecord.uiWaitBeginNs = Extreme(oRecord.uiArrivalNs - Draw(20'000'000));
        oRecord.uiTick = Extreme(uiStep * 3'000 + Draw(3));
        oRecord.uiFieldCounter = Extreme(uiStep * 16);
        oRecord.uiSetBufferCounter = Extreme(uiStep);
        oRecord.uiRunDelayNs = Extreme(0);
        oRecord.eResult = Draw(30) != 0 ? EWaitResult::FIELD : static_cast<EWaitResult>(Draw(4));
        oEngine.TakeRecord({eDirection, static_cast<uint32_t>(Draw(3))}, oRecord);
        if (Draw(20) == 0)
        {
            SStreamDescription oDescription = {};
            oDescription.uiMomentNs = oRecord.uiArrivalNs;
            oDescription.oTimings.uiHActive = static_cast<uint32_t>(Extreme(1920));
            oDescription.oTimings.uiVActive = static_cast<uint32_t>(Extreme(1080));
            oDescription.oTimings.uiVBPorch = static_cast<uint32_t>(Extreme(45));
            oDescription.oTimings.uiPixelClock_kHz = static_cast<uint32_t>(Extreme(74'250));
            oDescription.uiSkippedBuffers = Extreme(uiStep);
            oDescription.bHasSkippedBuffers = true;
            oEngine.TakeDescription({eDirection, static_cast<uint32_t>(Draw(3))}, oDescription);
        }
        if (Draw(100) != 0)
        {
            continue;
        }
        oEngine.Analyse({.uiMonotonicNs = Extreme(10'000'000'000 + uiStep * 3'000'000)}, oSnapshot);
        for (const SWatchEvent& roEvent : oEngine.TakeEvents())
        {
            ASSERT_EQ(roEvent.uiNumber, ++uiEvents);
        }
        for (const SDirectionFigures& roDirection : oSnapshot.aoDirections)
        {
            for (const SStreamFigures& roFigures : roDirection.aoStreams)
            {
                const SStreamCounters& roCounters = roFigures.oCounters;
                ASSERT_EQ(roCounters.uiFields,
                          roCounters.uiFieldsObserved + roCounters.uiFieldsLost + roCounters.uiFieldsUnobserved);
                ASSERT_LE(roCounters.uiFieldsObserved, uiStep);
                for (const SEstimate& roEstimate :
                     {roFigures.aoRateHz[0], roFigures.aoRateHz[1], roFigures.aoRatePpm[1], roFigures.oGridSeconds,
                      roFigures.oPhaseSeconds, roFigures.oDriftRatio, roFigures.oTaiPhaseSeconds})
                {
                    ASSERT_TRUE(!roEstimate.bIsValid ||
                                (std::isfinite(roEstimate.flValue) && std::isfinite(roEstimate.flStdErr)));
                }
            }
        }
    }
}

} // namespace
