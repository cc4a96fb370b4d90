// The monotonic clock as counter and as busy wait.
#include "KrvVxd_Linux.h"
#include "TimeUnits.h"

#include <ctime>

namespace
{

constexpr uint32_t uiUsPerSecond = 1'000'000;
constexpr int64_t iNsPerUs = 1'000;

bool ReadClock(timespec& roNow)
{
    return clock_gettime(CLOCK_MONOTONIC, &roNow) == 0;
}

} // namespace

Bool32 KrvVxdPrivateLinuxTimer_Delay(uint32_t ui32DelayMicroSeconds)
{
    timespec oEnd = {};
    if (!ReadClock(oEnd))
    {
        return 1;
    }
    oEnd.tv_sec += ui32DelayMicroSeconds / uiUsPerSecond;
    oEnd.tv_nsec += (ui32DelayMicroSeconds % uiUsPerSecond) * iNsPerUs;
    if (oEnd.tv_nsec >= iNsPerSecond)
    {
        oEnd.tv_nsec -= iNsPerSecond;
        ++oEnd.tv_sec;
    }
    // Neither sleeps nor yields: the delays are shorter than a switch of threads.
    timespec oNow = {};
    do
    {
        if (!ReadClock(oNow))
        {
            return 1;
        }
    } while (oNow.tv_sec < oEnd.tv_sec || (oNow.tv_sec == oEnd.tv_sec && oNow.tv_nsec < oEnd.tv_nsec));
    return 1;
}

Bool32 KrvVxdPrivateLinuxTimer_Counter(uint64_t* puiCounterUs)
{
    timespec oNow = {};
    if (!ReadClock(oNow))
    {
        return 0;
    }
    *puiCounterUs = static_cast<uint64_t>(oNow.tv_sec) * uiUsPerSecond + static_cast<uint64_t>(oNow.tv_nsec / iNsPerUs);
    return 1;
}

Bool32 KrvVxdPrivateLinuxTimer_Frequency(uint64_t* puiCounterFreqHz)
{
    *puiCounterFreqHz = uiUsPerSecond;
    return 1;
}
