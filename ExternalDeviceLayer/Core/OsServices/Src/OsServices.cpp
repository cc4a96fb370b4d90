#include "OsServices.h"

#include <bit>
#include <new>

#include "AssertReport.h"
#include "IOsServices.h"

constinit uint32_t OsServices::ms_uiInstanceCount = 0;
constinit uint32_t OsServices::ms_uiOldRandomValue = 0;
constinit Bool32 OsServices::ms_bTestMode = 0;

namespace
{

constexpr uint32_t uiLongestBusyWaitUs = 100000;
constexpr uint32_t uiSeedInstead = 0x9E3779B9; // any with a next value other than 0

template <typename HANDLE> void FreeHandle(HANDLE hObject)
{
    delete[] reinterpret_cast<uint8_t*>(hObject);
}

// Handle memory is an array of bytes, which new aligns for any object that fits into it.
template <typename HANDLE, typename CREATE>
Bool32 CreateHandle(HANDLE& rhObject, uint32_t uiHandleSize, CREATE pfnCreate)
{
    rhObject = reinterpret_cast<HANDLE>(new uint8_t[uiHandleSize]);
    const Bool32 bCreated = pfnCreate(rhObject);
    if (!bCreated)
    {
        FreeHandle(rhObject);
        rhObject = nullptr;
    }
    return bCreated;
}

// What cannot be destroyed may still be in use, so its memory is rather leaked.
template <typename HANDLE> Bool32 DestroyHandle(HANDLE hObject, Bool32 (*pfnDestroy)(HANDLE))
{
    const Bool32 bDestroyed = pfnDestroy(hObject);
    if (bDestroyed && hObject != nullptr)
    {
        FreeHandle(hObject);
    }
    return bDestroyed;
}

} // namespace

OsServices::OsServices(void* pvProvider) : m_poIOsServices(static_cast<IOsServices*>(pvProvider))
{
    if (m_poIOsServices != nullptr)
    {
        m_uiIrql = static_cast<uint8_t>(m_poIOsServices->GetIrql());
    }
    if (ms_uiInstanceCount == 0 && !ms_bTestMode && !OsServices_Initialize())
    {
        ReportFailedAssert("OsServices", 85);
        return;
    }
    ++ms_uiInstanceCount;
    m_bInitialized = ms_uiInstanceCount != 0 ? 1 : 0;
}

OsServices::~OsServices()
{
    // Also of an instance that was never counted because its start failed.
    if (ms_uiInstanceCount-- == 1)
    {
        OsServices_Cleanup();
    }
}

void OsServices::SetTestMode(Bool32 bTestMode)
{
    ms_bTestMode = bTestMode;
}

Bool32 OsServices::CpuThread_Create(PfnCpuThreadFunction pfnFunction, void* pvUserData, HCpuThread& rhCpuThread) const
{
    return CreateHandle(rhCpuThread, OsServices_CpuThread_GetHandleSize(),
                        [=](HCpuThread hCpuThread)
                        { return OsServices_CpuThread_Create(pfnFunction, pvUserData, hCpuThread); });
}

Bool32 OsServices::CpuThread_Join(const HCpuThread& rhCpuThread) const
{
    return OsServices_CpuThread_Join(rhCpuThread);
}

Bool32 OsServices::CpuThread_Destroy(HCpuThread hCpuThread) const
{
    return DestroyHandle(hCpuThread, OsServices_CpuThread_Destroy);
}

Bool32 OsServices::SpinLock_Create(HSpinLock& rhSpinLock) const
{
    return CreateHandle(rhSpinLock, OsServices_SpinLock_GetHandleSize(),
                        [this](HSpinLock hSpinLock) { return OsServices_SpinLock_Create(hSpinLock, m_uiIrql); });
}

Bool32 OsServices::SpinLock_Destroy(HSpinLock hSpinLock) const
{
    return DestroyHandle(hSpinLock, OsServices_SpinLock_Destroy);
}

Bool32 OsServices::SpinLock_Lock(HSpinLock hSpinLock) const
{
    return OsServices_SpinLock_Lock(hSpinLock, 1);
}

