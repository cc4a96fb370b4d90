#include "HttpJobs.h"

#include <system_error>

#include "HttpSockets.h"

bool CHttpJobs::Start()
{
    const CSignalsBlocked oBlocked;
    try
    {
        while (m_aoThreads.size() < m_uiThreads)
        {
            m_aoThreads.emplace_back([this] { Run(); });
        }
    }
    catch (const std::system_error&)
    {
        return false;
    }
    return true;
}

bool CHttpJobs::Put(std::function<void()> fnJob)
{
    const std::lock_guard oGuard(m_oMutex);
    if (m_bIsEnding || m_afnJobs.size() >= m_uiMostWaiting)
    {
        return false;
    }
    m_afnJobs.push_back(std::move(fnJob));
    m_oChanged.notify_one();
    return true;
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
        roThread.join();
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
