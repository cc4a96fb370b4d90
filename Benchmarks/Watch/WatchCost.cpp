// CPU time and memory of the whole watch with 32 inputs and 32 outputs in real time, its store on, beside a process
// with as many threads that only wait for the fields of the same board. In turns, so that what else the machine does
// falls on both.
//   WatchCost [seconds a turn] [pairs] [arguments of the watch...]
#include <VtSimulatedBoard.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace
{

constexpr uint32_t uiStreams = 64; // both directions together
constexpr useconds_t uiSettleUs = 2500000;

void WriteScenario(const std::string& rszFile)
{
    std::ofstream oFile(rszFile);
    oFile << "[[chip]]\n";
    for (uint32_t uiStream = 0; uiStream < uiStreams; ++uiStream)
    {
        oFile << "[[chip." << (uiStream % 2 == 0 ? "input" : "output")
              << "]]\nstandard = '1080p60'\nconnector = 'SDI'\njitter_ticks = 3\nphase_us = "
              << 16666.0 * uiStream / uiStreams << "\n";
    }
}

// Forever, until the process is killed.
void Wait(uint32_t uiStream)
{
    const VtDevice_Handle hDev = Veltrano_GetDevice(0);
    VtVideoIn_Handle hIn = nullptr;
    VtVideoOut_Handle hOut = nullptr;
    VtStatus eStatus = uiStream % 2 == 0 ? VtVideoIn_GetHandle(hDev, uiStream / 2, VtAccessMode_READONLY, &hIn)
                                         : VtVideoOut_GetHandle(hDev, uiStream / 2, VtAccessMode_READONLY, &hOut);
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
    for (uint32_t uiStream = 0; uiStream < uiStreams; ++uiStream)
    {
        aoThreads.emplace_back(Wait, uiStream);
    }
    aoThreads.front().join();
}

double ReadCpuSeconds(clockid_t iClock)
{
    timespec oTime = {};
    clock_gettime(iClock, &oTime);
    return static_cast<double>(oTime.tv_sec) + static_cast<double>(oTime.tv_nsec) * 1e-9;
}

double ReadResidentMiB(pid_t iProcess)
{
    std::ifstream oFile("/proc/" + std::to_string(iProcess) + "/statm");
    double flSize = 0.0;
    double flResident = 0.0;
    oFile >> flSize >> flResident;
    return flResident * static_cast<double>(sysconf(_SC_PAGESIZE)) / (1024.0 * 1024.0);
}

struct SLoad
{
    double flCores;
    double flMiB;
};

// What a process of its own takes, once it has settled.
template <typename TBody> SLoad MeasureLoad(TBody fnBody, uint32_t uiSeconds)
{
    const pid_t iProcess = fork();
    if (iProcess == 0)
    {
        const int iNull = open("/dev/null", O_WRONLY | O_CLOEXEC);
        dup2(iNull, STDERR_FILENO);
        fnBody();
        _exit(1);
    }
    usleep(uiSettleUs);
    clockid_t iClock = 0;
    clock_getcpuclockid(iProcess, &iClock);
    const double flBefore = ReadCpuSeconds(iClock);
    sleep(uiSeconds);
    const SLoad oLoad = {(ReadCpuSeconds(iClock) - flBefore) / uiSeconds, ReadResidentMiB(iProcess)};
    if (waitpid(iProcess, nullptr, WNOHANG) != 0)
    {
        static_cast<void>(std::fprintf(stderr, "a measured process ended too early\n"));
        std::exit(1);
    }
    kill(iProcess, SIGKILL);
    waitpid(iProcess, nullptr, 0);
    return oLoad;
}

} // namespace

int main(int iArguments, char** pszArguments)
{
    const auto uiSeconds = static_cast<uint32_t>(std::max(iArguments > 1 ? std::atoi(pszArguments[1]) : 10, 1));
    const int iPairs = std::max(iArguments > 2 ? std::atoi(pszArguments[2]) : 5, 1);
    char szFolder[] = "/tmp/VtWatchCostXXXXXX";
    if (mkdtemp(szFolder) == nullptr)
    {
        return 1;
    }
    const std::string szScenario = std::string(szFolder) + "/scenario.toml";
    const std::string szStore = std::string(szFolder) + "/store";
    WriteScenario(szScenario);
    setenv("VELTRANO_SCENARIO", szScenario.c_str(), 1);
    std::vector<std::string> aszArguments = {VT_WATCH_FILE, "serve", "--listen", "127.0.0.1:0", "--store", szStore};
    for (int iArgument = 3; iArgument < iArguments; ++iArgument)
    {
        aszArguments.emplace_back(pszArguments[iArgument]);
    }
    std::vector<char*> apszArguments;
    for (std::string& roArgument : aszArguments)
    {
        apszArguments.push_back(roArgument.data());
    }
    apszArguments.push_back(nullptr);
    std::vector<double> aflRatios;
    for (int iPair = 0; iPair < iPairs; ++iPair)
    {
        const SLoad oBare = MeasureLoad(RunBareLoop, uiSeconds);
        const SLoad oWatch = MeasureLoad([&] { execv(VT_WATCH_FILE, apszArguments.data()); }, uiSeconds);
        aflRatios.push_back(oWatch.flCores / oBare.flCores);
        std::printf("bare loop %.2f %% of a core; watch %.2f %%, %.1f MiB resident; ratio %.3f\n",
                    oBare.flCores * 100.0, oWatch.flCores * 100.0, oWatch.flMiB, aflRatios.back());
    }
    std::filesystem::remove_all(szFolder);
    std::sort(aflRatios.begin(), aflRatios.end());
    std::printf("median ratio %.3f\n", aflRatios[aflRatios.size() / 2]);
    return 0;
}