Bool32 OsServices::SpinLock_Unlock(HSpinLock hSpinLock) const
{
    return OsServices_SpinLock_Unlock(hSpinLock);
}

Bool32 OsServices::Mutex_Create(HMutex& rhMutex) const
{
    return CreateHandle(rhMutex, OsServices_Mutex_GetHandleSize(), OsServices_Mutex_Create);
}

Bool32 OsServices::Mutex_Destroy(HMutex hMutex) const
{
    return DestroyHandle(hMutex, OsServices_Mutex_Destroy);
}

Bool32 OsServices::Event_Create(HEvent& rhEvent) const
{
    if (m_poIOsServices != nullptr)
    {
        return m_poIOsServices->Event_Create(rhEvent);
    }
    return CreateHandle(rhEvent, OsServices_Event_GetHandleSize(), OsServices_Event_Create);
}

Bool32 OsServices::Event_Destroy(HEvent hEvent) const
{
    return DestroyHandle(hEvent, OsServices_Event_Destroy);
}

VtStatus OsServices::Event_Wait(HEvent hEvent, uint32_t uiTimeOutMs) const
{
    return OsServices_Event_Wait(hEvent, uiTimeOutMs);
}

Bool32 OsServices::Event_Trigger(HEvent hEvent) const
{
    return m_poIOsServices != nullptr ? m_poIOsServices->Event_Trigger(hEvent) : OsServices_Event_Trigger(hEvent);
}

Bool32 OsServices::Event_Reset(HEvent hEvent) const
{
    return OsServices_Event_Reset(hEvent);
}

Bool32 OsServices::Event_Cancel(HEvent hEvent) const
{
    return OsServices_Event_Cancel(hEvent);
}

Bool32 OsServices::Event_Activate(HEvent hEvent) const
{
    return OsServices_Event_Activate(hEvent);
}

Bool32 OsServices::Signal_Create(HSignal& rhSignal) const
{
    if (m_poIOsServices != nullptr)
    {
        return m_poIOsServices->Signal_Create(rhSignal);
    }
    return CreateHandle(rhSignal, OsServices_Signal_GetHandleSize(), OsServices_Signal_Create);
}

Bool32 OsServices::Signal_Destroy(HSignal hSignal) const
{
    return DestroyHandle(hSignal, OsServices_Signal_Destroy);
}

VtStatus OsServices::Signal_Wait(HSignal hSignal, uint32_t uiTimeOutMs, uint64_t uiEventCount) const
{
    return OsServices_Signal_Wait(hSignal, uiTimeOutMs, uiEventCount);
}

Bool32 OsServices::Signal_Trigger(HSignal hSignal) const
{
    return m_poIOsServices != nullptr ? m_poIOsServices->Signal_Trigger(hSignal) : OsServices_Signal_Trigger(hSignal);
}

Bool32 OsServices::Signal_Cancel(HSignal hSignal) const
{
    return OsServices_Signal_Cancel(hSignal);
}

Bool32 OsServices::Signal_Activate(HSignal hSignal) const
{
    return OsServices_Signal_Activate(hSignal);
}

Bool32 OsServices::StackTrace_Create(HStackTrace& rhStackTrace) const
{
    return CreateHandle(rhStackTrace, OsServices_StackTrace_GetHandleSize(), OsServices_StackTrace_Create);
}

Bool32 OsServices::StackTrace_Destroy(HStackTrace hStackTrace) const
{
    return DestroyHandle(hStackTrace, OsServices_StackTrace_Destroy);
}

Bool32 OsServices::StackTrace_Save(HStackTrace hStackTrace) const
{
    return OsServices_StackTrace_Save(hStackTrace);
}

void OsServices::StackTrace_Print(HStackTrace hStackTrace) const
{
    OsServices_StackTrace_Print(hStackTrace);
}

void OsServices::StackTrace_Dump() const
{
    OsServices_StackTrace_Dump();
}

uint64_t OsServices::GetCurrentThreadId() const
{
    return OsServices_GetCurrentThreadId();
}

Bool32 OsServices::IsThreadIdEqual(uint64_t uiThreadIdA, uint64_t uiThreadIdB) const
{
    return OsServices_IsThreadIdEqual(uiThreadIdA, uiThreadIdB);
}

