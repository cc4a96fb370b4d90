// What the lock tests say of a board whose truth is known, through the real monitor threads in granted time.
#include <algorithm>
#include <functional>
#include <regex>

#include <unistd.h>

#include "CableLockStatus.h"
#include "FrameLockStatus.h"
#include "MonitorRun.h"
#include "MonitorScript.h"
#include "VideoInMonitor.h"
#include "VideoOutMonitor.h"

namespace
{

// Two streams in lock and their monitor threads, which only run inside its operations.
class CLockScenario
{
public:
    explicit CLockScenario(VtSim_Direction eDirection) : m_eDirection(eDirection)
    {
        const bool bIsInput = eDirection == VtSim_Direction_INPUT;
        const std::string szStream = std::string(bIsInput ? "[[chip.input]]\n" : "[[chip.output]]\n") +
                                     "connector = 'SDI'\njitter_ticks = 3\nstandard = '1080p60'\n"
                                     "lock_group = 'house'\nphase_ticks = ";
        hDev = LoadScenario("time = { mode = 'granted', hold = true }\n[[chip]]\n"
                            "lock_group = [{ name = 'house', ppm = 3, wander_ticks = 100, wander_period_s = 7 }]\n" +
                            szStream + "5000\n" + szStream + "5100\n");
        g_oOsServices.Signal_Create(g_hStartSig);
        EXPECT_TRUE(CreateThreads(hDev, 2, m_ahThread, aoData,
                                  bIsInput ? VtVideoInMonitorThreadFunc : VtVideoOutMonitorThreadFunc, ""));
        for (const uint32_t uiVideo : {0U, 1U})
        {
            // A trigger is lost for a thread that is not waiting yet.
            while (VtSim_AwaitEntered({0, eDirection, uiVideo}, 1, 1) == VtStatus_TIMEOUT)
            {
                g_oOsServices.Signal_Trigger(g_hStartSig);
            }
        }
    }
    ~CLockScenario()
    {
        aoData[0].bStopSignal = 1;
        aoData[1].bStopSignal = 1;
        VtSim_GrantTimeOutsAll(1);
        for (const HCpuThread hThread : m_ahThread)
        {
            EXPECT_EQ(g_oOsServices.CpuThread_Join(hThread), 1U);
            g_oOsServices.CpuThread_Destroy(hThread);
        }
        g_oOsServices.Signal_Destroy(g_hStartSig);
        EXPECT_EQ(VtSim_GetOpenHandleCount(), 0U);
    }
    CLockScenario(const CLockScenario&) = delete;
    CLockScenario& operator=(const CLockScenario&) = delete;

    // Grants both streams so many fields, or only the first, the second one stalls.
    void Advance(uint64_t uiFields, bool bIsStalled = false) const
    {
        VtSim_Grant({0, m_eDirection, 0}, uiFields);
        VtSim_Grant({0, m_eDirection, 1}, bIsStalled ? 0 : uiFields);
        EXPECT_EQ(VtSim_AwaitAllIdle(30000), VtStatus_OK);
    }
    uint64_t GetStamp(uint32_t uiVideo, uint64_t uiField) const
    {
        VtSim_Field oField = {};
        VtSim_GetField({0, m_eDirection, uiVideo}, uiField, &oField);
        return oField.uiTickRefCounter;
    }
    // How far apart they are at worst in the fields uiFrom to uiEnd - 1.
    uint32_t GetWorstTicks(uint64_t uiFrom, uint64_t uiEnd) const
    {
        uint64_t uiWorst = 0;
        for (uint64_t uiField = uiFrom; uiField < uiEnd; ++uiField)
        {
            const auto [uiLow, uiHigh] = std::minmax({GetStamp(0, uiField), GetStamp(1, uiField)});
            uiWorst = std::max(uiWorst, uiHigh - uiLow);
        }
        return static_cast<uint32_t>(uiWorst);
    }

    VtDevice_Handle hDev;
    SMonitorUserData aoData[2] = {};

private:
    const VtSim_Direction m_eDirection;
    HCpuThread m_ahThread[2] = {};
};

std::function<void()> g_oDuringPause;

std::string PrintedLines(const std::function<void()>& roFunction)
{
    testing::internal::CaptureStdout();
    roFunction();
    return std::regex_replace(testing::internal::GetCapturedStdout(), std::regex("\033\\[K"), "");
}

} // namespace

extern "C" int WrappedSleep(useconds_t uiPauseUs) asm("__wrap_usleep");
extern "C" int WrappedSleep(useconds_t uiPauseUs)
{
    // The lock tests pause for long, monitor threads without a signal for a moment.
    if (uiPauseUs >= 500000)
    {
        g_oDuringPause();
    }
    return 0;
}

class LockScenario : public testing::TestWithParam<VtSim_Direction>
{
};

TEST_P(LockScenario, LockTestsGiveTheTruthOnScreenAndDebugChannel)
{
    CLockScenario oScenario(GetParam());
    uint64_t uiField = 120;
    oScenario.Advance(uiField);
    // Six pauses of the first test, three of the second; in the second of these the second stream stalls.
    g_oDuringPause = [&]
    {
        uiField += 60;
        oScenario.Advance(60, uiField == 600);
    };
    g_uiCableLockDurationSec = 3;
    const auto RunTests = [&]
    {
        FrameLockStatus(2, oScenario.aoData, oScenario.hDev);
        CableLockStatus(2, oScenario.aoData, oScenario.hDev);
    };
    const std::string szText = PrintedLines(RunTests);
    EXPECT_EQ(uiField, 660U);
    char szExpected[1024];
    snprintf(szExpected, sizeof(szExpected),
             "Testing if the system is frame locked ...\n"
             " Success (biggest difference : %u ticks, max allowed : 1492 ticks)\n"
             "Cable Lock Testing begin (3 seconds) ... \n------------------\n"
             "CableLock TS   1 : 0x%016lX 0x%016lX \nCableLock TS   2 : 0x%016lX 0x%016lX \n"
             "CableLock TS   3 : 0x%016lX 0x0000000000000000 \n------------------\nCable Lock Testing done ... \n"
             " Failed (2 of 3 seconds locked, biggest difference : %u ticks)\n",
             oScenario.GetWorstTicks(0, 420), oScenario.GetStamp(0, 479), oScenario.GetStamp(1, 479),
             oScenario.GetStamp(0, 539), oScenario.GetStamp(1, 539), oScenario.GetStamp(0, 599),
             oScenario.GetWorstTicks(360, 540));
    EXPECT_EQ(szText, szExpected);
    std::string szLines;
    for (uint32_t uiMsg = 0; uiMsg < VtSim_GetDebugMsgCount(); ++uiMsg)
    {
        char szMsg[256] = "";
        VtSim_GetDebugMsg(uiMsg, szMsg, sizeof(szMsg));
        szLines += std::string(szMsg) + "\n";
    }
    EXPECT_EQ(szLines, szText.substr(0, szText.find("---")) + szText.substr(szText.find("Cable Lock Testing done")));
}

INSTANTIATE_TEST_SUITE_P(Directions, LockScenario, testing::Values(VtSim_Direction_INPUT, VtSim_Direction_OUTPUT));
