// Streams of two chips whose true places are known.
#include <gtest/gtest.h>

#include "ChipPairs.h"
#include "TimeUnits.h"

namespace
{

constexpr double flApart = 40e-6;      // of the second chip's field starts behind the first one's
constexpr double flUncertainty = 5e-6; // of either clock

// One input at 60 Hz each. The second chip's instant is 24 fields behind the first one's; its counter runs flPpm
// faster.
SWatchSnapshot MakeChips(double flThreshold, double flPpm, uint32_t uiSharedClock)
{
    const double flRate = 1.0 / (1.0 + flPpm * 1e-6);
    const double flPeriod = 1.0 / 60.0;
    SWatchSnapshot oSnapshot;
    oSnapshot.oThreshold.flSeconds = flThreshold;
    oSnapshot.aoDirections.resize(6);
    for (uint32_t uiChip = 0; uiChip < 2; ++uiChip)
    {
        SChipFigures& roChip = oSnapshot.aoChips.emplace_back();
        roChip.uiChip = uiChip + 1;
        roChip.uiInstants = 1;
        roChip.uiTickFrequencyHz = uiChip == 0 ? 100'000'000 : 27'000'000;
        const double flAfter = uiChip == 0 ? 0.0 : flApart + 24.0 * flPeriod * flRate - 1e-3 * flRate;
        roChip.oClock.uiMonotonicNs = 5'000'000'000'000 + static_cast<uint64_t>(flAfter * flNsPerSecond + 0.5);
        roChip.oClock.flSecondsPerSecond = uiChip == 0 ? 1.0 : flRate;
        roChip.oClock.flMomentUncertainty = flUncertainty;
        roChip.oClock.flRateUncertainty = uiChip == 0 ? 0.0 : 3e-7;
        // By the shared clock the same, though the second chip's counter began an hour later.
        roChip.uiSharedClock = uiSharedClock;
        roChip.oClock.uiTick = roChip.uiTickFrequencyHz * (uiChip == 0 ? 5000ULL : 1400ULL);
        roChip.iSharedOffsetNs = uiChip == 0 ? 0 : 3600 * iNsPerSecond + static_cast<int64_t>(flAfter * flNsPerSecond);
        SStreamFigures& roStream = oSnapshot.aoDirections[2 * (uiChip + 1)].aoStreams.emplace_back();
        roStream.oKey.uiChip = uiChip + 1;
        roStream.eState = EStreamState::RUNNING;
        roStream.uiNominalNumerator = 60;
        roStream.flPeriodSeconds = flPeriod;
        roStream.oGridSeconds = {uiChip == 0 ? 0.0 : 1e-3, 1e-8, true};
        roStream.aoRateHz[static_cast<size_t>(ERateWindow::SECONDS_10)] = {60.0, 60.0 * 2e-9, true};
    }
    return oSnapshot;
}

} // namespace

TEST(ChipPairs, TellTheTruthAndNoLockWithinWhatTheClocksAreKnown)
{
    struct SCase
    {
        double flThreshold;
        double flPpm;
        uint32_t uiSharedClock;
        ELockState eLock;
    };
    const SCase aoCases[] = {{20e-6, 0.0, 0, ELockState::FREE},      {45e-6, 0.0, 0, ELockState::IDLE},
                             {60e-6, 0.0, 0, ELockState::LOCKED},    {60e-6, 30.0, 0, ELockState::PASSING},
                             {60e-6, -30.0, 0, ELockState::PASSING}, {8e-6, 30.0, 0, ELockState::FREE},
                             {45e-6, 0.0, 7, ELockState::LOCKED},    {35e-6, 0.0, 7, ELockState::FREE}};
    for (const SCase& roCase : aoCases)
    {
        SCOPED_TRACE(testing::Message() << roCase.flThreshold << " s, " << roCase.flPpm << " ppm");
        SWatchSnapshot oSnapshot = MakeChips(roCase.flThreshold, roCase.flPpm, roCase.uiSharedClock);
        CChipPairs().Update(oSnapshot);
        ASSERT_EQ(oSnapshot.aoChipPairs.size(), 1U);
        const SChipPairFigures& roPair = oSnapshot.aoChipPairs[0];
        EXPECT_EQ(roPair.oSecond, (SStreamKey{EStreamDirection::INPUT, 0, 2}));
        const bool bIsShared = roCase.uiSharedClock != 0;
        EXPECT_NEAR(roPair.oPair.oOffsetSeconds.flValue, flApart, 2e-9);
        EXPECT_NEAR(roPair.flUncertaintySeconds, bIsShared ? 0.0 : 2.0 * flUncertainty + 0.4 * 3e-7, 1e-9);
        EXPECT_NEAR(roPair.oPair.oDriftRatio.flValue, 1.0 / (1.0 + roCase.flPpm * 1e-6) - 1.0, 1e-9);
        EXPECT_EQ(roPair.oPair.eLock, roCase.eLock);
    }
    // At +30 ppm the second one comes 30 us earlier per second: in step again after 40 us of that.
    SWatchSnapshot oSnapshot = MakeChips(1e-6, 30.0, 0);
    CChipPairs().Update(oSnapshot);
    const SEstimate& roSlip = oSnapshot.aoChipPairs[0].oPair.oSecondsToSlip;
    EXPECT_NEAR(roSlip.flValue, 40.0 / 30.0, 1e-3);
    EXPECT_NEAR(roSlip.flStdErr, 2.0 * flUncertainty / 3.0 / 30e-6, 0.02);
    oSnapshot = MakeChips(1e-6, 0.0, 0);
    oSnapshot.aoDirections[4].aoStreams[0].uiNominalNumerator = 59;
    oSnapshot.aoDirections[4].aoStreams[0].flPeriodSeconds = 1.0 / 59.0;
    CChipPairs().Update(oSnapshot);
    EXPECT_EQ(oSnapshot.aoChipPairs[0].oPair.eLock, ELockState::DIFFERENT);
}
