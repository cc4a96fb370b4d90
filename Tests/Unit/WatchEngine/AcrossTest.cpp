// Inputs against outputs: forecasts of slips, slips that happened and delays against closed forms.
#include "WatchBench.h"

#include <algorithm>
#include <cmath>

namespace
{

struct SPlayed
{
    double flPpm;
    double flPhaseUs;
    double flHz = 60.0;

    // Fields since field 0, so long after the board was loaded.
    double GetFields(double flSeconds) const { return (flSeconds - flPhaseUs * 1e-6) * flHz * (1.0 + flPpm * 1e-6); }
};

std::string Play(const char* szKind, const SPlayed& roPlayed, const std::string& rszKeys = "jitter_ticks = 100")
{
    return "[[chip." + std::string(szKind) + "]]\nstandard = '1080p" + std::to_string(std::lround(roPlayed.flHz)) +
           "'\nppm = " + std::to_string(roPlayed.flPpm) + "\nphase_us = " + std::to_string(roPlayed.flPhaseUs) + "\n" +
           rszKeys + "\n";
}

// How many pictures of the input are ahead of the output: whole ones are slips.
double GetAhead(const SPlayed& roInput, const SPlayed& roOutput, double flSeconds)
{
    const double flPictures = std::max(roInput.flHz, roOutput.flHz) / std::min(roInput.flHz, roOutput.flHz);
    const bool bInputIsFast = roInput.flHz > roOutput.flHz;
    return roInput.GetFields(flSeconds) / (bInputIsFast ? flPictures : 1.0) -
           roOutput.GetFields(flSeconds) / (bInputIsFast ? 1.0 : flPictures);
}

void ExpectForecast(const SAcrossFigures& roPair, const SPlayed& roInput, const SPlayed& roOutput, double flSeconds)
{
    const double flSlow = std::min(roInput.flHz, roOutput.flHz);
    const double flPerSecond = (roInput.flPpm - roOutput.flPpm) * 1e-6 * flSlow;
    const double flAhead = GetAhead(roInput, roOutput, flSeconds);
    const double flInto = flAhead - std::floor(flAhead);
    SCOPED_TRACE(testing::Message() << roInput.flPpm << " ppm, " << roInput.flPhaseUs << " us, " << roInput.flHz);
    const SSlipFigures& roSlip = roPair.oSlip;
    ASSERT_TRUE(roSlip.oEverySeconds.bIsValid);
    ASSERT_TRUE(roSlip.oNextSeconds.bIsValid);
    const double flEvery = 1.0 / std::abs(flPerSecond);
    EXPECT_NEAR(roSlip.oEverySeconds.flValue, flEvery, 3.0 * roSlip.oEverySeconds.flStdErr);
    EXPECT_NEAR(roSlip.oNextSeconds.flValue, (flPerSecond > 0.0 ? 1.0 - flInto : flInto) * flEvery,
                3.0 * roSlip.oNextSeconds.flStdErr);
    EXPECT_LT(roSlip.oEverySeconds.flStdErr, 0.2 / std::abs(roInput.flPpm - roOutput.flPpm) * flEvery);
}

TEST(Across, SlipsAreForetoldWithinAMinuteAndCountedAsTheyHappen)
{
    const SPlayed oOutput = {0.0, 0.0};
    std::vector<SPlayed> aoInputs;
    std::string szChip = Play("output", oOutput);
    for (const double flPpm : {1.0, 5.0, 22.0, 100.0, -1.0, -5.0, -22.0, -100.0})
    {
        for (const double flPhaseUs : {3000.0, 12000.0})
        {
            // Every second one wanders besides: what its last ten seconds did says little of the next minutes.
            const char* szKeys = flPhaseUs == 3000.0 ? "jitter_ticks = 100"
                                                     : "jitter_ticks = 20\nwander_ticks = 300\nwander_period_s = 37";
            szChip += Play("input", aoInputs.emplace_back(SPlayed{flPpm, flPhaseUs}), szKeys);
        }
    }
    for (const double flHz : {30.0, 120.0})
    {
        aoInputs.push_back({flHz + 40.0, 2000.0, flHz}); // in lock with nobody
        szChip += flHz == 30.0 ? Play("input", aoInputs.back())
                               : "[[chip.input]]\ntiming = { h_active = 2000, h_back_porch = 200, v_active = 1080, "
                                 "v_back_porch = 45, pixel_clock_hz = 297000000 }\nppm = 160\nphase_us = 2000\n";
    }
    CWatchBench oBench(szChip);
    oBench.Run(60);
    ASSERT_EQ(oBench.oSnapshot.aoAcross.size(), aoInputs.size());
    const double flBegin = 4.0;
    const auto ToSeconds = [&oBench](uint64_t uiTick)
    { return static_cast<double>(uiTick) / oBench.oSnapshot.uiTickFrequencyHz - 1.0; };
    const auto GetNow = [&] { return ToSeconds(oBench.oSnapshot.oClock.uiTick); };
    for (size_t uiInput = 0; uiInput < aoInputs.size(); ++uiInput)
    {
        ExpectForecast(oBench.oSnapshot.aoAcross[uiInput], aoInputs[uiInput], oOutput, GetNow());
    }
    oBench.Run(1440);
    for (size_t uiInput = 0; uiInput < aoInputs.size(); ++uiInput)
    {
        const SPlayed& roInput = aoInputs[uiInput];
        SCOPED_TRACE(testing::Message() << roInput.flPpm << " ppm, " << roInput.flPhaseUs << " us, " << roInput.flHz);
        const double flSlips =
            std::floor(GetAhead(roInput, oOutput, GetNow())) - std::floor(GetAhead(roInput, oOutput, flBegin));
        EXPECT_EQ(static_cast<double>(oBench.oSnapshot.aoAcross[uiInput].oSlip.uiCount), std::abs(flSlips));
        uint64_t uiTold = 0;
        for (const SWatchEvent& roEvent : oBench.aoEvents)
        {
            const bool bIsOfPair = roEvent.eKind == EWatchEventKind::SLIPPED &&
                                   roEvent.oKey.eDirection == EStreamDirection::OUTPUT &&
                                   EventStream_Unpack(roEvent.uiBefore, 0) == oBench.oSnapshot.aoAcross[uiInput].oFirst;
            if (!bIsOfPair)
            {
                continue;
            }
            uiTold += roEvent.uiCount;
            EXPECT_EQ(roEvent.uiAfter, static_cast<uint64_t>(flSlips > 0.0 ? ESlip::DROPPED : ESlip::REPEATED));
            const double flThen = ToSeconds(roEvent.uiTick);
            const double flOff = std::remainder(GetAhead(roInput, oOutput, flThen), 1.0) /
                                 (std::abs(roInput.flPpm) * 1e-6 * std::min(60.0, roInput.flHz));
            EXPECT_NEAR(flOff, 0.0, 0.5 + 4.0 / std::abs(roInput.flPpm)) << "s from its moment";
        }
        EXPECT_EQ(static_cast<double>(uiTold), std::abs(flSlips));
    }
}

TEST(Across, APathTakesWhatPhaseAndQueueSayAndAReferenceMayBeOfTheOtherDirection)
{
    // Of equal rates, into a slower output, into a faster one; the last one in step with it but for its jitter.
    const SPlayed oOutput = {0.0, 0.0};
    const std::string szQueue = "jitter_ticks = 100\nready = 2\nready_spread = 1";
    SBenchSetup oSetup;
    const SStreamKey oReference = {EStreamDirection::INPUT, 0};
    oSetup.oSettings.aoReferences = {oReference, oReference};
    for (uint32_t uiInput = 0; uiInput < 3; ++uiInput)
    {
        oSetup.oSettings.aoPaths.push_back({{EStreamDirection::INPUT, uiInput}, {EStreamDirection::OUTPUT, 0}});
    }
    oSetup.oSettings.aoPaths.push_back({{EStreamDirection::INPUT, 2}, {EStreamDirection::OUTPUT, 1}});
    CWatchBench oBench(Play("output", oOutput) + Play("output", {0.0, 0.0, 30.0}) +
                           Play("input", {100.0, 1500.0}, szQueue) + Play("input", {0.0, 30000.0, 30.0}, szQueue) +
                           Play("input", {0.0, 0.0}, szQueue),
                       oSetup);
    oBench.Run(12);
    const auto Expect = [&oBench](size_t uiPath, double flLeast, double flMeanOfTwo, double flMost)
    {
        const SPathFigures& roPath = oBench.oSnapshot.aoPaths[uiPath];
        EXPECT_TRUE(roPath.bIsKnown);
        EXPECT_NEAR(roPath.flLeastSeconds, flLeast, 1e-5) << uiPath;
        // Of two ready pictures; how many there were is drawn for each field.
        const SStreamFigures& roInput = oBench.GetInput(roPath.oInput.uiIndex);
        const double flMore = roInput.oQueue.aoWindows[0].oReady.flMean - 2.0;
        EXPECT_NEAR(roPath.flMeanSeconds, flMeanOfTwo + flMore * roInput.flPeriodSeconds, 1e-5) << uiPath;
        EXPECT_NEAR(roPath.flMostSeconds, flMost, 1e-5) << uiPath;
    };
    constexpr double flField = 1.0 / 60.0;
    const double flInto = flField - 1500e-6 + 12 * 100e-6;
    Expect(0, 3.0 * flField + flInto, 3.0 * flField + flInto, 4.0 * flField + flInto);
    Expect(1, 6.0 * flField + 1.0 / 300.0, 6.0 * flField + 1.0 / 300.0, 8.0 * flField + 1.0 / 300.0);
    Expect(2, 3.0 * flField, 3.5 * flField, 5.0 * flField);
    Expect(3, 3.0 * flField, 4.0 * flField, 6.0 * flField);
    EXPECT_NEAR(oBench.oSnapshot.aoPaths[0].oNextStepSeconds.flValue, 3.0, 0.1);
    EXPECT_NEAR(oBench.oSnapshot.aoPaths[0].flStepSeconds, -flField, 1e-5);
    oBench.Run(4);
    EXPECT_NEAR(oBench.oSnapshot.aoPaths[0].flLastStepSeconds, -flField, 1e-5);
    EXPECT_EQ(oBench.oSnapshot.aoPaths[0].uiSteps, 1U);
    EXPECT_LT(oBench.oSnapshot.aoPaths[0].flLeastSeconds, 3.1 * flField);

    // The same pair, told of the output; and the other way round of the inputs.
    const SStreamFigures& roOutput = oBench.Get(EStreamDirection::OUTPUT, 0);
    const SAcrossFigures& roPair = oBench.oSnapshot.aoAcross[0];
    EXPECT_EQ(oBench.oSnapshot.aoDirections[1].oReference, oReference);
    EXPECT_EQ(roOutput.oPhaseSeconds.flValue, roPair.oPair.oOffsetSeconds.flValue);
    EXPECT_EQ(roOutput.oDriftRatio.flValue, roPair.oPair.oDriftRatio.flValue);
    EXPECT_EQ(roOutput.oCounters.uiSlips, 1U);
    EXPECT_EQ(oBench.GetInput(2).oCounters.uiSlips, 1U);
    EXPECT_EQ(roPair.oSlip.uiCount, 1U);
    uint32_t uiTold = 0;
    for (const SWatchEvent& roEvent : oBench.aoEvents)
    {
        if (roEvent.eKind == EWatchEventKind::SLIPPED)
        {
            ++uiTold;
            EXPECT_EQ(roEvent.uiAfter, static_cast<uint64_t>(ESlip::DROPPED));
            EXPECT_EQ(EventStream_Unpack(roEvent.uiBefore, 0), oReference);
        }
    }
    EXPECT_EQ(uiTold, 3U) << "of both outputs and the input of its rate, each once";
}

TEST(Across, NothingSlipsThatHoversAboutZeroOrWasNotSeen)
{
    // The first two hover, and the last one from the other side; a signal away for its slip, one that moves by half a
    // period, and one whose counter jumps.
    const SPlayed oSlow = {100.0, 1500.0};
    const std::string szLoss = "event = [{ kind = 'signal_loss', at_s = 170, for_s = 30 }]";
    const std::string szStep = "event = [{ kind = 'phase_step', at_s = 60, step_us = 9000 }]";
    const std::string szJump = "event = [{ kind = 'counter_jump', at_s = 60, jump = 16000 }]";
    CWatchBench oBench(Play("output", {0.0, 0.0}) + Play("input", {0.0, 0.0}, "jitter_ticks = 300") +
                       Play("input", {0.0, 0.0}, "wander_ticks = 900\nwander_period_s = 37\njitter_ticks = 50") +
                       Play("input", oSlow, szLoss) + Play("input", oSlow, szStep) + Play("input", oSlow, szJump) +
                       Play("input", {0.0, 5.0}, "wander_ticks = 900\nwander_period_s = 200\njitter_ticks = 50"));
    oBench.Run(140);
    const auto Count = [&oBench](size_t uiInput) { return oBench.oSnapshot.aoAcross[uiInput].oSlip.uiCount; };
    EXPECT_EQ(Count(0), 0U);
    EXPECT_EQ(Count(1), 0U);
    EXPECT_FALSE(oBench.oSnapshot.aoAcross[0].oSlip.oEverySeconds.bIsValid);
    EXPECT_EQ(oBench.oSnapshot.aoAcross[0].oPair.eLock, ELockState::LOCKED);
    ASSERT_EQ(oBench.oSnapshot.aoAcrossGroups.size(), 1U);
    EXPECT_EQ(oBench.oSnapshot.aoAcrossGroups[0].auiMembers[1], 1U);
    // The first slip comes at 15 s, the next one 167 s later, or 45 s after the step.
    const std::vector<uint64_t> auiAt140 = {1, 2, 1};
    const std::vector<uint64_t> auiAt300 = {1, 3, 2};
    for (size_t uiCase = 0; uiCase < auiAt140.size(); ++uiCase)
    {
        EXPECT_EQ(Count(2 + uiCase), auiAt140[uiCase]) << uiCase;
    }
    const auto bIsTold = [](const SWatchEvent& roEvent)
    { return roEvent.eKind == EWatchEventKind::SLIPPED && roEvent.oKey.eDirection == EStreamDirection::OUTPUT; };
    EXPECT_EQ(std::ranges::count_if(oBench.aoEvents, bIsTold), 2)
        << "once for three in lock, once for the one that left";
    oBench.Run(160);
    EXPECT_EQ(Count(5), 0U);
    for (size_t uiCase = 0; uiCase < auiAt300.size(); ++uiCase)
    {
        EXPECT_EQ(Count(2 + uiCase), auiAt300[uiCase]) << uiCase;
    }
}

} // namespace
