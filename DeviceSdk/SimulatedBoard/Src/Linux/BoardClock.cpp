// See BoardClock.h.
#include "BoardClock.h"

#include <cerrno>
#include <cmath>
#include <ctime>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "BoardUnits.h"

int64_t MonotonicClock_GetNs()
{
    timespec oNow{};
    (void)clock_gettime(CLOCK_MONOTONIC, &oNow);
    return oNow.tv_sec * iNsPerSecond + oNow.tv_nsec;
}

uint64_t CBoardClock::ToTicks(int64_t iNs) const
{
    auto uiBoardNs = static_cast<uint64_t>(iNs - m_iStartNs);
    if (m_flScale != 1.0)
    {
        uiBoardNs = static_cast<uint64_t>(static_cast<double>(uiBoardNs) * m_flScale);
    }
    // Seconds and the rest apart: both products stay within 64 bits, and no precision is lost.
    return m_uiTickStart + uiBoardNs / uiNsPerSecond * m_uiTickFreqHz +
           uiBoardNs % uiNsPerSecond * m_uiTickFreqHz / uiNsPerSecond;
}

int64_t CBoardClock::ToNs(uint64_t uiTicks) const
{
    if (uiTicks <= m_uiTickStart)
    {
        return m_iStartNs;
    }
    const uint64_t uiSince = uiTicks - m_uiTickStart;
    const uint64_t uiRest = uiSince % m_uiTickFreqHz;
    uint64_t uiBoardNs =
        uiSince / m_uiTickFreqHz * uiNsPerSecond + (uiRest * uiNsPerSecond + m_uiTickFreqHz - 1) / m_uiTickFreqHz;
    if (m_flScale != 1.0)
    {
        uiBoardNs = static_cast<uint64_t>(std::ceil(static_cast<double>(uiBoardNs) / m_flScale));
    }
    return m_iStartNs + static_cast<int64_t>(uiBoardNs);
}

int64_t CBoardClock::ToRealNs(uint32_t uiBoardMs) const
{
    return static_cast<int64_t>(static_cast<double>(uiBoardMs) * 1e6 / m_flScale);
}

// A futex rather than clock_nanosleep: the same absolute sleep on the same timer, and another thread can end it.
bool CSleeper::SleepUntil(int64_t iDeadlineNs)
{
    const timespec oDeadline{.tv_sec = iDeadlineNs / iNsPerSecond, .tv_nsec = iDeadlineNs % iNsPerSecond};
    while (!IsInterrupted())
    {
        const long iResult = syscall(SYS_futex, &m_uiInterrupted, FUTEX_WAIT_BITSET_PRIVATE, 0, &oDeadline, nullptr,
                                     FUTEX_BITSET_MATCH_ANY);
        if (iResult != 0 && errno == ETIMEDOUT)
        {
            return true;
        }
    }
    return false;
}

void CSleeper::Interrupt()
{
    m_uiInterrupted.store(1, std::memory_order_release);
    (void)syscall(SYS_futex, &m_uiInterrupted, FUTEX_WAKE_PRIVATE, INT32_MAX, nullptr, nullptr, 0);
}
