#include "PlatformSeams.h"

#include "KrvVxd.h"

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

SPlatformSeams g_oSeams;

CSeamsReset::~CSeamsReset()
{
    std::destroy_at(&g_oSeams);
    std::construct_at(&g_oSeams);
}

void AwaitValue(const std::atomic<int>& roCounter, int iValue)
{
    for (int iNow = roCounter; iNow != iValue; iNow = roCounter)
    {
        roCounter.wait(iNow);
    }
}

namespace
{

template <class CALL> int InWait(CALL fnCall)
{
    ++g_oSeams.iInWait;
    g_oSeams.iInWait.notify_all();
    const int iResult = fnCall();
    --g_oSeams.iInWait;
    g_oSeams.iInWait.notify_all();
    return iResult;
}

} // namespace

extern "C" {
#define SEAM(type, name, ...)                                                                                          \
    type __real_##name(__VA_ARGS__);                                                                                   \
    type __wrap_##name(__VA_ARGS__);                                                                                   \
    type __wrap_##name(__VA_ARGS__)

SEAM(int, pthread_cond_wait, pthread_cond_t* poCond, pthread_mutex_t* poMutex)
{
    return g_oSeams.iCondWaitResult != 0 ? g_oSeams.iCondWaitResult
                                         : InWait([=] { return __real_pthread_cond_wait(poCond, poMutex); });
}
SEAM(int, pthread_cond_timedwait, pthread_cond_t* poCond, pthread_mutex_t* poMutex, const timespec* poUntil)
{
    g_oSeams.oDeadLine = *poUntil;
    return g_oSeams.iCondTimedWaitResult != 0
               ? g_oSeams.iCondTimedWaitResult
               : InWait([=] { return __real_pthread_cond_timedwait(poCond, poMutex, poUntil); });
}
SEAM(int, pthread_cond_signal, pthread_cond_t* poCond)
{
    return g_oSeams.iCondSignalResult != 0 ? g_oSeams.iCondSignalResult : __real_pthread_cond_signal(poCond);
}
SEAM(int, pthread_cond_broadcast, pthread_cond_t* poCond)
{
    return g_oSeams.iCondBroadcastResult != 0 ? g_oSeams.iCondBroadcastResult : __real_pthread_cond_broadcast(poCond);
}
SEAM(int, pthread_mutex_init, pthread_mutex_t* poMutex, const pthread_mutexattr_t* poAttributes)
{
    return g_oSeams.iMutexInitResult != 0 ? g_oSeams.iMutexInitResult
                                          : __real_pthread_mutex_init(poMutex, poAttributes);
}
SEAM(int, pthread_mutex_timedlock, pthread_mutex_t* poMutex, const timespec* poUntil)
{
    g_oSeams.oDeadLine = *poUntil;
    return g_oSeams.iMutexTimedLockResult != 0 ? g_oSeams.iMutexTimedLockResult
                                               : __real_pthread_mutex_timedlock(poMutex, poUntil);
}
SEAM(int, clock_gettime, clockid_t iClock, timespec* poNow)
{
    return g_oSeams.pfnClock ? g_oSeams.pfnClock(*poNow) : __real_clock_gettime(iClock, poNow);
}
SEAM(int, usleep, useconds_t uiSleepUs)
{
    g_oSeams.iSleptUs = uiSleepUs;
    return g_oSeams.bIsSleeping ? __real_usleep(uiSleepUs) : 0;
}
int __real_open(const char* pszPath, int iFlags, ...);
int __wrap_open(const char* pszPath, int iFlags, ...);
int __wrap_open(const char* pszPath, int iFlags, ...)
{
    va_list oArguments;
    va_start(oArguments, iFlags);
    const auto uiMode = (iFlags & O_CREAT) != 0 ? va_arg(oArguments, mode_t) : 0;
    va_end(oArguments);
    const bool bIsReplaced = !g_oSeams.szDevMem.empty() && std::strcmp(pszPath, "/dev/mem") == 0;
    return __real_open(bIsReplaced ? g_oSeams.szDevMem.c_str() : pszPath, iFlags, uiMode);
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
SEAM(Bool32, _Z14InitKRVLibraryv, void)
{
    return g_oSeams.bIsInitFailing ? 0 : __real__Z14InitKRVLibraryv();
}
#undef SEAM
}
