#include "OsServices.h"

#include "PlatformSeams.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace
{

// The two objects under one set of names.
struct SEvent
{
    SEvent() { oOsServices.Event_Create(hObject); }
    ~SEvent() { oOsServices.Event_Destroy(hObject); }
    VtStatus Wait(uint32_t uiTimeOutMs) { return oOsServices.Event_Wait(hObject, uiTimeOutMs); }
    Bool32 Trigger() { return oOsServices.Event_Trigger(hObject); }
    Bool32 Cancel() { return oOsServices.Event_Cancel(hObject); }
    Bool32 Activate() { return oOsServices.Event_Activate(hObject); }

    OsServices oOsServices;
    HEvent hObject = nullptr;
};

struct SSignal
{
    SSignal() { oOsServices.Signal_Create(hObject); }
    ~SSignal() { oOsServices.Signal_Destroy(hObject); }
    VtStatus Wait(uint32_t uiTimeOutMs) { return oOsServices.Signal_Wait(hObject, uiTimeOutMs, 7); }
    Bool32 Trigger() { return oOsServices.Signal_Trigger(hObject); }
    Bool32 Cancel() { return oOsServices.Signal_Cancel(hObject); }
    Bool32 Activate() { return oOsServices.Signal_Activate(hObject); }

    OsServices oOsServices;
    HSignal hObject = nullptr;
};

// Threads that wait for ever; constructed, they all are inside the wait.
template <class OBJECT> class CWaiters
{
public:
    CWaiters(OBJECT& roObject, int iCount) : m_aeStatuses(static_cast<size_t>(iCount))
    {
        for (VtStatus& reStatus : m_aeStatuses)
        {
            m_aoThreads.emplace_back(
                [&]
                {
                    reStatus = roObject.Wait(OsServices_INFINITE);
                    ++iReturned;
                    iReturned.notify_all();
                });
        }
        AwaitValue(g_oSeams.iInWait, iCount);
    }
    std::vector<VtStatus> Join()
    {
        for (std::thread& roThread : m_aoThreads)
        {
            roThread.join();
        }
        return m_aeStatuses;
    }

    std::atomic<int> iReturned = 0;

private:
    std::vector<VtStatus> m_aeStatuses;
    std::vector<std::thread> m_aoThreads;
};

template <class OBJECT> class OsEventsAndSignals : public testing::Test
{
protected:
    CSeamsReset m_oReset;
    OBJECT m_oObject;
};
using Objects = testing::Types<SEvent, SSignal>;
TYPED_TEST_SUITE(OsEventsAndSignals, Objects);

} // namespace

TYPED_TEST(OsEventsAndSignals, CancelEndsAllWaitsAndOnlyActivateMakesThemWaitAgain)
{
    CWaiters oWaiters(this->m_oObject, 2);
    EXPECT_EQ(this->m_oObject.Cancel(), 1u);
    EXPECT_EQ(oWaiters.Join(), (std::vector{VtStatus_CANCELED, VtStatus_CANCELED}));

    EXPECT_EQ(this->m_oObject.Cancel(), 0u);
    EXPECT_EQ(this->m_oObject.Trigger(), 0u);
    g_oSeams.iCondWaitResult = EPERM; // a wait that blocked would fail
    EXPECT_EQ(this->m_oObject.Wait(OsServices_INFINITE), VtStatus_CANCELED);
    EXPECT_EQ(this->m_oObject.Activate(), 1u);
    EXPECT_EQ(this->m_oObject.Wait(0), VtStatus_TIMEOUT);
}

TYPED_TEST(OsEventsAndSignals, ResultsOfTheSystemBecomeTheseStatuses)
{
    const struct
    {
        int iResult;
        VtStatus eTimedStatus;
    } aoRows[] = {{ETIMEDOUT, VtStatus_TIMEOUT}, {EINVAL, VtStatus_TIMEOUT}, {EPERM, VtStatus_FAIL}};
    for (const auto& roRow : aoRows)
    {
        g_oSeams.iCondTimedWaitResult = roRow.iResult;
        EXPECT_EQ(this->m_oObject.Wait(10), roRow.eTimedStatus);
    }
    g_oSeams.iCondWaitResult = EPERM;
    EXPECT_EQ(this->m_oObject.Wait(OsServices_INFINITE), VtStatus_CANCELED);
}

