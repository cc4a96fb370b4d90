// Parts of the engine one by one, each beside its definition written out or a table of what it must say.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "EventQueue.h"
#include "FieldAccounting.h"
#include "LockGroups.h"
#include "RecentFields.h"
#include "ReferenceChoice.h"
#include "TaiGrid.h"
#include "TickClock.h"
#include "TimeDeviation.h"
#include "WatchContext.h"
#include "WatchEngine.h"

namespace
{

__extension__ using Int128 = __int128;

TEST(TimeDeviation, IsASixthOfTheMeanSquareOfSecondDifferences)
{
    CTimeDeviation oDeviation;
    std::map<int64_t, double> oPhases;
    std::array<std::pair<double, uint32_t>, 3> aoSquares = {}; // mean, count
    std::mt19937 oRandom(5);
    std::normal_distribution oNoise(0.0, 30.0);
    double flPhase = 1e9;
    for (int64_t iSecond = 7; iSecond < 1900; ++iSecond)
    {
        flPhase += 1000.0 + oNoise(oRandom);
        if (iSecond % 600 == 500 || iSecond == 20)
        {
            continue;
        }
        oPhases[iSecond] = flPhase + oNoise(oRandom);
        oDeviation.Take(iSecond, oPhases[iSecond]);
        for (const size_t uiTime : {0U, 1U, 2U})
        {
            const int64_t iSpan = auiTdevSeconds[uiTime];
            double flDifference = 0.0;
            int64_t iBack = 0;
            for (; iBack < 3 * iSpan && oPhases.contains(iSecond - iBack); ++iBack)
            {
                flDifference += (oPhases[iSecond - iBack] - oPhases[iSecond]) * (iBack / iSpan == 1 ? -2.0 : 1.0);
            }
            auto& [rflMean, ruiCount] = aoSquares[uiTime];
            if (iBack == 3 * iSpan)
            {
                ruiCount = std::min(1000U, ruiCount + 1);
                rflMean += (std::pow(flDifference / static_cast<double>(iSpan), 2) - rflMean) / ruiCount;
            }
            const SEstimate oIs = oDeviation.Get(static_cast<ETdevTime>(uiTime));
            ASSERT_EQ(oIs.bIsValid, ruiCount > 0) << iSecond;
            const double flExpected = std::sqrt(rflMean / 6.0);
            ASSERT_NEAR(oIs.flValue, flExpected, 1e-7 * flExpected);
            const double flShare = std::sqrt(static_cast<double>(iSpan) / std::max(1U, ruiCount));
            ASSERT_NEAR(oIs.flStdErr, flExpected * std::min(1.0, flShare), 1e-7 * flExpected);
        }
    }
    oDeviation.Clear();
    EXPECT_FALSE(oDeviation.Get(ETdevTime::SECONDS_1).bIsValid);
}

TEST(TaiGrid, TellsWhatLiesBetweenAMomentAndTheNearestGridPoint)
{
    std::mt19937_64 oRandom(9);
    for (const SNominalRate& roRate : {SNominalRate{60, 1}, {60000, 1001}, {24000, 1001}, {25, 2}, {144000, 1001}})
    {
        const Int128 iPeriod = Int128{1'000'000'000} * static_cast<Int128>(roRate.uiDenominator);
        const auto iNumerator = static_cast<int64_t>(roRate.uiNumerator);
        for (int iTry = 0; iTry < 200; ++iTry)
        {
            // A moment of some year that is a part of half a period before or behind a grid point.
            const Int128 iPoint = iPeriod * (static_cast<int64_t>(oRandom() % 100'000'000'000) - 20'000'000'000);
            const auto iHalf = static_cast<int64_t>(iPeriod / iNumerator / 2);
            const int64_t iAside = static_cast<int64_t>(oRandom() % static_cast<uint64_t>(2 * iHalf - 2)) - iHalf + 1;
            const auto iMoment = static_cast<int64_t>(iPoint / iNumerator) + iAside;
            const auto flExpected =
                static_cast<double>(Int128{iMoment} * iNumerator - iPoint) / static_cast<double>(roRate.uiNumerator);
            EXPECT_NEAR(TaiGrid_GetPhase(iMoment, -0.5, roRate), (flExpected - 0.5) * 1e-9, 1e-15);
        }
        EXPECT_EQ(TaiGrid_IsWholePerSecond(roRate), roRate.uiDenominator == 1);
    }
}

using Pairs = std::vector<std::pair<uint32_t, uint32_t>>;

TEST(LockGroups, KeepTheirIdentityWithMostOfTheirMembers)
{
    CLockGroups oGroups;
    uint64_t uiNow = 0;
    // The changes, then all groups.
    const auto Update = [&](const Pairs& raoPairs)
    {
        std::vector<uint64_t> auiLocked(32);
        for (const auto& [uiFirst, uiSecond] : raoPairs)
        {
            auiLocked[uiFirst] |= uint64_t{1} << uiSecond;
            auiLocked[uiSecond] |= uint64_t{1} << uiFirst;
        }
        std::string szText;
        const auto Tell = [&](const SGroupLife& roGroup)
        {
            szText += std::to_string(roGroup.uiGroup) + "@" + std::to_string(roGroup.uiSinceNs);
            for (uint32_t uiStream = 0; uiStream < 32; ++uiStream)
            {
                szText += (roGroup.uiMembers >> uiStream & 1U) != 0 ? "," + std::to_string(uiStream) : "";
            }
            szText += " ";
        };
        for (const SGroupChange& roChange : oGroups.Update(auiLocked, ++uiNow))
        {
            szText += "FCE"[static_cast<size_t>(roChange.eChange)];
            Tell(roChange.oGroup);
        }
        szText += "| ";
        std::ranges::for_each(oGroups.Get(), Tell);
        return szText + "^" + std::to_string(oGroups.GetLargest().uiGroup);
    };
    EXPECT_EQ(Update({}), "| ^0");
    EXPECT_EQ(Update({{5, 31}, {9, 5}, {9, 2}}), "F1@2,2,5,9,31 | 1@2,2,5,9,31 ^1");
    EXPECT_EQ(Update({{5, 31}, {9, 5}, {9, 2}, {0, 1}}), "F2@3,0,1 | 1@2,2,5,9,31 2@3,0,1 ^1");
    EXPECT_EQ(Update({{5, 31}, {0, 1}}), "C1@2,5,31 | 1@2,5,31 2@3,0,1 ^1");
    EXPECT_EQ(Update({{0, 5}, {1, 7}, {7, 31}}), "C1@2,0,5 C2@3,1,7,31 | 1@2,0,5 2@3,1,7,31 ^2");
    EXPECT_EQ(Update({{0, 1}, {1, 7}, {7, 31}, {5, 7}}), "C2@3,0,1,5,7,31 E1@2,0,5 | 2@3,0,1,5,7,31 ^2");
    EXPECT_EQ(Update({{0, 5}, {1, 7}, {7, 31}}), "C2@3,1,7,31 F3@7,0,5 | 2@3,1,7,31 3@7,0,5 ^2");
    EXPECT_EQ(Update({}), "E2@3,1,7,31 E3@7,0,5 | ^0");
    Pairs aoAll;
    for (uint32_t uiStream = 0; uiStream < 32; uiStream += 2)
    {
        aoAll.emplace_back(uiStream, uiStream + 1);
    }
    Update(aoAll);
    EXPECT_EQ(oGroups.Get().size(), 16U);
    EXPECT_EQ(oGroups.Get()[15].uiMembers, 3U << 30);
}

TEST(ReferenceChoice, StaysAsLongAsItMay)
{
    struct SStep
    {
        uint64_t uiNowNs;
        uint32_t uiRunning, uiGrouped, uiLargest;
        int32_t iReference;
    };
    constexpr uint64_t uiSecond = 1'000'000'000;
    const auto Follow = [](int32_t iSetting, std::initializer_list<SStep> aoSteps)
    {
        CReferenceChoice oChoice(iSetting);
        for (const SStep& roStep : aoSteps)
        {
            const int32_t iBefore = oChoice.Get();
            const bool bIsOther = oChoice.Update(roStep.uiRunning, roStep.uiGrouped, roStep.uiLargest, roStep.uiNowNs);
            EXPECT_EQ(oChoice.Get(), roStep.iReference) << roStep.uiNowNs;
            EXPECT_EQ(bIsOther, iBefore != roStep.iReference);
        }
    };
    // The first that runs; the first of the largest group within ten seconds; not when it has stood for longer.
    Follow(-1, {{uiSecond, 0, 0, 0, -1},
                {2 * uiSecond, 0b0110, 0, 0, 1},
                {12 * uiSecond, 0b1111, 0b1101, 0b1100, 2},
                {23 * uiSecond, 0b1111, 0b0011, 0b0011, 2}});
    // Beside all groups for a minute; the largest one does not run.
    Follow(-1, {{uiSecond, 0b0110, 0, 0, 1},
                {12 * uiSecond, 0b1110, 0, 0, 1},
                {20 * uiSecond, 0b1110, 0b1100, 0b1100, 1},
                {72 * uiSecond, 0b1110, 0b1100, 0b1100, 1},
                {72 * uiSecond + 1, 0b1010, 0b1100, 0b0100, 1},
                {72 * uiSecond + 2, 0b1000, 0b1100, 0b0100, 3}});
    // In a group of its own it stays.
    Follow(-1,
           {{uiSecond, 0b0110, 0, 0, 1}, {90 * uiSecond, 0b1111, 0b1111, 0b1101, 1}, {100 * uiSecond, 15, 15, 13, 1}});
    // Stopped for ten seconds; while nothing runs there is nothing better.
    Follow(-1, {{uiSecond, 0b10, 0, 0, 1},
                {30 * uiSecond, 0b10, 0, 0, 1},
                {40 * uiSecond, 0b01, 0, 0, 1},
                {50 * uiSecond, 0, 0, 0, 1},
                {50 * uiSecond + 1, 0b1100, 0, 0, 2}});
    Follow(3, {{uiSecond, 0b0110, 0b0110, 0b0110, 3}, {90 * uiSecond, 0b0110, 0b0110, 0b0110, 3}});
}

// Ticks of 27 MHz that wrap, on a machine whose clock goes 30 ppm faster or slower.
constexpr SWatchSettings oTicks27MHz = {.uiTickFrequencyHz = 27'000'000};

struct SArrival
{
    uint64_t uiTick, uiNs;
};

// The line under all points that is closest to them on average, by trying every pair. After the newest, nanoseconds.
struct SLowerLine
{
    double flAtNewest = 1e18, flSlope = 0.0, flAbove = 1e18;
};

SLowerLine FindLowerLine(std::span<const SArrival> aoArrivals)
{
    std::vector<std::pair<double, double>> aoPoints;
    double flTimeMean = 0.0, flDelayMean = 0.0, flLeast = 1e18, flOldest = 0.0;
    for (const SArrival& roArrival : aoArrivals)
    {
        const double flTime =
            static_cast<double>(static_cast<int64_t>(roArrival.uiTick - aoArrivals.back().uiTick)) / 0.027;
        const double flDelay =
            static_cast<double>(static_cast<int64_t>(roArrival.uiNs - aoArrivals.back().uiNs)) - flTime;
        aoPoints.emplace_back(flTime, flDelay);
        flTimeMean += flTime / static_cast<double>(aoArrivals.size());
        flDelayMean += flDelay / static_cast<double>(aoArrivals.size());
        flLeast = std::min(flLeast, flDelay);
        flOldest = std::min(flOldest, flTime);
    }
    SLowerLine oBest = {flLeast, 0.0, flDelayMean - flLeast};
    if (flOldest > -20e9)
    {
        return oBest;
    }
    oBest = {};
    for (size_t uiRight = 1; uiRight < aoPoints.size(); ++uiRight)
    {
        for (size_t uiLeft = 0; uiLeft < uiRight; ++uiLeft)
        {
            const auto [flTime, flDelay] = aoPoints[uiLeft];
            const double flSlope = (aoPoints[uiRight].second - flDelay) / (aoPoints[uiRight].first - flTime);
            const double flAtNewest = flDelay - flSlope * flTime;
            const double flAbove = flDelayMean - flAtNewest - flSlope * flTimeMean;
            if (flAbove < oBest.flAbove &&
                std::ranges::all_of(aoPoints, [&](const auto& roPoint)
                                    { return roPoint.second > flAtNewest + flSlope * roPoint.first - 1e-3; }))
            {
                oBest = {flAtNewest, flSlope, flAbove};
            }
        }
    }
    return oBest;
}

void ExpectLowerLine(const CTickClock& roClock, std::span<const SArrival> aoArrivals)
{
    const SLowerLine oLine = FindLowerLine(aoArrivals.last(std::min<size_t>(256, aoArrivals.size())));
    const SArrival& roNewest = aoArrivals.back();
    EXPECT_NEAR(roClock.GetNsAfter(roNewest.uiTick, roNewest.uiNs), oLine.flAtNewest, 0.1) << aoArrivals.size();
    EXPECT_NEAR(roClock.GetNsPerTick() * 0.027, 1.0 + oLine.flSlope, 1e-12);
    EXPECT_NEAR(roClock.GetUncertaintySeconds(), oLine.flAbove * 1e-9, 1e-10);
    EXPECT_EQ(roClock.ToTick(roClock.ToMonotonicNs(roNewest.uiTick + 27'000'000)), roNewest.uiTick + 27'000'000);
}

// One that has seen a second's three arrivals for a while, the least late of them in the list.
CTickClock MakeClock(double flRatio, uint32_t uiSeconds, std::vector<SArrival>& raoLeast, bool bCompare = false)
{
    CTickClock oClock(oTicks27MHz);
    std::mt19937 oRandom(11);
    std::exponential_distribution oDelay(1.0 / 50e3);
    for (uint32_t uiSecond = 0; uiSecond < uiSeconds; ++uiSecond)
    {
        std::array<SArrival, 3> aoArrivals;
        for (uint32_t uiField = 0; uiField < 3; ++uiField)
        {
            const uint64_t uiTicks = uint64_t{uiSecond} * 27'000'000 + uiField * 450'000;
            const double flNs = static_cast<double>(uiTicks) / 0.027 * flRatio + oDelay(oRandom);
            const double flHeldUp = uiField == uiSecond % 3 ? 0.0 : 2e6;
            aoArrivals[uiField] = {uiTicks - 81'000'000, 5'000'000'000 + static_cast<uint64_t>(flNs + flHeldUp)};
            oClock.Take(aoArrivals[uiField].uiTick, aoArrivals[uiField].uiNs, 1, 0.0);
        }
        raoLeast.push_back(aoArrivals[uiSecond % 3]);
        oClock.Update();
        if (bCompare && (uiSecond < 3 || uiSecond == 19 || uiSecond == 21 || uiSecond == 60 || uiSecond == 299))
        {
            ExpectLowerLine(oClock, raoLeast);
        }
    }
    return oClock;
}

TEST(TickClock, IsTheLowerEnvelopeOfWhatArrives)
{
    for (const double flRatio : {1.0 + 30e-6, 1.0 - 30e-6})
    {
        std::vector<SArrival> aoLeast;
        MakeClock(flRatio, 300, aoLeast, true);
        EXPECT_FALSE(testing::Test::HasFailure()) << flRatio;
    }
}

TEST(TickClock, TakesTheClockThatMoreStreamsShow)
{
    std::vector<SArrival> aoLeast;
    const CTickClock oYoung = MakeClock(1.0, 4, aoLeast);
    aoLeast.clear();
    const CTickClock oSettled = MakeClock(1.0, 30, aoLeast);
    const auto TakeAt = [&](CTickClock oClock, double flLateNs, double flWaitedNs)
    {
        const uint64_t uiNs =
            oClock.ToMonotonicNs(aoLeast.back().uiTick) + static_cast<uint64_t>(static_cast<int64_t>(flLateNs));
        return oClock.Take(aoLeast.back().uiTick, uiNs, 1, flWaitedNs);
    };
    EXPECT_EQ(TakeAt(oSettled, -19.9e6, 0.0), 0.0);
    EXPECT_EQ(TakeAt(oSettled, -20.1e6, 0.0), -1.0);
    EXPECT_NEAR(TakeAt(oSettled, 501e6, 1.5e6), 501e6, 1.0);
    EXPECT_EQ(TakeAt(oSettled, 502e6, 1.5e6), -1.0);
    EXPECT_EQ(TakeAt(oYoung, -499e6, 0.0), 0.0);
    EXPECT_EQ(TakeAt(oYoung, -501e6, 0.0), -1.0);
    struct SShow
    {
        uint64_t uiStream;
        int64_t iShiftNs; // of the stamp's clock; 0: this one
    };
    const auto Elects = [&](CTickClock oClock, std::vector<SShow> aoShows, uint32_t uiMost = 1)
    {
        uint32_t uiElected = 0;
        for (uint32_t uiSecond = 1; uiSecond <= uiMost; ++uiSecond)
        {
            const uint64_t uiTick = aoLeast.back().uiTick + uint64_t{uiSecond} * 27'000'000;
            const uint64_t uiNs = oSettled.ToMonotonicNs(uiTick);
            for (const SShow& roShow : aoShows)
            {
                oClock.Take(uiTick, uiNs + static_cast<uint64_t>(roShow.iShiftNs), roShow.uiStream, 0.0);
            }
            oClock.Update();
            uiElected += oClock.GetEpoch();
            if (uiElected == 1)
            {
                EXPECT_EQ(oClock.ToMonotonicNs(uiTick), uiNs + static_cast<uint64_t>(aoShows.back().iShiftNs));
                oClock.Take(uiTick + 27'000'000, uiNs + static_cast<uint64_t>(aoShows.back().iShiftNs) + 1'000'000'500,
                            1, 0.0);
                oClock.Update(); // all points are of the new clock
                EXPECT_EQ(oClock.ToMonotonicNs(uiTick + 27'000'000),
                          uiNs + static_cast<uint64_t>(aoShows.back().iShiftNs) + 1'000'000'500);
            }
        }
        return uiElected;
    };
    constexpr int64_t iOther = 7'000'000'000;
    EXPECT_EQ(Elects(oSettled, {{1, 0}, {2, iOther}, {4, iOther}}), 1U);
    EXPECT_EQ(Elects(oSettled, {{2, -iOther}, {2, -iOther}}), 1U);
    EXPECT_EQ(Elects(oSettled, {{2, iOther}}, 3), 0U) << "votes are of one second";
    EXPECT_EQ(Elects(oSettled, {{1, 0}, {2, iOther}, {2, iOther}}, 3), 0U);
    EXPECT_EQ(Elects(oSettled, {{1, 0}, {8, 0}, {2, iOther}, {4, iOther}}, 3), 0U);
    EXPECT_EQ(Elects(oSettled, {{2, iOther}, {4, 2 * iOther}, {8, 3 * iOther}, {16, 4 * iOther}}, 3), 0U);
    EXPECT_EQ(Elects(oSettled, {{2, 2 * iOther}, {4, 2 * iOther + 110'000'000}}, 3), 0U);
    const CTickClock oExact({.uiTickFrequencyHz = 1'000'000, .bTicksAreMonotonic = true, .iTickOffsetNs = -700});
    EXPECT_EQ(oExact.ToMonotonicNs(5), 4300U);
    EXPECT_EQ(oExact.ToTick(1'000'300), 1001U);
    EXPECT_NEAR(oExact.GetUncertaintySeconds(), 1e-6 / std::sqrt(12.0), 1e-18);
    EXPECT_EQ(Elects(oExact, {{2, iOther}, {4, iOther}}), 0U);
}

// The engine itself: fields of 50 Hz that come at once.
TEST(WatchEngine, AddsUpWhatIsUncertainAndWhatWasSkipped)
{
    for (const bool bIsExact : {false, true})
    {
        CWatchEngine oEngine({.uiTickFrequencyHz = 1'000'000, .bTicksAreMonotonic = bIsExact}, 1, 0);
        SStreamDescription oDescription = {};
        oDescription.oTimings.uiHActive = oDescription.oTimings.uiVActive = 100;
        oDescription.oTimings.uiVRate_Hz = 50;
        oDescription.bHasSkippedBuffers = true;
        for (const uint64_t uiSkipped : {5U, 8U, 8U, 2U})
        {
            oDescription.uiSkippedBuffers = uiSkipped;
            oEngine.TakeDescription({}, oDescription);
        }
        SWatchSnapshot oSnapshot;
        SClockReading oClock;
        oClock.iTaiOffsetSeconds = 37;
        oClock.flEstimatedErrorSeconds = 0.004;
        oClock.flReadingErrorSeconds = 0.0003;
        for (uint64_t uiField = 1; uiField < 700; ++uiField)
        {
            SFieldRecord oRecord = {};
            oRecord.uiTick = uiField * 20'000 + 3000; // 3 ms after the grid of the world
            oRecord.uiArrivalNs = oRecord.uiTick * 1000;
            oRecord.uiWaitBeginNs = oRecord.uiArrivalNs - 10'000'000;
            oRecord.uiFieldCounter = 16 * uiField;
            oEngine.TakeRecord({}, oRecord);
            oClock.uiMonotonicNs = oRecord.uiArrivalNs;
            oClock.iUtcNs = 1'700'000'000'000'000'000 + static_cast<int64_t>(oRecord.uiArrivalNs);
            oClock.flLeastWakeSeconds = uiField < 400 ? 0.0 : 7e-6;
            if (oEngine.Analyse(oClock, oSnapshot))
            {
                const double flDelay = bIsExact ? 1e-6 / std::sqrt(12.0) : uiField < 400 ? 30e-6 : 21e-6;
                EXPECT_NEAR(oSnapshot.oClock.flTickUncertaintySeconds, flDelay, 1e-12);
                EXPECT_NEAR(oSnapshot.aoDirections[0].aoStreams[0].flTaiUncertaintySeconds, flDelay + 0.0043, 1e-12);
            }
        }
        EXPECT_NEAR(oSnapshot.aoDirections[0].aoStreams[0].oTaiPhaseSeconds.flValue, 0.003, 1e-9);
        EXPECT_EQ(oSnapshot.aoDirections[0].aoStreams[0].oCounters.uiBuffersSkipped, 5U);
    }
}

constexpr SWatchSettings oTicks1MHz = {.uiTickFrequencyHz = 1'000'000, .bTicksAreMonotonic = true};
constexpr uint64_t uiPeriodUs = 10'000;

TEST(FieldAccounting, FollowsTheCounterAsFarAsTheTimeAllows)
{
    struct SCase
    {
        int64_t iCounts, iTicks;
        double flPeriod;
        ECounterStep eStep;
        int64_t iFields;
    };
    constexpr double flPeriod = uiPeriodUs;
    for (const SCase& roCase : {SCase{0, 5000, flPeriod, ECounterStep::REPEATED, 0},
                                {16, 100, flPeriod, ECounterStep::FORWARD, 1},
                                {7, 100, flPeriod, ECounterStep::FORWARD, 0},
                                {8, 100, flPeriod, ECounterStep::FORWARD, 1},
                                {32, 15'000, flPeriod, ECounterStep::FORWARD, 2},
                                {32, 14'999, flPeriod, ECounterStep::JUMPED, 1},
                                {16 * 16, 155'000, flPeriod, ECounterStep::FORWARD, 16},
                                {16 * 17, 155'000, flPeriod, ECounterStep::FORWARD, 17},
                                {16 * 17, 84'900, flPeriod, ECounterStep::JUMPED, 8},
                                {-16, 30'000, flPeriod, ECounterStep::JUMPED, 3},
                                {-16, -30'000, flPeriod, ECounterStep::JUMPED, 1},
                                {16 * 500, 1, 0.0, ECounterStep::FORWARD, 500},
                                {16 * 1000, 1, 0.0, ECounterStep::FORWARD, 1000},
                                {16 * 1001, 1, 0.0, ECounterStep::JUMPED, 1},
                                {-160, 1, 0.0, ECounterStep::JUMPED, 1}})
    {
        SFieldRecord oBefore = {}, oField = {};
        oBefore.uiFieldCounter = UINT64_MAX - 3;
        oBefore.uiTick = UINT64_MAX - 3;
        oField.uiFieldCounter = oBefore.uiFieldCounter + static_cast<uint64_t>(roCase.iCounts);
        oField.uiTick = oBefore.uiTick + static_cast<uint64_t>(roCase.iTicks);
        const SCounterStep oIs = CounterStep_Get(oBefore, oField, roCase.flPeriod);
        EXPECT_EQ(oIs.eStep, roCase.eStep) << roCase.iCounts << " " << roCase.iTicks;
        EXPECT_EQ(oIs.iFields, roCase.eStep == ECounterStep::FORWARD && roCase.iCounts < 8 ? 1 : roCase.iFields);
    }
}

// Four fields at 10, 20, 30 and 40 ms are missing before the one at 50 ms, which arrives at 50.1 ms.
TEST(FieldAccounting, FindsACauseForEachMissingField)
{
    constexpr uint64_t uiMs = 1'000'000;
    struct SCase
    {
        const char* szWhat;
        SStretch oOutside;
        uint64_t uiRunDelayNs;
        SStall oStall;
        const char* szCauses; // of the fields, the oldest first: Lost, Outside, no Processor, Machine, Neighbour
    };
    constexpr uint64_t uiSelf = 4;
    const SCase aoCases[] = {
        {"nothing", {}, 0, {}, "LLLL"},
        {"outside", {19 * uiMs, 21 * uiMs}, 0, {}, "LOLL"},
        {"just before it", {20 * uiMs + 620'000, 21 * uiMs}, 0, {}, "LOLL"},
        {"too far before it", {20 * uiMs + 630'000, 21 * uiMs}, 0, {}, "LLLL"},
        {"just behind it", {11 * uiMs, 30 * uiMs - 620'000}, 0, {}, "LOOL"},
        {"too far behind it", {11 * uiMs, 30 * uiMs - 630'000}, 0, {}, "LOLL"},
        {"ready", {}, 17'700'000, {}, "LLPP"},
        {"not ready for three quarters of it", {}, 17'500'000, {}, "LLLP"},
        {"ready in an earlier wait", {}, 90 * uiMs, {}, "LPPP"},
        {"a neighbour", {}, 0, {{22'600'000, 32'400'000}, 0, 2, false}, "LNLL"},
        {"a quarter of two", {}, 0, {{22'400'000, 32'500'000}, 3, 2, false}, "LNNL"},
        {"its own wait", {}, 0, {{22'600'000, 32'400'000}, 0, uiSelf | 2, false}, "LMLL"},
        {"the machine", {}, 0, {{22'600'000, 32'400'000}, 0, 2, true}, "LMLL"},
        {"it stood ready", {}, 0, {{22'600'000, 32'400'000}, uiSelf, 2, true}, "LPLL"},
        {"outside before all", {19 * uiMs, 21 * uiMs}, 0, {{0, 100 * uiMs}, uiSelf, 0, true}, "POPP"},
    };
    const CTickClock oClock(oTicks1MHz);
    for (const SCase& roCase : aoCases)
    {
        SFieldGap oGap;
        oGap.uiTick = 50'000;
        oGap.uiArrivalNs = 50'100'000;
        oGap.uiLastWaitNs = 15 * uiMs;
        oGap.uiRunDelayNs = roCase.uiRunDelayNs;
        oGap.flPeriod = uiPeriodUs;
        oGap.iMissing = 4;
        oGap.aoOutside = {{{1, 2}, roCase.oOutside}};
        oGap.uiNbOfOutside = roCase.oOutside.uiEndNs > 0 ? 2 : 0;
        // A stall that explains nothing comes first and one of a neighbour last: what it knows of itself counts.
        const std::array aoStalls = {SStall{{1, 2}, uiSelf, 0, true}, roCase.oStall,
                                     SStall{roCase.oStall.oStretch, 0, 8, false}};
        for (const int64_t iLater : {0, 2})
        {
            oGap.iLater = iLater;
            const SGapVerdict oIs = FieldGap_Judge(oGap, oClock, aoStalls, uiSelf);
            const std::string szCauses = std::string(roCase.szCauses).substr(0, 4 - static_cast<size_t>(iLater));
            const auto Count = [&](char cCause) { return static_cast<uint64_t>(std::ranges::count(szCauses, cCause)); };
            EXPECT_EQ(oIs.uiLost, Count('L')) << roCase.szWhat;
            EXPECT_EQ(oIs.uiUnobserved, szCauses.size() - Count('L'));
            EXPECT_EQ(oIs.auiCauses, (std::array{Count('O'), Count('P'), Count('M'), Count('N')})) << roCase.szWhat;
            EXPECT_EQ(oIs.uiFirstLostTick, Count('L') > 0 ? (szCauses.find('L') + 1) * uiPeriodUs : 0U);
            const size_t uiUnobserved = szCauses.find_first_not_of('L');
            EXPECT_EQ(oIs.uiFirstUnobservedTick,
                      uiUnobserved == std::string::npos ? 10'000 : (uiUnobserved + 1) * uiPeriodUs);
        }
    }
    SFieldGap oLong;
    oLong.uiTick = 2'000'000'000;
    oLong.iMissing = 100'001;
    oLong.iLater = 1;
    oLong.flPeriod = uiPeriodUs;
    const SGapVerdict oIs = FieldGap_Judge(oLong, oClock, {}, uiSelf);
    EXPECT_EQ(oIs.auiCauses[static_cast<size_t>(EUnobservedCause::MACHINE)], 100'000U);
    EXPECT_EQ(oIs.uiFirstUnobservedTick, 999'990'000U);
}

TEST(FieldAccounting, TellsForHowLongAWaitWasHeldUp)
{
    EXPECT_TRUE(FieldGap_IsNotablyLate(200.1e3, 10e3, 10e6));
    EXPECT_FALSE(FieldGap_IsNotablyLate(199e3, 10e3, 10e6));
    EXPECT_TRUE(FieldGap_IsNotablyLate(401e3, 100e3, 10e6));
    EXPECT_FALSE(FieldGap_IsNotablyLate(399e3, 100e3, 10e6));
    EXPECT_TRUE(FieldGap_IsNotablyLate(2.51e6, 5e6, 10e6));
    EXPECT_FALSE(FieldGap_IsNotablyLate(2.49e6, 5e6, 10e6));
    EXPECT_FALSE(FieldGap_IsNotablyLate(1e9, 0.0, 0.0));
    struct SCase
    {
        uint64_t uiReadyNs, uiWaitedNs;
        int64_t iFields;
        double flLateNs, flStall;
        bool bIsExplained;
    };
    for (const SCase& roCase : {SCase{0, 90'000'000, 1, 2e6, 2e6, false},
                                {0, 90'000'000, 3, 2e6, 22e6, false},
                                {0, 5'000'000, 3, 2e6, 5e6, false},
                                {1'700'000, 90'000'000, 3, 2e6, 1.7e6, true},
                                {1'690'000, 90'000'000, 3, 2e6, 22e6, false},
                                {9'000'000, 90'000'000, 1, 2e6, 2e6, true}})
    {
        SFieldRecord oRecord = {};
        oRecord.uiRunDelayNs = roCase.uiReadyNs;
        oRecord.uiWaitBeginNs = UINT64_MAX - 1'000'000;
        oRecord.uiArrivalNs = oRecord.uiWaitBeginNs + roCase.uiWaitedNs;
        const SStallLength oIs = FieldGap_GetStall(oRecord, roCase.iFields, roCase.flLateNs, 10e6);
        EXPECT_DOUBLE_EQ(oIs.flNs, roCase.flStall);
        EXPECT_EQ(oIs.bIsExplained, roCase.bIsExplained);
    }
}

TEST(WaitTrace, KeepsEightStretchesAndTheEndOfTheLast)
{
    CWaitTrace oTrace;
    SFieldRecord oRecord = {};
    uint64_t uiNow = 1000;
    const auto Wait = [&](uint64_t uiOutsideNs)
    {
        oRecord.uiWaitBeginNs = uiNow + uiOutsideNs;
        oRecord.uiArrivalNs = uiNow = oRecord.uiWaitBeginNs + 100'000;
        oRecord.uiRunDelayNs = 7;
        oTrace.Take(oRecord, 1'600'000.0);
    };
    Wait(50); // the first of all has nothing before it
    EXPECT_EQ(oTrace.GetLongestOutsideNs(), 0.0);
    oTrace.Begin(oRecord);
    const uint64_t uiFirst = uiNow;
    Wait(50);     // the first one counts however short it is
    Wait(99'999); // a sixteenth of a period
    for (uint64_t uiStretch = 0; uiStretch < 9; ++uiStretch)
    {
        Wait(100'000 + uiStretch);
    }
    SFieldGap oGap;
    oTrace.FillGap(oGap);
    EXPECT_EQ(oGap.uiRunDelayNs, 11U * 7U);
    EXPECT_EQ(oGap.uiNbOfOutside, 8U);
    EXPECT_EQ(oGap.aoOutside[0].uiBeginNs, uiFirst);
    EXPECT_EQ(oGap.aoOutside[0].uiEndNs, uiFirst + 50);
    EXPECT_EQ(oGap.aoOutside[1].uiEndNs - oGap.aoOutside[1].uiBeginNs, 100'000U);
    EXPECT_EQ(oGap.aoOutside[7].uiEndNs, oRecord.uiWaitBeginNs);
    EXPECT_EQ(oTrace.GetLongestOutsideNs(), 100'006.0 + 100'007.0 + 100'008.0 + 2 * 100'000.0);
    oTrace.Begin(oRecord);
    Wait(3);
    EXPECT_EQ(oTrace.GetLongestOutsideNs(), 3.0);
}

TEST(StallList, JoinsWhatTouchesAndKeepsTheLongest)
{
    CStallList oList;
    oList.Add({{100, 200}, 1, 2, false});
    oList.Add({{200, 300}, 4, 0, true});
    oList.Add({{50, 100}, 0, 8, false});
    ASSERT_EQ(oList.Get().size(), 1U);
    EXPECT_EQ(oList.Get()[0].oStretch.uiBeginNs, 50U);
    EXPECT_EQ(oList.Get()[0].oStretch.uiEndNs, 300U);
    EXPECT_EQ(oList.Get()[0].uiReady, 5U);
    EXPECT_EQ(oList.Get()[0].uiHeld, 10U);
    EXPECT_TRUE(oList.Get()[0].bIsMachine);
    for (uint64_t uiStall = 1; uiStall < 64; ++uiStall)
    {
        oList.Add({{1000 * uiStall, 1000 * uiStall + 100}});
    }
    oList.Add({{70'000, 70'100}}); // no longer than any
    EXPECT_EQ(oList.Get().back().oStretch.uiBeginNs, 63'000U);
    oList.Add({{71'000, 71'101}});
    EXPECT_EQ(oList.Get().size(), 64U);
    EXPECT_EQ(oList.Get()[1].oStretch.uiBeginNs, 71'000U);
    oList.DropBefore(63'100);
    ASSERT_EQ(oList.Get().size(), 2U);
    EXPECT_EQ(oList.Get()[1].oStretch.uiEndNs, 63'100U);
}

// Events on their way out, with a flush every second.
class CQueue
{
public:
    explicit CQueue(uint64_t uiBefore = 0) : oQueue({.uiTickFrequencyHz = 1'000'000, .uiEventsBefore = uiBefore}, 1, 2)
    {
    }
    void Add(EWatchEventKind eKind, uint64_t uiTick, uint64_t uiCount = 0, double flSeconds = 0.0, uint64_t uiAfter = 0)
    {
        SWatchEvent oEvent = {};
        oEvent.eKind = eKind;
        oEvent.oKey = {EStreamDirection::OUTPUT, 1};
        oEvent.uiTick = uiTick;
        oEvent.uiCount = uiCount;
        oEvent.flSeconds = flSeconds;
        oEvent.uiBefore = uiAfter + 100;
        oEvent.uiAfter = uiAfter;
        oEvent.flAfter = static_cast<double>(uiAfter);
        oQueue.Add(oEvent, 77'000'000);
    }
    // Second and count of each that came.
    std::string Flush(uint64_t uiSecond)
    {
        oQueue.Flush(
            {.uiMonotonicNs = uiSecond * 1'000'000'000, .iUtcNs = static_cast<int64_t>(uiSecond) * 1'000'000'000},
            oClock);
        aoEvents.assign(oQueue.Take().begin(), oQueue.Take().end());
        std::string szText;
        for (const SWatchEvent& roEvent : aoEvents)
        {
            szText += std::to_string(uiSecond) + "x" + std::to_string(roEvent.uiCount) + " ";
        }
        return szText;
    }
    CTickClock oClock{oTicks1MHz};
    CEventQueue oQueue;
    std::vector<SWatchEvent> aoEvents;
};

TEST(EventQueue, FoldsABurstIntoFewerAndFewer)
{
    CQueue oQueue;
    std::string szText;
    for (uint64_t uiSecond = 100; uiSecond < 14'700; ++uiSecond)
    {
        if (uiSecond < 14'610)
        {
            oQueue.Add(EWatchEventKind::FIELD_LATE, uiSecond * 1'000'000, 3, 0.001);
            oQueue.Add(EWatchEventKind::FIELD_LATE, uiSecond * 1'000'000 + 9, 0, uiSecond == 130 ? -0.5 : 0.2);
        }
        szText += oQueue.Flush(uiSecond);
        if (uiSecond == 160)
        {
            EXPECT_EQ(oQueue.aoEvents[0].flSeconds, -0.5);
            EXPECT_EQ(oQueue.aoEvents[0].iUtcNs, 101'000'000'000);
        }
    }
    EXPECT_EQ(szText,
              "100x4 160x240 280x480 520x960 1000x1920 1960x3840 3880x7680 7480x14400 11080x14400 14619x14116 ");
    // What happens again after ten quiet seconds is told at once, and again after a minute as at first.
    szText.clear();
    for (uint64_t uiSecond = 15'000; uiSecond < 15'061; ++uiSecond)
    {
        oQueue.Add(EWatchEventKind::FIELD_LATE, 1, 2);
        szText += oQueue.Flush(uiSecond);
    }
    EXPECT_EQ(szText, "15000x2 15060x120 ");
    oQueue.Add(EWatchEventKind::FIELD_LATE, 1, 2);
    EXPECT_EQ(oQueue.Flush(15'061), "");
    oQueue.oQueue.EndAll();
    EXPECT_EQ(oQueue.Flush(15'062), "15062x2 ");
}

TEST(EventQueue, TellsTheFirstTenOfWhatIsNotOfFieldsOneByOne)
{
    CQueue oQueue(500);
    for (uint64_t uiEvent = 1; uiEvent <= 13; ++uiEvent)
    {
        oQueue.Add(EWatchEventKind::SIGNAL_BACK, 50 - uiEvent, uiEvent, 0.25, uiEvent);
    }
    EXPECT_EQ(oQueue.Flush(1), "1x36 1x10 1x9 1x8 1x7 1x6 1x5 1x4 1x3 1x2 1x1 ") << "in the order of their moments";
    EXPECT_EQ(oQueue.aoEvents[0].flSeconds, 0.75);
    EXPECT_EQ(oQueue.aoEvents[0].uiBefore, 111U);
    EXPECT_EQ(oQueue.aoEvents[0].uiAfter, 13U);
    EXPECT_EQ(oQueue.aoEvents[0].flAfter, 13.0);
    EXPECT_EQ(oQueue.aoEvents[0].uiNumber, 501U);
    EXPECT_EQ(oQueue.oQueue.GetLast({EStreamDirection::OUTPUT, 1}).uiNumber, 511U);
    EXPECT_EQ(oQueue.oQueue.GetLast({EStreamDirection::OUTPUT, 1}).iUtcNs, 49'000);
    EXPECT_EQ(oQueue.oQueue.GetLast({EStreamDirection::OUTPUT, 0}).uiNumber, 0U);
    EXPECT_EQ(oQueue.oQueue.GetLast({}).uiNumber, 0U);
}

TEST(EventQueue, DatesByTickOrArrivalAndTellsAllThatHappenedUnfolded)
{
    CQueue oQueue;
    oQueue.Add(EWatchEventKind::FIELDS_LOST, 80'000, 2, 0.5);
    oQueue.Add(EWatchEventKind::PHASE_STEPPED, 0, 0, 1.0);
    oQueue.Add(EWatchEventKind::FIELDS_LOST, 70'000, 3, 0.25);
    oQueue.Add(EWatchEventKind::PHASE_STEPPED, 0, 0, 2.0);
    oQueue.Flush(1);
    const auto aoHappened = oQueue.oQueue.GetHappenings();
    ASSERT_EQ(aoHappened.size(), 3U);
    EXPECT_EQ(aoHappened[0].uiCount, 5U);
    EXPECT_EQ(aoHappened[0].flSeconds, 0.75);
    EXPECT_EQ(aoHappened[0].iUtcNs, 80'000'000);
    EXPECT_EQ(aoHappened[2].flSeconds, 2.0);
    ASSERT_EQ(oQueue.aoEvents.size(), 3U);
    EXPECT_EQ(oQueue.aoEvents[0].flSeconds, 1.0) << "equals stay in their order";
    EXPECT_EQ(oQueue.aoEvents[1].uiTick, 77'000U);
    EXPECT_EQ(oQueue.aoEvents[2].flSeconds, 0.5);
    oQueue.Add(EWatchEventKind::PHASE_STEPPED, 80'000);
    oQueue.Add(EWatchEventKind::FIELDS_LOST, 80'000);
    oQueue.oQueue.ForgetTicks();
    oQueue.oQueue.EndAll();
    EXPECT_EQ(oQueue.Flush(2), "2x1 2x1 ");
    EXPECT_EQ(oQueue.aoEvents[0].iUtcNs, 77'000'000);
    EXPECT_EQ(oQueue.aoEvents[1].iUtcNs, 77'000'000);
    EXPECT_EQ(oQueue.oQueue.GetHappenings().size(), 2U);
    for (int iRound = 0; iRound < 5; ++iRound)
    {
        for (int iEvent = 0; iEvent < 4100; ++iEvent)
        {
            oQueue.Add(EWatchEventKind::GROUP_FORMED, 1);
        }
        oQueue.oQueue.Flush({}, oQueue.oClock);
    }
    EXPECT_EQ(oQueue.oQueue.Take().size(), 16'384U);
    EXPECT_EQ(oQueue.oQueue.GetDropped(), 5U * 4100U - 16'384U);
    EXPECT_TRUE(oQueue.oQueue.Take().empty());
}

} // namespace
