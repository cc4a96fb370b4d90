/*
 * The object through which everything above reaches the operating system: handles with their memory, time, memory,
 * and messages in one line format. Any thread may use it; the message settings and the instance counter are unguarded
 * and belong to start-up. Time-outs are in milliseconds of the wall clock, OsServices_INFINITE waits for ever.
 * Results are 1 (success) or 0 (failure) unless they are a VtStatus; see OsServicesClient.h for what each means.
 *
 * What the operating system does is asked of an object, whether its provider or interrupt level matter to it or not;
 * static is only what must be there without one: messages, their settings, and the test mode that precedes the first.
 */
#ifndef OS_SERVICES_H
#define OS_SERVICES_H

#include "OsServicesClient.h"

class OsServices
{
public:
    /*
     * The first live instance starts the layer below, the last one stops it. pvProvider: an IOsServices that outlives
     * the object, or null; it is passed untyped and must point to exactly that interface.
     */
    explicit OsServices(void* pvProvider = nullptr);
    virtual ~OsServices();
    OsServices(const OsServices&) = delete;
    OsServices& operator=(const OsServices&) = delete;

    /* 1 if the layer below was started for this instance. */
    Bool32 IsInitialized() const { return m_bInitialized; }

    /*
     * Creating allocates the handle's memory (out: the handle, null on failure), destroying frees it. A destroy that
     * fails leaks it, because the object may still be in use.
     */
    Bool32 CpuThread_Create(PfnCpuThreadFunction pfnFunction, void* pvUserData, HCpuThread& rhCpuThread) const;
    Bool32 CpuThread_Join(const HCpuThread& rhCpuThread) const;
    Bool32 CpuThread_Destroy(HCpuThread hCpuThread) const;

    Bool32 SpinLock_Create(HSpinLock& rhSpinLock) const;
    Bool32 SpinLock_Destroy(HSpinLock hSpinLock) const;
    Bool32 SpinLock_Lock(HSpinLock hSpinLock) const;
    Bool32 SpinLock_Unlock(HSpinLock hSpinLock) const;

    Bool32 Mutex_Create(HMutex& rhMutex) const;
    Bool32 Mutex_Destroy(HMutex hMutex) const;
    /* In the header, for a lock costs little more than a call. */
    Bool32 Mutex_Acquire(HMutex hMutex, uint32_t uiTimeOutMs) const
    {
        return OsServices_Mutex_Acquire(hMutex, uiTimeOutMs);
    }
    Bool32 Mutex_Release(HMutex hMutex) const { return OsServices_Mutex_Release(hMutex); }

    Bool32 Event_Create(HEvent& rhEvent) const;
    Bool32 Event_Destroy(HEvent hEvent) const;
    VtStatus Event_Wait(HEvent hEvent, uint32_t uiTimeOutMs) const;
    Bool32 Event_Trigger(HEvent hEvent) const;
    Bool32 Event_Reset(HEvent hEvent) const;
    Bool32 Event_Cancel(HEvent hEvent) const;
    Bool32 Event_Activate(HEvent hEvent) const;

    Bool32 Signal_Create(HSignal& rhSignal) const;
    Bool32 Signal_Destroy(HSignal hSignal) const;
    VtStatus Signal_Wait(HSignal hSignal, uint32_t uiTimeOutMs, uint64_t uiEventCount) const;
    Bool32 Signal_Trigger(HSignal hSignal) const;
    Bool32 Signal_Cancel(HSignal hSignal) const;
    Bool32 Signal_Activate(HSignal hSignal) const;

    Bool32 StackTrace_Create(HStackTrace& rhStackTrace) const;
    Bool32 StackTrace_Destroy(HStackTrace hStackTrace) const;
    Bool32 StackTrace_Save(HStackTrace hStackTrace) const;
    void StackTrace_Print(HStackTrace hStackTrace) const;
    void StackTrace_Dump() const;

    uint64_t GetCurrentThreadId() const;
    Bool32 IsThreadIdEqual(uint64_t uiThreadIdA, uint64_t uiThreadIdB) const;

