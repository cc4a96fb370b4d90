// CPU time and memory of the whole watch with 32 inputs and 32 outputs in real time, its store on, beside a process
// with as many threads that only wait for the fields of the same board. In turns, so that what else the machine does
// falls on both. With --served one client scrapes every five seconds, and another one listens to the live stream.
// With --chips 4 it is these streams on four chips, beside the watch of all of them on one.
//   WatchCost [seconds a turn] [pairs] [--served | --chips N] [arguments of the watch...]
#include <VtSimulatedBoard.h>

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "HttpClient.h"

namespace
{

constexpr uint32_t uiStreams = 64; // both directions together
constexpr useconds_t uiSettleUs = 2500000;

void WriteScenario(const std::string& rszFile, uint32_t uiChips)
{
    std::ofstream oFile(rszFile);
    for (uint32_t uiStream = 0; uiStream < uiStreams; ++uiStream)
    {
        if (uiStream % (uiStreams / uiChips) == 0)
        {
            oFile << "[[chip]]\nclock_ppm = " << 10 * uiStream / uiStreams << "\n";
        }
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

// A port that nobody listens on at the moment.
std::string FindAddress()
{
    sockaddr_in oAddress = {};
    oAddress.sin_family = AF_INET;
    oAddress.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t uiSize = sizeof(oAddress);
    const int iSocket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    bind(iSocket, reinterpret_cast<const sockaddr*>(&oAddress), uiSize);
    getsockname(iSocket, reinterpret_cast<sockaddr*>(&oAddress), &uiSize);
    close(iSocket);
    return "127.0.0.1:" + std::to_string(ntohs(oAddress.sin_port));
}

// A scrape every five seconds and a live listener, in this process: what they cost themselves is not counted.
class CClients
{
public:
    explicit CClients(const std::string& rszAddress)
        : m_oScraper([this, rszAddress] { Scrape(rszAddress); }),
          m_oListener([this, rszAddress] { Listen(rszAddress); })
    {
    }

    ~CClients()
    {
        m_bEnds = true;
        m_oScraper.join();
        m_oListener.join();
        std::printf("%u scrapes, %u live snapshots\n", m_uiScrapes.load(), m_uiSnapshots.load());
    }

private:
    void Scrape(const std::string& rszAddress)
    {
        for (uint32_t uiStep = 0; !m_bEnds; ++uiStep)
        {
            if (uiStep % 50 == 0)
            {
                m_uiScrapes +=
                    HttpClient_Ask(rszAddress, "GET /metrics").find("vt_video_phase_seconds{") != std::string::npos;
            }
            usleep(100000);
        }
    }

    void Listen(const std::string& rszAddress)
    {
        CHttpClient oClient(rszAddress);
        oClient.Send("GET /api/v1/live HTTP/1.1\r\nHost: localhost\r\n\r\n");
        while (!m_bEnds)
        {
            m_uiSnapshots += oClient.TakeUntil("event: snapshot");
        }
    }

    std::atomic<bool> m_bEnds = false;
    std::atomic<uint32_t> m_uiScrapes = 0;
    std::atomic<uint32_t> m_uiSnapshots = 0;
    std::thread m_oScraper;
    std::thread m_oListener;
};

struct SLoad
{
    double flCores;
    double flMiB;
};

// What a process of its own takes, once it has settled.
template <typename TBody> SLoad MeasureLoad(TBody fnBody, uint32_t uiSeconds, const std::string& rszServed = {})
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
    const std::unique_ptr<CClients> poClients(rszServed.empty() ? nullptr : new CClients(rszServed));
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
    const std::string szAddress = FindAddress();
    WriteScenario(szScenario, 1);
    setenv("VELTRANO_SCENARIO", szScenario.c_str(), 1);
    const bool bHasChips = iArguments > 4 && std::strcmp(pszArguments[3], "--chips") == 0;
    const std::string szChips = std::string(szFolder) + "/chips.toml";
    const auto uiChips = static_cast<uint32_t>(
        bHasChips ? std::clamp(std::atoi(pszArguments[4]), 1, static_cast<int>(uiStreams / 2)) : 1);
    WriteScenario(szChips, uiChips);
    std::vector<std::string> aszArguments = {VT_WATCH_FILE, "serve", "--listen", szAddress, "--store", szStore};
    const bool bIsServed = iArguments > 3 && std::strcmp(pszArguments[3], "--served") == 0;
    for (int iArgument = bIsServed ? 4 : bHasChips ? 5 : 3; iArgument < iArguments; ++iArgument)
    {
        aszArguments.emplace_back(pszArguments[iArgument]);
    }
    std::vector<char*> apszArguments;
    for (std::string& roArgument : aszArguments)
    {
        apszArguments.push_back(roArgument.data());
    }
    apszArguments.push_back(nullptr);
    const auto fnWatch = [&] { execv(VT_WATCH_FILE, apszArguments.data()); };
    const auto fnWatchChips = [&]
    {
        setenv("VELTRANO_SCENARIO", szChips.c_str(), 1);
        std::string szGpu = "--gpu=all";
        apszArguments.insert(apszArguments.end() - 1, szGpu.data());
        execv(VT_WATCH_FILE, apszArguments.data());
    };
    std::vector<double> aflRatios;
    for (int iPair = 0; iPair < iPairs; ++iPair)
    {
        const SLoad oBare = bHasChips ? MeasureLoad(fnWatch, uiSeconds) : MeasureLoad(RunBareLoop, uiSeconds);
        const SLoad oWatch = bHasChips ? MeasureLoad(fnWatchChips, uiSeconds)
                                       : MeasureLoad(fnWatch, uiSeconds, bIsServed ? szAddress : std::string());
        aflRatios.push_back(oWatch.flCores / oBare.flCores);
        std::printf("%s %.2f %% of a core; watch %.2f %%, %.1f MiB resident; ratio %.3f\n",
                    bHasChips ? "on one chip" : "bare loop", oBare.flCores * 100.0, oWatch.flCores * 100.0,
                    oWatch.flMiB, aflRatios.back());
    }
    std::filesystem::remove_all(szFolder);
    std::sort(aflRatios.begin(), aflRatios.end());
    std::printf("median ratio %.3f\n", aflRatios[aflRatios.size() / 2]);
    return 0;
}
