#include "EventJson.h"
#include "EventKinds.h"
#include "StreamId.h"
#include "WatchJson.h"
#include "WatchTexts.h"

#include <limits>
#include <set>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

TEST(WatchTextsTest, EveryWordIsOfItsOwnAndFoundAgain)
{
    std::set<std::string> szKinds;
    for (size_t i = 0; i < static_cast<size_t>(EWatchEventKind::COUNT); ++i)
    {
        const auto eKind = static_cast<EWatchEventKind>(i);
        szKinds.insert(EventKind_Get(eKind).szName);
        EXPECT_EQ(EventKind_Find(EventKind_Get(eKind).szName), eKind);
    }
    EXPECT_EQ(szKinds.size(), static_cast<size_t>(EWatchEventKind::COUNT));
    EXPECT_STREQ(EventKind_Get(EWatchEventKind::COUNT).szName, "unknown");
    EXPECT_STREQ(EventKind_Get(EWatchEventKind::GROUP_ENDED).szName, "group_ended");
    EXPECT_EQ(EventKind_Find("unknown"), std::nullopt);
    EXPECT_STREQ(WatchTexts_GetPowerState(VtVideoOut_PowerState_SUSPEND), "suspend");
}

TEST(WatchTextsTest, AStreamIsNamedInOneWayOnly)
{
    EXPECT_EQ(StreamId_Print({EStreamDirection::OUTPUT, 31}), "OUT_31");
    EXPECT_EQ(StreamId_Find("OUT_31"), (SStreamKey{EStreamDirection::OUTPUT, 31}));
    EXPECT_EQ(StreamId_Find("IN_07"), (SStreamKey{EStreamDirection::INPUT, 7}));
    const SStreamKey oOfChip = {EStreamDirection::OUTPUT, 2, 16};
    EXPECT_EQ(StreamId_Print(oOfChip), "15:OUT_02");
    EXPECT_EQ(StreamId_Find("15:OUT_02"), oOfChip);
    EXPECT_EQ(StreamId_PrintRanges(oOfChip, 0b11101U), "15:OUT_00, 02-04");
    for (const char* szWrong : {"", "IN_", "IN_7", "IN_32", "IN_007", "OUT_-1", "in_00", "IN_0x", "IN 00", "OUT00",
                                ":IN_00", "16:IN_00", "00:IN_00", "x:IN_00", "0:0:IN_00"})
    {
        EXPECT_EQ(StreamId_Find(szWrong), std::nullopt) << szWrong;
    }
}

TEST(WatchTextsTest, MomentsGoThereAndBack)
{
    const int64_t iMoment = 1'795'299'937'123'456'789;
    EXPECT_EQ(WatchTexts_GetUtc(iMoment), "2026-11-21T22:25:37.123456789Z");
    EXPECT_EQ(WatchTexts_FindUtc(WatchTexts_GetUtc(iMoment)), iMoment);
    EXPECT_EQ(WatchTexts_GetUtc(-1), "1969-12-31T23:59:59.999999999Z");
    EXPECT_EQ(WatchTexts_FindUtc("1795299937123"), 1'795'299'937'123'000'000);
    EXPECT_EQ(WatchTexts_FindUtc("2026-11-21T22:25:37.5Z"), 1'795'299'937'500'000'000);
    EXPECT_EQ(WatchTexts_FindUtc("2024-02-29"), 1'709'164'800'000'000'000);
    for (const char* szWrong :
         {"", "-1", "now", "2026-11-21T22:25:37", "2026-02-29", "2026-11-21T24:00:00Z", "2026-11-21T22:25:37.Z",
          "2026-11-21T22:25:37.1234567890Z", "2026-11-21 22:25:37Z", "9999-01-01", "99999999999999999999", "5 "})
    {
        EXPECT_EQ(WatchTexts_FindUtc(szWrong), std::nullopt) << szWrong;
    }
}

TEST(WatchJsonTest, AnEventCarriesWhatItsKindTells)
{
    SWatchEvent oEvent = {};
    oEvent.uiNumber = 3;
    oEvent.eKind = EWatchEventKind::LOCK_CHANGED;
    oEvent.oKey = {EStreamDirection::OUTPUT, 2};
    oEvent.uiAfter = static_cast<uint64_t>(ELockState::PASSING);
    const CJson oLock = EventJson_FromEvent(oEvent);
    EXPECT_EQ(oLock["stream"], "OUT_02");
    EXPECT_EQ(oLock["before"], "locked");
    EXPECT_EQ(oLock["after"], "passing");
    EXPECT_TRUE(oLock["tick"].is_null());
    EXPECT_FALSE(oLock.contains("count"));

    oEvent.eKind = EWatchEventKind::GROUP_ENDED;
    oEvent.uiMembers = 0x80000005U;
    oEvent.flSeconds = 1.5;
    const CJson oGroup = EventJson_FromEvent(oEvent);
    EXPECT_EQ(oGroup["members"], CJson({"OUT_00", "OUT_02", "OUT_31"}));
    EXPECT_EQ(oGroup["seconds"], 1.5);

    oEvent.eKind = EWatchEventKind::FORMAT_CHANGED;
    oEvent.uiAfter = VtPixelFormat_RGB565;
    EXPECT_EQ(EventJson_FromEvent(oEvent)["after"], "VtPixelFormat_RGB565");
    oEvent.eKind = EWatchEventKind::REFERENCE_CHANGED;
    oEvent.uiAfter = 4;
    EXPECT_EQ(EventJson_FromEvent(oEvent)["after"], "OUT_04");
}

TEST(WatchJsonTest, WhatJsonHasNoWordForIsNull)
{
    SStreamFigures oStream;
    oStream.oPhaseSeconds = {std::numeric_limits<double>::infinity(), 1e-9, true};
    oStream.oLastEvent = {9, EWatchEventKind::SIGNAL_LOST, 0};
    SStreamTexts oTexts;
    oTexts.szName = "<b>\"\n\xff";
    const CJson oJson = CJson::parse(WatchJson_Print(WatchJson_FromStream(oStream, oTexts)));
    EXPECT_EQ(oJson["name"], "<b>\"\n\xEF\xBF\xBD");
    EXPECT_TRUE(oJson["phase"]["seconds"].is_null());
    EXPECT_TRUE(oJson["phase"]["lines"].is_null()) << "the length of a line is not known";
    EXPECT_TRUE(oJson["drift"].is_null());
    EXPECT_TRUE(oJson["nominal"].is_null());
    EXPECT_TRUE(oJson["seconds_to_slip"].is_null());
    EXPECT_EQ(oJson["last_event"]["number"], 9);
    EXPECT_EQ(oJson["last_event"]["kind"], "signal_lost");
}

TEST(WatchJsonTest, APairInStepHasNoLinesWhereTheirLengthIsNotKnown)
{
    SPairFigures oPair;
    oPair.uiSecond = 1;
    oPair.oOffsetSeconds = {0.0, 1e-9, true};
    EXPECT_TRUE(WatchJson_FromPair({}, {}, oPair)["offset"]["lines"].is_null());
    oPair.flLineSeconds = 1e-5;
    EXPECT_EQ(WatchJson_FromPair({}, {}, oPair)["offset"]["lines"], 0.0);
}