    uint64_t GetRawTimeInNs() const; // wall clock since the epoch
    uint64_t GetTimeInMs() const;    // the same, in whole milliseconds
    Bool32 SleepMilliSeconds(uint32_t uiSleepMs) const;
    /* Up to 100000 us a busy wait; above, a sleep of whole milliseconds. */
    Bool32 WaitMicroSeconds(uint32_t uiWaitUs) const;

    void* PagedMemory_Alloc(uint64_t uiSize) const;
    void PagedMemory_Free(void* pvMemory) const;
    void* NonPagedMemory_Alloc(uint64_t uiSize, HNonPagedMem* phNonPagedMem) const;
    uint64_t NonPagedMemory_GetPhysicalAddress(HNonPagedMem hNonPagedMem) const;
    void NonPagedMemory_Free(HNonPagedMem hNonPagedMem) const;
    Bool32 CopyFromUser(const void* pvSource, void* pvDest, uint32_t uiCount) const; // source first
    Bool32 CopyToUser(const void* pvSource, void* pvDest, uint32_t uiCount) const;   // source first
    void* IoMap(uint64_t uiPhysicalAddress, uint32_t uiSize, Bool32 bIsCacheable) const;
    void IoUnMap(void* pvMemory, uint32_t uiSize) const;

    /* A cheap mixing generator with one unguarded state; not for security. */
    uint32_t GetRandom() const;
    uint32_t GetRandomNonZero() const;

    /*
     * Debug, info and error messages on standard output, each a prefix and the caller's text, cut to 255 characters;
     * callers bring their own line end. Debug messages are off until SetMsgLevel turns them on. Thread-safe.
     */
    [[gnu::format(printf, 1, 2)]] static void WriteMsg(const char* pszFormat, ...);
    [[gnu::format(printf, 1, 2)]] static void WriteUserMsg(const char* pszFormat, ...);
    [[gnu::format(printf, 1, 2)]] static void WriteErrorMsg(const char* pszFormat, ...);

    static void SetMsgPrefix(const char* szMsgPrefix); // up to 63 characters
    static void SetMsgReferenceId(uint64_t uiReferenceId);
    static void SetMsgLevel(Bool32 bEnableErrorMsg, Bool32 bEnableUserMsg, Bool32 bEnableInfo);
    static void GetMsgLevel(int* piEnableErrorMsg, int* piEnableUserMsg, int* piEnableInfo); // outputs may be null
    static void SetMsgPrefixEnable(Bool32 bIsMessagePrefixEnabled);
    /* In test mode a first instance does not start the layer below. */
    static void SetTestMode(Bool32 bTestMode);

    /* The part of the path behind its last '/' or '\\'; points into the given text. */
    static const char* GetFileNameOnlySubSring(const char* szPath);

private:
    [[gnu::format(printf, 3, 4)]] static int32_t FormatString(char* pszDest, uint32_t uiDestSize, const char* pszFormat,
                                                              ...);
    [[gnu::format(printf, 1, 2)]] static void WriteMsgInternal(const char* pszFormat, ...);
    [[gnu::format(printf, 2, 0)]] static void WriteLine(const char* szKind, const char* pszFormat, va_list oArguments);

    static uint32_t ms_uiInstanceCount;
    static uint32_t ms_uiOldRandomValue;
    static Bool32 ms_bIsMessagePrefixEnabled;
    static VTSTR64 ms_szMsgPrefix;
    static uint64_t ms_uiReferenceId;
    static Bool32 ms_bEnableErrorMsg;
    static Bool32 ms_bEnableUserMsg;
    static Bool32 ms_bEnableInfo;
    static Bool32 ms_bTestMode;
    static constexpr uint32_t msc_uiMajorVer = 4;
    static constexpr uint32_t msc_uiMinorVer = 1;
    static constexpr uint32_t msc_uiPatchVer = 0;
    static constexpr uint32_t msc_uiBuildVer = 146;

    Bool32 m_bInitialized = 0;
    class IOsServices* m_poIOsServices;
    uint8_t m_uiIrql = 0;
};

#endif
