// What becomes of every field: planted faults are found, late watchers are never the signal's fault, and what happens
// to the signal is told with its moment.
#include "WatchBench.h"

#include <algorithm>
#include <cmath>

namespace
{

constexpr EStreamDirection gc_eIn = EStreamDirection::INPUT;
constexpr EStreamDirection gc_eOut = EStreamDirection::OUTPUT;

const std::string szJitter = "jitter_ticks = 30\n";

void ExpectHealthy(const CWatchBench& roBench, uint32_t uiInput)
{
    const SStreamCounters& roCounters = roBench.GetInput(uiInput).oCounters;
    EXPECT_EQ(roCounters.uiFieldsLost, 0U) << "invented";
    EXPECT_EQ(roCounters.uiFieldsEarly + roCounters.uiFieldsLate + roCounters.uiPhaseSteps, 0U);
    EXPECT_EQ(roCounters.uiFieldsRepeated + roCounters.uiCounterBackward + roCounters.uiSignalLosses, 0U);
    EXPECT_EQ(roBench.GetInput(uiInput).eState, EStreamState::RUNNING);
}

TEST(WatchFields, ALateWatcherIsNeverTheSignalsFault)
{
    // However long and whenever the thread is away, between its waits or inside one, known to the kernel or not; and
    // another thread of the same machine that stood still is a witness.
    std::mt19937 oRandom(7);
    CWatchBench oBench(In(szJitter) + In(szJitter) +
                       In(szJitter + Event("'missed_field', at_field = 250, every_fields = 50")));
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

// The first instant is found with the clock, when fields behind the one that was expected wait already.
TEST(WatchFields, EachSecondHasItsFieldsFromTheFirstOneOn)
{
    CWatchBench oBench(In(szJitter + "phase_us = 100"));
    std::vector<uint64_t> auiFields;
    oBench.Run(5, [&] { auiFields.push_back(oBench.GetInput(0).oCounters.uiFields); });
    ASSERT_GE(auiFields.size(), 4U);
    for (size_t uiSecond = 1; uiSecond < auiFields.size(); ++uiSecond)
    {
        EXPECT_EQ(auiFields[uiSecond] - auiFields[uiSecond - 1], 60U) << uiSecond;
    }
}

TEST(WatchFields, TheNominalRateFollowsTheTimings)
{
    CWatchBench oBench(In(szJitter + Event("'format_change', at_s = 20, standard = '1080p59.94'")));
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
    CWatchBench oBench(Out("set_buffer_pattern = [1, 0, 0, 1, 0]") +
                       Out(Event("'skipped_buffers', at_s = 4, count = 3")) +
                       Out(Event("'power_state', state = 'OFF', at_s = 4, for_s = 3")) +
                       In(szJitter + Event("'skipped_buffers', at_s = 4, count = 7")));
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

// A stream of 60 fields per second whose stamps and ends of waits a test makes up, at 1 GHz.
class CMadeUp
{
public:
    explicit CMadeUp(uint32_t uiStreams) : m_oEngine({.uiTickFrequencyHz = 1'000'000'000}, uiStreams, 0) {}

    void Field(uint32_t uiStream, uint64_t uiField, uint64_t uiTickShift = 0)
    {
        End(uiStream, EWaitResult::FIELD, gc_uiBegin + uiField * gc_uiPeriod, uiField * 16, uiTickShift);
    }
    void End(uint32_t uiStream, EWaitResult eResult, uint64_t uiNs, uint64_t uiCounter = 0, uint64_t uiTickShift = 0,
             uint64_t uiWaitedNs = 10'000'000)
    {
        SFieldRecord oRecord = {};
        oRecord.eResult = eResult;
        oRecord.uiArrivalNs = uiNs + 20'000;
        oRecord.uiWaitBeginNs = oRecord.uiArrivalNs - uiWaitedNs;
        oRecord.uiTick = uiNs + uiTickShift;
        oRecord.uiFieldCounter = uiCounter;
        m_oEngine.TakeRecord({gc_eIn, uiStream}, oRecord);
        m_uiNowNs = oRecord.uiArrivalNs;
    }
    const SStreamFigures& Analyse(uint32_t uiStream, uint64_t uiAfterNs = 0)
    {
        while (m_oEngine.Analyse({.uiMonotonicNs = m_uiNowNs + uiAfterNs, .iUtcNs = gc_iUtcNs}, oSnapshot))
        {
            for (const SWatchEvent& roEvent : m_oEngine.TakeEvents())
            {
                aoEvents.push_back(roEvent);
            }
        }
        // Before the first second there are no figures yet.
        std::vector<SStreamFigures>& raoStreams = oSnapshot.aoDirections[0].aoStreams;
        raoStreams.resize(std::max(raoStreams.size(), size_t{uiStream} + 1));
        return raoStreams[uiStream];
    }

    static constexpr uint64_t gc_uiBegin = 10'000'000'000;
    static constexpr uint64_t gc_uiPeriod = 16'666'667;
    static constexpr int64_t gc_iUtcNs = 1'790'000'000'000'000'000;
    CWatchEngine m_oEngine;
    SWatchSnapshot oSnapshot;
    std::vector<SWatchEvent> aoEvents;

private:
    uint64_t m_uiNowNs = 0;
};

TEST(WatchFields, OnlyTimeThatWasWaitedIsSilence)
{
    CMadeUp oMadeUp(1);
    uint64_t uiNs = CMadeUp::gc_uiBegin;
    uint64_t uiCounter = 0;
    const auto Take = [&](EWaitResult eResult, uint64_t uiWaitedNs, uint32_t uiTimes)
    {
        for (uint32_t uiTime = 0; uiTime < uiTimes; ++uiTime)
        {
            uiNs += uiWaitedNs + 1000;
            oMadeUp.End(0, eResult, uiNs, uiCounter += 16, 0, uiWaitedNs);
        }
    };
    const auto Now = [&]
    {
        oMadeUp.m_oEngine.End();
        return oMadeUp.Analyse(0, 1000).eState;
    };
    Take(EWaitResult::FIELD, 100'000'000, 30);
    Take(EWaitResult::TIMED_OUT, 50'000'000, 1);
    Take(EWaitResult::TIMED_OUT, 5'000'000'000, 1);
    EXPECT_EQ(Now(), EStreamState::RUNNING) << "the machine stood still";
    Take(EWaitResult::TIMED_OUT, 50'000'000, 16);
    EXPECT_EQ(Now(), EStreamState::RUNNING);
    Take(EWaitResult::TIMED_OUT, 50'000'000, 4);
    EXPECT_EQ(Now(), EStreamState::LOST);
    for (int iRun = 0; iRun < 3; ++iRun)
    {
        Take(EWaitResult::TIMED_OUT, 50'000'000, 30);
        Take(EWaitResult::FIELD, 100'000'000, 30);
        EXPECT_EQ(Now(), EStreamState::RUNNING);
    }
    const SStreamCounters& roCounters = oMadeUp.Analyse(0).oCounters;
    EXPECT_NEAR(roCounters.flRunningSeconds, 4 * 2.95, 0.4);
    EXPECT_NEAR(roCounters.flRunningSeconds + roCounters.flSignalLostSeconds, roCounters.flWatchedSeconds, 0.4);
}

TEST(WatchFields, StampsThatAreNotOfTheClockSpoilNothingElse)
{
    // The first one's ticks are garbage from the start; the second's leap once; at the end the chip begins anew.
    CMadeUp oMadeUp(3);
    std::mt19937_64 oRandom(5);
    for (uint64_t uiField = 1; uiField <= 1200; ++uiField)
    {
        const uint64_t uiAnew = uiField > 900 ? 0 - CMadeUp::gc_uiBegin : 0;
        oMadeUp.Field(0, uiField, oRandom());
        oMadeUp.Field(1, uiField, uiField == 500 ? 1ULL << 40U : uiAnew);
        oMadeUp.Field(2, uiField, uiAnew);
        oMadeUp.Analyse(0);
        if (uiField > 200 && uiField < 900)
        {
            ASSERT_NEAR(static_cast<double>(oMadeUp.oSnapshot.oClock.uiTick),
                        static_cast<double>(uiField) * 16.67e6 + 1e10, 2e9);
            ASSERT_TRUE(oMadeUp.oSnapshot.aoDirections[0].aoStreams[0].bStampsAreForeign);
        }
        ASSERT_TRUE(uiField < 700 || oMadeUp.oSnapshot.aoDirections[0].aoStreams[1].aoRateHz[0].bIsValid ||
                    uiField > 895);
    }
    for (uint32_t uiStream = 0; uiStream < 3; ++uiStream)
    {
        const SStreamFigures& roFigures = oMadeUp.Analyse(uiStream);
        EXPECT_EQ(roFigures.oCounters.uiFieldsLost + roFigures.oCounters.uiFieldsUnobserved, 0U) << uiStream;
        EXPECT_GE(roFigures.oCounters.uiFields, 1100U);
        EXPECT_EQ(roFigures.bStampsAreForeign, uiStream == 0);
        EXPECT_EQ(roFigures.aoRateHz[0].bIsValid, uiStream != 0);
        EXPECT_EQ(roFigures.eState, EStreamState::RUNNING);
    }
    EXPECT_EQ(oMadeUp.oSnapshot.aoDirections[0].aoStreams[2].oCounters.uiPhaseSteps, 0U);
    EXPECT_LT(oMadeUp.oSnapshot.oClock.uiTick, 20'000'000'000U) << "the clock is the new one";
    for (const SWatchEvent& roEvent : oMadeUp.aoEvents)
    {
        EXPECT_NEAR(static_cast<double>(roEvent.iUtcNs - CMadeUp::gc_iUtcNs), 0.0, 1.3e9);
    }
}

TEST(WatchFields, ADeviceThatComesBackWithoutItsSignalHasLostItThen)
{
    CMadeUp oMadeUp(1);
    uint64_t uiNs = CMadeUp::gc_uiBegin;
    for (uint64_t uiField = 1; uiField <= 240; ++uiField)
    {
        oMadeUp.Field(0, uiField);
    }
    const auto Wait = [&](EWaitResult eResult, uint32_t uiTimes)
    {
        for (uint32_t uiTime = 0; uiTime < uiTimes; ++uiTime)
        {
            uiNs = std::max(uiNs, CMadeUp::gc_uiBegin + 240 * CMadeUp::gc_uiPeriod) + 50'000'000;
            oMadeUp.End(0, eResult, uiNs);
        }
        return oMadeUp.Analyse(0, 1'300'000'000).eState;
    };
    EXPECT_EQ(Wait(EWaitResult::GONE, 20), EStreamState::GONE);
    const uint64_t uiBackNs = uiNs;
    EXPECT_EQ(Wait(EWaitResult::CANCELED, 60), EStreamState::LOST);
    oMadeUp.Field(0, 600);
    EXPECT_EQ(oMadeUp.Analyse(0, 1'300'000'000).eState, EStreamState::RUNNING);
    const auto Find = [&](EWatchEventKind eKind)
    { return std::ranges::find(oMadeUp.aoEvents, eKind, &SWatchEvent::eKind); };
    ASSERT_NE(Find(EWatchEventKind::SIGNAL_BACK), oMadeUp.aoEvents.end());
    EXPECT_NEAR(static_cast<double>(Find(EWatchEventKind::SIGNAL_LOST)->uiTick), static_cast<double>(uiBackNs), 60e6);
    EXPECT_NEAR(Find(EWatchEventKind::SIGNAL_BACK)->flSeconds,
                static_cast<double>(CMadeUp::gc_uiBegin + 600 * CMadeUp::gc_uiPeriod - uiBackNs) * 1e-9, 0.06);
}

TEST(WatchFields, WhatEarlierRunsSawRunningIsLostSinceThen)
{
    CMadeUp oMadeUp(3);
    const int64_t iThen = CMadeUp::gc_iUtcNs - 7'000'000'000;
    oMadeUp.m_oEngine.TellEarlier({gc_eIn, 0}, {EEarlierState::RUNNING, iThen});
    oMadeUp.m_oEngine.TellEarlier({gc_eIn, 1}, {EEarlierState::LOST, iThen});
    for (uint32_t uiWait = 1; uiWait <= 60; ++uiWait)
    {
        for (uint32_t uiStream = 0; uiStream < 3; ++uiStream)
        {
            oMadeUp.End(uiStream, EWaitResult::CANCELED, CMadeUp::gc_uiBegin + uiWait * 50'000'000ULL);
        }
    }
    oMadeUp.Analyse(0);
    for (uint32_t uiStream = 0; uiStream < 3; ++uiStream)
    {
        const SStreamFigures& roFigures = oMadeUp.oSnapshot.aoDirections[0].aoStreams[uiStream];
        EXPECT_EQ(roFigures.eState, uiStream < 2 ? EStreamState::LOST : EStreamState::IDLE);
        EXPECT_TRUE(uiStream == 2 || roFigures.iStateSinceUtcNs == iThen);
        EXPECT_EQ(roFigures.oCounters.uiSignalLosses, uiStream == 0 ? 1U : 0U) << "one loss is told once";
        EXPECT_LE(roFigures.oCounters.flSignalLostSeconds, roFigures.oCounters.flWatchedSeconds);
    }
    EXPECT_EQ(std::ranges::count(oMadeUp.aoEvents, EWatchEventKind::SIGNAL_LOST, &SWatchEvent::eKind), 1);
}

TEST(WatchFields, FieldsThatNobodyWaitedForBeforeALossAreUnobserved)
{
    CWatchBench oBench(In(szJitter + "phase_us = 900\n" + Event("'signal_loss', at_field = 360, for_fields = 240")));
    oBench.Run(5);
    oBench.Delay(gc_eIn, 0, 2.0);
    oBench.Run(6);
    const SStreamCounters& roCounters = oBench.GetInput(0).oCounters;
    EXPECT_EQ(roCounters.uiSignalLosses, 1U);
    EXPECT_EQ(roCounters.uiFieldsLost, 0U);
    EXPECT_GE(roCounters.uiFieldsUnobserved, 53U) << "those that there were, from 0.1 s after the fifth second on";
}

} // namespace
