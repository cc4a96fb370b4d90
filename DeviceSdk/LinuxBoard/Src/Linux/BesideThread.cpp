#include "BesideThread.h"

#include <array>
#include <csignal>
#include <poll.h>
#include <sys/eventfd.h>
#include <utility>

#include "MonotonicClock.h"

bool CBesideThread::Start(const char* szName, FWork fnWork)
{
    Stop();
    m_fnWork = std::move(fnWork);
    m_oWake = CFileDescriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    m_bStop.store(false, std::memory_order_relaxed);
    sigset_t oAll;
    sigset_t oFound;
    sigfillset(&oAll);
    pthread_sigmask(SIG_SETMASK, &oAll, &oFound);
    m_bRunning = m_oWake.IsOpen() && pthread_create(
                                         &m_hThread, nullptr,
                                         [](void* pvThis) -> void*
                                         {
                                             static_cast<CBesideThread*>(pvThis)->Run();
                                             return nullptr;
                                         },
                                         this) == 0;
    pthread_sigmask(SIG_SETMASK, &oFound, nullptr);
    if (m_bRunning)
    {
        pthread_setname_np(m_hThread, szName);
    }
    return m_bRunning;
}

void CBesideThread::Run()
{
    SBesidePause oPause = m_fnWork(MonotonicClock_NowNs(), 0);
    while (!m_bStop.load(std::memory_order_acquire))
    {
        std::array<pollfd, 2> aoPolled = {{{m_oWake.Get(), POLLIN, 0}, {oPause.iPolledFd, POLLPRI, 0}}};
        MonotonicClock_PollUntil(aoPolled, oPause.uiUntilNs, MonotonicClock_NowNs());
        eventfd_t uiWakes = 0;
        if (aoPolled[0].revents != 0 && eventfd_read(m_oWake.Get(), &uiWakes) == 0 &&
            m_bStop.load(std::memory_order_acquire))
        {
            return;
        }
        oPause = m_fnWork(MonotonicClock_NowNs(), aoPolled[1].revents);
    }
}

void CBesideThread::Wake()
{
    if (m_oWake.IsOpen())
    {
        eventfd_write(m_oWake.Get(), 1);
    }
}

void CBesideThread::Stop()
{
    if (!std::exchange(m_bRunning, false))
    {
        return;
    }
    m_bStop.store(true, std::memory_order_release);
    Wake();
    pthread_join(m_hThread, nullptr);
    m_oWake.Close();
}
