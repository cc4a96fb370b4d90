#include "WatchData.h"

#include <cmath>
#include <map>
#include <random>

#include "HistoryMaker.h"
#include "MinuteSummary.h"
#include "StoreReader.h"
#include "StoreWriter.h"
#include "WatchSteps.h"

namespace
{

constexpr double flPeriod = 1.0 / 60.0;

SHistoryPoint MakePoint(double flPhase, double flRate, double flStdErr)
{
    SHistoryPoint oPoint;
    oPoint.iUtcNs = iStepsBeginUtcNs + 30 * iNsPerSecond;
    oPoint.uiFields = 60;
    oPoint.oPhaseSeconds = {flPhase, 1e-9, true};
    oPoint.oRateHz = {flRate, flStdErr, flStdErr > 0.0};
    return oPoint;
}

// What counts on and on, and what a second's growth of it is called.
constexpr std::pair<uint64_t SStreamCounters::*, uint32_t SHistoryPoint::*> aoCounters[] = {
    {&SStreamCounters::uiFields, &SHistoryPoint::uiFields},
    {&SStreamCounters::uiFieldsObserved, &SHistoryPoint::uiObserved},
    {&SStreamCounters::uiFieldsLost, &SHistoryPoint::uiLost},
    {&SStreamCounters::uiFieldsUnobserved, &SHistoryPoint::uiUnobserved},
    {&SStreamCounters::uiBuffersSkipped, &SHistoryPoint::uiSkipped},
    {&SStreamCounters::uiRepeatedBeyond, &SHistoryPoint::uiRepeated}};

// Buffers in one place, of a point and of the raw figures.
constexpr std::pair<SBufferLevel SHistoryPoint::*, SQueueLevel SQueueWindow::*> aoLevels[] = {
    {&SHistoryPoint::oReady, &SQueueWindow::oReady},
    {&SHistoryPoint::oLoaned, &SQueueWindow::oLoaned},
    {&SHistoryPoint::oInternal, &SQueueWindow::oInternal}};

void CompareCounters(const SHistoryPoint& roPoint, const SStreamFigures& roBefore, const SStreamFigures& roNow)
{
    for (const auto& [puiCounter, puiGrowth] : aoCounters)
    {
        EXPECT_EQ(roPoint.*puiGrowth, roNow.oCounters.*puiCounter - roBefore.oCounters.*puiCounter);
    }
    EXPECT_NEAR(roPoint.flRunningSeconds, roNow.oCounters.flRunningSeconds - roBefore.oCounters.flRunningSeconds, 1e-9);
}

} // namespace

// Beside the raw figures of every second, which are all kept: what a second was, and what a minute is by its seconds.
class HistoryReference : public testing::Test
{
protected:
    static constexpr int64_t msc_iSeconds = 700;
    static constexpr SStreamKey msc_aoStreams[] = {{EStreamDirection::INPUT, 0}, {EStreamDirection::OUTPUT, 0}};

    const SStreamFigures& GetRaw(size_t uiStream, int64_t iSecond) const
    {
        return m_aoRaw[static_cast<size_t>(iSecond)].aoDirections[uiStream].aoStreams[0];
    }
    int64_t GetBegin(int64_t iSecond) const { return m_aoRaw[static_cast<size_t>(iSecond) - 1].oClock.iUtcNs; }
    void Make();
    void CompareSecond(size_t uiStream, int64_t iSecond, const SHistoryPoint& roPoint) const;
    void CompareMinute(size_t uiStream, const std::vector<int64_t>& raiSeconds, const SMinuteSummary& roMinute) const;
    double Draw() { return std::uniform_real_distribution(0.1, 1.0)(m_oRandom); }

    std::mt19937_64 m_oRandom{3};
    std::vector<SWatchSnapshot> m_aoRaw{1}; // the first one: all counters are 0
};

