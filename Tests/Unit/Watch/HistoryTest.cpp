#include "WatchData.h"

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

} // namespace

TEST(MinuteSummary, MeansAreThoseOfTheSecondsThatKnewThem)
{
    SMinuteSummary oMinute;
    MinuteSummary_Add(oMinute, MakePoint(1e-3, 60.0, 3e-6), 1.0, flPeriod);
    MinuteSummary_Add(oMinute, MakePoint(2e-3, 61.0, 0.0), 1.0, flPeriod); // rate not known
    MinuteSummary_Add(oMinute, MakePoint(3e-3, 62.0, 4e-6), 0.5, flPeriod);
    const SHistoryPoint& roPoint = oMinute.oPoint;
    EXPECT_EQ(roPoint.iUtcNs, iStepsBeginUtcNs);
    EXPECT_EQ(roPoint.uiFields, 180U);
    EXPECT_DOUBLE_EQ(oMinute.flWatchedSeconds, 2.5);
    EXPECT_DOUBLE_EQ(roPoint.oRateHz.flValue, 61.0);
    EXPECT_DOUBLE_EQ(roPoint.oRateHz.flStdErr, 2.5e-6); // hypot(3, 4) / 2
    EXPECT_DOUBLE_EQ(roPoint.oPhaseSeconds.flValue, 2e-3);
    EXPECT_EQ(roPoint.flPhaseMinSeconds, 1e-3);
    EXPECT_EQ(roPoint.flPhaseMaxSeconds, 3e-3);
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

TEST(WatchData, KeepsTenMinutesOfSecondsAndWholeMinutes)
{
    CWatchData oData(1, 0, nullptr);
    CHistoryMaker oMaker({});
    uint32_t uiComplete = 0;
    for (int64_t iSecond = 1; iSecond <= 700; ++iSecond)
    {
        const SMadeUpSecond oSecond = MakeSecond(iSecond, static_cast<uint64_t>(iSecond));
        oMaker.Take(oSecond.poPublication->oSnapshot);
        oData.Put({oSecond.poPublication, oSecond.aoEvents, oMaker.GetSeconds(), oMaker.GetMinutes()});
        for (const SMinuteSummary& roMinute : oMaker.GetMinutes())
        {
            uiComplete += roMinute.bIsComplete ? 1 : 0;
            EXPECT_EQ(roMinute.oPoint.uiFields, 60 * roMinute.uiPoints);
        }
    }
    EXPECT_EQ(uiComplete, 11U);
    SHistoryQuery oQuery;
    oQuery.iToUtcNs = INT64_MAX;
    const std::vector<SHistoryPoint> aoSeconds = oData.FindHistory(oQuery);
    ASSERT_EQ(aoSeconds.size(), uiSecondsInMemory);
    EXPECT_EQ(aoSeconds.front().iUtcNs, iStepsBeginUtcNs + 100 * iNsPerSecond);
    EXPECT_EQ(aoSeconds.back().uiFields, 60U);
    EXPECT_EQ(oData.GetReach().iSecondsFromUtcNs, aoSeconds.front().iUtcNs);
    oQuery.uiSeconds = 60;
    const std::vector<SHistoryPoint> aoMinutes = oData.FindHistory(oQuery);
    ASSERT_EQ(aoMinutes.size(), 12U); // the running one as well
    EXPECT_EQ(aoMinutes.back().uiFields, 40U * 60);
    oQuery.uiMost = 2;
    EXPECT_EQ(oData.FindHistory(oQuery).front().iUtcNs, aoMinutes[10].iUtcNs);
    // The clock goes back, and time with it.
    for (const int64_t iSecond : {300, 301})
    {
        const SMadeUpSecond oSecond = MakeSecond(iSecond, 701);
        oMaker.Take(oSecond.poPublication->oSnapshot);
        oData.Put({oSecond.poPublication, oSecond.aoEvents, oMaker.GetSeconds(), oMaker.GetMinutes()});
    }
    EXPECT_TRUE(
        std::ranges::is_sorted(oData.FindHistory({{}, 0, INT64_MAX, 1, UINT32_MAX}), {}, &SHistoryPoint::iUtcNs));
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

TEST(WatchData, FindsEventsByKindStreamAndGroup)
{
    CWatchData oData(1, 0, nullptr);
    SMadeUpSecond oSecond = MakeSecond(1, 1);
    SWatchEvent oGroup = oSecond.aoEvents[0];
    oGroup.uiNumber = 2;
    oGroup.eKind = EWatchEventKind::GROUP_FORMED;
    oGroup.uiMembers = 0b110;
    oGroup.oKey.uiIndex = 1;
    oSecond.aoEvents.push_back(oGroup);
    oData.Put(oSecond.GetStep());
    SEventQuery oQuery;
    oQuery.uiInputs = 1U << 2;
    ASSERT_EQ(oData.FindEvents(oQuery).size(), 1U);
    EXPECT_EQ(oData.FindEvents(oQuery)[0].uiNumber, 2U);
    oQuery = {};
    oQuery.uiKinds = 1ULL << static_cast<unsigned>(EWatchEventKind::FIELDS_LOST);
    EXPECT_EQ(oData.FindEvents(oQuery)[0].uiNumber, 1U);
    oQuery = {};
    oQuery.uiAfterNumber = 2;
    EXPECT_TRUE(oData.FindEvents(oQuery).empty());
}

TEST(WatchData, EndWakesWhoeverWaits)
{
    CWatchData oData(1, 0, nullptr);
    std::thread oWaiter([&] { EXPECT_EQ(oData.AwaitNewer(0, 60000), nullptr); });
    oData.End();
    oWaiter.join();
}
