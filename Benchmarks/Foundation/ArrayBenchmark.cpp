// Adding 8-byte values, with and without the size given up front: the array beside std::vector. Where nothing is
// given, the array grows by 4 elements at a time and so relocates far more often; the counter says how often.
#include <benchmark/benchmark.h>
#include <vector>

#include "CMArray.h"

namespace
{

using CArray = CMArray<uint64_t, uint64_t>;

void Sizes(benchmark::internal::Benchmark* poBenchmark)
{
    for (const int64_t iSize : {16, 120, 1000, 100000})
    {
        poBenchmark->Arg(iSize);
    }
}

void BM_Add_Vector(benchmark::State& roState)
{
    const int64_t iSize = roState.range(0);
    for (auto _ : roState)
    {
        std::vector<uint64_t> auiValues;
        for (int64_t iValue = 0; iValue < iSize; ++iValue)
        {
            auiValues.push_back(static_cast<uint64_t>(iValue));
        }
        benchmark::DoNotOptimize(auiValues.data());
    }
}
BENCHMARK(BM_Add_Vector)->Apply(Sizes);

void AddToArray(benchmark::State& roState, int32_t iGrowBy)
{
    const int64_t iSize = roState.range(0);
    int32_t iRelocations = 0;
    for (auto _ : roState)
    {
        CArray auiValues;
        auiValues.SetSize(0, iGrowBy);
        for (int64_t iValue = 0; iValue < iSize; ++iValue)
        {
            auiValues.Add(static_cast<uint64_t>(iValue));
        }
        benchmark::DoNotOptimize(auiValues.GetData());
        iRelocations = (auiValues.GetAllocSize() - 1) / (iGrowBy != 0 ? iGrowBy : 4);
    }
    roState.counters["relocations"] = iRelocations;
}

void BM_Add_Array(benchmark::State& roState)
{
    AddToArray(roState, 0);
}
BENCHMARK(BM_Add_Array)->Apply(Sizes);

void BM_AddPresized_Vector(benchmark::State& roState)
{
    const int64_t iSize = roState.range(0);
    for (auto _ : roState)
    {
        std::vector<uint64_t> auiValues;
        auiValues.reserve(static_cast<size_t>(iSize));
        for (int64_t iValue = 0; iValue < iSize; ++iValue)
        {
            auiValues.push_back(static_cast<uint64_t>(iValue));
        }
        benchmark::DoNotOptimize(auiValues.data());
    }
}
BENCHMARK(BM_AddPresized_Vector)->Apply(Sizes);

// The growth step is the size.
void BM_AddPresized_ArrayGrowBy(benchmark::State& roState)
{
    AddToArray(roState, static_cast<int32_t>(roState.range(0)));
}
BENCHMARK(BM_AddPresized_ArrayGrowBy)->Apply(Sizes);

// The whole block at once, of which all but the first element are taken back before the others are added.
void BM_AddPresized_ArraySetSize(benchmark::State& roState)
{
    const int64_t iSize = roState.range(0);
    for (auto _ : roState)
    {
        CArray auiValues;
        auiValues.SetSize(static_cast<int32_t>(iSize));
        auiValues.SetSize(1);
        auiValues[0] = 0;
        for (int64_t iValue = 1; iValue < iSize; ++iValue)
        {
            auiValues.Add(static_cast<uint64_t>(iValue));
        }
        benchmark::DoNotOptimize(auiValues.GetData());
    }
}
BENCHMARK(BM_AddPresized_ArraySetSize)->Apply(Sizes);

// Sized once and then assigned, as the analyses do.
void BM_Assign_Vector(benchmark::State& roState)
{
    const int64_t iSize = roState.range(0);
    for (auto _ : roState)
    {
        std::vector<uint64_t> auiValues(static_cast<size_t>(iSize));
        for (int64_t iValue = 0; iValue < iSize; ++iValue)
        {
            auiValues[static_cast<size_t>(iValue)] = static_cast<uint64_t>(iValue);
            benchmark::ClobberMemory();
        }
        benchmark::DoNotOptimize(auiValues.data());
    }
}
BENCHMARK(BM_Assign_Vector)->Apply(Sizes);

void BM_Assign_Array(benchmark::State& roState)
{
    const int64_t iSize = roState.range(0);
    for (auto _ : roState)
    {
        CArray auiValues;
        auiValues.SetSize(static_cast<int32_t>(iSize));
        for (int64_t iValue = 0; iValue < iSize; ++iValue)
        {
            auiValues[iValue] = static_cast<uint64_t>(iValue);
            benchmark::ClobberMemory();
        }
        benchmark::DoNotOptimize(auiValues.GetData());
    }
}
BENCHMARK(BM_Assign_Array)->Apply(Sizes);

} // namespace
