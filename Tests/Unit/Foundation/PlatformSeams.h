/*
 * What the tests make of the platform beneath the code that they test. Every seam goes through to the real call until
 * a test says otherwise: a result other than 0 is returned instead of making the call.
 */
#ifndef PLATFORM_SEAMS_H
#define PLATFORM_SEAMS_H

#include <atomic>
#include <cstdint>
#include <ctime>
#include <functional>
#include <memory>
#include <string>

#include "CMAllocator.h"

extern "C" {
#include <pci/pci.h>
}

struct SPlatformSeams
{
    std::atomic<int> iBroadcasts = 0;
    std::atomic<int> iInWait = 0; // threads inside a condition wait; counted while they hold the mutex
    int iCondWait = 0, iCondTimedWait = 0, iCondSignal = 0, iCondBroadcast = 0, iMutexTimedLock = 0;
    bool bIsInitFailing = false;
    int iReleases = 0; // of the library
    clockid_t iClock = CLOCK_REALTIME;
    std::function<int(timespec&)> pfnClock;                       // instead of this clock
    timespec oDeadLine = {};                                      // of the last timed wait
    int64_t iSleptUs = -1;                                        // asked of usleep, which returns at once
    std::string szDevMem;                                         // file in the place of /dev/mem
    uint64_t uiMapOffset = 0, uiMapLength = 0, uiUnmapLength = 0; // of the last mapping, and of the last end of one
    std::function<void(pci_access&)> pfnPciAlloc;                 // changes a new access object
    void* pvByte = nullptr;                                       // what new gives for a block of one byte
};
extern SPlatformSeams g_oSeams;

// Sets all back when a test ends.
struct SSeamsReset
{
    ~SSeamsReset()
    {
        std::destroy_at(&g_oSeams);
        std::construct_at(&g_oSeams);
    }
};

// All blocks come from it while it lives.
struct SCountingAllocator final : CMAllocator
{
    SCountingAllocator() { SetGlobalAllocator(this); }
    ~SCountingAllocator() override { SetGlobalAllocator(nullptr); }
    void* Alloc(uint64_t uiSize) override { return CMAllocator::Alloc((++iLive, uiLastSize = uiSize)); }
    void Free(const void* pvBlock) override { CMAllocator::Free((--iLive, pvBlock)); }
    int iLive = 0;
    uint64_t uiLastSize = 0;
};

/* The clock stands still at this moment. */
void StopClock(int64_t iSeconds, int64_t iNanoSeconds);

#endif
