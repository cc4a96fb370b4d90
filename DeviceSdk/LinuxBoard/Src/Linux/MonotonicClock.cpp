#include "MonotonicClock.h"

#include <cerrno>
#include <ctime>

uint64_t MonotonicClock_NowNs()
{
    timespec oNow{};
    clock_gettime(CLOCK_MONOTONIC, &oNow);
    return static_cast<uint64_t>(oNow.tv_sec) * uiNsPerSecond + static_cast<uint64_t>(oNow.tv_nsec);
}

bool MonotonicClock_PollUntil(std::span<pollfd> aoPolled, uint64_t uiMomentNs, uint64_t uiNowNs)
{
    for (;; uiNowNs = MonotonicClock_NowNs())
    {
        const uint64_t uiLeftNs = uiMomentNs > uiNowNs ? uiMomentNs - uiNowNs : 0;
        const timespec oLeft = {static_cast<time_t>(uiLeftNs / uiNsPerSecond),
                                static_cast<long>(uiLeftNs % uiNsPerSecond)};
        const int iReady = ppoll(aoPolled.data(), aoPolled.size(), &oLeft, nullptr);
        if (iReady >= 0 || errno != EINTR)
        {
            return iReady > 0;
        }
    }
}