uint64_t OsServices::GetRawTimeInNs() const
{
    return OsServices_GetRawTimeInNs();
}

uint64_t OsServices::GetTimeInMs() const
{
    return GetRawTimeInNs() / 1'000'000;
}

Bool32 OsServices::SleepMilliSeconds(uint32_t uiSleepMs) const
{
    return OsServices_SleepMilliSeconds(uiSleepMs);
}

Bool32 OsServices::WaitMicroSeconds(uint32_t uiWaitUs) const
{
    if (uiWaitUs <= uiLongestBusyWaitUs)
    {
        return OsServices_WaitMicroSeconds(uiWaitUs);
    }
    const uint32_t uiSleepMs = uiWaitUs / 1000; // what is below a millisecond is dropped
    WriteMsg("OsServices::WaitMicroSeconds(%d) with delay greater than %d us isn't reliable, using "
             "SleepMilliSeconds(%d) command instead)\n",
             static_cast<int32_t>(uiWaitUs), static_cast<int32_t>(uiLongestBusyWaitUs),
             static_cast<int32_t>(uiSleepMs));
    return OsServices_SleepMilliSeconds(uiSleepMs);
}

void* OsServices::PagedMemory_Alloc(uint64_t uiSize) const
{
    return OsServices_PagedMemory_Alloc(uiSize);
}

void OsServices::PagedMemory_Free(void* pvMemory) const
{
    if (pvMemory != nullptr)
    {
        OsServices_PagedMemory_Free(pvMemory);
    }
}

void* OsServices::NonPagedMemory_Alloc(uint64_t uiSize, HNonPagedMem* phNonPagedMem) const
{
    return OsServices_NonPagedMemory_Alloc(uiSize, phNonPagedMem);
}

uint64_t OsServices::NonPagedMemory_GetPhysicalAddress(HNonPagedMem hNonPagedMem) const
{
    return OsServices_NonPagedMemory_GetPhysicalAddress(hNonPagedMem);
}

void OsServices::NonPagedMemory_Free(HNonPagedMem) const {}

Bool32 OsServices::CopyFromUser(const void* pvSource, void* pvDest, uint32_t uiCount) const
{
    return OsServices_CopyFromUser(pvSource, pvDest, uiCount);
}

Bool32 OsServices::CopyToUser(const void* pvSource, void* pvDest, uint32_t uiCount) const
{
    return OsServices_CopyToUser(pvSource, pvDest, uiCount);
}

void* OsServices::IoMap(uint64_t uiPhysicalAddress, uint32_t uiSize, Bool32 bIsCacheable) const
{
    return OsServices_IoMap(uiPhysicalAddress, uiSize, bIsCacheable);
}

void OsServices::IoUnMap(void* pvMemory, uint32_t uiSize) const
{
    OsServices_IoUnMap(pvMemory, uiSize);
}

uint32_t OsServices::GetRandom() const
{
    if (ms_uiOldRandomValue == 0)
    {
        const auto* const puiBlock = new uint8_t;
        ms_uiOldRandomValue = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(puiBlock));
        delete puiBlock;
    }
    const uint32_t uiOld = ms_uiOldRandomValue;
    ms_uiOldRandomValue = (std::rotr(uiOld, 1) ^ uiOld) + uiOld;
    return ms_uiOldRandomValue;
}

uint32_t OsServices::GetRandomNonZero() const
{
    uint32_t uiRandom = GetRandom();
    if (uiRandom == 0)
    {
        uiRandom = GetRandom();
    }
    if (uiRandom == 0)
    {
        // The seed is an address, and with some allocators that of the same block each time: one without low bits
        // would give 0 for ever.
        ms_uiOldRandomValue = uiSeedInstead;
        uiRandom = GetRandom();
    }
    return uiRandom;
}

const char* OsServices::GetFileNameOnlySubSring(const char* szPath)
{
    const char* szName = szPath;
    for (; *szPath != '\0'; ++szPath)
    {
        if (*szPath == '/' || *szPath == '\\')
        {
            szName = szPath + 1;
        }
    }
    return szName;
}
