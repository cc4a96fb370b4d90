// The clock behind ticks beside the line that every pair of arrivals is tried for, and what the engine makes of it.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>
#include <span>
#include <vector>

#include "TickClock.h"
#include "WatchContext.h"
#include "WatchEngine.h"

namespace
{

// Ticks of 27 MHz that wrap, on a machine whose clock goes 30 ppm faster or slower.
const SWatchSettings oTicks27MHz = {.uiTickFrequencyHz = 27'000'000};

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

} // namespace
