// What the lock tests say of a board whose truth is known, through the real monitor threads in granted time.
#include <functional>
#include <regex>
#include <vector>

#include <unistd.h>

#include "CableLockStatus.h"
#include "FrameLockStatus.h"
#include "MonitorRun.h"
#include "MonitorScript.h"
#include "VideoOutMonitor.h"

namespace
{

constexpr uint32_t NOBODY = 32;

// A board and the monitor threads of one direction. Threads only run inside its operations.
class CLockScenario
{
public:
    explicit CLockScenario(const std::vector<std::string>& rdaszStream)
        : daoData(rdaszStream.size()), m_dahThread(rdaszStream.size())
    {
        std::string szText = "time = { mode = 'granted', hold = true }\n[[chip]]\n"
                             "lock_group = [{ name = 'house', ppm = 3, wander_ticks = 100, wander_period_s = 7 }]\n";
        for (const std::string& rszStream : rdaszStream)
        {
            szText += "[[chip.output]]\nconnector = 'SDI'\njitter_ticks = 3\n" + rszStream + "\n";
        }
        hDev = LoadScenario(szText);
        g_oOsServices.Signal_Create(g_hStartSig);
        EXPECT_TRUE(CreateThreads(hDev, Count(), m_dahThread.data(), daoData.data(), VtVideoOutMonitorThreadFunc, ""));
        for (uint32_t uiVideo = 0; uiVideo < Count(); ++uiVideo)
        {
            // A trigger is lost for a thread that is not waiting yet.
            while (VtSim_AwaitEntered({0, VtSim_Direction_OUTPUT, uiVideo}, 1, 1) == VtStatus_TIMEOUT)
            {
                g_oOsServices.Signal_Trigger(g_hStartSig);
            }
        }
    }
    ~CLockScenario()
    {
        std::ranges::for_each(daoData, [](SMonitorUserData& roData) { roData.bStopSignal = 1; });
        VtSim_GrantTimeOutsAll(1);
        for (const HCpuThread hThread : m_dahThread)
        {
            g_oOsServices.CpuThread_Join(hThread);
            g_oOsServices.CpuThread_Destroy(hThread);
        }
        g_oOsServices.Signal_Destroy(g_hStartSig);
    }
    CLockScenario(const CLockScenario&) = delete;
    CLockScenario& operator=(const CLockScenario&) = delete;

    uint32_t Count() const { return static_cast<uint32_t>(daoData.size()); }
    // Makes field uiField the next one of every stream, but for one that stalls.
    void AdvanceTo(uint64_t uiField, uint32_t uiStalled = NOBODY)
    {
        for (uint32_t uiVideo = 0; uiVideo < Count(); ++uiVideo)
        {
            uint64_t uiPosition = 0;
            VtSim_GetPosition({0, VtSim_Direction_OUTPUT, uiVideo}, &uiPosition);
            VtSim_Grant({0, VtSim_Direction_OUTPUT, uiVideo}, uiVideo == uiStalled ? 0 : uiField - uiPosition);
        }
        EXPECT_EQ(VtSim_AwaitAllIdle(30000), VtStatus_OK);
    }
    uint64_t GetStamp(uint32_t uiVideo, uint64_t uiField) const
    {
        VtSim_Field oField = {};
        VtSim_GetField({0, VtSim_Direction_OUTPUT, uiVideo}, uiField, &oField);
        return oField.uiTickRefCounter;
    }
    // How far apart two streams in step are at worst in the fields uiFrom to uiEnd - 1.
    uint32_t GetWorstTicks(uint32_t uiA, uint32_t uiB, uint64_t uiFrom, uint64_t uiEnd) const
    {
        uint64_t uiWorst = 0;
        for (uint64_t uiField = uiFrom; uiField < uiEnd; ++uiField)
        {
            const auto [uiLow, uiHigh] = std::minmax({GetStamp(uiA, uiField), GetStamp(uiB, uiField)});
            uiWorst = std::max(uiWorst, uiHigh - uiLow);
        }
        return static_cast<uint32_t>(uiWorst);
    }

    VtDevice_Handle hDev;
    std::vector<SMonitorUserData> daoData;

private:
    std::vector<HCpuThread> m_dahThread;
};

std::function<void()> g_oDuringPause;

std::string PrintedLines(const std::function<void()>& roFunction)
{
    testing::internal::CaptureStdout();
    roFunction();
    return std::regex_replace(testing::internal::GetCapturedStdout(), std::regex("\033\\[K"), "");
}

constexpr char LOCKED[] = "standard = '1080p60'\nlock_group = 'house'\nphase_ticks = ";

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

TEST(LockScenario, LockTestsGiveTheTruthOnScreenAndDebugChannel)
{
    CLockScenario oScenario({std::string(LOCKED) + "5000", std::string(LOCKED) + "5100"});
    uint64_t uiField = 120;
    oScenario.AdvanceTo(uiField);
    // Six pauses of the first test, three of the second; in the second of these the second stream stalls.
    g_oDuringPause = [&]
    {
        uiField += 60;
        oScenario.AdvanceTo(uiField, uiField == 600 ? 1 : NOBODY);
    };
    g_uiCableLockDurationSec = 3;
    const auto RunTests = [&]
    {
        FrameLockStatus(2, oScenario.daoData.data(), oScenario.hDev);
        CableLockStatus(2, oScenario.daoData.data(), oScenario.hDev);
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
             oScenario.GetWorstTicks(0, 1, 0, 420), oScenario.GetStamp(0, 479), oScenario.GetStamp(1, 479),
             oScenario.GetStamp(0, 539), oScenario.GetStamp(1, 539), oScenario.GetStamp(0, 599),
             oScenario.GetWorstTicks(0, 1, 360, 540));
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
