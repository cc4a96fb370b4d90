// Clocks, pauses and the deadlines of the timed waits.
#include "OsServicesClient.h"

#include <cerrno>
#include <cstdio>
#include <unistd.h>

#include "DeadLine.h"
#include "KrvVxd.h"
#include "TimeUnits.h"

namespace
{

constexpr uint64_t uiNsPerMs = 1'000'000;

timespec ReadWallClock()
{
    timespec oNow = {};
    clock_gettime(CLOCK_REALTIME, &oNow);
    return oNow;
}

} // namespace

Bool32 OsServices_WaitMicroSeconds(uint32_t uiWaitUs)
{
    if (uiWaitUs != 0)
    {
        tmDelay(uiWaitUs);
    }
    return 1;
}

Bool32 OsServices_SleepMilliSeconds(uint32_t uiSleepMs)
{
    return usleep(uiSleepMs * 1000) == 0 ? 1 : 0; // the product wraps in its 32 bits
}

uint64_t OsServices_GetRawTimeInNs()
{
    const timespec oNow = ReadWallClock();
    return static_cast<uint64_t>(oNow.tv_sec) * uint64_t{iNsPerSecond} + static_cast<uint64_t>(oNow.tv_nsec);
}

timespec DeadLine_FromTimeOut(uint32_t uiTimeOutMs)
{
    const timespec oNow = ReadWallClock();
    const uint64_t uiTotalNs = uiTimeOutMs * uiNsPerMs + static_cast<uint64_t>(oNow.tv_nsec);
    timespec oDeadLine = {};
    oDeadLine.tv_sec = oNow.tv_sec + static_cast<time_t>(uiTotalNs / uint64_t{iNsPerSecond});
    oDeadLine.tv_nsec = static_cast<long>(uiTotalNs % uint64_t{iNsPerSecond});
    return oDeadLine;
}

void DeadLine_ReportInvalid(const char* szWaitName, const timespec& roDeadLine)
{
    const timespec oNow = ReadWallClock();
    std::printf("%s returned %d INVALID\n", szWaitName, EINVAL);
    std::printf("TimeOut occurs Req timespec.tv_sec=%ld,timespec.tv_nsec=%ld, Now "
                "timespec.tv_sec=%ld,timespec.tv_nsec=%ld\n",
                roDeadLine.tv_sec, roDeadLine.tv_nsec, oNow.tv_sec, oNow.tv_nsec);
}
