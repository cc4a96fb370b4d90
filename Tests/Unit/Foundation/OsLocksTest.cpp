#include <cerrno>
#include <future>
#include <gtest/gtest.h>

#include "CMString.h"
#include "OsMutex.h"
#include "PlatformSeams.h"

namespace
{

struct OsLocks : testing::Test
{
    // Whether another thread gets the mutex.
    bool IsFree(uint32_t uiTimeOutMs)
    {
        return std::async(std::launch::async, [=, this] { return OsMutexGuard(oMutex, uiTimeOutMs).IsLock(); }).get();
    }
    const SSeamsReset oReset;
    OsServices oOsServices;
    OsMutex oMutex{oOsServices};
    HSpinLock hSpinLock = nullptr;
    int iSum = 0;
};

} // namespace

TEST_F(OsLocks, OwnerLocksAgainAndMustReleaseAsOften)
{
    EXPECT_EQ(oMutex.Acquire(0), 1u);
    EXPECT_EQ(OsMutexGuard(oMutex, 0).IsLock(), 1u);
    EXPECT_FALSE(IsFree(0));
    EXPECT_FALSE(IsFree(1));
    EXPECT_EQ(oMutex.Release(), 1u);
    EXPECT_TRUE(IsFree(OsServices_INFINITE));
    EXPECT_TRUE(IsFree(0)) << "the guards have given it back";
}

TEST_F(OsLocks, RefusedDeadlineIsPrintedAndOtherFailuresAreSilent)
{
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

TEST_F(OsLocks, ThreadsRunWithTheirDataUnderASpinLock)
{
    ASSERT_EQ(oOsServices.SpinLock_Create(hSpinLock), 1u);
    const auto AddOften = [](void* pvUserData)
    {
        OsLocks& roTest = *static_cast<OsLocks*>(pvUserData);
        for (int iTurn = 0; iTurn < 1000; ++iTurn)
        {
            roTest.oOsServices.SpinLock_Lock(roTest.hSpinLock);
            ++roTest.iSum;
            roTest.oOsServices.SpinLock_Unlock(roTest.hSpinLock);
        }
        return 0xFFFFFFFF;
    };
    HCpuThread hThread = nullptr;
    ASSERT_EQ(oOsServices.CpuThread_Create(AddOften, this, hThread), 1u);
    AddOften(this);
    EXPECT_EQ(oOsServices.CpuThread_Join(hThread) + oOsServices.CpuThread_Destroy(hThread), 2u);
    EXPECT_EQ(iSum, 2000);
    EXPECT_EQ(oOsServices.SpinLock_Destroy(hSpinLock), 1u);
}

TEST(CMStringThreads, CopiesOfOneTextLiveInDifferentThreads)
{
    const auto CopyOften = [](const CMString& rszText)
    {
        for (int iTurn = 0; iTurn < 1000; ++iTurn)
        {
            EXPECT_EQ(CMString(rszText), "shared");
        }
    };
    const CMString szText("shared");
    const auto oOther = std::async(std::launch::async, CopyOften, szText);
    CopyOften(szText);
}
