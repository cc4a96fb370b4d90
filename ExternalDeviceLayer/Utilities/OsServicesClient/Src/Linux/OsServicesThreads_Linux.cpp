// Threads, spin locks and recursive mutexes, each a pthread object in the caller's memory.
#include "OsServicesClient.h"

#include <cerrno>
#include <pthread.h>

#include "DeadLine.h"

struct SCpuThreadHandle
{
    pthread_t oThread;
};

struct SSpinLockHandle
{
    pthread_spinlock_t oLock;
};

struct SMutexHandle
{
    pthread_mutex_t oMutex;
};

#if defined(__x86_64__) && defined(__LP64__)
static_assert(sizeof(SCpuThreadHandle) == 8);
static_assert(sizeof(SSpinLockHandle) == 4);
static_assert(sizeof(SMutexHandle) == 40);
#endif
static_assert(alignof(SMutexHandle) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__, "handle memory is aligned as new aligns it");

namespace
{

using PfnPosixThreadFunction = void* (*)(void*);

// Kept out of the endless wait, which so stays small enough to disappear into a scoped guard.
[[gnu::noinline]] Bool32 AcquireUntil(pthread_mutex_t& roMutex, uint32_t uiTimeOutMs)
{
    const timespec oDeadLine = DeadLine_FromTimeOut(uiTimeOutMs);
    const int iResult = pthread_mutex_timedlock(&roMutex, &oDeadLine);
    if (iResult == EINVAL)
    {
        DeadLine_ReportInvalid("pthread_mutex_timedlock", oDeadLine);
    }
    return iResult == 0 ? 1 : 0;
}

} // namespace

uint64_t OsServices_GetCurrentThreadId()
{
    return pthread_self();
}

Bool32 OsServices_IsThreadIdEqual(uint64_t uiThreadIdA, uint64_t uiThreadIdB)
{
    return uiThreadIdA == uiThreadIdB ? 1 : 0;
}

uint32_t OsServices_CpuThread_GetHandleSize()
{
    return sizeof(SCpuThreadHandle);
}

Bool32 OsServices_CpuThread_Create(PfnCpuThreadFunction pfnFunction, void* pvUserData, HCpuThread hCpuThread)
{
    if (hCpuThread == nullptr || pfnFunction == nullptr)
    {
        return 0;
    }
    hCpuThread->oThread = 0;
    // Called as the start routine that it nearly is: the narrower result lies in the same register, and nobody reads
    // the exit value. Over a plain function pointer, for the compiler rightly doubts the direct way.
    const auto pfnStart = reinterpret_cast<PfnPosixThreadFunction>(reinterpret_cast<void (*)()>(pfnFunction));
    return pthread_create(&hCpuThread->oThread, nullptr, pfnStart, pvUserData) == 0 ? 1 : 0;
}

Bool32 OsServices_CpuThread_Join(HCpuThread hCpuThread)
{
    return hCpuThread != nullptr && pthread_join(hCpuThread->oThread, nullptr) == 0 ? 1 : 0;
}

Bool32 OsServices_CpuThread_Destroy(HCpuThread)
{
    return 1;
}

uint32_t OsServices_SpinLock_GetHandleSize()
{
    return sizeof(SSpinLockHandle);
}

Bool32 OsServices_SpinLock_Create(HSpinLock hSpinLock, uint8_t)
{
    return hSpinLock != nullptr && pthread_spin_init(&hSpinLock->oLock, PTHREAD_PROCESS_PRIVATE) == 0 ? 1 : 0;
}

Bool32 OsServices_SpinLock_Destroy(HSpinLock hSpinLock)
{
    return hSpinLock != nullptr && pthread_spin_destroy(&hSpinLock->oLock) == 0 ? 1 : 0;
}

Bool32 OsServices_SpinLock_Lock(HSpinLock hSpinLock, Bool32)
{
    return hSpinLock != nullptr && pthread_spin_lock(&hSpinLock->oLock) == 0 ? 1 : 0;
}

Bool32 OsServices_SpinLock_Unlock(HSpinLock hSpinLock)
{
    return hSpinLock != nullptr && pthread_spin_unlock(&hSpinLock->oLock) == 0 ? 1 : 0;
}

uint32_t OsServices_Mutex_GetHandleSize()
{
    return sizeof(SMutexHandle);
}

Bool32 OsServices_Mutex_Create(HMutex hMutex)
{
    if (hMutex == nullptr)
    {
        return 0;
    }
    hMutex->oMutex = {};
    // The attributes are not destroyed: they hold nothing on this platform.
    pthread_mutexattr_t oAttributes;
    if (pthread_mutexattr_init(&oAttributes) != 0 ||
        pthread_mutexattr_settype(&oAttributes, PTHREAD_MUTEX_RECURSIVE) != 0)
    {
        return 0;
    }
    return pthread_mutex_init(&hMutex->oMutex, &oAttributes) == 0 ? 1 : 0;
}

Bool32 OsServices_Mutex_Destroy(HMutex hMutex)
{
    return hMutex != nullptr && pthread_mutex_destroy(&hMutex->oMutex) == 0 ? 1 : 0;
}

Bool32 OsServices_Mutex_Acquire(HMutex hMutex, uint32_t uiTimeOutMs)
{
    if (hMutex == nullptr)
    {
        return 0;
    }
    if (uiTimeOutMs != OsServices_INFINITE)
    {
        return AcquireUntil(hMutex->oMutex, uiTimeOutMs);
    }
    return pthread_mutex_lock(&hMutex->oMutex) == 0 ? 1 : 0;
}

Bool32 OsServices_Mutex_Release(HMutex hMutex)
{
    return hMutex != nullptr && pthread_mutex_unlock(&hMutex->oMutex) == 0 ? 1 : 0;
}
