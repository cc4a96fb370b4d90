#include <cerrno>
#include <future>
#include <gtest/gtest.h>

#include "OsServices.h"
#include "PlatformSeams.h"

namespace
{

// The two objects under one set of names.
struct SEvent : OsServices
{
    SEvent() { Event_Create(hObject); }
    ~SEvent() override { Event_Destroy(hObject); }
    VtStatus Wait(uint32_t uiTimeOutMs) { return Event_Wait(hObject, uiTimeOutMs); }
    Bool32 Trigger() { return Event_Trigger(hObject); }
    Bool32 Cancel() { return Event_Cancel(hObject); }
    Bool32 Activate() { return Event_Activate(hObject); }
    HEvent hObject = nullptr;
};

struct SSignal : OsServices
{
    SSignal() { Signal_Create(hObject); }
    ~SSignal() override { Signal_Destroy(hObject); }
    VtStatus Wait(uint32_t uiTimeOutMs) { return Signal_Wait(hObject, uiTimeOutMs, 7); }
    Bool32 Trigger() { return Signal_Trigger(hObject); }
    Bool32 Cancel() { return Signal_Cancel(hObject); }
    Bool32 Activate() { return Signal_Activate(hObject); }
    HSignal hObject = nullptr;
};

template <typename OBJECT> struct OsEventsAndSignals : testing::Test
{
    static void AwaitWaits(int iWaits)
    {
        for (int iNow = g_oSeams.iInWait; iNow != iWaits; iNow = g_oSeams.iInWait)
        {
            g_oSeams.iInWait.wait(iNow);
        }
    }
    // Two threads that wait for ever, and are inside the wait when this returns.
    std::pair<std::future<VtStatus>, std::future<VtStatus>> StartWaits()
    {
        const auto Wait = [this] { return oObject.Wait(OsServices_INFINITE); };
        std::pair oWaits(std::async(std::launch::async, Wait), std::async(std::launch::async, Wait));
        AwaitWaits(2);
        return oWaits;
    }
    SSeamsReset oReset;
    OBJECT oObject;
};
using OsEvent = OsEventsAndSignals<SEvent>;
using OsSignal = OsEventsAndSignals<SSignal>;
using Objects = testing::Types<SEvent, SSignal>;
TYPED_TEST_SUITE(OsEventsAndSignals, Objects);

} // namespace

TYPED_TEST(OsEventsAndSignals, CancelEndsAllWaitsAndOnlyActivateMakesThemWaitAgain)
{
    auto [oFirst, oSecond] = this->StartWaits();
    EXPECT_EQ(this->oObject.Cancel(), 1u);
    EXPECT_EQ(oFirst.get(), VtStatus_CANCELED);
    EXPECT_EQ(oSecond.get(), VtStatus_CANCELED);
    EXPECT_EQ(this->oObject.Cancel() + this->oObject.Trigger(), 0u);
    EXPECT_EQ(this->oObject.Wait(OsServices_INFINITE), VtStatus_CANCELED) << "without blocking";
    EXPECT_EQ(this->oObject.Activate(), 1u);
    EXPECT_EQ(this->oObject.Wait(0), VtStatus_TIMEOUT);
}

TYPED_TEST(OsEventsAndSignals, FailedWakeUpIsTakenBackAndFailedCancelStillCancels)
{
    g_oSeams.iCondSignal = g_oSeams.iCondBroadcast = EINVAL;
    EXPECT_EQ(this->oObject.Trigger(), 0u);
    EXPECT_EQ(this->oObject.Wait(0), VtStatus_TIMEOUT);
    EXPECT_EQ(this->oObject.Cancel(), 0u);
    g_oSeams.iCondSignal = g_oSeams.iCondBroadcast = 0;
    EXPECT_EQ(this->oObject.Trigger(), 0u);
    this->oObject.Activate();
    EXPECT_EQ(this->oObject.Wait(0), VtStatus_TIMEOUT);
}

