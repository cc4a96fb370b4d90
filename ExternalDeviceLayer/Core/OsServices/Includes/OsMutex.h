/*
 * A recursive mutex as an object, and its scoped lock. Any thread may use them; acquiring blocks.
 */
#ifndef OS_MUTEX_H
#define OS_MUTEX_H

#include "OsServices.h"

class OsMutex
{
public:
    /* roOsServices must outlive the mutex. */
    explicit OsMutex(OsServices& roOsServices);
    ~OsMutex();
    OsMutex(const OsMutex&) = delete;
    OsMutex& operator=(const OsMutex&) = delete;

    /* 1 if the mutex is now held; the time-out is in milliseconds, OsServices_INFINITE for ever. */
    Bool32 Acquire(uint32_t uiTimeOutMs) { return m_roOsServices.Mutex_Acquire(m_hMutex, uiTimeOutMs); }
    Bool32 Release() { return m_roOsServices.Mutex_Release(m_hMutex); }

private:
    OsServices& m_roOsServices;
    HMutex m_hMutex = nullptr;
};

// Holds the mutex from construction, if that got it within the time-out in milliseconds, until its own end.
class OsMutexGuard
{
public:
    OsMutexGuard(OsMutex& roMutex, uint32_t uiTimeOutMs) : m_roMutex(roMutex), m_bIsLock(roMutex.Acquire(uiTimeOutMs))
    {
    }
    ~OsMutexGuard()
    {
        if (m_bIsLock)
        {
            m_roMutex.Release();
        }
    }
    OsMutexGuard(const OsMutexGuard&) = delete;
    OsMutexGuard& operator=(const OsMutexGuard&) = delete;

    /* 1 if the mutex is held. */
    Bool32 IsLock() const { return m_bIsLock; }

private:
    OsMutex& m_roMutex;
    Bool32 m_bIsLock;
};

#endif
