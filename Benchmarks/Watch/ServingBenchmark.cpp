// What one answer costs with 32 inputs and 32 outputs after weeks of watching, everything about them known: time,
// bytes.
#include <algorithm>

#include <benchmark/benchmark.h>
#include <nlohmann/json.hpp>

#include "LiveJson.h"
#include "MadeUpWatch.h"
#include "WatchJson.h"
#include "WatchMetrics.h"

namespace
{

constexpr uint32_t uiStreams = 32;

// All is well; in every eighth stream it has not always been.
void MakeHealthy(SJudgement& roJudgement)
{
    SStreamHealth oHealth;
    oHealth.oOverall.eStatus = EHealthStatus::HEALTHY;
    std::ranges::for_each(oHealth.aoDomains, [](SHealth& roHealth) { roHealth.eStatus = EHealthStatus::HEALTHY; });
    for (std::vector<SStreamHealth>& raoStreams : roJudgement.aoStreams)
    {
        raoStreams.assign(uiStreams, oHealth);
        for (size_t i = 0; i < raoStreams.size(); i += 8)
        {
            raoStreams[i].oOverall.auiTransitions = {0, 1, 0, 1};
            raoStreams[i].aoDomains[0].auiTransitions = {0, 1, 0, 1};
        }
    }
}

// All streams run and drift, and their counters are long.
SWatchPublication MakeFull()
{
    SWatchPublication oPublication = MadeUpWatch_Make(1, uiStreams);
    for (SDirectionFigures& roDirection : oPublication.oSnapshot.aoDirections)
    {
        for (SStreamFigures& roStream : roDirection.aoStreams)
        {
            const uint32_t uiIndex = roStream.oKey.uiIndex;
            roStream = roDirection.aoStreams[1];
            roStream.oKey.uiIndex = uiIndex;
            roStream.oPhaseSeconds.flValue = 9.7e-4 * (1.0 + uiIndex / 33.0);
            roStream.oTaiPhaseSeconds.flValue = 4.7e-3 * (1.0 + uiIndex / 33.0);
            roStream.oDriftRatio.flValue = 7.3e-9 * (1.0 + uiIndex / 33.0);
            for (SEstimate& roRate : roStream.aoRateHz)
            {
                roRate.flValue = 59.94 + uiIndex / 3.3e6;
            }
            roStream.oCounters.uiFields = 108'000'123 + uiIndex;
            roStream.oCounters.uiFieldsObserved = 107'999'000 + uiIndex;
            roStream.oCounters.uiSignalLosses = uiIndex % 8 == 0 ? 1 : 0;
            roStream.oCounters.uiBuffersRepeated = 17 + uiIndex;
            roStream.oCounters.auiUnobservedCauses[1] = uiIndex % 8 == 0 ? 3 : 0;
            roStream.oPacing.auiCounts.fill(1'048'576 + uiIndex);
            roStream.oQueue.aoWindows[0].bIsKnown = true;
            roStream.oQueue.bIsHeldKnown = true;
        }
    }
    MakeHealthy(oPublication.oJudgement);
    return oPublication;
}

template <typename FPrint> void Measure(benchmark::State& roState, const FPrint& roPrint)
{
    const auto poPublication = std::make_shared<const SWatchPublication>(MakeFull());
    size_t uiBytes = 0;
    for (auto _ : roState)
    {
        uiBytes = roPrint(poPublication).size();
        benchmark::DoNotOptimize(uiBytes);
    }
    roState.counters["bytes"] = static_cast<double>(uiBytes);
}

using Publication = const std::shared_ptr<const SWatchPublication>&;

void Scrape(benchmark::State& roState)
{
    const auto eDetail = static_cast<EMetricDetail>(roState.range(0));
    Measure(roState, [eDetail](Publication rpoPublication)
            { return WatchMetrics_Print(rpoPublication, {}, EMetricFormat::PROMETHEUS, eDetail); });
}

void Streams(benchmark::State& roState)
{
    Measure(roState,
            [](Publication rpoPublication) { return WatchJson_Print(WatchJson_FromStreams(*rpoPublication)); });
}

void Pairs(benchmark::State& roState)
{
    Measure(roState, [](Publication rpoPublication) { return WatchJson_Print(WatchJson_FromPairs(*rpoPublication)); });
}

void LiveSnapshot(benchmark::State& roState)
{
    Measure(roState,
            [](Publication rpoPublication) { return WatchJson_Print(LiveJson_FromPublication(*rpoPublication)); });
}

BENCHMARK(Scrape)->ArgName("detail")->DenseRange(0, uiMetricDetails - 1)->Unit(benchmark::kMicrosecond);
BENCHMARK(Streams)->Unit(benchmark::kMicrosecond);
BENCHMARK(Pairs)->Unit(benchmark::kMicrosecond);
BENCHMARK(LiveSnapshot)->Unit(benchmark::kMicrosecond);

} // namespace
