// Events on their way out: folded, numbered, dated.
#include <gtest/gtest.h>

#include <algorithm>
#include <span>
#include <string>
#include <vector>

#include "EventQueue.h"
#include "TickClock.h"

namespace
{

const SWatchSettings oTicks1MHz = {.uiTickFrequencyHz = 1'000'000, .bTicksAreMonotonic = true};

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
        const std::span<const SWatchEvent> aoTaken = oQueue.Take();
        aoEvents.assign(aoTaken.begin(), aoTaken.end());
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
