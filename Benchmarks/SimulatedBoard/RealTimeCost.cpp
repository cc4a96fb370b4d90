// CPU time of 64 threads that wait for 60 fields a second each, beside 64 that do nothing but sleep, as often and as
// evenly spread. Both run at the same time, the moments of one between those of the other, so that what else the
// machine does falls on both alike.
//   RealTimeCost [seconds per run] [runs]
#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <thread>
#include <vector>

#include "VtSimulatedBoard.h"

namespace
{

constexpr int iStreams = 64;
constexpr int64_t iNsPerSecond = 1'000'000'000;

int64_t GetNs(clockid_t iClock)
{
    timespec oNow{};
    (void)clock_gettime(iClock, &oNow);
    return oNow.tv_sec * iNsPerSecond + oNow.tv_nsec;
}

// Fields of the streams start evenly spread over a field's time, sleepers wake in the middles between them.
int64_t GetPhaseNs(int iStream, bool bSleeper)
{
    return iNsPerSecond / 60 * (2 * iStream + (bSleeper ? 1 : 0)) / (2 * iStreams);
}

void Sleep(int iStream, int iFields, int64_t iStartNs)
{
    for (int64_t iField = 1; iField <= iFields; ++iField)
    {
        const int64_t iNs = iStartNs + GetPhaseNs(iStream, true) + iField * iNsPerSecond / 60;
        const timespec oUntil{.tv_sec = iNs / iNsPerSecond, .tv_nsec = iNs % iNsPerSecond};
        (void)clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &oUntil, nullptr);
    }
}

void Watch(int iStream, int iFields, std::atomic<uint64_t>& ruiDelivered)
{
    VtVideoIn_Handle hIn = nullptr;
    VtVideoOut_Handle hOut = nullptr;
    const VtDevice_Handle hDev = Veltrano_GetDevice(0);
    const auto uiIndex = static_cast<uint32_t>(iStream / 2);
    if ((iStream % 2 == 0 ? VtVideoIn_GetHandle(hDev, uiIndex, VtAccessMode_READONLY, &hIn)
                          : VtVideoOut_GetHandle(hDev, uiIndex, VtAccessMode_READONLY, &hOut)) != VtStatus_OK)
    {
        std::abort();
    }
    for (int iField = 0; iField < iFields; ++iField)
    {
        uint64_t uiField = 0;
        uint64_t uiSet = 0;
        uint64_t uiTicks = 0;
        VtBool bTop = 0;
        const VtStatus eStatus = hIn != nullptr
                                     ? VtVideoIn_WaitForFieldStart(hIn, 50, &uiField, &uiTicks, &bTop)
                                     : VtVideoOut_WaitForFieldStart(hOut, 50, &uiField, &uiSet, &uiTicks, &bTop);
        ruiDelivered.fetch_add(eStatus == VtStatus_OK ? 1 : 0, std::memory_order_relaxed);
    }
}

// Starts 64 threads that add their CPU time to riCpuNs.
template <typename TBody> void Start(std::vector<std::thread>& raoThreads, std::atomic<int64_t>& riCpuNs, TBody fnBody)
{
    for (int iStream = 0; iStream < iStreams; ++iStream)
    {
        raoThreads.emplace_back(
            [&riCpuNs, fnBody, iStream]
            {
                fnBody(iStream);
                riCpuNs.fetch_add(GetNs(CLOCK_THREAD_CPUTIME_ID));
            });
    }
}

void Load()
{
    std::string szText = "[[chip]]\n";
    for (int iStream = 0; iStream < iStreams; ++iStream)
    {
        szText += std::string("[[chip.") + (iStream % 2 == 0 ? "input" : "output") +
                  "]]\nstandard = '1080p60'\njitter_ticks = 3\nphase_us = " +
                  std::to_string(static_cast<double>(GetPhaseNs(iStream, false)) / 1000.0) + "\n";
    }
    if (VtSim_SetScenario(szText.c_str(), nullptr, 0) != VtStatus_OK)
    {
        std::abort();
    }
    Veltrano_LoadLite();
}

} // namespace

int main(int iArguments, char** aszArguments)
{
    const int iSeconds = std::max(iArguments > 1 ? std::atoi(aszArguments[1]) : 5, 1);
    const int iRuns = std::max(iArguments > 2 ? std::atoi(aszArguments[2]) : 5, 1);
    const int iFields = iSeconds * 60;
    std::vector<double> aflRatios;
    for (int iRun = 0; iRun < iRuns; ++iRun)
    {
        std::vector<std::thread> aoThreads;
        std::atomic<int64_t> iSleepNs{0};
        std::atomic<int64_t> iWaitNs{0};
        std::atomic<uint64_t> uiDelivered{0};
        const int64_t iStartNs = GetNs(CLOCK_MONOTONIC);
        Load();
        Start(aoThreads, iSleepNs, [=](int iStream) { Sleep(iStream, iFields, iStartNs); });
        Start(aoThreads, iWaitNs, [=, &uiDelivered](int iStream) { Watch(iStream, iFields, uiDelivered); });
        for (std::thread& roThread : aoThreads)
        {
            roThread.join();
        }
        Veltrano_UnLoad();
        const double flWakes = iStreams * static_cast<double>(iFields);
        const auto flSleepNs = static_cast<double>(iSleepNs.load());
        const auto flWaitNs = static_cast<double>(iWaitNs.load());
        aflRatios.push_back(flWaitNs / flSleepNs);
        (void)std::printf(
            "sleep %.2f us a wake, %.2f %% of a core; wait %.2f us, %.2f %%; ratio %.3f; %.1f %% delivered\n",
            flSleepNs / flWakes / 1e3, flSleepNs / iSeconds / 1e7, flWaitNs / flWakes / 1e3, flWaitNs / iSeconds / 1e7,
            aflRatios.back(), static_cast<double>(uiDelivered.load()) / flWakes * 100.0);
    }
    std::sort(aflRatios.begin(), aflRatios.end());
    (void)std::printf("median ratio %.3f\n", aflRatios[aflRatios.size() / 2]);
    return 0;
}
