#include "OsServices.h"

#include <algorithm>
#include <fstream>
#include <gtest/gtest.h>
#include <unistd.h>

#include "IOsServices.h"
#include "PlatformSeams.h"

TEST(OsServicesFunctions, ProcessStackListsCommandLinesUpwardsWithinTheBuffer)
{
    const auto CommandLine = [](int iPid)
    {
        const std::ifstream oFile("/proc/" + std::to_string(iPid) + "/cmdline");
        std::string szLine = (std::ostringstream() << oFile.rdbuf()).str();
        std::replace(szLine.begin(), szLine.end(), '\0', ' ');
        return szLine.substr(0, 512) + "\n";
    };
    const std::string szExpected = CommandLine(getpid()) + CommandLine(getppid());
    std::string szStack(65536, '#');
    EXPECT_EQ(OsServices_GetProcessStack(szStack.data(), 65536), VtStatus_INVALID_PARAM);
    EXPECT_EQ(szStack.substr(0, szExpected.size()), szExpected);
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
    EXPECT_EQ(OsServices().CopyFromUser(acBytes, acBytes + 1, 1) + OsServices().CopyToUser("c", acBytes, 1), 2u);
    EXPECT_EQ(std::string(acBytes, 2), "ca");
}

TEST(OsServicesRandom, SeedIsAnAddressAndOneWithoutLowBitsHangsNobody)
{
    const SSeamsReset oReset;
    OsServices oOsServices;
    g_oSeams.pvByte = reinterpret_cast<void*>(uintptr_t{1} << 32);
    EXPECT_NE(oOsServices.GetRandomNonZero(), 0u) << "only the first call of the process has no state";
    const uint32_t uiOld = oOsServices.GetRandom();
    EXPECT_EQ(oOsServices.GetRandom(), ((uiOld >> 1 | uiOld << 31) ^ uiOld) + uiOld);
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
    const OsServices oOsServices;
    StopClock(1'700'000'000, 1'999'999);
    EXPECT_EQ(oOsServices.GetRawTimeInNs(), 1'700'000'000'001'999'999u);
    EXPECT_EQ(oOsServices.GetTimeInMs(), 1'700'000'000'001u);
    g_oSeams.pfnClock = [](timespec&) { return -1; };
    EXPECT_EQ(oOsServices.GetTimeInMs(), 0u);
}

TEST(OsServicesObject, FailedCreateGivesNullAndFailedDestroyKeepsTheMemory)
{
    OsServices oOsServices;
    HCpuThread hThread = reinterpret_cast<HCpuThread>(&oOsServices);
    EXPECT_EQ(oOsServices.CpuThread_Create(nullptr, nullptr, hThread), 0u);
    EXPECT_EQ(hThread, nullptr);
    EXPECT_EQ(oOsServices.CpuThread_Join(hThread), 0u);
    EXPECT_EQ(oOsServices.CpuThread_Destroy(hThread), 1u) << "which no other handle's end gives for none";
    HMutex hMutex = nullptr;
    ASSERT_EQ(oOsServices.Mutex_Create(hMutex) + oOsServices.Mutex_Acquire(hMutex, 0), 2u);
    EXPECT_EQ(oOsServices.Mutex_Destroy(hMutex), 0u) << "it is held";
    EXPECT_EQ(oOsServices.Mutex_Release(hMutex) + oOsServices.Mutex_Destroy(hMutex), 2u);
    EXPECT_EQ(oOsServices.Mutex_Destroy(nullptr), 0u);
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
    EXPECT_EQ(oOsServices.Event_Create(hEvent) * 100 + oOsServices.Event_Trigger(hEvent), 1011u);
    EXPECT_EQ(oOsServices.Signal_Create(hSignal) * 100 + oOsServices.Signal_Trigger(hSignal), 1213u);
    EXPECT_TRUE(hEvent == nullptr && hSignal == nullptr) << "nothing is allocated beside";
}

// Last: it leaves the count of instances one too low, which one more instance that never ends puts right.
TEST(OsServicesObjectLast, LastInstanceReleasesAndAFailedStartStillUncountsTheInstance)
{
    const SSeamsReset oReset;
    g_oSeams.iReleases = 0;
    {
        const OsServices oFirst;
        OsServices();
        EXPECT_EQ(g_oSeams.iReleases, 0);
    }
    EXPECT_EQ(g_oSeams.iReleases, 1);
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
