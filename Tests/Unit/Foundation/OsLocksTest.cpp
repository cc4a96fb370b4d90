#include "OsMutex.h"

#include "CMString.h"
#include "PlatformSeams.h"

#include <cerrno>
#include <future>
#include <gtest/gtest.h>

namespace
{

// Whether another thread gets the mutex.
bool IsFree(OsMutex& roMutex, uint32_t uiTimeOutMs)
{
    return std::async(std::launch::async, [&] { return OsMutexGuard(roMutex, uiTimeOutMs).IsLock() == 1; }).get();
}

struct SShared : OsServices
{
    HSpinLock hSpinLock = nullptr;
    int iSum = 0;
};

uint32_t AddOneThousandTimes(void* pvUserData)
{
    SShared& roShared = *static_cast<SShared*>(pvUserData);
    for (int iTurn = 0; iTurn < 1000; ++iTurn)
    {
        roShared.SpinLock_Lock(roShared.hSpinLock);
        ++roShared.iSum;
        roShared.SpinLock_Unlock(roShared.hSpinLock);
    }
    return 0xFFFFFFFF;
}

} // namespace

TEST(OsMutex, OwnerLocksAgainAndMustReleaseAsOften)
{
    OsServices oOsServices;
    OsMutex oMutex(oOsServices);
    EXPECT_EQ(oMutex.Acquire(0), 1u);
    {
        const OsMutexGuard oGuard(oMutex, 0);
        EXPECT_EQ(oGuard.IsLock(), 1u);
    }
    EXPECT_FALSE(IsFree(oMutex, 0));
    EXPECT_FALSE(IsFree(oMutex, 1));
    EXPECT_EQ(oMutex.Release(), 1u);
    EXPECT_TRUE(IsFree(oMutex, OsServices_INFINITE));
    EXPECT_TRUE(IsFree(oMutex, 0)) << "the guards have given it back";
}

TEST(OsMutex, RefusedDeadlineIsPrintedAndOtherFailuresAreSilent)
{
    const SSeamsReset oReset;
    OsServices oOsServices;
    OsMutex oMutex(oOsServices);
    StopClock(7, 8);
    testing::internal::CaptureStdout();
    for (const int iResult : {EINVAL, ETIMEDOUT, EAGAIN})
    {
        g_oSeams.iMutexTimedLock = iResult;
        EXPECT_EQ(oMutex.Acquire(2), 0u);
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "pthread_mutex_timedlock returned 22 INVALID\n"
              "TimeOut occurs Req timespec.tv_sec=7,timespec.tv_nsec=2000008, Now "
              "timespec.tv_sec=7,timespec.tv_nsec=8\n");
}

TEST(OsCpuThread, ThreadsRunWithTheirDataUnderASpinLock)
{
    SShared oShared;
    ASSERT_EQ(oShared.SpinLock_Create(oShared.hSpinLock), 1u);
    HCpuThread ahThreads[2] = {};
    for (HCpuThread& rhThread : ahThreads)
    {
        ASSERT_EQ(oShared.CpuThread_Create(AddOneThousandTimes, &oShared, rhThread), 1u);
    }
    for (const HCpuThread& rhThread : ahThreads)
    {
        EXPECT_EQ(oShared.CpuThread_Join(rhThread) + oShared.CpuThread_Destroy(rhThread), 2u);
    }
    EXPECT_EQ(oShared.iSum, 2000);
    EXPECT_EQ(oShared.SpinLock_Destroy(oShared.hSpinLock), 1u);
}

TEST(CMStringThreads, CopiesOfOneTextLiveInDifferentThreads)
{
    CMString szText("shared");
    const auto CopyOften = [](const CMString& rszText)
    {
        for (int iTurn = 0; iTurn < 1000; ++iTurn)
        {
            EXPECT_EQ(CMString(rszText), "shared");
        }
    };
    const auto oOther = std::async(std::launch::async, CopyOften, szText);
    CopyOften(szText);
    szText = nullptr;
}
