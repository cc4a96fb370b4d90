// The flight recorder: what a field costs the analysis, what a copy does, and what it takes to write a minute of 64
// streams to a file.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <random>
#include <vector>

#include "FieldRecorder.h"
#include "RecordingFile.h"

namespace
{

constexpr uint32_t uiStreams = 32; // of each direction
constexpr uint32_t uiSeconds = 60;
constexpr uint32_t uiFields = 60 * uiSeconds;
constexpr uint64_t uiPeriodNs = 16'666'667;

// Fields whose stamps and arrivals jitter by microseconds.
std::vector<SFieldRecord> MakeFields()
{
    std::mt19937 oRandom(1);
    std::normal_distribution<double> oJitter(0.0, 2000.0);
    std::vector<SFieldRecord> aoFields(uiFields);
    for (uint64_t uiField = 0; uiField < uiFields; ++uiField)
    {
        SFieldRecord& roField = aoFields[uiField];
        roField = {};
        roField.uiTick = 100'000'000'000 + uiField * uiPeriodNs + static_cast<uint64_t>(10000.0 + oJitter(oRandom));
        roField.uiFieldCounter = uiField * 16;
        roField.uiArrivalNs = roField.uiTick + 50'000 + static_cast<uint64_t>(10000.0 + oJitter(oRandom));
        roField.uiWaitBeginNs = roField.uiArrivalNs - uiPeriodNs + 70'000;
        roField.bHasBuffers = true;
        roField.uiReadyBuffers = static_cast<uint16_t>(uiField % 2);
        roField.uiInternalBuffers = 6;
    }
    return aoFields;
}

SStreamKey GetKey(uint32_t uiStream)
{
    return {uiStream < uiStreams ? EStreamDirection::INPUT : EStreamDirection::OUTPUT, uiStream % uiStreams};
}

void Fill(CFieldRecorder& roRecorder, const std::vector<SFieldRecord>& raoFields)
{
    for (const SFieldRecord& roField : raoFields)
    {
        for (uint32_t uiStream = 0; uiStream < 2 * uiStreams; ++uiStream)
        {
            roRecorder.Add(GetKey(uiStream), roField);
        }
    }
}

void AField(benchmark::State& roState)
{
    const std::vector<SFieldRecord> aoFields = MakeFields();
    CFieldRecorder oRecorder(uiStreams, uiStreams, uiSeconds);
    for ([[maybe_unused]] auto oTurn : roState)
    {
        Fill(oRecorder, aoFields);
    }
    roState.SetItemsProcessed(roState.iterations() * uiFields * 2 * uiStreams);
}
BENCHMARK(AField)->Unit(benchmark::kMillisecond);

void ACopy(benchmark::State& roState)
{
    CFieldRecorder oRecorder(uiStreams, uiStreams, uiSeconds);
    Fill(oRecorder, MakeFields());
    for ([[maybe_unused]] auto oTurn : roState)
    {
        benchmark::DoNotOptimize(oRecorder.Copy({}));
    }
}
BENCHMARK(ACopy)->Unit(benchmark::kMillisecond);

void AMinuteToAFile(benchmark::State& roState)
{
    CFieldRecorder oRecorder(uiStreams, uiStreams, uiSeconds);
    Fill(oRecorder, MakeFields());
    std::vector<SStreamKey> aoStreams;
    for (uint32_t uiStream = 0; uiStream < 2 * uiStreams; ++uiStream)
    {
        aoStreams.push_back(GetKey(uiStream));
    }
    const std::string szFile = std::filesystem::temp_directory_path() / "RecorderBenchmark.vtrec";
    uint64_t uiWritten = 0;
    for ([[maybe_unused]] auto oTurn : roState)
    {
        CRecordingWriter oWriter;
        bool bIsWritten = !oWriter.Begin(szFile, {}, aoStreams);
        oRecorder.Copy({}).ForEach(0, [&](const SStreamKey& roStream, const SFieldRecord& roField)
                                   { bIsWritten = bIsWritten && oWriter.AddField(roStream, roField); });
        uiWritten = oWriter.GetFieldCount();
        bIsWritten = bIsWritten && !oWriter.Finish();
        if (!bIsWritten)
        {
            roState.SkipWithError("the file cannot be written");
            break;
        }
    }
    roState.counters["fields"] = static_cast<double>(uiWritten);
    roState.counters["MiB"] = static_cast<double>(std::filesystem::file_size(szFile)) / (1 << 20);
    std::filesystem::remove(szFile);
}
BENCHMARK(AMinuteToAFile)->Unit(benchmark::kMillisecond);

} // namespace
