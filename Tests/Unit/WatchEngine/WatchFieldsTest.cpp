// What becomes of every field: planted faults are found, late watchers are never the signal's fault, and what happens
// to the signal is told with its moment.
#include "WatchBench.h"

#include <cmath>

namespace
{

constexpr EStreamDirection gc_eIn = EStreamDirection::INPUT;
constexpr EStreamDirection gc_eOut = EStreamDirection::OUTPUT;

std::string MakeInput(const std::string& rszKeys)
{
    return "[[chip.input]]\nstandard = '1080p60'\njitter_ticks = 30\n" + rszKeys + "\n";
}

void ExpectHealthy(const CWatchBench& roBench, uint32_t uiInput)
{
    const SStreamCounters& roCounters = roBench.GetInput(uiInput).oCounters;
    EXPECT_EQ(roCounters.uiFieldsLost, 0U) << "invented";
    EXPECT_EQ(roCounters.uiFieldsEarly + roCounters.uiFieldsLate + roCounters.uiPhaseSteps, 0U);
    EXPECT_EQ(roCounters.uiFieldsRepeated + roCounters.uiCounterBackward + roCounters.uiSignalLosses, 0U);
    EXPECT_EQ(roBench.GetInput(uiInput).eState, EStreamState::RUNNING);
}

TEST(WatchFields, PlantedLossesAreAllFoundAndNoneIsInventedOverSeeds)
{
    for (uint64_t uiSeed = 1; uiSeed <= 10; ++uiSeed)
    {
        SBenchSetup oSetup;
        oSetup.uiSeed = uiSeed;
        // Singly, three in a row, and across a counter that wraps; longer than a time-out.
        CWatchBench oBench(MakeInput("event = [{ kind = 'missed_field', at_field = 400, every_fields = 97 }]") +
                               MakeInput("field_counter_start = '0xFFFFFFFFFFFFE000'\n"
                                         "event = [{ kind = 'missed_field', at_field = 511, for_fields = 3 }]") +
                               MakeInput("event = [{ kind = 'missed_field', at_field = 600, for_fields = 12 }]") +
                               MakeInput(""),
                           oSetup);
        oBench.Run(30);
        EXPECT_EQ(oBench.GetInput(0).oCounters.uiFieldsLost, (30U * 60 - 3 - 400) / 97 + 1);
        EXPECT_EQ(oBench.GetInput(1).oCounters.uiFieldsLost, 3U);
        EXPECT_EQ(oBench.GetInput(2).oCounters.uiFieldsLost, 12U);
        EXPECT_GT(oBench.GetInput(2).oCounters.uiWaitTimeOuts, 1U);
        ExpectHealthy(oBench, 3);
        for (uint32_t uiInput = 0; uiInput < 4; ++uiInput)
        {
            EXPECT_LT(oBench.GetInput(uiInput).oWakes.flSumSeconds, 1800 * 100e-6) << "the first wake ties the clocks";
            EXPECT_EQ(oBench.GetInput(uiInput).oCounters.uiFieldsUnobserved, 0U);
            EXPECT_EQ(oBench.GetInput(uiInput).oCounters.uiSignalLosses, 0U);
            EXPECT_EQ(oBench.GetInput(uiInput).oCounters.uiFields, 1800U) << "input " << uiInput;
        }
        const SWatchEvent* poLost = oBench.Find(EWatchEventKind::FIELDS_LOST, 1);
        ASSERT_NE(poLost, nullptr);
        EXPECT_EQ(poLost->uiCount, 3U);
        EXPECT_NEAR(static_cast<double>(poLost->iUtcNs -
                                        oBench.ToUtcNs(CWatchBench::GetTruth(gc_eIn, 1, 511).uiTickRefCounter)),
                    0.0, 200e3);
    }
}

TEST(WatchFields, ALateWatcherIsNeverTheSignalsFault)
{
    // However long and whenever the thread is away, between its waits or inside one, known to the kernel or not; and
    // another thread of the same machine that stood still is a witness.
    std::mt19937 oRandom(7);
    CWatchBench oBench(MakeInput("") + MakeInput("") +
                       MakeInput("event = [{ kind = 'missed_field', at_field = 250, every_fields = 50 }]"));
    oBench.Run(3);
    uint32_t uiStarved = 0;
    for (uint32_t uiRound = 0; uiRound < 200; ++uiRound)
    {
        const double flSeconds = std::uniform_real_distribution(0.001, 0.4)(oRandom);
        oBench.Delay(gc_eIn, 0, flSeconds);
        // What the kernel knows is all of it; what it does not know shows in how late the wait returns.
        const double flPast = std::fmod(flSeconds, 1.0 / 60.0);
        const bool bKnown = flPast < 0.006 || uiRound % 2 == 0;
        oBench.Starve(gc_eIn, 1, flSeconds, bKnown ? static_cast<uint64_t>(flSeconds * 1e9) : 0);
        uiStarved += flSeconds > 1.0 / 60.0 ? 1 : 0;
        oBench.Run(1);
    }
    ExpectHealthy(oBench, 0);
    ExpectHealthy(oBench, 1);
    for (uint32_t uiInput = 0; uiInput < 2; ++uiInput)
    {
        const SStreamCounters& roCounters = oBench.GetInput(uiInput).oCounters;
        EXPECT_GT(roCounters.uiFieldsUnobserved, 1000U);
        EXPECT_EQ(roCounters.uiFields, roCounters.uiFieldsObserved + roCounters.uiFieldsUnobserved);
        EXPECT_NEAR(static_cast<double>(roCounters.uiFields), 203.0 * 60.0, 3.0);
        EXPECT_GE(oBench.Sum(EWatchEventKind::FIELDS_UNOBSERVED, uiInput) + 2000, roCounters.uiFieldsUnobserved);
        EXPECT_NEAR(oBench.GetInput(uiInput).aoRatePpm[1].flValue, 0.0, 0.05) << "the rate does not care";
    }
    EXPECT_GT(oBench.GetInput(1).oCounters.uiLateWakes, uiStarved / 4);
    // The third one's losses are real; only those that met a stall of a neighbour may be excused.
    EXPECT_GT(oBench.GetInput(2).oCounters.uiFieldsLost, 100U);
    EXPECT_EQ(oBench.GetInput(2).oCounters.uiFieldsLost + oBench.GetInput(2).oCounters.uiFieldsUnobserved,
              (203U * 60 - 2 - 250) / 50 + 1);
}

TEST(WatchFields, AMachineThatStandsStillIsSeenWhereverItsStreamsComeBack)
{
    // Nobody tells of it but the streams themselves: one or the other comes back notably late, half a period apart.
    std::mt19937 oRandom(11);
    CWatchBench oBench(MakeInput("") + MakeInput("phase_us = 8000"));
    oBench.Run(3);
    for (uint32_t uiRound = 0; uiRound < 300; ++uiRound)
    {
        const double flEnd = std::uniform_real_distribution(0.05, 0.3)(oRandom);
        oBench.StarveUntil(gc_eIn, 0, flEnd);
        oBench.StarveUntil(gc_eIn, 1, flEnd);
        oBench.Run(1);
    }
    ExpectHealthy(oBench, 0);
    ExpectHealthy(oBench, 1);
    EXPECT_GT(oBench.GetInput(0).oCounters.uiFieldsUnobserved, 1500U);
}

TEST(WatchFields, LossesAreFoundOnABusyMachineWhoseKernelTellsOfDelays)
{
    SBenchSetup oSetup;
    oSetup.flSpreadNs = 800e3;
    oSetup.bKernelTells = true;
    CWatchBench oBench(MakeInput("event = [{ kind = 'missed_field', at_field = 400, every_fields = 97 }]"), oSetup);
    oBench.Run(60);
    EXPECT_EQ(oBench.GetInput(0).oCounters.uiFieldsLost, (60U * 60 - 3 - 400) / 97 + 1);
    EXPECT_EQ(oBench.GetInput(0).oCounters.uiFieldsUnobserved, 0U);
}

TEST(WatchFields, AHangingWaitIsTheWatchersDelay)
{
    CWatchBench oBench(MakeInput("event = [{ kind = 'hang', at_s = 3, ms = 250 }]"));
    oBench.Run(4);
    oBench.Starve(gc_eIn, 0, 0.1, 0);
    oBench.Run(6);
    ExpectHealthy(oBench, 0);
    EXPECT_GT(oBench.GetInput(0).oCounters.uiFieldsUnobserved, 5U);
}

TEST(WatchFields, CountersThatJumpOrRepeatLoseNoFields)
{
    CWatchBench oBench(MakeInput("event = [{ kind = 'counter_jump', at_s = 3, jump = -4800 },"
                                 "{ kind = 'counter_jump', at_s = 5, jump = 160000000 },"
                                 "{ kind = 'counter_jump', at_s = 7, jump = 16 }]") +
                       MakeInput("event = [{ kind = 'counter_jump', at_s = 4, jump = -16 }]"));
    oBench.Run(14);
    const SStreamCounters& roCounters = oBench.GetInput(0).oCounters;
    EXPECT_EQ(roCounters.uiCounterBackward, 3U);
    EXPECT_EQ(roCounters.uiFieldsLost + roCounters.uiFieldsUnobserved, 0U);
    EXPECT_EQ(roCounters.uiPhaseSteps + roCounters.uiFieldsLate + roCounters.uiFieldsEarly, 0U);
    EXPECT_TRUE(oBench.GetInput(0).aoRateHz[1].bIsValid) << "the grid went on";
    const SWatchEvent* poEvent = oBench.Find(EWatchEventKind::COUNTER_BACKWARD, 0);
    ASSERT_NE(poEvent, nullptr);
    EXPECT_EQ(poEvent->uiBefore - poEvent->uiAfter, 4800U - 16U);
    EXPECT_EQ(oBench.GetInput(1).oCounters.uiFieldsRepeated, 1U);
    EXPECT_EQ(oBench.GetInput(1).oCounters.uiFieldsLost + oBench.GetInput(1).oCounters.uiFieldsLate, 0U);
    EXPECT_EQ(oBench.GetInput(1).oCounters.uiFields, oBench.GetInput(0).oCounters.uiFields);
}

TEST(WatchFields, ExtraFieldsAndStepsOfTheGridAreToldApart)
{
    CWatchBench oBench(MakeInput("event = [{ kind = 'doubled_field', at_s = 4, every_s = 3 }]") +
                       MakeInput("event = [{ kind = 'phase_step', at_s = 5, step_us = 300 },"
                                 "{ kind = 'phase_step', at_s = 9, step_us = -40 }]") +
                       MakeInput("event = [{ kind = 'lock_lost', at_s = 5, for_s = 6, ppm = 80 }]") +
                       MakeInput("wander_ticks = 400\nwander_period_s = 11"));
    oBench.Run(20);
    EXPECT_EQ(oBench.GetInput(0).oCounters.uiFieldsEarly, 6U);
    EXPECT_EQ(oBench.GetInput(0).oCounters.uiPhaseSteps + oBench.GetInput(0).oCounters.uiFieldsLate, 0U);
    EXPECT_TRUE(oBench.GetInput(0).aoRateHz[1].bIsValid) << "the grid is where it was";
    EXPECT_EQ(oBench.GetInput(1).oCounters.uiPhaseSteps, 2U);
    EXPECT_EQ(oBench.GetInput(1).oCounters.uiFieldsLate + oBench.GetInput(1).oCounters.uiFieldsEarly, 0U);
    const SWatchEvent* poStep = oBench.Find(EWatchEventKind::PHASE_STEPPED, 1);
    ASSERT_NE(poStep, nullptr);
    EXPECT_NEAR(poStep->flSeconds, 300e-6, 1e-6);
    EXPECT_NEAR(static_cast<double>(poStep->uiTick) / 1e8, 1.0 + 5.0, 0.02);
    EXPECT_NEAR(oBench.GetInput(1).oGridSeconds.flValue, 260e-6, 1e-6) << "the fit does not remember";
    // 80 ppm for 6 s are 480 us, and back in one step.
    EXPECT_EQ(oBench.GetInput(2).oCounters.uiPhaseSteps, 1U);
    EXPECT_NEAR(oBench.Find(EWatchEventKind::PHASE_STEPPED, 2)->flSeconds, 480e-6, 5e-6);
    ExpectHealthy(oBench, 3);
}

TEST(WatchFields, ALostSignalHasABeginAnEndAndNoLostFields)
{
    CWatchBench oBench(MakeInput("event = [{ kind = 'signal_loss', at_field = 300, for_fields = 90 }]") +
                       MakeInput("event = [{ kind = 'missed_field', at_field = 300, for_fields = 120 }]") +
                       MakeInput("event = [{ kind = 'signal_loss', at_s = 9 }]"));
    oBench.Run(12);
    for (uint32_t uiInput = 0; uiInput < 2; ++uiInput)
    {
        const SStreamFigures& roFigures = oBench.GetInput(uiInput);
        EXPECT_EQ(roFigures.oCounters.uiSignalLosses, 1U);
        EXPECT_EQ(roFigures.oCounters.uiFieldsLost + roFigures.oCounters.uiFieldsUnobserved, 0U);
        EXPECT_EQ(roFigures.eState, EStreamState::RUNNING);
        const double flLength = uiInput == 0 ? 1.5 : 2.0;
        EXPECT_NEAR(roFigures.oCounters.flSignalLostSeconds, flLength, 0.02);
        const SWatchEvent* poLost = oBench.Find(EWatchEventKind::SIGNAL_LOST, uiInput);
        const SWatchEvent* poBack = oBench.Find(EWatchEventKind::SIGNAL_BACK, uiInput);
        ASSERT_TRUE(poLost != nullptr && poBack != nullptr);
        EXPECT_EQ(poLost->uiTick, CWatchBench::GetTruth(gc_eIn, uiInput, 299).uiTickRefCounter);
        EXPECT_NEAR(poBack->flSeconds, flLength, 1e-3);
    }
    EXPECT_EQ(oBench.GetInput(2).eState, EStreamState::LOST);
    EXPECT_NEAR(oBench.GetInput(2).oCounters.flRunningSeconds, 9.0, 0.05);
    EXPECT_FALSE(oBench.GetInput(2).oGridSeconds.bIsValid);
    EXPECT_NEAR(static_cast<double>(oBench.GetInput(2).iStateSinceUtcNs - oBench.ToUtcNs(1'000'000'000)), 0.0, 2e7);
}

TEST(WatchFields, OnlyTimeThatWasWaitedIsSilence)
{
    const WatchEnginePtr poEngine = WatchEngine_Create({.uiTickFrequencyHz = 1'000'000'000}, 1, 0);
    SWatchSnapshot oSnapshot;
    SFieldRecord oRecord = {};
    oRecord.uiArrivalNs = 10'000'000'000;
    const auto Take = [&](EWaitResult eResult, uint64_t uiWaitedNs)
    {
        oRecord.eResult = eResult;
        oRecord.uiWaitBeginNs = oRecord.uiArrivalNs + 1000;
        oRecord.uiArrivalNs = oRecord.uiWaitBeginNs + uiWaitedNs;
        oRecord.uiTick = oRecord.uiArrivalNs - 20'000;
        oRecord.uiFieldCounter += 16;
        WatchEngine_TakeRecord(*poEngine, {gc_eIn, 0}, oRecord);
        WatchEngine_Analyse(*poEngine, {.uiMonotonicNs = oRecord.uiArrivalNs + 1000}, oSnapshot);
        return oSnapshot.aoDirections[0].aoStreams[0].eState;
    };
    for (uint32_t uiField = 0; uiField < 30; ++uiField)
    {
        Take(EWaitResult::FIELD, 100'000'000);
    }
    Take(EWaitResult::TIMED_OUT, 50'000'000);
    EXPECT_EQ(Take(EWaitResult::TIMED_OUT, 5'000'000'000), EStreamState::RUNNING) << "the machine stood still";
    for (uint32_t uiWait = 0; uiWait < 16; ++uiWait)
    {
        EXPECT_EQ(Take(EWaitResult::TIMED_OUT, 50'000'000), EStreamState::RUNNING);
    }
    for (uint32_t uiWait = 0; uiWait < 4; ++uiWait)
    {
        Take(EWaitResult::TIMED_OUT, 50'000'000);
    }
    EXPECT_EQ(oSnapshot.aoDirections[0].aoStreams[0].eState, EStreamState::LOST);
}

TEST(WatchFields, TheNominalRateFollowsTheTimings)
{
    CWatchBench oBench(MakeInput("event = [{ kind = 'format_change', at_s = 20, standard = '1080p59.94' }]"));
    oBench.Run(40);
    const SStreamFigures& roFigures = oBench.GetInput(0);
    EXPECT_EQ(roFigures.uiNominalNumerator, 60000U);
    EXPECT_EQ(roFigures.uiNominalDenominator, 1001U);
    EXPECT_NEAR(roFigures.aoRatePpm[1].flValue, 0.0, 0.01) << "the window began anew";
    EXPECT_EQ(roFigures.oCounters.uiTimingChanges, 1U);
    EXPECT_EQ(roFigures.oCounters.uiPhaseSteps + roFigures.oCounters.uiFieldsLost, 0U);
    const SWatchEvent* poEvent = oBench.Find(EWatchEventKind::TIMINGS_CHANGED, 0);
    ASSERT_NE(poEvent, nullptr);
    EXPECT_EQ(poEvent->flBefore, 60.0);
    EXPECT_NEAR(poEvent->flAfter, 59.94006, 1e-5);
}

TEST(WatchFields, OutputsAccountForTheirBuffersWithoutFloodingAnybody)
{
    CWatchBench oBench("[[chip.output]]\nstandard = '1080p60'\nset_buffer_pattern = [1, 0, 0, 1, 0]\n"
                       "[[chip.output]]\nstandard = '1080p60'\n"
                       "event = [{ kind = 'skipped_buffers', at_s = 4, count = 3 }]\n"
                       "[[chip.output]]\nstandard = '1080p60'\n"
                       "event = [{ kind = 'power_state', state = 'OFF', at_s = 4, for_s = 3 }]\n" +
                       MakeInput("event = [{ kind = 'skipped_buffers', at_s = 4, count = 7 }]"));
    oBench.Run(2000);
    const SStreamCounters& roFirst = oBench.Get(gc_eOut, 0).oCounters;
    EXPECT_NEAR(static_cast<double>(roFirst.uiBuffersRepeated), 0.6 * 2000 * 60, 3.0);
    EXPECT_EQ(roFirst.uiBuffersOverwritten, 0U);
    EXPECT_NEAR(static_cast<double>(oBench.aoEvents[0].iUtcNs - oBench.ToUtcNs(100'000'000)), 0.0, 1e6);
    // Of a burst without end: at once, then after 1, 2, 4, 8 ... minutes.
    EXPECT_LE(oBench.Count(EWatchEventKind::BUFFERS_REPEATED, 0), 7U);
    EXPECT_GE(oBench.Count(EWatchEventKind::BUFFERS_REPEATED, 0), 4U);
    EXPECT_EQ(oBench.Get(gc_eOut, 1).oCounters.uiBuffersOverwritten, 3U);
    EXPECT_EQ(oBench.Sum(EWatchEventKind::BUFFERS_OVERWRITTEN, 1), 3U);
    EXPECT_EQ(oBench.GetInput(0).oCounters.uiBuffersSkipped, 7U);
    // Switched off is not lost: the description says so when the wait is cancelled.
    EXPECT_EQ(oBench.Get(gc_eOut, 2).oCounters.uiSignalLosses, 0U);
    EXPECT_EQ(oBench.Get(gc_eOut, 2).oCounters.uiStateChanges, 2U);
    EXPECT_EQ(oBench.Get(gc_eOut, 2).eState, EStreamState::RUNNING);
    EXPECT_EQ(oBench.Sum(EWatchEventKind::POWER_CHANGED, 2), 2U);
    EXPECT_EQ(oBench.oSnapshot.uiEventsDropped, 0U);
}

TEST(WatchFields, AFlappingSignalIsToldInFullByFewEvents)
{
    CWatchBench oBench(
        MakeInput("event = [{ kind = 'signal_loss', at_field = 100, for_fields = 2, every_fields = 6 }]"));
    oBench.Run(600);
    const uint64_t uiLosses = oBench.GetInput(0).oCounters.uiSignalLosses;
    EXPECT_NEAR(static_cast<double>(uiLosses), (600.0 * 60 - 100) / 6, 3.0);
    EXPECT_LE(oBench.Count(EWatchEventKind::SIGNAL_LOST, 0), 16U);
    EXPECT_GE(oBench.Count(EWatchEventKind::SIGNAL_LOST, 0), 11U) << "the first ones come singly";
    for (size_t uiEvent = 1; uiEvent < oBench.aoEvents.size(); ++uiEvent)
    {
        EXPECT_EQ(oBench.aoEvents[uiEvent].uiNumber, uiEvent + 1);
    }
}

TEST(WatchFields, WhatNeverRanIsIdleAndARemovedDeviceIsGone)
{
    CWatchBench oBench("removal_at_s = 6\n" + MakeInput("event = [{ kind = 'signal_loss', at_field = 0 }]") +
                       MakeInput(""));
    oBench.Run(4);
    EXPECT_EQ(oBench.GetInput(0).eState, EStreamState::IDLE);
    EXPECT_EQ(oBench.GetInput(0).oCounters.uiSignalLosses, 0U);
    EXPECT_EQ(oBench.GetInput(1).eState, EStreamState::RUNNING);
    oBench.Run(4);
    EXPECT_EQ(oBench.GetInput(1).eState, EStreamState::GONE);
}

} // namespace
