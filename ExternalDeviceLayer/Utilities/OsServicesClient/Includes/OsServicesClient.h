/*
 * The operating system as flat functions over opaque handles; the only layer that calls the thread library.
 * A handle points to memory of the caller, of the size that its *_GetHandleSize reports and aligned as new aligns it;
 * this layer allocates none. Any thread may call any function unless it says otherwise.
 * Results are 1 (success) or 0 (failure) unless they are a VtStatus. A null handle is answered with the failure value.
 * Time-outs are in milliseconds; OsServices_INFINITE waits for ever. They are measured by the wall clock
 * (CLOCK_REALTIME), so a jump of that clock lengthens or shortens them.
 */
#ifndef OS_SERVICES_CLIENT_H
#define OS_SERVICES_CLIENT_H

#include <cstdarg>

#include "KrvTypes.h"
#include "VtTypes.h"

// Distinct types, so that handles cannot be mixed up.
using HCpuThread = struct SCpuThreadHandle*;
using HSpinLock = struct SSpinLockHandle*;
using HMutex = struct SMutexHandle*;
using HEvent = struct SEventHandle*;
using HSignal = struct SSignalHandle*;
using HStackTrace = struct SStackTraceHandle*;
using HNonPagedMem = struct SNonPagedMemHandle*;

// Body of a thread; the result is never read.
using PfnCpuThreadFunction = uint32_t (*)(void* pvUserData);

// The time-out that never ends.
inline constexpr uint32_t OsServices_INFINITE = 0xFFFFFFFFu;

// ---- the layer below
Bool32 OsServices_Initialize();
Bool32 OsServices_Cleanup();

// ---- time
Bool32 OsServices_WaitMicroSeconds(uint32_t uiWaitUs);   // busy wait of any length; always 1
Bool32 OsServices_SleepMilliSeconds(uint32_t uiSleepMs); // blocks; wraps above 4294967 ms
uint64_t OsServices_GetRawTimeInNs();                    // wall clock since the epoch; 0 if it cannot be read

// ---- threads
uint64_t OsServices_GetCurrentThreadId();
Bool32 OsServices_IsThreadIdEqual(uint64_t uiThreadIdA, uint64_t uiThreadIdB);
uint32_t OsServices_CpuThread_GetHandleSize();
Bool32 OsServices_CpuThread_Create(PfnCpuThreadFunction pfnFunction, void* pvUserData, HCpuThread hCpuThread);
Bool32 OsServices_CpuThread_Join(HCpuThread hCpuThread);    // blocks until the thread has ended
Bool32 OsServices_CpuThread_Destroy(HCpuThread hCpuThread); // always 1; the thread must have been joined

// ---- spin locks, private to the process
uint32_t OsServices_SpinLock_GetHandleSize();
Bool32 OsServices_SpinLock_Create(HSpinLock hSpinLock, uint8_t uiIrqlLevel); // the level has no meaning here
Bool32 OsServices_SpinLock_Destroy(HSpinLock hSpinLock);
Bool32 OsServices_SpinLock_Lock(HSpinLock hSpinLock, Bool32 bDisableLocalInt); // the flag has no meaning here
Bool32 OsServices_SpinLock_Unlock(HSpinLock hSpinLock);

// ---- recursive mutexes
uint32_t OsServices_Mutex_GetHandleSize();
Bool32 OsServices_Mutex_Create(HMutex hMutex);
Bool32 OsServices_Mutex_Destroy(HMutex hMutex);
/* Blocks for the time-out; 0 is one try. 1 if the mutex is now held, once more if this thread held it already. */
Bool32 OsServices_Mutex_Acquire(HMutex hMutex, uint32_t uiTimeOutMs);
Bool32 OsServices_Mutex_Release(HMutex hMutex);

