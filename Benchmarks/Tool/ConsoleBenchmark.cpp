// The real binary in a pseudo terminal, on the simulated board: what an idle session costs, what 64 streams weigh, and
// how long the first screen takes beyond the pauses that it is made of.
#include <benchmark/benchmark.h>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <pty.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace
{

using CClock = std::chrono::steady_clock;

// Before the trigger, behind it, and to the first redraw.
constexpr std::chrono::milliseconds PRESCRIBED_PAUSES{200 + 200 + 2000};

class CSession
{
public:
    CSession(int64_t iStreams, const char* szFirst, const char* szSecond = nullptr)
    {
        char szFile[] = "/tmp/VtBenchmarkXXXXXX";
        close(mkstemp(szFile));
        m_szFile = szFile;
        std::ofstream oFile(szFile);
        oFile << "[[chip]]\n";
        for (int64_t iStream = 0; iStream < iStreams; ++iStream)
        {
            oFile << "[[chip.input]]\nstandard = \"1080p60\"\nconnector = \"IN\"\n";
            oFile << "[[chip.output]]\nstandard = \"1080p60\"\nconnector = \"OUT\"\n";
        }
        oFile.close();
        m_iProcess = forkpty(&m_iTerminal, nullptr, nullptr, nullptr);
        if (m_iProcess == 0)
        {
            setenv("VELTRANO_SCENARIO", szFile, 1);
            execl(VT_MONITOR_FILE, VT_MONITOR_FILE, szFirst, szSecond, nullptr);
            _exit(127);
        }
    }
    ~CSession()
    {
        kill(m_iProcess, SIGTERM);
        Read("");
        waitpid(m_iProcess, nullptr, 0);
        close(m_iTerminal);
        unlink(m_szFile.c_str());
    }
    CSession(const CSession&) = delete;
    CSession& operator=(const CSession&) = delete;

    // Reads until a text has come, or to the end.
    void Read(const std::string& szUntil) const
    {
        std::string szRead;
        char acBytes[4096];
        for (ssize_t iRead = 0; (iRead = read(m_iTerminal, acBytes, sizeof(acBytes))) > 0;)
        {
            szRead.append(acBytes, static_cast<size_t>(iRead));
            if (!szUntil.empty() && szRead.find(szUntil) != std::string::npos)
            {
                return;
            }
        }
    }
    // Processor time of the main thread, nanoseconds.
    double ReadMainThreadNs() const
    {
        double flNs = 0.0;
        std::ifstream("/proc/" + std::to_string(m_iProcess) + "/schedstat") >> flNs;
        return flNs;
    }
    // Most memory that was ever resident.
    double ReadPeakMiB() const
    {
        std::ifstream oStatus("/proc/" + std::to_string(m_iProcess) + "/status");
        double flKiB = 0.0;
        for (std::string szWord; oStatus >> szWord && szWord != "VmHWM:";)
        {
        }
        oStatus >> flKiB;
        return flKiB / 1024.0;
    }

private:
    std::string m_szFile;
    int m_iTerminal = -1;
    pid_t m_iProcess;
};

// A silent session: the loop looks for keys a hundred times a second and never redraws.
void BM_Console_IdleLoop(benchmark::State& roState)
{
    const CSession oSession(roState.range(0), "-s", "-m");
    std::this_thread::sleep_for(std::chrono::seconds(1)); // started by then
    double flShare = 0.0;
    for (auto _ : roState)
    {
        const double flBeforeNs = oSession.ReadMainThreadNs();
        const CClock::time_point oBefore = CClock::now();
        std::this_thread::sleep_for(std::chrono::seconds(5));
        const std::chrono::duration<double, std::nano> oPassed = CClock::now() - oBefore;
        flShare = (oSession.ReadMainThreadNs() - flBeforeNs) / oPassed.count();
    }
    roState.counters["percent_of_core"] = 100.0 * flShare;
}
BENCHMARK(BM_Console_IdleLoop)->Arg(0)->Arg(32)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);

void BM_Console_FirstRedraw(benchmark::State& roState)
{
    double flLateMs = 0.0;
    double flPeakMiB = 0.0;
    for (auto _ : roState)
    {
        const CClock::time_point oStart = CClock::now();
        const CSession oSession(roState.range(0), "-t");
        oSession.Read("\033[1;1H");
        flLateMs = std::chrono::duration<double, std::milli>(CClock::now() - oStart - PRESCRIBED_PAUSES).count();
        oSession.Read("[OUT_00]  "); // every thread has had its first passes
        flPeakMiB = oSession.ReadPeakMiB();
    }
    roState.counters["ms_beyond_pauses"] = flLateMs;
    roState.counters["peak_MiB"] = flPeakMiB;
}
BENCHMARK(BM_Console_FirstRedraw)->Arg(1)->Arg(32)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);

} // namespace
