// What a field costs a stream's thread: the board's wait alone, and the wait with stamps and handing over. In stepped
// time, where no wait waits.
#include <VtSimulatedBoard.h>

#include <benchmark/benchmark.h>

#include "BoardSession.h"
#include "StreamLoop.h"

namespace
{

constexpr char szScenario[] = R"(
[time]
mode = "stepped"
[[chip]]
[[chip.input]]
standard = "1080p60"
connector = "SDI"
jitter_ticks = 3
)";

struct SLoadedBoard
{
    SLoadedBoard()
    {
        static_cast<void>(VtSim_SetScenario(szScenario, nullptr, 0));
        Veltrano_LoadLite();
        oSetup.hDev = Veltrano_GetDevice(0);
        static_cast<void>(VtBoard_GetTickReferenceFrequency(oSetup.hDev, &oSetup.uiTickFrequencyHz));
    }
    ~SLoadedBoard() { Veltrano_UnLoad(); }
    SStreamSetup oSetup;
};

void WaitAlone(benchmark::State& roState)
{
    const SLoadedBoard oBoard;
    VtVideoIn_Handle hIn = nullptr;
    static_cast<void>(VtVideoIn_GetHandle(oBoard.oSetup.hDev, 0, VtAccessMode_READONLY, &hIn));
    uint64_t uiCounter = 0;
    uint64_t uiTick = 0;
    VtBool bIsTop = 0;
    for ([[maybe_unused]] auto oTurn : roState)
    {
        benchmark::DoNotOptimize(VtVideoIn_WaitForFieldStart(hIn, 50, &uiCounter, &uiTick, &bIsTop));
    }
    static_cast<void>(VtVideoIn_ReleaseHandle(hIn));
}

void WaitAndHandOver(benchmark::State& roState)
{
    SLoadedBoard oBoard;
    SStreamChannel oChannel;
    {
        CStreamLoop oLoop(oBoard.oSetup, oChannel);
        oLoop.Reopen();
        uint64_t uiTurn = 0;
        uint64_t uiSum = 0;
        for ([[maybe_unused]] auto oTurn : roState)
        {
            oLoop.TakeField();
            // As often as to keep the ring from running over; the analysis does this in a thread of its own.
            if (++uiTurn % 512 == 0)
            {
                oChannel.oFields.Drain([&uiSum](const SFieldRecord& roRecord) { uiSum += roRecord.uiTick; });
            }
        }
        benchmark::DoNotOptimize(uiSum);
    }
    roState.counters["overruns"] = static_cast<double>(oChannel.oFields.GetOverruns());
}

BENCHMARK(WaitAlone);
BENCHMARK(WaitAndHandOver);

} // namespace
