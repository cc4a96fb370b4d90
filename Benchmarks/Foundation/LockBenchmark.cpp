// A free lock taken and given back: the guard beside the bare recursive mutex under it.
#include <benchmark/benchmark.h>
#include <pthread.h>

#include "OsMutex.h"

namespace
{

void BM_Lock_Bare(benchmark::State& roState)
{
    pthread_mutexattr_t oAttributes;
    pthread_mutexattr_init(&oAttributes);
    pthread_mutexattr_settype(&oAttributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_t oMutex;
    pthread_mutex_init(&oMutex, &oAttributes);
    for (auto _ : roState)
    {
        pthread_mutex_lock(&oMutex);
        benchmark::ClobberMemory();
        pthread_mutex_unlock(&oMutex);
    }
    pthread_mutex_destroy(&oMutex);
}
BENCHMARK(BM_Lock_Bare);

void BM_Lock_OsMutexGuard(benchmark::State& roState)
{
    OsServices oOsServices;
    OsMutex oMutex(oOsServices);
    for (auto _ : roState)
    {
        const OsMutexGuard oGuard(oMutex, OsServices_INFINITE);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_Lock_OsMutexGuard);

} // namespace
