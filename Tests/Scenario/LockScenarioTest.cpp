// What the lock reports say of boards whose truth is known, through the real monitor threads in stepped time.
#include <algorithm>
#include <functional>
#include <regex>
#include <vector>

#include <unistd.h>

#include "CableLockStatus.h"
#include "FrameLockStatus.h"
#include "GenLockDisplay.h"
#include "MonitorRun.h"
#include "MonitorScript.h"
#include "VideoInMonitor.h"
#include "VideoOutMonitor.h"

namespace
{

constexpr uint32_t TICKS_PER_LINE = 1492; // of 10 ns, at 67 kHz
constexpr uint32_t HALF_RATE_STREAM = 7;
constexpr uint32_t NOBODY = 32;

// A board and the monitor threads of one direction. Threads only run inside its operations.
class CLockScenario
{
public:
    CLockScenario(VtSim_Direction eDirection, const std::vector<std::string>& rdaszStream)
        : daoData(rdaszStream.size()), m_eDirection(eDirection), m_dahThread(rdaszStream.size())
    {
        std::string szText = "time = { mode = 'granted', hold = true }\n[[chip]]\n"
                             "lock_group = [{ name = 'house', ppm = 3, wander_ticks = 100, wander_period_s = 7 }]\n";
        const bool bIsInput = eDirection == VtSim_Direction_INPUT;
        for (const std::string& rszStream : rdaszStream)
        {
            szText += std::string("[[chip.") + (bIsInput ? "input" : "output") + "]]\nconnector = 'SDI'\n";
            szText += "jitter_ticks = 3\n" + rszStream + "\n";
        }
        hDev = LoadScenario(szText);
        g_oOsServices.Signal_Create(g_hStartSig);
        EXPECT_TRUE(CreateThreads(hDev, Count(), m_dahThread.data(), daoData.data(),
                                  bIsInput ? VtVideoInMonitorThreadFunc : VtVideoOutMonitorThreadFunc, ""));
        for (uint32_t uiVideo = 0; uiVideo < Count(); ++uiVideo)
        {
            // A trigger is lost for a thread that is not waiting yet.
            while (VtSim_AwaitEntered({0, m_eDirection, uiVideo}, 1, 1) == VtStatus_TIMEOUT)
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
            VtSim_GetPosition({0, m_eDirection, uiVideo}, &uiPosition);
            const uint64_t uiTarget = uiVideo == HALF_RATE_STREAM ? uiField / 2 : uiField;
            VtSim_Grant({0, m_eDirection, uiVideo}, uiVideo == uiStalled ? 0 : uiTarget - uiPosition);
        }
        EXPECT_EQ(VtSim_AwaitAllIdle(30000), VtStatus_OK);
    }
    uint64_t GetStamp(uint32_t uiVideo, uint64_t uiField) const
    {
        VtSim_Field oField = {};
        VtSim_GetField({0, m_eDirection, uiVideo}, uiField, &oField);
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
    // The line of a group of streams ("013"), or of one and its state ("2 Idle"), by the last 120 fields.
    std::string GetLine(const std::string& rszStreams, uint64_t uiField, uint32_t uiThreshold) const
    {
        const std::string szMembers = rszStreams.substr(0, rszStreams.find(' '));
        std::string szLine = "    [";
        uint32_t uiWorst = 0;
        for (const char& rcA : szMembers)
        {
            szLine += (&rcA == szMembers.data() ? "IN_0" : ", IN_0") + std::string(1, rcA);
            for (const char* pcB = &rcA + 1; *pcB != '\0'; ++pcB)
            {
                const uint32_t uiTicks = GetWorstTicks(static_cast<uint32_t>(rcA - '0'),
                                                       static_cast<uint32_t>(*pcB - '0'), uiField - 120, uiField);
                uiWorst = uiTicks < uiThreshold ? std::max(uiWorst, uiTicks) : uiWorst;
            }
        }
        char szFigures[128];
        snprintf(szFigures, sizeof(szFigures), "] Locked : %.2f line = %u ns (threshold %u ns)\n",
                 (uiWorst * 100 / TICKS_PER_LINE) / 100.0, uiWorst * 10, uiThreshold * 10);
        return szLine + (szMembers == rszStreams ? szFigures : "]" + rszStreams.substr(szMembers.size()) + "\n");
    }

    VtDevice_Handle hDev;
    std::vector<SMonitorUserData> daoData;

private:
    const VtSim_Direction m_eDirection;
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

TEST(LockScenario, ReportSaysWhatTheTruthSays)
{
    const std::string szLocked = LOCKED;
    CLockScenario oScenario(
        VtSim_Direction_INPUT,
        {szLocked + "5000", szLocked + "5300",
         // Drifts through the lines of the others, from ahead of them.
         "standard = '1080p60'\nppm = -2\nphase_ticks = 1000",
         szLocked + "5010\nevent = [{ kind = 'phase_step', at_field = 600, step_ticks = 2000 }]",
         szLocked + "4990\nevent = [{ kind = 'lock_lost', at_field = 200, for_fields = 100, ppm = 40 }]",
         szLocked + "5000\nevent = [{ kind = 'signal_loss', at_field = 240, for_fields = 60 }]",
         "standard = '1080i60'\nlock_group = 'house'\nphase_ticks = 4700",
         "standard = '1080p30'\nlock_group = 'house'\nphase_ticks = 5000"});
    const struct
    {
        uint64_t uiField;
        uint32_t uiThresholdMode, uiThresholdTicks;
        const char* szHeader;
        std::vector<const char*> daszLine;
    } aoRow[] = {
        {150, GENLOCK_THRESHOLD_1, 1492, "1 LINE", {"013456", "2 Unlocked", "7 Unlocked"}},
        {270, GENLOCK_THRESHOLD_1, 1492, "1 LINE", {"0136", "2 Unlocked", "4 Unlocked", "5 Idle", "7 Unlocked"}},
        {360, GENLOCK_THRESHOLD_1, 1492, "1 LINE", {"0136", "2 Unlocked", "4 Unlocked", "5 Unlocked", "7 Unlocked"}},
        {450, GENLOCK_THRESHOLD_1, 1492, "1 LINE", {"0123456", "7 Unlocked"}},
        {720, GENLOCK_THRESHOLD_1, 1492, "1 LINE", {"0456", "1 Idle", "23", "7 Unlocked"}},
        {730, GENLOCK_THRESHOLD_5, 7460, "5 LINES", {"023456", "1 Idle", "7 Unlocked"}},
    };
    std::vector<uint64_t> dauiLast(oScenario.Count());
    for (const auto& roRow : aoRow)
    {
        oScenario.AdvanceTo(roRow.uiField, roRow.uiField > 450 ? 1 : NOBODY);
        std::string szExpected = std::string("FRAMELOCK SUMMARY (THRESHOLD ") + roRow.szHeader + "):\n";
        for (const char* szLine : roRow.daszLine)
        {
            szExpected += oScenario.GetLine(szLine, roRow.uiField, roRow.uiThresholdTicks);
        }
        szExpected += std::string(oScenario.Count() - roRow.daszLine.size() + 2, '\n');
        const auto Display = [&]
        {
            DisplayGenLock(oScenario.Count(), 1, GENLOCK_DISPLAY_SUMMARY, roRow.uiThresholdMode,
                           oScenario.daoData.data(), dauiLast.data());
        };
        EXPECT_EQ(PrintedLines(Display), szExpected) << "at field " << roRow.uiField;
    }
}

TEST(LockScenario, LockTestsGiveTheTruthOnScreenAndDebugChannel)
{
    CLockScenario oScenario(VtSim_Direction_OUTPUT, {std::string(LOCKED) + "5000", std::string(LOCKED) + "5100"});
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
