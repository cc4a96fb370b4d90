#include "HttpJobs.h"

#include <algorithm>

#include "HttpSockets.h"
#include "Memory.h"
#include "Threads.h"

bool CHttpJobs::Start()
{
    const CSignalsBlocked oBlocked;
    m_aoThreads.resize(m_uiThreads);
    return std::ranges::all_of(m_aoThreads,
                               [this](std::thread& roThread) { return Thread_Make(roThread, [this] { Run(); }); });
}

bool CHttpJobs::Put(std::function<void()> fnJob)
{
    const std::lock_guard oGuard(m_oMutex);
    if (m_bIsEnding || m_afnJobs.size() >= m_uiMostWaiting)
    {
        return false;
    }
    const bool bIsTaken = Memory_Do("a job", [&] { m_afnJobs.push_back(std::move(fnJob)); });
    m_oChanged.notify_one();
    return bIsTaken;
}

void CHttpJobs::End()
{
    {
        const std::lock_guard oGuard(m_oMutex);
        m_bIsEnding = true;
        m_oChanged.notify_all();
    }
    for (std::thread& roThread : m_aoThreads)
    {
        if (roThread.joinable())
        {
            roThread.join();
        }
    }
    m_aoThreads.clear();
    m_afnJobs.clear();
}

void CHttpJobs::Run()
{
    HttpSockets_LowerThreadPriority();
    std::unique_lock oLock(m_oMutex);
    while (true)
    {
        m_oChanged.wait(oLock, [this] { return m_bIsEnding || !m_afnJobs.empty(); });
        if (m_bIsEnding)
        {
            return;
        }
        const std::function<void()> fnJob = std::move(m_afnJobs.front());
        m_afnJobs.pop_front();
        oLock.unlock();
        fnJob();
        oLock.lock();
    }
}
