// CPU time of the whole tool with 32 inputs and 32 outputs in real time, beside a process with as many threads that
// only wait for the fields of the same board. In turns, so that what else the machine does falls on both.
//   MonitorCost [seconds a turn] [pairs]
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "VtSimulatedBoard.h"

namespace
{

constexpr uint32_t STREAMS = 32; // of each direction
constexpr useconds_t SETTLE_US = 1500000;

std::string MakeScenario()
{
    std::string szText = "[[chip]]\n";
    for (uint32_t uiStream = 0; uiStream < 2 * STREAMS; ++uiStream)
    {
        szText += std::string("[[chip.") + (uiStream % 2 == 0 ? "input" : "output") +
                  "]]\nstandard = '1080p60'\nconnector = 'SDI'\njitter_ticks = 3\nphase_us = " +
                  std::to_string(16666.0 * uiStream / (2 * STREAMS)) + "\n";
    }
    return szText;
}

// Forever, until the process is killed.
void Wait(uint32_t uiStream)
{
    const VtDevice_Handle hDev = Veltrano_GetDevice(0);
    VtVideoIn_Handle hIn = nullptr;
    VtVideoOut_Handle hOut = nullptr;
    const bool bIsOpen = uiStream % 2 == 0
                             ? VtVideoIn_GetHandle(hDev, uiStream / 2, VtAccessMode_READONLY, &hIn) == VtStatus_OK
                             : VtVideoOut_GetHandle(hDev, uiStream / 2, VtAccessMode_READONLY, &hOut) == VtStatus_OK;
    VtStatus eStatus = bIsOpen ? VtStatus_OK : VtStatus_FAIL;
    while (eStatus == VtStatus_OK || eStatus == VtStatus_TIMEOUT)
    {
        uint64_t uiField = 0;
        uint64_t uiSet = 0;
        uint64_t uiTick = 0;
        VtBool bTop = 0;
        eStatus = hIn != nullptr ? VtVideoIn_WaitForFieldStart(hIn, 50, &uiField, &uiTick, &bTop)
                                 : VtVideoOut_WaitForFieldStart(hOut, 50, &uiField, &uiSet, &uiTick, &bTop);
    }
    std::abort();
}

void RunBareLoop()
{
    Veltrano_LoadLite();
    std::vector<std::thread> aoThreads;
    for (uint32_t uiStream = 0; uiStream < 2 * STREAMS; ++uiStream)
    {
        aoThreads.emplace_back(Wait, uiStream);
    }
    aoThreads.front().join();
}

void RunTool()
{
    // An open pipe that nobody writes to: a keyboard without a key.
    int aiPipe[2];
    const int iNull = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (pipe(aiPipe) != 0 || dup2(aiPipe[0], STDIN_FILENO) < 0 || dup2(iNull, STDOUT_FILENO) < 0)
    {
        std::abort();
    }
    execl(VT_MONITOR_FILE, VT_MONITOR_FILE, nullptr);
    std::abort();
}

double ReadCpuSeconds(clockid_t iClock)
{
    timespec oTime = {};
    clock_gettime(iClock, &oTime);
    return static_cast<double>(oTime.tv_sec) + static_cast<double>(oTime.tv_nsec) * 1e-9;
}

// Part of a core that a process of its own takes, once it has settled.
template <typename TBody> double MeasureLoad(TBody fnBody, uint32_t uiSeconds)
{
    const pid_t iProcess = fork();
    if (iProcess == 0)
    {
        fnBody();
        _exit(1);
    }
    usleep(SETTLE_US);
    clockid_t iClock = 0;
    clock_getcpuclockid(iProcess, &iClock);
    const double flBefore = ReadCpuSeconds(iClock);
    sleep(uiSeconds);
    const double flLoad = (ReadCpuSeconds(iClock) - flBefore) / uiSeconds;
    if (waitpid(iProcess, nullptr, WNOHANG) != 0)
    {
        (void)std::fprintf(stderr, "a measured process ended too early\n");
        std::exit(1);
    }
    kill(iProcess, SIGKILL);
    waitpid(iProcess, nullptr, 0);
    return flLoad;
}

} // namespace

int main(int iArguments, char** pszArguments)
{
    const auto uiSeconds = static_cast<uint32_t>(std::max(iArguments > 1 ? std::atoi(pszArguments[1]) : 6, 1));
    const int iPairs = std::max(iArguments > 2 ? std::atoi(pszArguments[2]) : 5, 1);
    char szFile[] = "/tmp/VtMonitorCostXXXXXX";
    const int iFile = mkstemp(szFile);
    const std::string szScenario = MakeScenario();
    if (write(iFile, szScenario.data(), szScenario.size()) != static_cast<ssize_t>(szScenario.size()))
    {
        return 1;
    }
    close(iFile);
    setenv("VELTRANO_SCENARIO", szFile, 1);
    std::vector<double> aflRatios;
    for (int iPair = 0; iPair < iPairs; ++iPair)
    {
        const double flBare = MeasureLoad(RunBareLoop, uiSeconds);
        const double flTool = MeasureLoad(RunTool, uiSeconds);
        aflRatios.push_back(flTool / flBare);
        (void)std::printf("bare loop %.2f %% of a core, tool %.2f %%, ratio %.3f\n", flBare * 100.0, flTool * 100.0,
                          aflRatios.back());
    }
    unlink(szFile);
    std::sort(aflRatios.begin(), aflRatios.end());
    (void)std::printf("median ratio %.3f\n", aflRatios[aflRatios.size() / 2]);
    return 0;
}
