/*
 * A thread for requests that may block, beside the one that waits for fields: whoever changes a device holds up who
 * asks it, for a field or for many. Started and stopped by one thread; Wake may be called by any. It takes no signals,
 * which are for the threads of the program.
 */
#ifndef LINUX_BOARD_BESIDE_THREAD_H
#define LINUX_BOARD_BESIDE_THREAD_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <pthread.h>

#include "FileDescriptor.h"

/* How long the thread sleeps: until a moment, or until a descriptor has something urgent (POLLPRI). */
struct SBesidePause
{
    uint64_t uiUntilNs = UINT64_MAX; /* CLOCK_MONOTONIC */
    int iPolledFd = -1;              /* none */
};

class CBesideThread
{
public:
    /* uiNowNs: the clock; iEvents: what the descriptor had to say (POLL...). */
    using FWork = std::function<SBesidePause(uint64_t uiNowNs, short iEvents)>;

    CBesideThread() = default;
    ~CBesideThread() { Stop(); }
    CBesideThread(const CBesideThread&) = delete;
    CBesideThread& operator=(const CBesideThread&) = delete;

    /* Calls fnWork at once and after every pause. False when the system gives no thread. */
    bool Start(const char* szName, FWork fnWork);
    /* The pause is over. */
    void Wake();
    /* Waits for a request that is under way. */
    void Stop();

private:
    void Run();

    FWork m_fnWork;
    CFileDescriptor m_oWake;
    std::atomic<bool> m_bStop{false};
    bool m_bRunning = false;
    pthread_t m_hThread{};
};

#endif
