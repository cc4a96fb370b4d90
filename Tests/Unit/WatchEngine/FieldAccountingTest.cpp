// Whose fault a missing field is: tables of what must be said.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "FieldAccounting.h"
#include "FieldCount.h"
#include "TickClock.h"

namespace
{

const SWatchSettings oTicks1MHz = {.uiTickFrequencyHz = 1'000'000, .bTicksAreMonotonic = true};
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

} // namespace
