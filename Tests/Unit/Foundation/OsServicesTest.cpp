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
    const auto pfnBody = [](void*) { return 0u; };
    const Bool32 abResults[] = {OsServices_CpuThread_Create(pfnBody, nullptr, nullptr),
                                OsServices_CpuThread_Join(nullptr),
                                OsServices_SpinLock_Create(nullptr, 0),
                                OsServices_SpinLock_Destroy(nullptr),
                                OsServices_SpinLock_Lock(nullptr, 1),
                                OsServices_SpinLock_Unlock(nullptr),
                                OsServices_Mutex_Create(nullptr),
                                OsServices_Mutex_Destroy(nullptr),
                                OsServices_Mutex_Acquire(nullptr, OsServices_INFINITE),
                                OsServices_Mutex_Release(nullptr),
                                OsServices_Event_Create(nullptr),
                                OsServices_Event_Destroy(nullptr),
                                OsServices_Event_Trigger(nullptr),
                                OsServices_Event_Reset(nullptr),
                                OsServices_Event_Cancel(nullptr),
                                OsServices_Event_Activate(nullptr),
                                OsServices_Signal_Create(nullptr),
                                OsServices_Signal_Destroy(nullptr),
                                OsServices_Signal_Trigger(nullptr),
                                OsServices_Signal_Cancel(nullptr),
                                OsServices_Signal_Activate(nullptr)};
    for (const Bool32 bResult : abResults)
    {
        EXPECT_EQ(bResult, 0u) << "result " << &bResult - abResults;
    }
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

TEST(OsServicesFunctions, CopiesTakeTheSourceFirst)
{
    const char acSource[4] = {'a', 'b', 'c', 'd'};
    char acDest[4] = {};
    EXPECT_EQ(OsServices::CopyFromUser(acSource, acDest, 3), 1u);
    EXPECT_EQ(std::string(acDest, 4), std::string("abc\0", 4));
    EXPECT_EQ(OsServices::CopyToUser(acSource + 3, acDest, 1), 1u);
    EXPECT_EQ(acDest[0], 'd');
}

TEST(OsServicesTime, LongWaitsSleepWholeMillisecondsAndSaySo)
{
    const CSeamsReset oReset;
    OsServices oOsServices;
    g_oSeams.bIsSleeping = false;
    OsServices::SetMsgLevel(1, 1, 1);
    testing::internal::CaptureStdout();
    EXPECT_EQ(oOsServices.WaitMicroSeconds(0), 1u);
    EXPECT_EQ(oOsServices.WaitMicroSeconds(100), 1u);
    EXPECT_EQ(g_oSeams.iSleptUs, -1);
    EXPECT_EQ(oOsServices.WaitMicroSeconds(101999), 1u);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "qz2(4.1.0.146)[0]: (Debug) OsServices::WaitMicroSeconds(101999) with delay greater than 100000 us isn't "
              "reliable, using SleepMilliSeconds(101) command instead)\n");
    OsServices::SetMsgLevel(1, 1, 0);
    EXPECT_EQ(g_oSeams.iSleptUs, 101000);
    oOsServices.SleepMilliSeconds(4294968);
    EXPECT_EQ(g_oSeams.iSleptUs, 704) << "the product is of 32 bits";
}

TEST(OsServicesTime, TimeIsTheWallClockAndZeroWithoutOne)
{
    const CSeamsReset oReset;
    g_oSeams.pfnClock = [](timespec& roNow)
    {
        roNow = {1'700'000'000, 1'999'999};
        return 0;
    };
    EXPECT_EQ(OsServices::GetRawTimeInNs(), 1'700'000'000'001'999'999u);
    EXPECT_EQ(OsServices::GetTimeInMs(), 1'700'000'000'001u);
    g_oSeams.pfnClock = [](timespec&) { return -1; };
    EXPECT_EQ(OsServices::GetTimeInMs(), 0u);
}

TEST(OsServicesObject, FailedCreateGivesNullAndFailedDestroyKeepsTheMemory)
{
    const CSeamsReset oReset;
    OsServices oOsServices;
    HCpuThread hThread = reinterpret_cast<HCpuThread>(&oOsServices);
    EXPECT_EQ(oOsServices.CpuThread_Create(nullptr, nullptr, hThread), 0u);
    EXPECT_EQ(hThread, nullptr);
    HMutex hMutex = nullptr;
    ASSERT_EQ(oOsServices.Mutex_Create(hMutex), 1u);
    oOsServices.Mutex_Acquire(hMutex, 0);
    EXPECT_EQ(oOsServices.Mutex_Destroy(hMutex), 0u) << "a held mutex cannot be destroyed";
    EXPECT_EQ(oOsServices.Mutex_Release(hMutex), 1u);
    EXPECT_EQ(oOsServices.Mutex_Destroy(hMutex), 1u);
    g_oSeams.iMutexInitResult = EAGAIN;
    HEvent hEvent = reinterpret_cast<HEvent>(&oOsServices);
    EXPECT_EQ(oOsServices.Event_Create(hEvent), 0u);
    EXPECT_EQ(hEvent, nullptr);
}

TEST(OsServicesObject, ProviderStandsInForCreateAndTrigger)
{
    struct SProvider final : IOsServices
    {
        uint32_t GetIrql() override { return 0x102; }
        Bool32 Event_Create(HEvent&) override { return Called("Event_Create "); }
        Bool32 Event_Trigger(HEvent) override { return Called("Event_Trigger "); }
        Bool32 Signal_Create(HSignal&) override { return Called("Signal_Create "); }
        Bool32 Signal_Trigger(HSignal) override { return Called("Signal_Trigger "); }
        Bool32 Called(const char* pszName)
        {
            szCalls += pszName;
            return 5;
        }
        std::string szCalls;
    } oProvider;
    OsServices oOsServices(static_cast<IOsServices*>(&oProvider));
    HEvent hEvent = nullptr;
    HSignal hSignal = nullptr;
    EXPECT_EQ(oOsServices.Event_Create(hEvent), 5u);
    EXPECT_EQ(oOsServices.Event_Trigger(hEvent), 5u);
    EXPECT_EQ(oOsServices.Signal_Create(hSignal), 5u);
    EXPECT_EQ(oOsServices.Signal_Trigger(hSignal), 5u);
    EXPECT_EQ(oProvider.szCalls, "Event_Create Event_Trigger Signal_Create Signal_Trigger ");
    EXPECT_EQ(hEvent, nullptr);
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

// Last: it leaves the count of instances one too low, which one more instance that never ends puts right.
TEST(OsServicesObjectLast, FailedStartIsReportedAndStillUncountsTheInstance)
{
    const CSeamsReset oReset;
    g_oSeams.bIsInitFailing = true;
    OsServices::SetTestMode(1);
    {
        const OsServices oInTestMode;
        EXPECT_EQ(oInTestMode.IsInitialized(), 1u);
    }
    OsServices::SetTestMode(0);
    testing::internal::CaptureStdout();
    {
        const OsServices oFailed;
        EXPECT_EQ(oFailed.IsInitialized(), 0u);
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "qz2(4.1.0.146)[0]: (Error) OsServices(85) Assertion failed\n");
    alignas(OsServices) static unsigned char s_aucMemory[sizeof(OsServices)];
    const OsServices* const poUncounted = new (s_aucMemory) OsServices;
    EXPECT_EQ(poUncounted->IsInitialized(), 0u) << "the count went below 0 and is 0 again";
}
