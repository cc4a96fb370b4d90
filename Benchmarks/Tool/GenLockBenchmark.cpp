// The synchronisation analysis of as many streams as there can be: the measurement, how long it holds the mutex beside
// a plain copy of the same bytes, and the whole detailed report without a terminal.
#include "GenLockDisplay.h"
#include "MonitorGlobals.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>
#include <vector>

namespace
{

constexpr uint32_t STREAMS = 32;
constexpr uint64_t FIELD_TICKS = 1666667;

uint64_t g_uiAllocations = 0;
std::chrono::steady_clock::time_point g_oLocked;
std::chrono::steady_clock::time_point g_oUnlocked;

// Full rings that have wrapped at different slots; streams a few ticks apart.
std::vector<SMonitorUserData> MakeStreams()
{
    std::vector<SMonitorUserData> daoData(STREAMS);
    for (uint32_t uiVideo = 0; uiVideo < STREAMS; ++uiVideo)
    {
        daoData[uiVideo].uiTickRefFreq = 100000000;
        daoData[uiVideo].uiHRate_KHz = 67;
        for (uint32_t uiField = 3 * uiVideo; uiField < 3 * uiVideo + NB_OF_SAMPLES; ++uiField)
        {
            daoData[uiVideo].auiTickRefCounter[uiField % NB_OF_SAMPLES] = (uiField + 1) * FIELD_TICKS + 17 * uiVideo;
        }
    }
    return daoData;
}

void BM_GenLock_Process(benchmark::State& roState)
{
    const std::vector<SMonitorUserData> daoData = MakeStreams();
    const uint64_t uiAllocations = g_uiAllocations;
    for (auto _ : roState)
    {
        uint64_t auiLast[STREAMS] = {};
        CFrameLockVideoArray daoVideo;
        CFrameLockPairArray daoPair;
        benchmark::DoNotOptimize(ProcessGenLock(STREAMS, daoData.data(), auiLast, daoVideo, daoPair));
    }
    roState.counters["pairs"] = STREAMS * (STREAMS - 1) / 2;
    roState.counters["allocations"] =
        benchmark::Counter(static_cast<double>(g_uiAllocations - uiAllocations), benchmark::Counter::kAvgIterations);
}
BENCHMARK(BM_GenLock_Process)->Unit(benchmark::kMicrosecond);

double Median(std::vector<double>& rdaflValue)
{
    const auto itMiddle = rdaflValue.begin() + static_cast<std::ptrdiff_t>(rdaflValue.size() / 2);
    std::nth_element(rdaflValue.begin(), itMiddle, rdaflValue.end());
    return *itMiddle;
}

double NsBetween(std::chrono::steady_clock::time_point oBegin, std::chrono::steady_clock::time_point oEnd)
{
    return std::chrono::duration<double, std::nano>(oEnd - oBegin).count();
}

// How long the monitor threads of inputs would have to wait, beside a plain copy of the same bytes in the same state of
// the caches.
void BM_GenLock_MutexHeld(benchmark::State& roState)
{
    const std::vector<SMonitorUserData> daoData = MakeStreams();
    std::vector<double> daflHeldNs;
    std::vector<double> daflCopyNs;
    for (auto _ : roState)
    {
        uint64_t auiLast[STREAMS] = {};
        CFrameLockVideoArray daoVideo;
        CFrameLockPairArray daoPair;
        benchmark::DoNotOptimize(ProcessGenLock(STREAMS, daoData.data(), auiLast, daoVideo, daoPair));
        daflHeldNs.push_back(NsBetween(g_oLocked, g_oUnlocked));

        CFrameLockVideoArray daoCopy;
        daoCopy.SetSize(STREAMS);
        const auto oBegin = std::chrono::steady_clock::now();
        for (uint32_t uiVideo = 0; uiVideo < STREAMS; ++uiVideo)
        {
            std::memcpy(daoCopy[uiVideo].auiTimeStamp, daoData[uiVideo].auiTickRefCounter,
                        sizeof(daoCopy[uiVideo].auiTimeStamp));
        }
        daflCopyNs.push_back(NsBetween(oBegin, std::chrono::steady_clock::now()));
        benchmark::DoNotOptimize(daoCopy.GetData());
    }
    roState.counters["held_ns"] = Median(daflHeldNs);
    roState.counters["copy_ns"] = Median(daflCopyNs);
}
BENCHMARK(BM_GenLock_MutexHeld)->Unit(benchmark::kMicrosecond);

void BM_GenLock_DetailedReport(benchmark::State& roState)
{
    const std::vector<SMonitorUserData> daoData = MakeStreams();
    const int iNull = open("/dev/null", O_WRONLY | O_CLOEXEC);
    const int iKept = dup(STDOUT_FILENO);
    dup2(iNull, STDOUT_FILENO);
    for (auto _ : roState)
    {
        uint64_t auiLast[STREAMS] = {};
        DisplayGenLock(STREAMS, 1, GENLOCK_DISPLAY_DETAILED, GENLOCK_THRESHOLD_1, daoData.data(), auiLast);
    }
    dup2(iKept, STDOUT_FILENO);
    close(iKept);
    close(iNull);
}
BENCHMARK(BM_GenLock_DetailedReport)->Unit(benchmark::kMicrosecond);

} // namespace

// The executable is linked so that the foundation locks and unlocks through these.
extern "C" int RealLock(pthread_mutex_t* poMutex) asm("__real_pthread_mutex_lock");
extern "C" int RealUnlock(pthread_mutex_t* poMutex) asm("__real_pthread_mutex_unlock");
extern "C" int WrappedLock(pthread_mutex_t* poMutex) asm("__wrap_pthread_mutex_lock");
extern "C" int WrappedUnlock(pthread_mutex_t* poMutex) asm("__wrap_pthread_mutex_unlock");

extern "C" int WrappedLock(pthread_mutex_t* poMutex)
{
    const int iResult = RealLock(poMutex);
    g_oLocked = std::chrono::steady_clock::now();
    return iResult;
}

extern "C" int WrappedUnlock(pthread_mutex_t* poMutex)
{
    g_oUnlocked = std::chrono::steady_clock::now();
    return RealUnlock(poMutex);
}

// What the containers and everything else allocate with.
void* operator new[](size_t uiSize)
{
    ++g_uiAllocations;
    return std::malloc(uiSize);
}

void* operator new(size_t uiSize)
{
    ++g_uiAllocations;
    return std::malloc(uiSize);
}

void operator delete[](void* pvBlock) noexcept
{
    std::free(pvBlock);
}

void operator delete[](void* pvBlock, size_t) noexcept
{
    std::free(pvBlock);
}

void operator delete(void* pvBlock) noexcept
{
    std::free(pvBlock);
}

void operator delete(void* pvBlock, size_t) noexcept
{
    std::free(pvBlock);
}