TYPED_TEST(OsEventsAndSignals, DeadlineIsTheWallClockPlusTheTimeOut)
{
    g_oSeams.iCondTimedWaitResult = ETIMEDOUT;
    g_oSeams.pfnClock = [](timespec& roNow)
    {
        roNow = {100, 999'999'999};
        return 0;
    };
    const struct
    {
        uint32_t uiTimeOutMs;
        int64_t iSeconds, iNanoSeconds;
    } aoRows[] = {
        {0, 100, 999'999'999}, {1, 101, 999'999}, {1500, 102, 499'999'999}, {0xFFFFFFFE, 4295068, 293'999'999}};
    for (const auto& roRow : aoRows)
    {
        this->m_oObject.Wait(roRow.uiTimeOutMs);
        EXPECT_EQ(g_oSeams.oDeadLine.tv_sec, roRow.iSeconds);
        EXPECT_EQ(g_oSeams.oDeadLine.tv_nsec, roRow.iNanoSeconds);
    }
}

TYPED_TEST(OsEventsAndSignals, RefusedDeadlineIsPrintedWithTheClock)
{
    g_oSeams.iCondTimedWaitResult = EINVAL;
    g_oSeams.pfnClock = [](timespec& roNow)
    {
        roNow = {7, 8};
        return 0;
    };
    testing::internal::CaptureStdout();
    this->m_oObject.Wait(1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "pthread_cond_timedwait returned 22 INVALID\n"
              "TimeOut occurs Req timespec.tv_sec=7,timespec.tv_nsec=1000008, Now "
              "timespec.tv_sec=7,timespec.tv_nsec=8\n");
}

TEST(OsEvent, TriggerWakesOneWaiterAndLeavesTheOther)
{
    const CSeamsReset oReset;
    SEvent oEvent;
    CWaiters oWaiters(oEvent, 2);
    EXPECT_EQ(oEvent.Trigger(), 1u);
    AwaitValue(oWaiters.iReturned, 1);
    EXPECT_EQ(g_oSeams.iInWait, 1);
    EXPECT_EQ(oEvent.Trigger(), 1u);
    EXPECT_EQ(oWaiters.Join(), (std::vector{VtStatus_OK, VtStatus_OK}));
}

TEST(OsSignal, TriggerWakesAllWaiters)
{
    const CSeamsReset oReset;
    SSignal oSignal;
    CWaiters oWaiters(oSignal, 2);
    EXPECT_EQ(oSignal.Trigger(), 1u);
    EXPECT_EQ(oWaiters.Join(), (std::vector{VtStatus_OK, VtStatus_OK}));
}

TEST(OsEvent, TriggersWithoutWaiterAreRememberedAsOne)
{
    SEvent oEvent;
    EXPECT_EQ(oEvent.Trigger(), 1u);
    EXPECT_EQ(oEvent.Trigger(), 1u);
    EXPECT_EQ(oEvent.Wait(0), VtStatus_OK);
    EXPECT_EQ(oEvent.Wait(0), VtStatus_TIMEOUT);

    oEvent.Trigger();
    EXPECT_EQ(oEvent.oOsServices.Event_Reset(oEvent.hObject), 1u);
    EXPECT_EQ(oEvent.Wait(0), VtStatus_TIMEOUT);

    oEvent.Cancel();
    oEvent.Activate();
    EXPECT_EQ(oEvent.Wait(0), VtStatus_OK) << "what the cancel set survives the activation";
    oEvent.Cancel();
    oEvent.Wait(0);
    oEvent.Activate();
    EXPECT_EQ(oEvent.Wait(0), VtStatus_TIMEOUT) << "unless a wait used it up";
}

TEST(OsSignal, TriggerWithoutWaiterIsLost)
{
    SSignal oSignal;
    EXPECT_EQ(oSignal.Trigger(), 1u);
    EXPECT_EQ(oSignal.Wait(0), VtStatus_TIMEOUT);
}

TEST(OsEvent, FailedWakeUpIsTakenBack)
{
    const CSeamsReset oReset;
    SEvent oEvent;
    SSignal oSignal;
    g_oSeams.iCondSignalResult = EINVAL;
    EXPECT_EQ(oEvent.Trigger(), 0u);
    EXPECT_EQ(oEvent.Wait(0), VtStatus_TIMEOUT);
    g_oSeams.iCondBroadcastResult = EINVAL;
    EXPECT_EQ(oSignal.Trigger(), 0u);
    EXPECT_EQ(oSignal.Cancel(), 0u);
    EXPECT_EQ(oSignal.Wait(0), VtStatus_CANCELED);
    EXPECT_EQ(oEvent.Cancel(), 0u);
    EXPECT_EQ(oEvent.Trigger(), 0u) << "cancelled all the same";
    oEvent.Activate();
    EXPECT_EQ(oEvent.Wait(0), VtStatus_TIMEOUT);
}
