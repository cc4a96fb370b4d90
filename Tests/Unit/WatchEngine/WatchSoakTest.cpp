// Long runs: nothing invented, nothing grown, nothing worn out. VT_WATCH_SOAK_DAYS makes it as long as one likes.
#include "WatchBench.h"

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
                       "lock_group = [{ name = 'house', ppm = 11, wander_ticks = 500, wander_period_s = 3600 }]\n"
                       "[[chip.input]]\nstandard = '1080p60'\nlock_group = 'house'\njitter_ticks = 100\n"
                       "field_counter_start = '0xFFFFFFFFFFF00000'\n"
                       "[[chip.input]]\nstandard = '1080p59.94'\nppm = -50\njitter_ticks = 3\n"
                       "[[chip.output]]\nstandard = '1080p60'\nset_buffer_pattern = [1, 0]\n",
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

} // namespace
