// Pairs, lock groups and references against the truth of the board.
#include "WatchBench.h"

#include <algorithm>
#include <cmath>

namespace
{

constexpr double gc_flLine = 1.0 / 60.0 / 1125.0;

std::string MakeHouse(const std::string& rszMore = "")
{
    return "lock_group = [{ name = 'house', ppm = 5, wander_ticks = 300, wander_period_s = 23 }]\n" + rszMore;
}

std::string MakeInput(const std::string& rszKeys, const std::string& rszStandard = "1080p60")
{
    return "[[chip.input]]\nstandard = '" + rszStandard + "'\njitter_ticks = 100\n" + rszKeys + "\n";
}

const std::vector<SLockGroup>& GetGroups(const CWatchBench& roBench)
{
    return roBench.oSnapshot.aoDirections[0].aoGroups;
}

TEST(WatchLock, ALockThatTheEyeBelievesIsPassing)
{
    // 0.02 ppm apart: within a line for many minutes, a field slips every ten days.
    CWatchBench oBench(MakeInput("ppm = 5") + MakeInput("ppm = 5.02\nphase_us = 2"));
    oBench.Run(130);
    const SPairFigures& roPair = oBench.GetPair(0, 1);
    EXPECT_EQ(roPair.eLock, ELockState::PASSING);
    // The faster one comes earlier and earlier.
    EXPECT_NEAR(roPair.oDriftRatio.flValue, -20e-9, 4.0 * roPair.oDriftRatio.flStdErr);
    const double flOffset = 2e-6 - 20e-9 * 130.0;
    EXPECT_NEAR(roPair.oSecondsToThreshold.flValue, (gc_flLine + flOffset) / 20e-9, 150.0);
    EXPECT_NEAR(roPair.oSecondsToSlip.flValue, (1.0 / 60.0) / 20e-9, 1.5e5);
    oBench.Run(900);
    EXPECT_EQ(oBench.GetPair(0, 1).eLock, ELockState::FREE);
}

TEST(WatchLock, OnePpbIsToldFromNoneWithinThousandSeconds)
{
    CWatchBench oBench(MakeHouse(MakeInput("lock_group = 'house'") + MakeInput("lock_group = 'house'\nphase_us = 1") +
                                 MakeInput("ppm = 7") + MakeInput("ppm = 7.001")));
    oBench.Run(1000);
    const SEstimate& roDrift = oBench.GetPair(2, 3).oDriftRatio;
    EXPECT_GT(std::abs(roDrift.flValue), 3.0 * roDrift.flStdErr);
    EXPECT_NEAR(roDrift.flValue, -1e-9, 3.0 * roDrift.flStdErr);
    const SEstimate& roNone = oBench.GetPair(0, 1).oDriftRatio;
    EXPECT_LT(std::abs(roNone.flValue), 3.0 * roNone.flStdErr);
    EXPECT_LT(roNone.flStdErr, 0.2e-9);
}

TEST(WatchLock, RatesFarFromTheNominalOneCostNoCertainty)
{
    // Seconds hold 59 or 60 of these fields, each stream's at other seconds: their means lie at other moments.
    const std::string szFar = "[[chip.input]]\nstandard = '1080p59.94'\nppm = 90\njitter_ticks = 3\n";
    CWatchBench oBench(szFar + szFar + "phase_us = 3000\n");
    for (uint32_t uiRound = 0; uiRound < 8; ++uiRound)
    {
        oBench.Run(8);
        const SPairFigures& roPair = oBench.GetPair(0, 1);
        EXPECT_NEAR(roPair.oOffsetSeconds.flValue, 3e-3, 20e-9);
        EXPECT_LT(roPair.oOffsetSeconds.flStdErr, 20e-9);
        EXPECT_NEAR(roPair.oDriftRatio.flValue, 0.0, 4.0 * roPair.oDriftRatio.flStdErr);
    }
}

TEST(WatchLock, LocksThatHoldAreNotRevokedOverHours)
{
    std::string szChip = MakeHouse();
    for (uint32_t uiInput = 0; uiInput < 6; ++uiInput)
    {
        szChip += MakeInput("lock_group = 'house'\nphase_us = " + std::to_string(uiInput));
    }
    CWatchBench oBench(szChip);
    oBench.Run(10'000);
    EXPECT_EQ(GetGroups(oBench).size(), 1U);
    EXPECT_EQ(GetGroups(oBench)[0].uiMembers, 0x3FU);
    EXPECT_EQ(GetGroups(oBench)[0].uiGroup, 1U);
    uint64_t uiRevoked = 0;
    for (uint32_t uiInput = 0; uiInput < 6; ++uiInput)
    {
        uiRevoked += oBench.Sum(EWatchEventKind::LOCK_CHANGED, uiInput);
    }
    EXPECT_LE(uiRevoked, 5U + 2U) << "each once into lock, and one mistake";
}

TEST(WatchLock, WanderDoesNotMakeALockFlicker)
{
    // 12 ppb apart; the wander of the one takes their drift through 0 twice in 90 s.
    CWatchBench oBench("lock_group = [{ name = 'house', wander_ticks = 40, wander_period_s = 90 }]\n"
                       "[[chip.input]]\nstandard = '1080p60'\njitter_ticks = 2\nlock_group = 'house'\n"
                       "[[chip.input]]\nstandard = '1080p60'\njitter_ticks = 2\nppm = 0.012\nphase_us = 2\n");
    oBench.Run(10);
    for (uint32_t uiSecond = 10; uiSecond < 600; ++uiSecond)
    {
        oBench.Run(1);
        ASSERT_EQ(oBench.GetPair(0, 1).eLock, ELockState::PASSING) << "after " << uiSecond << " s";
    }
}

TEST(WatchLock, ALockThatIsRegainedCountsAgain)
{
    CWatchBench oBench(MakeInput("") +
                       MakeInput("phase_us = 1\nevent = [{ kind = 'lock_lost', at_s = 20, for_s = 60, ppm = 0.04 }]"));
    oBench.Run(80);
    EXPECT_EQ(oBench.GetPair(0, 1).eLock, ELockState::PASSING);
    oBench.Run(220);
    EXPECT_EQ(oBench.GetPair(0, 1).eLock, ELockState::LOCKED);
    EXPECT_EQ(oBench.Count(EWatchEventKind::GROUP_FORMED, 0), 2U);
}

TEST(WatchLock, AReferenceThatIsSetIsNeverLeft)
{
    SBenchSetup oSetup;
    oSetup.oSettings.iReferenceInput = 2;
    CWatchBench oSet(MakeInput("") + MakeInput("phase_us = 7") +
                         MakeInput("phase_us = 20\nevent = [{ kind = 'signal_loss', at_s = 10 }]"),
                     oSetup);
    oSet.Run(8);
    EXPECT_NEAR(oSet.GetInput(1).oPhaseSeconds.flValue, -13e-6, 2e-6);
    oSet.Run(30);
    EXPECT_EQ(oSet.oSnapshot.aoDirections[0].uiReference, 2U);
    EXPECT_FALSE(oSet.GetInput(1).oPhaseSeconds.bIsValid);
}

} // namespace
