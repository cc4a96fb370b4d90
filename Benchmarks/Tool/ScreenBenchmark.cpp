// A redraw of as many streams as there can be, with detailed frame rates, and a key read: what the main thread pays for
// them on a terminal that somebody reads.
#include "MonitorGlobals.h"
#include "StatusScreen.h"
#include "Terminal.h"

#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <pty.h>
#include <thread>
#include <unistd.h>

namespace
{

constexpr uint32_t STREAMS = 32;

// Standard input and output on a pseudo terminal that is read as fast as it fills, for as long as the object lives.
class CReadTerminal
{
public:
    CReadTerminal() : m_iInput(dup(STDIN_FILENO)), m_iOutput(dup(STDOUT_FILENO))
    {
        const winsize oSize = {120, 200, 0, 0};
        int iSlave = -1;
        if (openpty(&m_iTerminal, &iSlave, nullptr, nullptr, &oSize) != 0)
        {
            abort();
        }
        fflush(stdout);
        dup2(iSlave, STDIN_FILENO);
        dup2(iSlave, STDOUT_FILENO);
        close(iSlave);
        m_oReader = std::thread(
            [this]
            {
                char acBytes[4096];
                while (read(m_iTerminal, acBytes, sizeof(acBytes)) > 0)
                {
                }
            });
    }
    ~CReadTerminal()
    {
        dup2(m_iInput, STDIN_FILENO);
        dup2(m_iOutput, STDOUT_FILENO); // with this the reader comes to its end
        m_oReader.join();
        for (const int iFile : {m_iInput, m_iOutput, m_iTerminal})
        {
            close(iFile);
        }
    }
    CReadTerminal(const CReadTerminal&) = delete;
    CReadTerminal& operator=(const CReadTerminal&) = delete;

private:
    int m_iInput;
    int m_iOutput;
    int m_iTerminal = -1;
    std::thread m_oReader;
};

SMonitorStreams MakeStreams(Bool32 bIsVideoIn, std::vector<SMonitorUserData>& rdaoData)
{
    for (SMonitorUserData& roData : rdaoData)
    {
        snprintf(roData.szVidParam, sizeof(roData.szVidParam), "%-100s", "[IN_00] - SDI IN A - 1920 x 1080p @ 60 Hz");
        snprintf(roData.szVideoState, sizeof(roData.szVideoState), "VtVideoIn_State_STARTED");
        snprintf(roData.szStatusData, sizeof(roData.szStatusData), "%s", szEmptyLineVideoIn);
        snprintf(roData.szFpsData, sizeof(roData.szFpsData), "[IN_00] 59.999981 59.999977 59.999983 90 (0 ==> 0 ppm)");
    }
    SMonitorStreams oStreams = {};
    oStreams.uiNbOfVideo = STREAMS;
    oStreams.bIsVideoIn = bIsVideoIn;
    oStreams.paoVideoMonitorData = rdaoData.data();
    oStreams.szEmptyLine = szEmptyLineVideoIn;
    return oStreams;
}

void BM_Screen_Redraw(benchmark::State& roState)
{
    std::vector<SMonitorUserData> daoIn(STREAMS);
    std::vector<SMonitorUserData> daoOut(STREAMS);
    SMonitorRun oRun = {};
    oRun.oVideoIn = MakeStreams(1, daoIn);
    oRun.oVideoOut = MakeStreams(0, daoOut);
    g_bFpsDetailedInfo = 1;
    g_bInitialLaunch = 0;
    const CReadTerminal oTerminal;
    for (auto _ : roState)
    {
        RedrawStatusScreen(oRun);
    }
}
BENCHMARK(BM_Screen_Redraw)->Unit(benchmark::kMicrosecond);

void BM_Screen_KeyRead(benchmark::State& roState)
{
    const CReadTerminal oTerminal;
    for (auto _ : roState)
    {
        benchmark::DoNotOptimize(getch());
    }
}
BENCHMARK(BM_Screen_KeyRead)->Unit(benchmark::kMicrosecond);

} // namespace
