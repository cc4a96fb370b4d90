// The trackers that go with each field, field by field.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "FeedTracker.h"
#include "FieldOrder.h"
#include "PacingHistogram.h"
#include "QueueTracker.h"

namespace
{

constexpr uint32_t uiFrequency = 1'000'000;
constexpr uint64_t uiPeriod = 16'667; // ticks: 60 Hz

std::string ToText(const SCadence& roCadence)
{
    std::string szText;
    for (uint32_t uiRun = 0; uiRun < roCadence.uiNbOfRuns; ++uiRun)
    {
        szText += (uiRun == 0 ? "" : ":") + std::to_string(roCadence.auiRuns[uiRun]);
    }
    return szText;
}

// An output whose fields show what a list says: 1 for another picture, 0 for one more time.
struct SFeed
{
    CFeedTracker oTracker{uiFrequency, false};
    uint64_t uiField = 1;
    std::vector<SFeedResult> aoNotes;
    uint64_t uiBeyond = 0;

    void Show(uint64_t uiSet, int64_t iFields = 1)
    {
        uiField += static_cast<uint64_t>(iFields);
        const SFeedResult oResult = oTracker.Take(iFields, uiSet, uiField * uiPeriod);
        uiBeyond += oResult.uiBeyond;
        if (oResult.IsOfNote())
        {
            aoNotes.push_back(oResult);
        }
    }
    void Repeat(std::initializer_list<int> aiRuns, double flSeconds)
    {
        for (const uint64_t uiEnd = uiField + static_cast<uint64_t>(flSeconds * 60.0); uiField < uiEnd;)
        {
            for (const int iRun : aiRuns)
            {
                for (int iField = 0; iField < iRun; ++iField)
                {
                    Show(iField == 0 ? 1U : 0U);
                }
            }
        }
    }
};

TEST(FeedTracker, FindsTheCadenceWithinTwoSeconds)
{
    struct SCase
    {
        std::initializer_list<int> aiRuns;
        const char* szCadence;
    };
    for (const SCase& roCase : {SCase{{2, 3}, "3:2"}, {{2}, "2:2"}, {{1}, "1:1"}, {{2, 3, 2, 3, 2}, "3:2:3:2:2"}})
    {
        SFeed oFeed;
        oFeed.Repeat(roCase.aiRuns, 1.9);
        // A run of equal ones is told twice, as the trade does.
        SCadence oCadence = oFeed.oTracker.GetCadence();
        if (oCadence.uiNbOfRuns == 1)
        {
            oCadence.auiRuns[oCadence.uiNbOfRuns++] = oCadence.auiRuns[0];
        }
        EXPECT_EQ(ToText(oCadence), roCase.szCadence);
        EXPECT_TRUE(oFeed.aoNotes.empty()) << "the first cadence is no change";
        EXPECT_EQ(Cadence_Unpack(Cadence_Pack(oFeed.oTracker.GetCadence())), oFeed.oTracker.GetCadence());
    }
}

TEST(FeedTracker, TellsABreakAtItsField)
{
    SFeed oFeed;
    oFeed.Repeat({3, 2}, 10.0);
    const uint64_t uiBefore = oFeed.uiField;
    oFeed.Repeat({3, 3}, 0.05); // the second 3 is one too long
    ASSERT_EQ(oFeed.aoNotes.size(), 1U);
    EXPECT_EQ(oFeed.aoNotes[0].uiTick, (uiBefore + 6) * uiPeriod);
    EXPECT_EQ(oFeed.uiBeyond, 1U);
    EXPECT_EQ(ToText(oFeed.aoNotes[0].oBefore), "3:2");
    oFeed.Repeat({3, 2}, 2.0);
    EXPECT_EQ(ToText(oFeed.oTracker.GetCadence()), "3:2");
    EXPECT_EQ(oFeed.uiBeyond, 1U);
    // One picture too early.
    oFeed.aoNotes.clear();
    const uint64_t uiEarly = oFeed.uiField;
    oFeed.Repeat({2, 2}, 0.05);
    ASSERT_FALSE(oFeed.aoNotes.empty());
    EXPECT_EQ(oFeed.aoNotes[0].uiTick, (uiEarly + 3) * uiPeriod);
}

// Whatever a watcher misses, a film goes on in its cadence, and breaks it behind the gap as before it.
TEST(FeedTracker, TakesUpItsCadenceBehindAGap)
{
    for (int iMissed = 1; iMissed <= 120; ++iMissed)
    {
        SFeed oFeed;
        oFeed.Repeat({3, 2}, 5.0);
        const auto HasNew = [](uint64_t uiPlace) { return uiPlace % 5 == 0 || uiPlace % 5 == 3; };
        uint64_t uiSet = 0;
        uint64_t uiPlace = 0; // in the cadence
        for (; uiPlace < static_cast<uint64_t>(iMissed); ++uiPlace)
        {
            uiSet += HasNew(uiPlace) ? 1U : 0U;
        }
        oFeed.Show(uiSet + (HasNew(uiPlace) ? 1U : 0U), iMissed + 1);
        for (const uint64_t uiEnd = ++uiPlace + 60; uiPlace < uiEnd; ++uiPlace)
        {
            oFeed.Show(HasNew(uiPlace) ? 1U : 0U);
        }
        EXPECT_TRUE(oFeed.aoNotes.empty()) << iMissed;
        EXPECT_EQ(ToText(oFeed.oTracker.GetCadence()), "3:2");
        EXPECT_EQ(oFeed.uiBeyond, 0U);
        for (int iField = 0; iField < 4; ++iField)
        {
            oFeed.Show(0);
        }
        EXPECT_EQ(oFeed.aoNotes.size(), 1U) << iMissed;
    }
}

TEST(FeedTracker, TellsAStallFromItsFirstFieldAndAGapFromAStall)
{
    SFeed oFeed;
    oFeed.Repeat({1}, 5.0);
    oFeed.Show(200, 200); // nobody looked, and the feed went on
    EXPECT_TRUE(oFeed.aoNotes.empty());
    oFeed.Repeat({1}, 5.0);
    const uint64_t uiLast = oFeed.uiField;
    for (int iField = 0; iField < 180; ++iField)
    {
        oFeed.Show(0);
    }
    EXPECT_TRUE(oFeed.oTracker.IsStalled());
    EXPECT_EQ(oFeed.oTracker.GetStalledTick(), (uiLast + 1) * uiPeriod);
    EXPECT_EQ(oFeed.uiBeyond, 180U);
    oFeed.Show(1);
    ASSERT_FALSE(oFeed.aoNotes.empty());
    EXPECT_TRUE(oFeed.aoNotes.back().bHasResumed);
    EXPECT_EQ(oFeed.aoNotes.back().uiStalledTicks, 180 * uiPeriod);
}

TEST(FeedTracker, AllowsASlowFeedItsOwnRepeats)
{
    SFeed oFeed;
    oFeed.Repeat({60}, 10.0); // a clock that ticks once a second
    oFeed.aoNotes.clear();
    oFeed.Repeat({150}, 2.0);
    EXPECT_TRUE(oFeed.aoNotes.empty());
    oFeed.Repeat({500}, 2.0);
    EXPECT_FALSE(oFeed.aoNotes.empty());
}

TEST(FeedTracker, ForgivesAnEstimateTwoOddRunsASecondAndNoMore)
{
    for (const std::initializer_list<int> aiRuns : {std::initializer_list<int>{1}, {2}, {3, 2}})
    {
        SFeed oFeed;
        oFeed.oTracker = CFeedTracker(uiFrequency, true);
        for (int iRound = 0; iRound < 5; ++iRound)
        {
            oFeed.Repeat(aiRuns, 4.0);
            oFeed.Show(0); // a picture is seen a field late, and the next one in time
            oFeed.uiField += 90;
            static_cast<void>(oFeed.oTracker.Take(90, 50, oFeed.uiField * uiPeriod));
        }
        EXPECT_TRUE(oFeed.aoNotes.empty());
        EXPECT_EQ(oFeed.uiBeyond, 0U);
        EXPECT_TRUE(oFeed.oTracker.GetCadence().IsKnown());
        oFeed.Repeat(aiRuns, 4.0);
        oFeed.Repeat({4}, 0.3);
        EXPECT_FALSE(oFeed.aoNotes.empty()) << "more than its errors";
        oFeed.Repeat(aiRuns, 4.0);
        oFeed.aoNotes.clear();
        for (int iField = 0; iField < 180; ++iField)
        {
            oFeed.Show(0);
        }
        EXPECT_TRUE(oFeed.oTracker.IsStalled());
        EXPECT_FALSE(oFeed.oTracker.GetCadence().IsKnown()) << "no estimate misses so much";
    }
}

TEST(FeedTracker, SeesNoRuleInADesktop)
{
    SFeed oFeed;
    std::mt19937 oRandom(7);
    uint64_t uiKnown = 0;
    for (int iField = 0; iField < 3600; ++iField)
    {
        oFeed.Show(oRandom() % 3 == 0 ? 1U : 0U);
        uiKnown += oFeed.oTracker.GetCadence().IsKnown() ? 1U : 0U;
    }
    EXPECT_EQ(uiKnown, 0U);
    EXPECT_EQ(oFeed.uiBeyond, 0U);
}

SFieldRecord MakeField(uint64_t uiField, uint16_t uiReady, uint16_t uiLoaned, uint64_t uiSkipped)
{
    SFieldRecord oRecord = {};
    oRecord.uiTick = uiField * uiPeriod;
    oRecord.uiArrivalNs = oRecord.uiTick * 1000;
    oRecord.bHasBuffers = true;
    oRecord.bHasSkippedBuffers = true;
    oRecord.uiReadyBuffers = uiReady;
    oRecord.uiLoanedBuffers = uiLoaned;
    oRecord.uiInternalBuffers = static_cast<uint16_t>(8 - uiReady - uiLoaned);
    oRecord.uiSkippedBuffers = uiSkipped;
    return oRecord;
}

TEST(QueueTracker, TellsMeanLeastAndMostOfItsWindows)
{
    CQueueTracker oTracker(uiFrequency);
    SQueueFigures oFigures;
    oTracker.Fill(5'000'000'000, 60.0, oFigures);
    EXPECT_FALSE(oFigures.aoWindows[0].bIsKnown);
    EXPECT_FALSE(oFigures.bIsHeldKnown);
    for (uint64_t uiField = 60; uiField < 60 * 100; ++uiField)
    {
        // Three buffers wait, but four in the 59 s before the last one, and seven in one field 30 s ago.
        const bool bIsLast = uiField * uiPeriod >= 99'000'000;
        oTracker.Take(MakeField(uiField, uiField == 60 * 70 ? 6 : bIsLast ? 1 : 2, 2, 0));
    }
    oTracker.Fill(100'000'000'000, 60.0, oFigures);
    EXPECT_DOUBLE_EQ(oFigures.aoWindows[0].oReady.flMean, 1.0);
    EXPECT_EQ(oFigures.aoWindows[0].oInternal.uiMost, 5U);
    EXPECT_NEAR(oFigures.aoWindows[1].oReady.flMean, 1.9, 0.01);
    EXPECT_EQ(oFigures.aoWindows[1].oReady.uiLeast, 1U);
    EXPECT_EQ(oFigures.aoWindows[1].oReady.uiMost, 2U);
    EXPECT_EQ(oFigures.aoWindows[2].oReady.uiMost, 6U);
    // 3.9 buffers at 60 pictures a second.
    EXPECT_NEAR(oFigures.flHeldSeconds, 3.9 / 60.0, 2e-4);
}

TEST(QueueTracker, MissesTheConsumerOnlyWhenPicturesGoBy)
{
    CQueueTracker oTracker(uiFrequency);
    uint64_t uiField = 1;
    const auto Run = [&](uint32_t uiFields, uint16_t uiLoaned, uint32_t uiSkipsPerField, uint64_t& ruiSkipped)
    {
        for (const uint64_t uiEnd = uiField + uiFields; uiField < uiEnd; ++uiField)
        {
            ruiSkipped += uiSkipsPerField;
            oTracker.Take(MakeField(uiField, 0, uiLoaned, ruiSkipped));
        }
    };
    uint64_t uiSkipped = 5;
    Run(100, 8, 0, uiSkipped);
    EXPECT_EQ(oTracker.GetStalledTick(), 0U) << "full, and nothing is lost";
    Run(100, 2, 1, uiSkipped);
    EXPECT_EQ(oTracker.GetStalledTick(), 0U) << "lost, with room left";
    const uint64_t uiFirst = uiField;
    Run(59, 8, 1, uiSkipped);
    EXPECT_EQ(oTracker.GetStalledTick(), 0U);
    Run(3, 8, 1, uiSkipped);
    EXPECT_EQ(oTracker.GetStalledTick(), uiFirst * uiPeriod);
    Run(1, 7, 0, uiSkipped);
    EXPECT_EQ(oTracker.GetStalledTick(), 0U);
}

TEST(FieldOrder, TellsASwapWithItsSecondFieldAndNeverAcrossAGap)
{
    CFieldOrder oOrder;
    uint32_t uiSwaps = 0;
    uint64_t uiField = 100;
    const auto Run = [&](uint32_t uiFields, bool bTopWhenOdd, bool bFirstFollows = true)
    {
        for (uint32_t uiTaken = 0; uiTaken < uiFields; ++uiTaken, ++uiField)
        {
            uiSwaps +=
                oOrder.Take(uiField * 16, (uiField % 2 != 0) == bTopWhenOdd, uiTaken > 0 || bFirstFollows, uiField)
                    ? 1U
                    : 0U;
        }
    };
    Run(50, true);
    Run(1, false); // a single one is none
    Run(50, true);
    EXPECT_EQ(uiSwaps, 0U);
    Run(50, false, false); // after a jump or a loss nobody knows
    EXPECT_EQ(uiSwaps, 0U);
    EXPECT_FALSE(oOrder.IsSwapped());
    const uint64_t uiFirst = uiField;
    Run(2, true);
    EXPECT_EQ(uiSwaps, 1U);
    EXPECT_EQ(oOrder.GetSwapTick(), uiFirst);
    EXPECT_TRUE(oOrder.IsSwapped());
    oOrder.Describe(false);
    oOrder.Describe(true); // now the board says so itself
    EXPECT_FALSE(oOrder.IsSwapped());
}

TEST(Pacing, KeepsPercentilesWithinABinAndAddsUp)
{
    std::mt19937_64 oRandom(3);
    std::normal_distribution oNormal(0.0, 20e-6);
    std::array<SPacingHistogram, 2> aoParts;
    std::vector<double> aflTrue;
    for (uint32_t uiField = 0; uiField < 200'000; ++uiField)
    {
        const double flSeconds = uiField == 77 ? -0.0123 : oNormal(oRandom);
        SPacingHistogram& roPart = aoParts[uiField % 2];
        ++roPart.auiCounts[Pacing_GetBin(flSeconds)];
        if (std::abs(flSeconds) > std::abs(roPart.oWorst.flSeconds))
        {
            roPart.oWorst.flSeconds = flSeconds;
        }
        aflTrue.push_back(std::abs(flSeconds));
    }
    SPacingHistogram oBoth = aoParts[0];
    Pacing_Merge(oBoth, aoParts[1]);
    EXPECT_DOUBLE_EQ(oBoth.oWorst.flSeconds, -0.0123);
    EXPECT_EQ(Pacing_GetGrowth(oBoth, aoParts[1], {}).auiCounts, aoParts[0].auiCounts);
    std::ranges::sort(aflTrue);
    for (const double flShare : {0.5, 0.95, 0.99, 0.999})
    {
        const double flTrue = aflTrue[static_cast<size_t>(flShare * static_cast<double>(aflTrue.size()))];
        const double flTold = Pacing_GetPercentile(oBoth, flShare);
        EXPECT_GE(flTold, flTrue);
        EXPECT_LE(flTold, flTrue * std::pow(10.0, 0.1) * 1.001) << flShare;
    }
    EXPECT_EQ(Pacing_GetBin(-1.0), 0U);
    EXPECT_EQ(Pacing_GetBin(1.0), uiPacingBins - 1);
    EXPECT_EQ(Pacing_GetBin(-0.9e-6), Pacing_GetBin(0.9e-6));
    EXPECT_NEAR(aflPacingBounds.back(), 0.1, 1e-12);
}

} // namespace
