/*
 * Threads of the program. No state; any thread.
 */
#ifndef THREADS_H
#define THREADS_H

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "Fault.h"

/*
 * Starts a thread.
 *   roThread  out  the thread
 *   rszName   in   what the system calls it, at most 15 bytes
 *   fnBody    in   what it does
 */
CFault Thread_Start(std::thread& roThread, const std::string& rszName, std::function<void()> fnBody);

/* The same without a name of its own; false when the system gives no thread or no memory. */
bool Thread_Make(std::thread& roThread, const std::function<void()>& rfnBody);

/*
 * Ends a thread that waits for more to do: tells it, wakes it and waits until it has ended. Nothing for one that does
 * not run. Blocks.
 *   roMutex  in  what guards what it is told, held for rfnTell alone
 *   roMore   in  what it waits for
 *   rfnTell  in  tells it to end
 */
template <typename TTell>
void Thread_End(std::thread& roThread, std::mutex& roMutex, std::condition_variable& roMore, const TTell& rfnTell)
{
    if (!roThread.joinable())
    {
        return;
    }
    {
        const std::lock_guard oGuard(roMutex);
        rfnTell();
    }
    roMore.notify_one();
    roThread.join();
}

/* Gives the calling thread less of a loaded processor than ordinary ones get. */
void Thread_LowerPriority();

#endif
