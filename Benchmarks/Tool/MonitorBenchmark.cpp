// What the monitors cost beyond the board: a field's way into the rings, and a statistics pass with its texts.
#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <thread>
#include <vector>

#include "FieldRates.h"
#include "VideoInMonitor.h"
#include "VideoOutMonitor.h"
#include "VtSimulatedBoard.h"

namespace
{

constexpr int64_t FIELDS_A_BLOCK = 200;
constexpr uint32_t FIELDS_A_PASS = 60;

VtDevice_Handle LoadBoard()
{
    std::thread([] {}).join(); // a process that never had a second thread gets its locks cheaper
    VtSim_SetScenario("time = { mode = 'stepped' }\n[[chip]]\n[[chip.input]]\nstandard = '1080p60'\nconnector = 'IN'\n"
                      "[[chip.output]]\nstandard = '1080p60'\nconnector = 'OUT'\n",
                      nullptr, 0);
    Veltrano_UnLoad();
    Veltrano_LoadLite();
    return Veltrano_GetDevice(0);
}

template <typename TBody> double MeasureNs(TBody fnBody)
{
    const auto oStart = std::chrono::steady_clock::now();
    for (int64_t iField = 0; iField < FIELDS_A_BLOCK; ++iField)
    {
        fnBody();
    }
    const std::chrono::duration<double, std::nano> oTime = std::chrono::steady_clock::now() - oStart;
    return oTime.count() / static_cast<double>(FIELDS_A_BLOCK);
}

double Median(std::vector<double>& raflValues)
{
    const auto itMiddle = raflValues.begin() + static_cast<std::ptrdiff_t>(raflValues.size() / 2);
    std::nth_element(raflValues.begin(), itMiddle, raflValues.end());
    return *itMiddle;
}

// Blocks of fields through the monitor and through the bare calls of the board in turns; the medians and their
// difference are the counters.
void BM_InputField(benchmark::State& roState)
{
    SMonitorUserData oData = {};
    oData.hDev = LoadBoard();
    SVideoInMonitor oMonitor = {};
    oMonitor.poData = &oData;
    VideoInMonitor_Open(oMonitor);
    oMonitor.oCurrentVidParam.uiVRate_Hz = UINT32_MAX; // no pass is ever due
    std::vector<double> aflMonitor;
    std::vector<double> aflBoard;
    std::vector<double> aflBeyond;
    for (auto _ : roState)
    {
        aflMonitor.push_back(MeasureNs(
            [&]
            {
                VideoInMonitor_WaitAndStamp(oMonitor);
                VideoInMonitor_ProcessField(oMonitor);
                VideoInMonitor_Refresh(oMonitor);
            }));
        aflBoard.push_back(MeasureNs(
            [&]
            {
                uint64_t uiTick = 0;
                VtVideoIn_WaitForFieldStart(oMonitor.hVideoInHandle, uiFieldWaitTimeOutMs, oMonitor.auiFieldCounter,
                                            &uiTick, oMonitor.abIsTopField);
                VtVideoIn_GetCaptureState(oMonitor.hVideoInHandle, &oMonitor.eCaptureState,
                                          &oMonitor.uiTotalBufferCount, oMonitor.auiReadyBufferCount,
                                          oMonitor.auiLoanBufferCount, &oMonitor.uiInternalBufferCount);
            }));
        aflBeyond.push_back(aflMonitor.back() - aflBoard.back());
    }
    VideoInMonitor_Close(oMonitor);
    roState.counters["monitor_ns"] = Median(aflMonitor);
    roState.counters["board_ns"] = Median(aflBoard);
    roState.counters["beyond_ns"] = Median(aflBeyond);
}
BENCHMARK(BM_InputField)->Iterations(5000);

// A full ring of regular fields, and a pass that is due at every field.
template <typename TMonitor> void FillRing(TMonitor& roMonitor, SMonitorUserData& roData)
{
    for (uint32_t uiSlot = 0; uiSlot < NB_OF_SAMPLES; ++uiSlot)
    {
        roData.auiTickRefCounter[uiSlot] = 1000000 + uiSlot * 833333;
        roMonitor.auiFieldCounter[uiSlot] = uiSlot * uiCountsPerField;
    }
    roMonitor.uiTickPerSecond = 100000000;
    roMonitor.oCurrentVidParam.uiVRate_Hz = 2;
}

void BM_InputPass(benchmark::State& roState)
{
    SMonitorUserData oData = {};
    oData.hDev = LoadBoard();
    SVideoInMonitor oMonitor = {};
    oMonitor.poData = &oData;
    VideoInMonitor_Open(oMonitor);
    FillRing(oMonitor, oData);
    for (auto _ : roState)
    {
        oMonitor.uiLastSampleCount = 0;
        oMonitor.uiSampleCount = FIELDS_A_PASS;
        VideoInMonitor_ProcessField(oMonitor);
    }
    VideoInMonitor_Close(oMonitor);
    roState.SetLabel(oData.szStatusData);
}
BENCHMARK(BM_InputPass);

void BM_OutputPass(benchmark::State& roState)
{
    SMonitorUserData oData = {};
    oData.hDev = LoadBoard();
    SVideoOutMonitor oMonitor = {};
    oMonitor.poData = &oData;
    VideoOutMonitor_Open(oMonitor);
    FillRing(oMonitor, oData);
    for (uint32_t uiSlot = 0; uiSlot < NB_OF_SAMPLES; ++uiSlot)
    {
        oMonitor.auiSetBufferCounter[uiSlot] = uiSlot;
    }
    for (auto _ : roState)
    {
        // The output reads its parameters at every field; at 1080p60 a pass is due at every 30th.
        oMonitor.uiLastSampleCount = NB_OF_SAMPLES - 1 - FIELDS_A_PASS;
        oMonitor.uiSampleCount = NB_OF_SAMPLES - 1;
        VideoOutMonitor_ProcessField(oMonitor);
    }
    VideoOutMonitor_Close(oMonitor);
    roState.SetLabel(oData.szStatusData);
}
BENCHMARK(BM_OutputPass);

} // namespace
