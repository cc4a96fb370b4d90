/*
 * Threads for what takes too long for those that move bytes; what waits for them is bounded. Thread-safe.
 */
#ifndef HTTP_JOBS_H
#define HTTP_JOBS_H

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

class CHttpJobs
{
public:
    CHttpJobs(size_t uiThreads, size_t uiMostWaiting) : m_uiThreads(uiThreads), m_uiMostWaiting(uiMostWaiting) {}
    ~CHttpJobs() { End(); }
    CHttpJobs(const CHttpJobs&) = delete;
    CHttpJobs& operator=(const CHttpJobs&) = delete;

    /* False when the system has no threads to give. */
    bool Start();

    /* False when too many wait already, or at the end; the job is then never done. */
    bool Put(std::function<void()> fnJob);

    // Lets go what waits, and waits for what is being done.
    void End();

private:
    void Run();

    const size_t m_uiThreads;
    const size_t m_uiMostWaiting;
    std::mutex m_oMutex;
    std::condition_variable m_oChanged;
    std::deque<std::function<void()>> m_afnJobs;
    bool m_bIsEnding = false;
    std::vector<std::thread> m_aoThreads;
};

#endif
