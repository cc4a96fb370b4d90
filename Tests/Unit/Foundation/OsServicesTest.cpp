#include "OsServices.h"

#include "IOsServices.h"
#include "PlatformSeams.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <unistd.h>

TEST(OsServicesFunctions, NullHandleGetsTheFailureValue)
{
    const Bool32 uiSuccesses =
        OsServices_CpuThread_Create([](void*) { return 0u; }, nullptr, nullptr) + OsServices_CpuThread_Join(nullptr) +
        OsServices_SpinLock_Create(nullptr, 0) + OsServices_SpinLock_Destroy(nullptr) +
        OsServices_SpinLock_Lock(nullptr, 1) + OsServices_SpinLock_Unlock(nullptr) + OsServices_Mutex_Create(nullptr) +
        OsServices_Mutex_Destroy(nullptr) + OsServices_Mutex_Acquire(nullptr, OsServices_INFINITE) +
        OsServices_Mutex_Release(nullptr) + OsServices_Event_Create(nullptr) + OsServices_Event_Destroy(nullptr) +
        OsServices_Event_Trigger(nullptr) + OsServices_Event_Reset(nullptr) + OsServices_Event_Cancel(nullptr) +
        OsServices_Event_Activate(nullptr) + OsServices_Signal_Create(nullptr) + OsServices_Signal_Destroy(nullptr) +
        OsServices_Signal_Trigger(nullptr) + OsServices_Signal_Cancel(nullptr) + OsServices_Signal_Activate(nullptr);
    EXPECT_EQ(uiSuccesses, 0u);
    EXPECT_EQ(OsServices_Event_Wait(nullptr, 0), VtStatus_FAIL);
    EXPECT_EQ(OsServices_Signal_Wait(nullptr, 0, 0), VtStatus_FAIL);
    EXPECT_EQ(OsServices_CpuThread_Destroy(nullptr), 1u);
}

TEST(OsServicesFunctions, ProcessStackListsCommandLinesUpwardsWithinTheBuffer)
{
    const auto CommandLine = [](int iPid)
    {
        std::ostringstream oText;
        oText << std::ifstream("/proc/" + std::to_string(iPid) + "/cmdline").rdbuf();
        std::string szLine = oText.str();
        std::replace(szLine.begin(), szLine.end(), '\0', ' ');
        return szLine.substr(0, 512) + "\n";
    };
    const std::string szExpected = CommandLine(getpid()) + CommandLine(getppid());
    std::string szStack(65536, '#');
    EXPECT_EQ(OsServices_GetProcessStack(szStack.data(), 65536), VtStatus_INVALID_PARAM);
    szStack.resize(std::strlen(szStack.c_str()));
    EXPECT_EQ(szStack.substr(0, szExpected.size()), szExpected);
    EXPECT_EQ(szStack.back(), '\n');
    for (const uint32_t uiSize : {0u, 1u, 2u, static_cast<uint32_t>(szExpected.size())})
    {
        std::string szCut(szExpected.size() + 8, '#');
        EXPECT_EQ(OsServices_GetProcessStack(szCut.data(), uiSize), VtStatus_INVALID_PARAM);
        EXPECT_EQ(szCut.find_first_not_of('#', uiSize), std::string::npos) << uiSize;
        EXPECT_EQ(szCut.substr(0, uiSize).c_str(), szExpected.substr(0, uiSize == 0 ? 0 : uiSize - 1));
    }
    EXPECT_EQ(OsServices_GetProcessStack(nullptr, 10), VtStatus_INVALID_PARAM);
}

TEST(OsServicesFunctions, CopyTakesTheSourceFirst)
{
    char acBytes[2] = {'a', 'b'};
    EXPECT_EQ(OsServices::CopyFromUser(acBytes, acBytes + 1, 1) + OsServices::CopyToUser("c", acBytes, 1), 2u);
    EXPECT_EQ(std::string(acBytes, 2), "ca");
}

TEST(OsServicesTime, LongWaitsSleepWholeMillisecondsAndSaySo)
{
    const SSeamsReset oReset;
    OsServices oOsServices;
    OsServices::SetMsgLevel(1, 1, 1);
    testing::internal::CaptureStdout();
    EXPECT_EQ(oOsServices.WaitMicroSeconds(0), 1u);
    g_oSeams.iClock = CLOCK_MONOTONIC;
    g_oSeams.pfnClock = [iNow = time_t{}](timespec& roNow) mutable { return (roNow = {++iNow, 0}, 0); };
    EXPECT_EQ(oOsServices.WaitMicroSeconds(100000), 1u);
    EXPECT_EQ(g_oSeams.iSleptUs, -1);
    EXPECT_EQ(oOsServices.WaitMicroSeconds(100001), 1u);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "qz2(4.1.0.146)[0]: (Debug) OsServices::WaitMicroSeconds(100001) with delay greater than 100000 us isn't "
              "reliable, using SleepMilliSeconds(100) command instead)\n");
    OsServices::SetMsgLevel(1, 1, 0);
    EXPECT_EQ(g_oSeams.iSleptUs, 100000);
    oOsServices.SleepMilliSeconds(4294968);
    EXPECT_EQ(g_oSeams.iSleptUs, 704) << "the product is of 32 bits";
}