// ---- events: one trigger wakes one waiter, and is remembered if there is none
uint32_t OsServices_Event_GetHandleSize();
Bool32 OsServices_Event_Create(HEvent hEvent);
/* Cancels first. The caller sees to it that the waiters have left before it frees the memory. */
Bool32 OsServices_Event_Destroy(HEvent hEvent);
/*
 * Blocks for the time-out. VtStatus_OK: triggered (or woken for no reason); VtStatus_TIMEOUT; VtStatus_CANCELED: the
 * event is or was just cancelled; VtStatus_FAIL: null handle or failed wait. Every wait uses up the trigger.
 */
VtStatus OsServices_Event_Wait(HEvent hEvent, uint32_t uiTimeOutMs);
Bool32 OsServices_Event_Trigger(HEvent hEvent); // 0 while cancelled
Bool32 OsServices_Event_Reset(HEvent hEvent);   // forgets a trigger
Bool32 OsServices_Event_Cancel(HEvent hEvent);  // wakes every waiter; 0 if already cancelled
Bool32 OsServices_Event_Activate(HEvent hEvent);

// ---- signals: one trigger wakes all who wait now, and is lost if nobody does
uint32_t OsServices_Signal_GetHandleSize();
Bool32 OsServices_Signal_Create(HSignal hSignal);
/* As OsServices_Event_Destroy. */
Bool32 OsServices_Signal_Destroy(HSignal hSignal);
/* Statuses as OsServices_Event_Wait. The event count is not used. */
VtStatus OsServices_Signal_Wait(HSignal hSignal, uint32_t uiTimeOutMs, uint64_t uiEventCount);
Bool32 OsServices_Signal_Trigger(HSignal hSignal);
Bool32 OsServices_Signal_Cancel(HSignal hSignal);
Bool32 OsServices_Signal_Activate(HSignal hSignal);

// ---- text output, unchanged and without a line end of its own: standard output, the kernel's log
[[gnu::format(printf, 1, 0)]] void OsServices_WriteMsg(const char* pszFormat, va_list oArguments);
[[gnu::format(printf, 1, 0)]] void OsServices_WriteKernelMsg(const char* pszFormat, va_list oArguments);

/*
 * Writes the command lines of this process and of its ancestors, one per line, into the buffer of uiBufferSize
 * characters. Always answers VtStatus_INVALID_PARAM, success included.
 */
VtStatus OsServices_GetProcessStack(char* pszProcessStack, uint32_t uiBufferSize);

// ---- memory
void* OsServices_PagedMemory_Alloc(uint64_t uiSize); // null if there is none
void OsServices_PagedMemory_Free(void* pvMemory);
/* There is no such memory in user mode: null, the handle stays untouched, and no physical address. */
void* OsServices_NonPagedMemory_Alloc(uint64_t uiSize, HNonPagedMem* phNonPagedMem);
uint64_t OsServices_NonPagedMemory_GetPhysicalAddress(HNonPagedMem hNonPagedMem);
/* Source first, destination second: the reverse of memcpy. Always 1. */
Bool32 OsServices_CopyFromUser(const void* pvSource, void* pvDest, uint32_t uiCount);
Bool32 OsServices_CopyToUser(const void* pvSource, void* pvDest, uint32_t uiCount);
/* Physical memory; one thread at a time. Null on failure. */
void* OsServices_IoMap(uint64_t uiPhysicalAddress, uint32_t uiSize, Bool32 bIsCacheable);
void OsServices_IoUnMap(void* pvMemory, uint32_t uiSize); // the size is not needed

// ---- call stacks: nothing is recorded on this platform
uint32_t OsServices_StackTrace_GetHandleSize();
Bool32 OsServices_StackTrace_Create(HStackTrace hStackTrace);
Bool32 OsServices_StackTrace_Destroy(HStackTrace hStackTrace);
Bool32 OsServices_StackTrace_Save(HStackTrace hStackTrace);
void OsServices_StackTrace_Print(HStackTrace hStackTrace);
void OsServices_StackTrace_Dump();

#endif
