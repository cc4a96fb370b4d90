#include "OsMutex.h"

#include "CMString.h"
#include "PlatformSeams.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <thread>

namespace
{

// Whether another thread gets the mutex.
bool IsFree(OsMutex& roMutex, uint32_t uiTimeOutMs)
{
    bool bIsFree = false;
    std::thread(
        [&]
        {
            const OsMutexGuard oGuard(roMutex, uiTimeOutMs);
            bIsFree = oGuard.IsLock() == 1;
        })
        .join();
    return bIsFree;
}

struct SShared
{
    OsServices oOsServices;
    HSpinLock hSpinLock = nullptr;
    int iSum = 0;
};

uint32_t AddOneThousandTimes(void* pvUserData)
{
    auto& [roOsServices, hSpinLock, iSum] = *static_cast<SShared*>(pvUserData);
    for (int iTurn = 0; iTurn < 1000; ++iTurn)
    {
        roOsServices.SpinLock_Lock(hSpinLock);
        ++iSum;
        roOsServices.SpinLock_Unlock(hSpinLock);
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
        EXPECT_FALSE(IsFree(oMutex, 0));
    }
    EXPECT_FALSE(IsFree(oMutex, 1));
    EXPECT_EQ(oMutex.Release(), 1u);
    EXPECT_TRUE(IsFree(oMutex, OsServices_INFINITE));
    EXPECT_EQ(oMutex.Release(), 0u) << "nobody holds it";
}

TEST(OsMutex, RefusedDeadlineIsPrintedAndOtherFailuresAreSilent)
{
    const CSeamsReset oReset;
    OsServices oOsServices;
    OsMutex oMutex(oOsServices);
    g_oSeams.pfnClock = [](timespec& roNow)
    {
        roNow = {7, 8};
        return 0;
    };
    testing::internal::CaptureStdout();
    for (const int iResult : {EINVAL, ETIMEDOUT, EAGAIN})
    {
        g_oSeams.iMutexTimedLockResult = iResult;
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
    OsServices& oOsServices = oShared.oOsServices;
    ASSERT_EQ(oOsServices.SpinLock_Create(oShared.hSpinLock), 1u);
    HCpuThread ahThreads[2] = {};
    for (HCpuThread& rhThread : ahThreads)
    {
        ASSERT_EQ(oOsServices.CpuThread_Create(AddOneThousandTimes, &oShared, rhThread), 1u);
    }
    for (const HCpuThread& rhThread : ahThreads)
    {
        EXPECT_EQ(oOsServices.CpuThread_Join(rhThread), 1u);
        EXPECT_EQ(oOsServices.CpuThread_Destroy(rhThread), 1u);
    }
    EXPECT_EQ(oShared.iSum, 2000);
    EXPECT_EQ(oOsServices.SpinLock_Destroy(oShared.hSpinLock), 1u);
}

TEST(CMStringThreads, CopiesOfOneTextLiveInDifferentThreads)
{
    CMString szText("shared");
    std::thread oThread(
        [szCopy = szText]() mutable
        {
            for (int iTurn = 0; iTurn < 1000; ++iTurn)
            {
                const CMString szSecond(szCopy);
                EXPECT_EQ(szSecond, "shared");
            }
            szCopy.AppendFormat("%d", 1);
        });
    for (int iTurn = 0; iTurn < 1000; ++iTurn)
    {
        const CMString szSecond(szText);
        EXPECT_EQ(szSecond, "shared");
    }
    szText = nullptr;
    oThread.join();
}
