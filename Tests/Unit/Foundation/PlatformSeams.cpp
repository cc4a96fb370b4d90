#include "PlatformSeams.h"

#include <cstring>
#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include "KrvVxd.h"

SPlatformSeams g_oSeams;

void StopClock(int64_t iSeconds, int64_t iNanoSeconds)
{
    g_oSeams.pfnClock = [=](timespec& roNow) { return (roNow = {iSeconds, iNanoSeconds}, 0); };
}

// The linker sends calls of a name to __wrap_ and gives the thing itself the name __real_.
#define SEAM(type, name, ...)                                                                                          \
    type __real_##name(__VA_ARGS__);                                                                                   \
    type __wrap_##name(__VA_ARGS__);                                                                                   \
    type __wrap_##name(__VA_ARGS__)

// One that comes down to a result.
#define SEAM_RESULT(result, name, ...)                                                                                 \
    SEAM(int, name, __VA_ARGS__)                                                                                       \
    {                                                                                                                  \
        return result;                                                                                                 \
    }
#define RESULT_OR(result, real) (g_oSeams.result != 0 ? g_oSeams.result : real)

extern "C" {
SEAM(int, pthread_cond_wait, pthread_cond_t* poCond, pthread_mutex_t* poMutex)
{
    ++g_oSeams.iInWait;
    g_oSeams.iInWait.notify_all();
    const int iResult = RESULT_OR(iCondWait, __real_pthread_cond_wait(poCond, poMutex));
    --g_oSeams.iInWait;
    g_oSeams.iInWait.notify_all();
    return iResult;
}
SEAM(int, pthread_cond_timedwait, pthread_cond_t* poCond, pthread_mutex_t* poMutex, const timespec* poUntil)
{
    g_oSeams.oDeadLine = *poUntil;
    return RESULT_OR(iCondTimedWait, __real_pthread_cond_timedwait(poCond, poMutex, poUntil));
}
SEAM_RESULT(RESULT_OR(iCondSignal, __real_pthread_cond_signal(poCond)), pthread_cond_signal, pthread_cond_t* poCond)
SEAM_RESULT((++g_oSeams.iBroadcasts, RESULT_OR(iCondBroadcast, __real_pthread_cond_broadcast(poCond))),
            pthread_cond_broadcast, pthread_cond_t* poCond)
SEAM_RESULT(RESULT_OR(iMutexTimedLock, __real_pthread_mutex_timedlock(poMutex, poUntil)), pthread_mutex_timedlock,
            pthread_mutex_t* poMutex, const timespec* poUntil)
SEAM_RESULT(g_oSeams.pfnClock&& iClock == g_oSeams.iClock ? g_oSeams.pfnClock(*poNow)
                                                          : __real_clock_gettime(iClock, poNow),
            clock_gettime, clockid_t iClock, timespec* poNow)
SEAM_RESULT((g_oSeams.iSleptUs = uiSleepUs, 0), usleep, useconds_t uiSleepUs)
SEAM(int, open, const char* szPath, int iFlags, mode_t uiMode)
{
    const bool bIsReplaced = !g_oSeams.szDevMem.empty() && std::strcmp(szPath, "/dev/mem") == 0;
    return __real_open(bIsReplaced ? g_oSeams.szDevMem.c_str() : szPath, iFlags, uiMode);
}
SEAM(void*, mmap, void* pvWish, size_t uiLength, int iProtection, int iFlags, int iFile, off_t iOffset)
{
    g_oSeams.uiMapOffset = static_cast<uint64_t>(iOffset);
    g_oSeams.uiMapLength = uiLength;
    return __real_mmap(pvWish, uiLength, iProtection, iFlags, iFile, iOffset);
}
SEAM(int, munmap, void* pvBase, size_t uiLength)
{
    g_oSeams.uiUnmapLength = uiLength;
    return __real_munmap(pvBase, uiLength);
}
SEAM(pci_access*, pci_alloc, void)
{
    pci_access* const poAccess = __real_pci_alloc();
    if (g_oSeams.pfnPciAlloc)
    {
        g_oSeams.pfnPciAlloc(*poAccess);
    }
    return poAccess;
}
SEAM(void*, _Znwm, size_t uiSize)
{
    return uiSize == 1 && g_oSeams.pvByte != nullptr ? g_oSeams.pvByte : __real__Znwm(uiSize);
}
SEAM(void, _ZdlPvm, void* pvBlock, size_t uiSize)
{
    if (pvBlock != g_oSeams.pvByte || pvBlock == nullptr)
    {
        __real__ZdlPvm(pvBlock, uiSize);
    }
}
SEAM(Bool32, _Z17ReleaseKRVLibraryv, void)
{
    ++g_oSeams.iReleases;
    return __real__Z17ReleaseKRVLibraryv();
}
SEAM(Bool32, _Z14InitKRVLibraryv, void)
{
    return g_oSeams.bIsInitFailing ? 0 : __real__Z14InitKRVLibraryv();
}
}
