// Events and signals: a mutex, a condition and flags under that mutex, in the caller's memory.
// A wait is a single wait on the condition: a wake-up is taken as it comes, without a second look at the flags.
#include "OsServicesClient.h"

#include <cerrno>
#include <cstddef>
#include <pthread.h>

#include "DeadLine.h"

struct SEventHandle
{
    pthread_mutex_t oMutex;
    pthread_cond_t oCond;
    Bool32 bIsSignaled;
    volatile Bool32 bIsActive;
};

struct SSignalHandle
{
    pthread_mutex_t oMutex;
    pthread_cond_t oCond;
    volatile Bool32 bIsActive;
};

#if defined(__x86_64__) && defined(__LP64__)
static_assert(sizeof(SEventHandle) == 96 && offsetof(SEventHandle, oCond) == 40);
static_assert(offsetof(SEventHandle, bIsSignaled) == 88 && offsetof(SEventHandle, bIsActive) == 92);
static_assert(sizeof(SSignalHandle) == 96 && offsetof(SSignalHandle, bIsActive) == 88);
#endif
static_assert(alignof(SEventHandle) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__ &&
                  alignof(SSignalHandle) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__,
              "handle memory is aligned as new aligns it");

namespace
{

class CScopedLock
{
public:
    explicit CScopedLock(pthread_mutex_t& roMutex) : m_roMutex(roMutex) { pthread_mutex_lock(&m_roMutex); }
    ~CScopedLock() { pthread_mutex_unlock(&m_roMutex); }
    CScopedLock(const CScopedLock&) = delete;
    CScopedLock& operator=(const CScopedLock&) = delete;

private:
    pthread_mutex_t& m_roMutex;
};

VtStatus WaitUntil(pthread_cond_t& roCond, pthread_mutex_t& roMutex, uint32_t uiTimeOutMs)
{
    const timespec oDeadLine = DeadLine_FromTimeOut(uiTimeOutMs);
    switch (pthread_cond_timedwait(&roCond, &roMutex, &oDeadLine))
    {
    case 0:
        return VtStatus_OK;
    case ETIMEDOUT:
        return VtStatus_TIMEOUT;
    case EINVAL:
        DeadLine_ReportInvalid("pthread_cond_timedwait", oDeadLine);
        return VtStatus_TIMEOUT; // a refused deadline counts as passed
    default:
        return VtStatus_FAIL;
    }
}

VtStatus WaitOnce(pthread_cond_t& roCond, pthread_mutex_t& roMutex, uint32_t uiTimeOutMs)
{
    if (uiTimeOutMs != OsServices_INFINITE)
    {
        return WaitUntil(roCond, roMutex, uiTimeOutMs);
    }
    // An endless wait that fails counts as cancelled.
    return pthread_cond_wait(&roCond, &roMutex) == 0 ? VtStatus_OK : VtStatus_CANCELED;
}

Bool32 CreateLockAndCondition(pthread_mutex_t& roMutex, pthread_cond_t& roCond)
{
    if (pthread_mutex_init(&roMutex, nullptr) != 0)
    {
        return 0;
    }
    if (pthread_cond_init(&roCond, nullptr) != 0)
    {
        pthread_mutex_destroy(&roMutex);
        return 0;
    }
    return 1;
}

} // namespace

uint32_t OsServices_Event_GetHandleSize()
{
    return sizeof(SEventHandle);
}

Bool32 OsServices_Event_Create(HEvent hEvent)
{
    if (hEvent == nullptr)
    {
        return 0;
    }
    hEvent->bIsSignaled = 0;
    if (!CreateLockAndCondition(hEvent->oMutex, hEvent->oCond))
    {
        return 0;
    }
    hEvent->bIsActive = 1;
    return 1;
}

Bool32 OsServices_Event_Destroy(HEvent hEvent)
{
    if (hEvent == nullptr)
    {
        return 0;
    }
    OsServices_Event_Cancel(hEvent);
    pthread_cond_destroy(&hEvent->oCond);
    pthread_mutex_destroy(&hEvent->oMutex);
    return 1;
}

