// Start and stop, text output, memory and the call stacks that this platform does not record.
#include "OsServicesClient.h"

#include <cstdio>
#include <cstdlib>

#include "KrvTools.h"
#include "KrvVxd.h"

Bool32 OsServices_Initialize()
{
    return InitKRVLibrary() != 0 ? 1 : 0;
}

Bool32 OsServices_Cleanup()
{
    return ReleaseKRVLibrary() != 0 ? 1 : 0;
}

void OsServices_WriteMsg(const char* pszFormat, va_list oArguments)
{
    std::vfprintf(stdout, pszFormat, oArguments);
}

void OsServices_WriteKernelMsg(const char* pszFormat, va_list oArguments)
{
    std::FILE* const poFile = std::fopen("/dev/kmsg", "w");
    if (poFile == nullptr)
    {
        return;
    }
    std::vfprintf(poFile, pszFormat, oArguments);
    std::fclose(poFile);
}

void* OsServices_PagedMemory_Alloc(uint64_t uiSize)
{
    return std::malloc(uiSize);
}

void OsServices_PagedMemory_Free(void* pvMemory)
{
    std::free(pvMemory);
}

void* OsServices_NonPagedMemory_Alloc(uint64_t, HNonPagedMem*)
{
    return nullptr;
}

uint64_t OsServices_NonPagedMemory_GetPhysicalAddress(HNonPagedMem)
{
    return 0;
}

Bool32 OsServices_CopyFromUser(const void* pvSource, void* pvDest, uint32_t uiCount)
{
    KrvTools_memcpy(pvDest, pvSource, uiCount);
    return 1;
}

Bool32 OsServices_CopyToUser(const void* pvSource, void* pvDest, uint32_t uiCount)
{
    return OsServices_CopyFromUser(pvSource, pvDest, uiCount);
}

void* OsServices_IoMap(uint64_t uiPhysicalAddress, uint32_t uiSize, Bool32 bIsCacheable)
{
    if (bIsCacheable)
    {
        void* const pvMemory = memMap64(uiPhysicalAddress, uiSize, 1);
        if (pvMemory != nullptr)
        {
            return pvMemory;
        }
    }
    return memMap64(uiPhysicalAddress, uiSize, 0);
}

void OsServices_IoUnMap(void* pvMemory, uint32_t)
{
    memUnmap(pvMemory);
}

uint32_t OsServices_StackTrace_GetHandleSize()
{
    return sizeof(uint32_t);
}

Bool32 OsServices_StackTrace_Create(HStackTrace)
{
    return 1;
}

Bool32 OsServices_StackTrace_Destroy(HStackTrace)
{
    return 1;
}

Bool32 OsServices_StackTrace_Save(HStackTrace)
{
    return 1;
}

void OsServices_StackTrace_Print(HStackTrace)
{
    OsServices_StackTrace_Dump();
}

void OsServices_StackTrace_Dump()
{
    std::puts("Print stack not supported in this configuration");
}
