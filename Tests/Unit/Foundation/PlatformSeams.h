// What the tests make of the platform beneath the code that they test. A result of 0 means: make the real call.
#ifndef PLATFORM_SEAMS_H
#define PLATFORM_SEAMS_H

#include <atomic>
#include <cstdint>
#include <ctime>
#include <functional>
#include <string>

extern "C" {
#include <pci/pci.h>
}

struct SPlatformSeams
{
    std::atomic<int> iInWait = 0; // threads inside a condition wait; counted while they hold the mutex
    int iCondWaitResult = 0;      // results of the calls, without making them
    int iCondTimedWaitResult = 0;
    int iCondSignalResult = 0;
    int iCondBroadcastResult = 0;
    int iMutexInitResult = 0;
    int iMutexTimedLockResult = 0;
    bool bIsInitFailing = false;
    std::function<int(timespec&)> pfnClock; // instead of the clocks
    timespec oDeadLine = {};                // of the last timed wait
    int64_t iSleptUs = -1;                  // asked of usleep, which then returns at once
    bool bIsSleeping = true;                // false: as above
    std::string szDevMem;                   // file in the place of /dev/mem; "-" cannot be opened
    uint64_t uiMapOffset = 0;               // of the last mapping
    uint64_t uiMapLength = 0;
    uint64_t uiUnmapLength = 0;
    std::function<void(pci_access&)> pfnPciAlloc; // changes a new access object
};
extern SPlatformSeams g_oSeams;

// Sets all back when a test ends.
class CSeamsReset
{
public:
    CSeamsReset() = default;
    ~CSeamsReset();
    CSeamsReset(const CSeamsReset&) = delete;
    CSeamsReset& operator=(const CSeamsReset&) = delete;
};

// Returns when the counter has this value.
void AwaitValue(const std::atomic<int>& roCounter, int iValue);

#endif
