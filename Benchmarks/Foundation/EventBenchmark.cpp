// From a trigger to the wake-up of another thread, there and back: the event beside a bare condition variable that is
// used the same way.
#include <atomic>
#include <benchmark/benchmark.h>
#include <pthread.h>
#include <thread>

#include "OsServices.h"

namespace
{

class CBareEvent
{
public:
    void Trigger()
    {
        pthread_mutex_lock(&m_oMutex);
        m_bIsSignaled = true;
        pthread_cond_signal(&m_oCond);
        pthread_mutex_unlock(&m_oMutex);
    }
    void Wait()
    {
        pthread_mutex_lock(&m_oMutex);
        if (!m_bIsSignaled)
        {
            pthread_cond_wait(&m_oCond, &m_oMutex);
        }
        m_bIsSignaled = false;
        pthread_mutex_unlock(&m_oMutex);
    }

private:
    pthread_mutex_t m_oMutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t m_oCond = PTHREAD_COND_INITIALIZER;
    bool m_bIsSignaled = false;
};

class COsEvent
{
public:
    COsEvent() { m_oOsServices.Event_Create(m_hEvent); }
    ~COsEvent() { m_oOsServices.Event_Destroy(m_hEvent); }
    COsEvent(const COsEvent&) = delete;
    COsEvent& operator=(const COsEvent&) = delete;

    void Trigger() { m_oOsServices.Event_Trigger(m_hEvent); }
    void Wait() { m_oOsServices.Event_Wait(m_hEvent, OsServices_INFINITE); }

private:
    OsServices m_oOsServices;
    HEvent m_hEvent = nullptr;
};

template <typename EVENT> void BM_Event_ThereAndBack(benchmark::State& roState)
{
    EVENT oThere;
    EVENT oBack;
    std::atomic<bool> bIsDone = false;
    std::thread oPartner(
        [&]
        {
            for (oThere.Wait(); !bIsDone; oThere.Wait())
            {
                oBack.Trigger();
            }
        });
    for (auto _ : roState)
    {
        oThere.Trigger();
        oBack.Wait();
    }
    bIsDone = true;
    oThere.Trigger();
    oPartner.join();
}
BENCHMARK_TEMPLATE(BM_Event_ThereAndBack, CBareEvent)->UseRealTime();
BENCHMARK_TEMPLATE(BM_Event_ThereAndBack, COsEvent)->UseRealTime();

// The part of it that is the event's own: a trigger that is remembered and then used up, without any waiting.
template <typename EVENT> void BM_Event_Remembered(benchmark::State& roState)
{
    EVENT oEvent;
    for (auto _ : roState)
    {
        oEvent.Trigger();
        oEvent.Wait();
    }
}
BENCHMARK_TEMPLATE(BM_Event_Remembered, CBareEvent);
BENCHMARK_TEMPLATE(BM_Event_Remembered, COsEvent);

} // namespace
