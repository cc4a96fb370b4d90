#include "SignalWatch.h"

#include <csignal>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>
#include <utility>

#include "Threads.h"
#include "WatchClocks.h"

namespace
{

void Raise(int iEvent)
{
    static_cast<void>(eventfd_write(iEvent, 1));
}

bool IsReadable(const pollfd& roFile)
{
    return (roFile.revents & POLLIN) != 0;
}

void SetHangUp(int iHow)
{
    sigset_t oHangUp = {};
    sigemptyset(&oHangUp);
    sigaddset(&oHangUp, SIGHUP);
    pthread_sigmask(iHow, &oHangUp, nullptr);
}

} // namespace

void CSignalWatch::HoldEarly()
{
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    SetHangUp(SIG_BLOCK);
}

void CSignalWatch::LetHangUp()
{
    SetHangUp(SIG_UNBLOCK);
}

CFault CSignalWatch::Start(uint32_t uiEndMs, int iEndStatus, std::function<void()> fnOnHangUp)
{
    m_uiEndMs = uiEndMs;
    m_iEndStatus = iEndStatus;
    m_fnOnHangUp = std::move(fnOnHangUp);
    HoldEarly();
    sigset_t oSignals = {};
    sigemptyset(&oSignals);
    for (const int iSignal : {SIGINT, SIGTERM, SIGHUP})
    {
        sigaddset(&oSignals, iSignal);
    }
    pthread_sigmask(SIG_BLOCK, &oSignals, nullptr);
    m_iSignals = signalfd(-1, &oSignals, SFD_CLOEXEC | SFD_NONBLOCK);
    m_iEnd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    m_iOver = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    return Thread_Start(m_oThread, "signals", [this] { Run(); });
}

CSignalWatch::~CSignalWatch()
{
    if (m_oThread.joinable())
    {
        m_bIsOver.store(true);
        Raise(m_iOver);
        m_oThread.join();
    }
    for (const int iFile : {m_iSignals, m_iEnd, m_iOver})
    {
        close(iFile);
    }
}

bool CSignalWatch::AwaitEnd(uint32_t uiTimeOutMs)
{
    pollfd oEnd = {m_iEnd, POLLIN, 0};
    return poll(&oEnd, 1, static_cast<int>(uiTimeOutMs)) > 0 && IsReadable(oEnd);
}

void CSignalWatch::Run()
{
    uint64_t uiLimitNs = 0; // 0: no end is near
    while (!m_bIsOver.load())
    {
        const uint64_t uiNowNs = ReadMonotonicNs();
        if (uiLimitNs != 0 && uiNowNs >= uiLimitNs)
        {
            EndProcess();
        }
        pollfd aoFiles[] = {{m_iSignals, POLLIN, 0}, {m_iOver, POLLIN, 0}};
        const int iTimeOutMs = uiLimitNs == 0 ? -1 : static_cast<int>((uiLimitNs - uiNowNs) / iNsPerMillisecond) + 1;
        poll(aoFiles, std::size(aoFiles), iTimeOutMs);
        signalfd_siginfo oSignal = {};
        bool bEnds = false;
        while (IsReadable(aoFiles[0]) && read(m_iSignals, &oSignal, sizeof(oSignal)) == sizeof(oSignal))
        {
            if (oSignal.ssi_signo != SIGHUP)
            {
                Raise(m_iEnd);
                bEnds = true;
            }
            else if (m_fnOnHangUp)
            {
                m_fnOnHangUp();
            }
        }
        if (bEnds && uiLimitNs == 0)
        {
            uiLimitNs = ReadMonotonicNs() + m_uiEndMs * iNsPerMillisecond;
        }
    }
}

// Without destructors: a thread that hangs inside the board uses what they would take away.
void CSignalWatch::EndProcess() const
{
    _exit(m_iEndStatus);
}