TYPED_TEST(OsEventsAndSignals, DeadlineIsTheWallClockPlusTheTimeOutAndARefusedOneIsPrinted)
{
    testing::internal::CaptureStdout();
    StopClock(100, 999'999'999);
    const std::tuple<uint32_t, time_t, long, int, VtStatus> aoRows[] = {
        {0, 100, 999'999'999, ETIMEDOUT, VtStatus_TIMEOUT},
        {1, 101, 999'999, EINVAL, VtStatus_TIMEOUT},
        {1500, 102, 499'999'999, EPERM, VtStatus_FAIL},
        {0xFFFFFFFE, 4295068, 293'999'999, ETIMEDOUT, VtStatus_TIMEOUT}};
    for (const auto& [uiTimeOutMs, iSeconds, iNanoSeconds, iResult, eStatus] : aoRows)
    {
        g_oSeams.iCondTimedWait = iResult;
        EXPECT_EQ(this->oObject.Wait(uiTimeOutMs), eStatus);
        EXPECT_EQ(g_oSeams.oDeadLine.tv_sec, iSeconds);
        EXPECT_EQ(g_oSeams.oDeadLine.tv_nsec, iNanoSeconds);
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "pthread_cond_timedwait returned 22 INVALID\n"
              "TimeOut occurs Req timespec.tv_sec=101,timespec.tv_nsec=999999, Now "
              "timespec.tv_sec=100,timespec.tv_nsec=999999999\n");
    g_oSeams.iCondWait = EPERM;
    EXPECT_EQ(this->oObject.Wait(OsServices_INFINITE), VtStatus_CANCELED);
}

TYPED_TEST(OsEventsAndSignals, EndSendsAwayWhoeverWaits)
{
    {
        const TypeParam oEnds;
        EXPECT_EQ(g_oSeams.iBroadcasts, 0);
    }
    EXPECT_EQ(g_oSeams.iBroadcasts, 1);
}

TEST_F(OsEvent, TriggerWakesOneWaiterAndLeavesTheOther)
{
    auto [oFirst, oSecond] = StartWaits();
    g_oSeams.iCondBroadcast = EINVAL; // a trigger that wakes all would fail
    EXPECT_EQ(oObject.Trigger(), 1u);
    AwaitWaits(1);
    EXPECT_EQ(oObject.Trigger(), 1u);
    EXPECT_EQ(oFirst.get(), VtStatus_OK);
    EXPECT_EQ(oSecond.get(), VtStatus_OK);
}

TEST_F(OsSignal, TriggerWakesAllWaitersAndIsLostWithoutOne)
{
    auto [oFirst, oSecond] = StartWaits();
    EXPECT_EQ(oObject.Trigger(), 1u);
    EXPECT_EQ(oFirst.get(), VtStatus_OK);
    EXPECT_EQ(oSecond.get(), VtStatus_OK);
    EXPECT_EQ(oObject.Trigger(), 1u);
    EXPECT_EQ(oObject.Wait(0), VtStatus_TIMEOUT);
}

TEST_F(OsEvent, TriggersWithoutWaiterAreRememberedAsOne)
{
    EXPECT_EQ(oObject.Trigger() + oObject.Trigger(), 2u);
    EXPECT_EQ(oObject.Wait(0), VtStatus_OK);
    EXPECT_EQ(oObject.Wait(0), VtStatus_TIMEOUT);
    EXPECT_EQ(oObject.Trigger() + oObject.Event_Reset(oObject.hObject), 2u);
    EXPECT_EQ(oObject.Wait(0), VtStatus_TIMEOUT);
    oObject.Cancel();
    oObject.Activate();
    EXPECT_EQ(oObject.Wait(0), VtStatus_OK) << "what the cancel set survives the activation";
    oObject.Cancel();
    EXPECT_EQ(oObject.Wait(0), VtStatus_CANCELED);
    oObject.Activate();
    EXPECT_EQ(oObject.Wait(0), VtStatus_TIMEOUT) << "a cancelled wait uses it up as well";
}