void HistoryReference::Make()
{
    m_aoRaw[0].oClock.iUtcNs = iStepsBeginUtcNs + 17 * iNsPerSecond;
    for (size_t uiStream = 0; uiStream < 2; ++uiStream)
    {
        m_aoRaw[0].aoDirections[uiStream].aoStreams.emplace_back().oKey = msc_aoStreams[uiStream];
    }
    while (m_aoRaw.size() <= msc_iSeconds)
    {
        SWatchSnapshot oSnapshot = m_aoRaw.back();
        oSnapshot.oClock.iUtcNs +=
            iNsPerSecond + (m_aoRaw.size() == 1 ? 0 : static_cast<int64_t>(m_oRandom() % 2001) - 1000);
        for (SDirectionFigures& roDirection : oSnapshot.aoDirections)
        {
            SStreamFigures& ro = roDirection.aoStreams[0];
            std::ranges::for_each(aoCounters,
                                  [&](const auto& roPair) { ro.oCounters.*roPair.first += m_oRandom() % 100; });
            ro.oCounters.flWatchedSeconds += Draw();
            ro.oCounters.flRunningSeconds += Draw();
            ro.flPeriodSeconds = flPeriod;
            ro.aoRateHz[0] = {60.0 + Draw(), 1e-3 * Draw(), m_oRandom() % 4 != 0};
            ro.aoRateHz[1] = {1.0, 1.0, true};
            ro.oPhaseSeconds = {1e-4 * (Draw() - 0.5), 1e-9 * Draw(), m_oRandom() % 4 != 0};
            ro.oDriftRatio = {Draw(), Draw(), true};
            ro.flJitterRmsSeconds = Draw();
            ro.eLock = static_cast<ELockState>(m_oRandom() % 4);
            ro.eState = static_cast<EStreamState>(m_oRandom() % 3);
            const auto DrawLevel = [&] {
                return SQueueLevel{Draw(), static_cast<uint32_t>(m_oRandom() % 90),
                                   static_cast<uint32_t>(m_oRandom() % 70'000)};
            };
            ro.oQueue.aoWindows[0] = {m_oRandom() % 3 != 0, DrawLevel(), DrawLevel(), DrawLevel()};
            ro.oQueue.aoWindows[1] = {true, {9.0, 9, 9}, {9.0, 9, 9}, {}};
            ro.oQueue.bIsHeldKnown = m_oRandom() % 3 != 0;
            ro.oQueue.flHeldSeconds = Draw();
            ++ro.oPacing.auiCounts[m_oRandom() % ro.oPacing.auiCounts.size()];
            ro.oPacing.flSumSeconds += Draw();
            ro.oPacingWorst = {Draw() - 0.5, oSnapshot.oClock.iUtcNs - 5};
        }
        m_aoRaw.push_back(oSnapshot);
    }
}

void HistoryReference::CompareSecond(size_t uiStream, int64_t iSecond, const SHistoryPoint& roPoint) const
{
    const SStreamFigures& ro = GetRaw(uiStream, iSecond);
    EXPECT_EQ(roPoint.iUtcNs, GetBegin(iSecond));
    EXPECT_EQ(roPoint.uiSeconds, 1U);
    CompareCounters(roPoint, GetRaw(uiStream, iSecond - 1), ro);
    EXPECT_EQ(std::tuple(roPoint.oRateHz.bIsValid, roPoint.oRateHz.flValue, roPoint.oRateHz.flStdErr,
                         roPoint.oPhaseSeconds.flValue, roPoint.flPhaseMinSeconds, roPoint.flPhaseMaxSeconds,
                         roPoint.oDriftRatio.flValue, roPoint.flJitterRmsSeconds, roPoint.eLock, roPoint.eState),
              std::tuple(ro.aoRateHz[0].bIsValid, ro.aoRateHz[0].flValue, ro.aoRateHz[0].flStdErr,
                         ro.oPhaseSeconds.flValue, ro.oPhaseSeconds.flValue, ro.oPhaseSeconds.flValue,
                         ro.oDriftRatio.flValue, ro.flJitterRmsSeconds, ro.eLock, ro.eState));
    const SQueueWindow& roQueue = ro.oQueue.aoWindows[0];
    EXPECT_EQ(roPoint.flHeldSeconds,
              roQueue.bIsKnown && ro.oQueue.bIsHeldKnown ? static_cast<float>(ro.oQueue.flHeldSeconds) : -1.0F);
    for (const auto& [puiOfPoint, puiRaw] : aoLevels)
    {
        EXPECT_EQ((roPoint.*puiOfPoint).flMean,
                  roQueue.bIsKnown ? static_cast<float>((roQueue.*puiRaw).flMean) : -1.0F);
    }
}

void HistoryReference::CompareMinute(size_t uiStream, const std::vector<int64_t>& raiSeconds,
                                     const SMinuteSummary& roMinute) const
{
    const SStreamFigures& roBefore = GetRaw(uiStream, raiSeconds.front() - 1);
    const SStreamFigures& roLast = GetRaw(uiStream, raiSeconds.back());
    const SHistoryPoint& roPoint = roMinute.oPoint;
    EXPECT_EQ(roPoint.uiSeconds, 60U);
    EXPECT_EQ(roMinute.uiPoints, raiSeconds.size());
    EXPECT_NEAR(roMinute.flWatchedSeconds, roLast.oCounters.flWatchedSeconds - roBefore.oCounters.flWatchedSeconds,
                1e-9);
    CompareCounters(roPoint, roBefore, roLast);
    EXPECT_EQ(std::tuple(roPoint.oDriftRatio.flValue, roPoint.eLock, roPoint.eState),
              std::tuple(roLast.oDriftRatio.flValue, roLast.eLock, roLast.eState));
    const auto CompareMean = [&](const SEstimate& roMean, uint32_t uiPoints, auto fnGet)
    {
        double flSum = 0.0, flSquares = 0.0, flCount = 0.0;
        for (const int64_t iSecond : raiSeconds)
        {
            const SEstimate& ro = fnGet(GetRaw(uiStream, iSecond));
            flCount += ro.bIsValid ? 1.0 : 0.0;
            flSum += ro.bIsValid ? ro.flValue : 0.0;
            flSquares += ro.bIsValid ? ro.flStdErr * ro.flStdErr : 0.0;
        }
        EXPECT_EQ(uiPoints, flCount);
        EXPECT_EQ(roMean.bIsValid, flCount > 0.0);
        EXPECT_NEAR(roMean.flValue, flSum / flCount, 1e-12 * std::abs(roMean.flValue) + 1e-17);
        EXPECT_NEAR(roMean.flStdErr, std::sqrt(flSquares) / flCount, 1e-12 * roMean.flStdErr);
    };
    CompareMean(
        roPoint.oRateHz, roMinute.uiRatePoints, [](const SStreamFigures& ro) -> auto& { return ro.aoRateHz[0]; });
    CompareMean(
        roPoint.oPhaseSeconds, roMinute.uiPhasePoints,
        [](const SStreamFigures& ro) -> auto& { return ro.oPhaseSeconds; });
    double flJitter = 0.0, flLeast = 1.0, flMost = -1.0, flHeld = 0.0;
    uint32_t uiQueued = 0, uiHeld = 0;
    SPacingWorst oWorst;
    for (const int64_t iSecond : raiSeconds)
    {
        const SStreamFigures& ro = GetRaw(uiStream, iSecond);
        oWorst = std::abs(ro.oPacingWorst.flSeconds) > std::abs(oWorst.flSeconds) ? ro.oPacingWorst : oWorst;
        flJitter = std::max(flJitter, ro.flJitterRmsSeconds);
        flLeast = ro.oPhaseSeconds.bIsValid ? std::min(flLeast, ro.oPhaseSeconds.flValue) : flLeast;
        flMost = ro.oPhaseSeconds.bIsValid ? std::max(flMost, ro.oPhaseSeconds.flValue) : flMost;
        const bool bIsKnown = ro.oQueue.aoWindows[0].bIsKnown;
        uiQueued += bIsKnown ? 1 : 0;
        uiHeld += bIsKnown && ro.oQueue.bIsHeldKnown ? 1 : 0;
        flHeld += bIsKnown && ro.oQueue.bIsHeldKnown ? ro.oQueue.flHeldSeconds : 0.0;
    }
    EXPECT_EQ(std::tuple(roPoint.flJitterRmsSeconds, roPoint.flPhaseMinSeconds, roPoint.flPhaseMaxSeconds,
                         roMinute.uiQueuePoints, roMinute.uiHeldPoints),
              std::tuple(flJitter, flLeast, flMost, uiQueued, uiHeld));
    EXPECT_NEAR(roPoint.flHeldSeconds, flHeld / uiHeld, 1e-6);
    for (const auto& [puiOfPoint, puiRaw] : aoLevels)
    {
        double flSum = 0.0;
        uint32_t uiLeast = UINT16_MAX, uiMost = 0;
        for (const int64_t iSecond : raiSeconds)
        {
            const SQueueWindow& roWindow = GetRaw(uiStream, iSecond).oQueue.aoWindows[0];
            flSum += roWindow.bIsKnown ? (roWindow.*puiRaw).flMean : 0.0;
            uiLeast = roWindow.bIsKnown ? std::min(uiLeast, (roWindow.*puiRaw).uiLeast) : uiLeast;
            uiMost = roWindow.bIsKnown ? std::max(uiMost, (roWindow.*puiRaw).uiMost) : uiMost;
        }
        EXPECT_NEAR((roPoint.*puiOfPoint).flMean, flSum / uiQueued, 1e-6);
        EXPECT_EQ((roPoint.*puiOfPoint).uiLeast, uiLeast);
        EXPECT_EQ((roPoint.*puiOfPoint).uiMost, std::min<uint32_t>(uiMost, UINT16_MAX));
    }
    EXPECT_EQ(roPoint.oPacing.flWorst, static_cast<float>(roMinute.oPacing.oWorst.flSeconds));
    EXPECT_EQ(roPoint.oPacing.flP50, static_cast<float>(Pacing_GetPercentile(roMinute.oPacing, 0.5)));
    for (size_t uiBin = 0; uiBin < roMinute.oPacing.auiCounts.size(); ++uiBin)
    {
        EXPECT_EQ(roMinute.oPacing.auiCounts[uiBin],
                  roLast.oPacing.auiCounts[uiBin] - roBefore.oPacing.auiCounts[uiBin]);
    }
    EXPECT_NEAR(roMinute.oPacing.flSumSeconds, roLast.oPacing.flSumSeconds - roBefore.oPacing.flSumSeconds, 1e-9);
    EXPECT_EQ(roMinute.oPacing.oWorst.flSeconds, oWorst.flSeconds);
    EXPECT_EQ(roMinute.oPacing.oWorst.iUtcNs, oWorst.iUtcNs);
}

TEST_F(HistoryReference, SecondsAndMinutesAreThoseOfTheRawFigures)
{
    Make();
    CHistoryMaker oMaker({});
    CWatchData oData(1, 1, nullptr);
    std::array<std::map<int64_t, SMinuteSummary>, 2> aoMinutes;
    std::array<std::map<int64_t, std::vector<int64_t>>, 2> aoSeconds;
    for (int64_t iSecond = 1; iSecond <= msc_iSeconds; ++iSecond)
    {
        SCOPED_TRACE(iSecond);
        oMaker.Take(m_aoRaw[static_cast<size_t>(iSecond)]);
        ASSERT_EQ(oMaker.GetSeconds().size(), 2U);
        for (size_t uiStream = 0; uiStream < 2; ++uiStream)
        {
            EXPECT_EQ(oMaker.GetSeconds()[uiStream].oKey, msc_aoStreams[uiStream]);
            CompareSecond(uiStream, iSecond, oMaker.GetSeconds()[uiStream].oPoint);
            aoSeconds[uiStream][(GetBegin(iSecond) + iNsPerSecond / 2) / iNsPerMinute].push_back(iSecond);
        }
        for (const SMinuteSummary& roMinute : oMaker.GetMinutes())
        {
            aoMinutes[roMinute.oKey == msc_aoStreams[0] ? 0 : 1][roMinute.oPoint.iUtcNs / iNsPerMinute] = roMinute;
        }
        oData.Put({MakeSecond(iSecond, 1).poPublication, {}, oMaker.GetSeconds(), oMaker.GetMinutes()});
    }
    EXPECT_EQ(oData.GetReach().iSecondsFromUtcNs, GetBegin(101));
    const auto Find = [&](size_t uiStream, uint32_t uiSeconds, uint32_t uiMost) {
        return oData.FindHistory({msc_aoStreams[uiStream], 0, INT64_MAX, uiSeconds, uiMost});
    };
    for (size_t uiStream = 0; uiStream < 2; ++uiStream)
    {
        ASSERT_EQ(aoMinutes[uiStream].size(), aoSeconds[uiStream].size());
        for (const auto& [iMinute, roMinute] : aoMinutes[uiStream])
        {
            SCOPED_TRACE(iMinute);
            EXPECT_EQ(roMinute.bIsComplete, iMinute != aoMinutes[uiStream].rbegin()->first);
            CompareMinute(uiStream, aoSeconds[uiStream][iMinute], roMinute);
        }
        // The memory has ten minutes of seconds, and all minutes with the running one.
        ASSERT_EQ(Find(uiStream, 1, UINT32_MAX).size(), uiSecondsInMemory);
        EXPECT_EQ(Find(uiStream, 1, UINT32_MAX).front().iUtcNs, GetBegin(101));
        EXPECT_EQ(Find(uiStream, 1, 1).front().iUtcNs, GetBegin(700));
        const auto aoOfMemory = Find(uiStream, 60, UINT32_MAX);
        ASSERT_EQ(aoOfMemory.size(), aoMinutes[uiStream].size());
        EXPECT_EQ(aoOfMemory.back().uiFields, aoMinutes[uiStream].rbegin()->second.oPoint.uiFields);
        EXPECT_EQ(Find(uiStream, 60, 2).front().iUtcNs, aoOfMemory[aoOfMemory.size() - 2].iUtcNs);
    }
    // The clock goes back, and time with it.
    oMaker.Take(m_aoRaw[300]);
    oData.Put({MakeSecond(701, 1).poPublication, {}, oMaker.GetSeconds(), oMaker.GetMinutes()});
    EXPECT_TRUE(std::ranges::is_sorted(Find(0, 1, UINT32_MAX), {}, &SHistoryPoint::iUtcNs));
}

// A phase that crosses half a period goes on at the other end; the mean must not land in the middle.
TEST(MinuteSummary, FollowsAPhaseAroundHalfAPeriod)
{
    SMinuteSummary oMinute;
    for (const double flPhase : {flPeriod / 2 - 2e-6, flPeriod / 2 - 1e-6, -flPeriod / 2, -flPeriod / 2 + 1e-6})
    {
        MinuteSummary_Add(oMinute, MakePoint(flPhase, 60.0, 1e-6), 1.0, flPeriod);
    }
    EXPECT_NEAR(oMinute.oPoint.oPhaseSeconds.flValue, flPeriod / 2 - 0.5e-6, 1e-12);
    EXPECT_NEAR(oMinute.oPoint.flPhaseMaxSeconds - oMinute.oPoint.flPhaseMinSeconds, 3e-6, 1e-12);
}

// What was before this run comes from the store, in one piece with what the memory has.
TEST(WatchData, ReachesBackIntoTheStore)
{
    const CTestFolder oFolder;
    const std::string szFile = oFolder / "store";
    {
        CStoreWriter oWriter(szFile, 35);
        SStoreRemains oRemains;
        ASSERT_EQ(oWriter.Open(iStepsBeginUtcNs, oRemains).GetText(), "");
        EXPECT_EQ(oWriter.Start().GetText(), "");
        oWriter.Put(MakeSecond(20, 1).GetStep()); // 20 seconds of the minute that the next run goes on with
        SMadeUpSecond oEarlier = MakeSecond(20, 2);
        oEarlier.aoMinutes.front().oPoint.iUtcNs -= iNsPerMinute;
        oEarlier.aoMinutes.front().bIsComplete = true;
        oWriter.Put(oEarlier.GetStep());
    }
    CStoreWriter oWriter(szFile, 35);
    SStoreRemains oRemains;
    ASSERT_EQ(oWriter.Open(iStepsBeginUtcNs + 30 * iNsPerSecond, oRemains).GetText(), "");
    CWatchData oData(1, 0, std::make_unique<CStoreReader>(szFile));
    ASSERT_EQ(oRemains.aoEarlier.size(), 1U);
    EXPECT_EQ(oRemains.aoEarlier[0].oRun.eState, EEarlierState::RUNNING);
    EXPECT_EQ(oRemains.aoEarlier[0].oRun.iUtcNs, iStepsBeginUtcNs + 20 * iNsPerSecond);
    CHistoryMaker oMaker(oRemains.aoRunning);
    oData.Resume(oRemains.aoRunning);
    const SMadeUpSecond oSecond = MakeSecond(31, 3);
    oMaker.Take(oSecond.poPublication->oSnapshot);
    oData.Put({oSecond.poPublication, oSecond.aoEvents, oMaker.GetSeconds(), oMaker.GetMinutes()});

    const std::vector<SWatchEvent> aoEvents = oData.FindEvents({});
    ASSERT_EQ(aoEvents.size(), 3U);
    EXPECT_EQ(aoEvents[0].uiNumber, 3U);
    EXPECT_EQ(aoEvents[2].uiNumber, 1U);
    SHistoryQuery oQuery;
    oQuery.uiSeconds = 60;
    oQuery.iToUtcNs = INT64_MAX;
    const std::vector<SHistoryPoint> aoMinutes = oData.FindHistory(oQuery);
    ASSERT_EQ(aoMinutes.size(), 2U);
    EXPECT_EQ(aoMinutes[0].iUtcNs, iStepsBeginUtcNs - iNsPerMinute);
    EXPECT_EQ(aoMinutes[1].uiFields, 20U * 60 + 31 * 60); // 20 s of then, and the first snapshot's count of now
    EXPECT_EQ(oData.GetReach().iMinutesFromUtcNs, aoMinutes[0].iUtcNs);
}

TEST(WatchData, EndWakesWhoeverWaits)
{
    CWatchData oData(1, 0, nullptr);
    std::thread oWaiter([&] { EXPECT_EQ(oData.AwaitNewer(0, 60000), nullptr); });
    oData.End();
    oWaiter.join();
}