VtStatus OsServices_Event_Wait(HEvent hEvent, uint32_t uiTimeOutMs)
{
    if (hEvent == nullptr)
    {
        return VtStatus_FAIL;
    }
    const CScopedLock oLock(hEvent->oMutex);
    VtStatus eStatus = VtStatus_FAIL;
    if (hEvent->bIsActive)
    {
        eStatus = hEvent->bIsSignaled ? VtStatus_OK : WaitOnce(hEvent->oCond, hEvent->oMutex, uiTimeOutMs);
    }
    hEvent->bIsSignaled = 0; // every wait uses the trigger up, whatever it returns
    return hEvent->bIsActive ? eStatus : VtStatus_CANCELED;
}

Bool32 OsServices_Event_Trigger(HEvent hEvent)
{
    if (hEvent == nullptr)
    {
        return 0;
    }
    const CScopedLock oLock(hEvent->oMutex);
    if (!hEvent->bIsActive)
    {
        return 0;
    }
    hEvent->bIsSignaled = pthread_cond_signal(&hEvent->oCond) == 0 ? 1 : 0;
    return hEvent->bIsSignaled;
}

Bool32 OsServices_Event_Reset(HEvent hEvent)
{
    if (hEvent == nullptr)
    {
        return 0;
    }
    const CScopedLock oLock(hEvent->oMutex);
    hEvent->bIsSignaled = 0;
    return 1;
}

Bool32 OsServices_Event_Cancel(HEvent hEvent)
{
    if (hEvent == nullptr)
    {
        return 0;
    }
    const CScopedLock oLock(hEvent->oMutex);
    if (!hEvent->bIsActive)
    {
        return 0;
    }
    hEvent->bIsActive = 0; // also if the broadcast fails
    hEvent->bIsSignaled = pthread_cond_broadcast(&hEvent->oCond) == 0 ? 1 : 0;
    return hEvent->bIsSignaled;
}

Bool32 OsServices_Event_Activate(HEvent hEvent)
{
    if (hEvent == nullptr)
    {
        return 0;
    }
    const CScopedLock oLock(hEvent->oMutex);
    hEvent->bIsActive = 1;
    return 1;
}

uint32_t OsServices_Signal_GetHandleSize()
{
    return sizeof(SSignalHandle);
}

Bool32 OsServices_Signal_Create(HSignal hSignal)
{
    if (hSignal == nullptr || !CreateLockAndCondition(hSignal->oMutex, hSignal->oCond))
    {
        return 0;
    }
    hSignal->bIsActive = 1;
    return 1;
}

Bool32 OsServices_Signal_Destroy(HSignal hSignal)
{
    if (hSignal == nullptr)
    {
        return 0;
    }
    OsServices_Signal_Cancel(hSignal);
    pthread_cond_destroy(&hSignal->oCond);
    pthread_mutex_destroy(&hSignal->oMutex);
    return 1;
}

VtStatus OsServices_Signal_Wait(HSignal hSignal, uint32_t uiTimeOutMs, uint64_t)
{
    if (hSignal == nullptr)
    {
        return VtStatus_FAIL;
    }
    const CScopedLock oLock(hSignal->oMutex);
    VtStatus eStatus = VtStatus_FAIL;
    if (hSignal->bIsActive)
    {
        eStatus = WaitOnce(hSignal->oCond, hSignal->oMutex, uiTimeOutMs);
    }
    return hSignal->bIsActive ? eStatus : VtStatus_CANCELED;
}

Bool32 OsServices_Signal_Trigger(HSignal hSignal)
{
    if (hSignal == nullptr)
    {
        return 0;
    }
    const CScopedLock oLock(hSignal->oMutex);
    return hSignal->bIsActive && pthread_cond_broadcast(&hSignal->oCond) == 0 ? 1 : 0;
}

Bool32 OsServices_Signal_Cancel(HSignal hSignal)
{
    if (hSignal == nullptr)
    {
        return 0;
    }
    const CScopedLock oLock(hSignal->oMutex);
    if (!hSignal->bIsActive)
    {
        return 0;
    }
    hSignal->bIsActive = 0;
    return pthread_cond_broadcast(&hSignal->oCond) == 0 ? 1 : 0;
}

Bool32 OsServices_Signal_Activate(HSignal hSignal)
{
    if (hSignal == nullptr)
    {
        return 0;
    }
    const CScopedLock oLock(hSignal->oMutex);
    hSignal->bIsActive = 1;
    return 1;
}