TEST(OsServicesTime, TimeIsTheWallClockAndZeroWithoutOne)
{
    const SSeamsReset oReset;
    StopClock(1'700'000'000, 1'999'999);
    EXPECT_EQ(OsServices::GetRawTimeInNs(), 1'700'000'000'001'999'999u);
    EXPECT_EQ(OsServices::GetTimeInMs(), 1'700'000'000'001u);
    g_oSeams.pfnClock = [](timespec&) { return -1; };
    EXPECT_EQ(OsServices::GetTimeInMs(), 0u);
}

TEST(OsServicesObject, FailedCreateGivesNullAndFailedDestroyKeepsTheMemory)
{
    const SSeamsReset oReset;
    OsServices oOsServices;
    HCpuThread hThread = reinterpret_cast<HCpuThread>(&oOsServices);
    EXPECT_EQ(oOsServices.CpuThread_Create(nullptr, nullptr, hThread), 0u);
    EXPECT_EQ(hThread, nullptr);
    HMutex hMutex = nullptr;
    ASSERT_EQ(oOsServices.Mutex_Create(hMutex), 1u);
    g_oSeams.iMutexDestroy = EBUSY;
    EXPECT_EQ(oOsServices.Mutex_Destroy(hMutex), 0u);
    g_oSeams.iMutexDestroy = 0;
    EXPECT_EQ(oOsServices.Mutex_Destroy(hMutex), 1u);
    g_oSeams.iMutexInit = EAGAIN;
    HEvent hEvent = reinterpret_cast<HEvent>(&oOsServices);
    EXPECT_EQ(oOsServices.Event_Create(hEvent), 0u);
    EXPECT_EQ(hEvent, nullptr);
}

TEST(OsServicesObject, ProviderStandsInForCreateAndTrigger)
{
    struct SProvider final : IOsServices
    {
        uint32_t GetIrql() override { return 0x102; }
        Bool32 Event_Create(HEvent&) override { return 10; }
        Bool32 Event_Trigger(HEvent) override { return 11; }
        Bool32 Signal_Create(HSignal&) override { return 12; }
        Bool32 Signal_Trigger(HSignal) override { return 13; }
    } oProvider;
    OsServices oOsServices(static_cast<IOsServices*>(&oProvider));
    HEvent hEvent = nullptr;
    HSignal hSignal = nullptr;
    EXPECT_EQ(oOsServices.Event_Create(hEvent), 10u);
    EXPECT_EQ(oOsServices.Event_Trigger(hEvent), 11u);
    EXPECT_EQ(oOsServices.Signal_Create(hSignal), 12u);
    EXPECT_EQ(oOsServices.Signal_Trigger(hSignal), 13u);
    EXPECT_TRUE(hEvent == nullptr && hSignal == nullptr) << "nothing is allocated beside";
}

TEST(OsServicesObject, RandomNonZeroNeverGivesZeroAndMixesAsDefined)
{
    for (int iTurn = 0; iTurn < 1000; ++iTurn)
    {
        const uint32_t uiOld = OsServices::GetRandomNonZero();
        ASSERT_NE(uiOld, 0u);
        ASSERT_EQ(OsServices::GetRandom(), (((uiOld >> 1) | (uiOld << 31)) ^ uiOld) + uiOld);
    }
}

TEST(OsServicesObject, LastInstanceReleasesTheLayerBelow)
{
    g_oSeams.iReleases = 0;
    {
        const OsServices oFirst;
        OsServices();
        EXPECT_EQ(g_oSeams.iReleases, 0);
    }
    EXPECT_EQ(g_oSeams.iReleases, 1);
}

// Last: it leaves the count of instances one too low, which one more instance that never ends puts right.
TEST(OsServicesObjectLast, FailedStartIsReportedAndStillUncountsTheInstance)
{
    const SSeamsReset oReset;
    g_oSeams.bIsInitFailing = true;
    OsServices::SetTestMode(1);
    EXPECT_EQ(OsServices().IsInitialized(), 1u) << "a test starts nothing";
    OsServices::SetTestMode(0);
    testing::internal::CaptureStdout();
    EXPECT_EQ(OsServices().IsInitialized(), 0u);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "qz2(4.1.0.146)[0]: (Error) OsServices(85) Assertion failed\n");
    alignas(OsServices) static unsigned char s_aucMemory[sizeof(OsServices)];
    EXPECT_EQ((new (s_aucMemory) OsServices)->IsInitialized(), 0u) << "the count went below 0 and is 0 again";
}
