// Stepped time: the cost of a wait by what the stream has to do, of the queries beside it, and of a simulated day.
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <string>
#include <vector>

#include "VtSimulatedBoard.h"

namespace
{

// What the first input may have to do.
const std::vector<std::string> aszKeys = {
    "",
    "jitter_ticks = 3",
    "jitter_ticks = 3\nwander_ticks = 40",
    "jitter_ticks = 3\nwander_ticks = 40\nevent = [{ kind = 'signal_loss', at_s = 18, for_s = 2, every_s = 20 },"
    "{ kind = 'phase_step', at_s = 5, every_s = 7, step_ticks = 10 }]",
};

// Inputs with the same keys, all open.
class CInputs
{
public:
    CInputs(const std::string& rszKeys, uint32_t uiCount)
    {
        std::string szText = "[time]\nmode = 'stepped'\n[[chip]]\n";
        for (uint32_t uiInput = 0; uiInput < uiCount; ++uiInput)
        {
            szText += "[[chip.input]]\nstandard = '1080p60'\n" + rszKeys + "\n";
        }
        if (VtSim_SetScenario(szText.c_str(), nullptr, 0) != VtStatus_OK)
        {
            std::abort();
        }
        Veltrano_LoadLite();
        m_ahInputs.resize(uiCount);
        for (uint32_t uiInput = 0; uiInput < uiCount; ++uiInput)
        {
            (void)VtVideoIn_GetHandle(Veltrano_GetDevice(0), uiInput, VtAccessMode_READONLY, &m_ahInputs[uiInput]);
        }
    }
    ~CInputs() { Veltrano_UnLoad(); }
    CInputs(const CInputs&) = delete;
    CInputs& operator=(const CInputs&) = delete;

    VtStatus Wait(uint32_t uiInput)
    {
        return VtVideoIn_WaitForFieldStart(m_ahInputs[uiInput], 50, &m_uiField, &m_uiTicks, &m_bTop);
    }

    std::vector<VtVideoIn_Handle> m_ahInputs;

private:
    uint64_t m_uiField = 0;
    uint64_t m_uiTicks = 0;
    VtBool m_bTop = 0;
};

void SteppedWait(benchmark::State& roState)
{
    CInputs oInputs(aszKeys[static_cast<size_t>(roState.range(0))], 1);
    for (auto oIteration : roState)
    {
        benchmark::DoNotOptimize(oInputs.Wait(0));
    }
}
BENCHMARK(SteppedWait)->DenseRange(0, 3);

void CaptureState(benchmark::State& roState)
{
    const CInputs oInputs("jitter_ticks = 3\nready_spread = 1", 1);
    VtVideoIn_State eState = VtVideoIn_State_INVALID;
    uint32_t aui[4] = {};
    for (auto oIteration : roState)
    {
        benchmark::DoNotOptimize(
            VtVideoIn_GetCaptureState(oInputs.m_ahInputs[0], &eState, &aui[0], &aui[1], &aui[2], &aui[3]));
    }
}
BENCHMARK(CaptureState);

void DayOf8Streams(benchmark::State& roState)
{
    CInputs oInputs(aszKeys.back(), 8);
    for (auto oIteration : roState)
    {
        for (uint32_t uiField = 0; uiField < 86400 * 60; ++uiField)
        {
            for (uint32_t uiInput = 0; uiInput < 8; ++uiInput)
            {
                benchmark::DoNotOptimize(oInputs.Wait(uiInput));
            }
        }
    }
}
BENCHMARK(DayOf8Streams)->Iterations(1)->Unit(benchmark::kSecond);

} // namespace
