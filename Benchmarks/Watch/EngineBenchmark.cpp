// The engine behind the watch: a field, and one second's analysis of 64 streams, beside the wait that brings a field.
#include <VtSimulatedBoard.h>

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "WatchEngine.h"

namespace
{

constexpr uint32_t gc_uiTickFrequencyHz = 100'000'000;
constexpr uint32_t gc_uiStreams = 32; // of each direction
constexpr uint64_t gc_uiPeriod = 1'666'667;
constexpr uint64_t gc_uiPrimedSeconds = 1100; // every window is full

// Streams at 60 fields per second with 1 us of jitter, all in lock.
class CFieldSource
{
public:
    CFieldSource()
        : m_oEngine({.uiTickFrequencyHz = gc_uiTickFrequencyHz, .oThreshold = {.flLines = 1.0, .flSeconds = 1e-4}},
                    gc_uiStreams, gc_uiStreams),
          m_aiJitter(4096)
    {
        std::mt19937 oRandom(1);
        std::normal_distribution<double> oJitter(0.0, 100.0);
        for (int64_t& riJitter : m_aiJitter)
        {
            riJitter = static_cast<int64_t>(oJitter(oRandom));
        }
    }

    SFieldRecord Make(uint32_t uiStream, uint64_t uiField) const
    {
        SFieldRecord oRecord = {};
        const int64_t iJitter = m_aiJitter[(uiField * 61 + uiStream * 977) % m_aiJitter.size()];
        oRecord.uiTick = gc_uiTickFrequencyHz + uiField * gc_uiPeriod + uiStream * 100 + static_cast<uint64_t>(iJitter);
        oRecord.uiFieldCounter = uiField * 16;
        oRecord.uiSetBufferCounter = uiField;
        oRecord.uiArrivalNs = 10'000'000'000 + oRecord.uiTick * 10 + 20'000;
        oRecord.uiWaitBeginNs = oRecord.uiArrivalNs - 16'600'000;
        return oRecord;
    }
    void TakeSecond(uint64_t uiSecond)
    {
        for (const EStreamDirection eDirection : aeDirections)
        {
            for (uint32_t uiStream = 0; uiStream < gc_uiStreams; ++uiStream)
            {
                for (uint64_t uiField = uiSecond * 60; uiField < (uiSecond + 1) * 60; ++uiField)
                {
                    m_oEngine.TakeRecord({eDirection, uiStream}, Make(uiStream, uiField));
                }
            }
        }
    }
    void Analyse(uint64_t uiSecond)
    {
        SClockReading oClock = {};
        oClock.uiMonotonicNs = 11'000'000'000 + (uiSecond + 1) * 1'000'000'000 + 130'000'000;
        oClock.iUtcNs = static_cast<int64_t>(oClock.uiMonotonicNs);
        while (m_oEngine.Analyse(oClock, m_oSnapshot))
        {
            benchmark::DoNotOptimize(m_oEngine.TakeEvents().size());
        }
    }

    CWatchEngine m_oEngine;
    SWatchSnapshot m_oSnapshot;

private:
    std::vector<int64_t> m_aiJitter;
};

void SteppedWait(benchmark::State& roState)
{
    if (VtSim_SetScenario(
            "time = { mode = 'stepped' }\n[[chip]]\n[[chip.input]]\nstandard = '1080p60'\njitter_ticks = 100\n",
            nullptr, 0) != VtStatus_OK)
    {
        std::abort();
    }
    Veltrano_LoadLite();
    VtVideoIn_Handle hIn = nullptr;
    (void)VtVideoIn_GetHandle(Veltrano_GetDevice(0), 0, VtAccessMode_READONLY, &hIn);
    uint64_t uiField = 0;
    uint64_t uiTick = 0;
    VtBool bTop = 0;
    for (auto oIteration : roState)
    {
        benchmark::DoNotOptimize(VtVideoIn_WaitForFieldStart(hIn, 50, &uiField, &uiTick, &bTop));
    }
    Veltrano_UnLoad();
}
BENCHMARK(SteppedWait);

// What the making of the records costs alone; to be taken off the next one.
void MakeRecord(benchmark::State& roState)
{
    const CFieldSource oSource;
    uint64_t uiField = 0;
    for (auto oIteration : roState)
    {
        benchmark::DoNotOptimize(oSource.Make(0, uiField++));
    }
}
BENCHMARK(MakeRecord);

// A second's fields of one stream; divided by 60 it is the path of a field.
void TakeSecondOfRecords(benchmark::State& roState)
{
    CFieldSource oSource;
    uint64_t uiField = 0;
    for (auto oIteration : roState)
    {
        for (const uint64_t uiEnd = uiField + 60; uiField < uiEnd; ++uiField)
        {
            oSource.m_oEngine.TakeRecord({EStreamDirection::INPUT, 0}, oSource.Make(0, uiField));
        }
        roState.PauseTiming();
        oSource.Analyse(uiField / 60 - 1);
        roState.ResumeTiming();
    }
    roState.SetItemsProcessed(static_cast<int64_t>(uiField));
}
BENCHMARK(TakeSecondOfRecords);

void AnalyseSecondOf64Streams(benchmark::State& roState)
{
    CFieldSource oSource;
    uint64_t uiSecond = 0;
    for (; uiSecond < gc_uiPrimedSeconds; ++uiSecond)
    {
        oSource.TakeSecond(uiSecond);
        oSource.Analyse(uiSecond);
    }
    for (auto oIteration : roState)
    {
        roState.PauseTiming();
        oSource.TakeSecond(uiSecond);
        roState.ResumeTiming();
        oSource.Analyse(uiSecond++);
    }
    const auto& raoPairs = oSource.m_oSnapshot.aoDirections[0].aoPairs;
    if (raoPairs.size() != 496 || raoPairs.back().eLock != ELockState::LOCKED)
    {
        roState.SkipWithError("the pairs were not compared");
    }
}
BENCHMARK(AnalyseSecondOf64Streams)->Unit(benchmark::kMicrosecond);

} // namespace
