// The public names of memory mapping and timer, and the library's start and stop.
#include "KrvVxd.h"

#include <initializer_list>

#include "KrvVxd_Linux.h"

Bool32 InitKRVLibrary()
{
    return 1;
}

Bool32 ReleaseKRVLibrary()
{
    KrvVxdPciLibCleanUp();
    return 1;
}

MEMHANDLE memMap64(uint64_t ullPhysical, uint32_t uiSize, uint32_t uiCachingType)
{
    return KrvVxdMapMemoryLinux(static_cast<uint32_t>(ullPhysical), static_cast<uint32_t>(ullPhysical >> 32), uiSize,
                                uiCachingType);
}

MEMHANDLE memMapEx(uint32_t uiPhysical, uint32_t uiSize, uint32_t uiCachingType)
{
    return memMap64(uiPhysical, uiSize, uiCachingType);
}

MEMHANDLE memMap(uint32_t uiPhysical, uint32_t uiSize)
{
    for (const uint32_t uiCachingType : {0u, 1u, 6u})
    {
        const auto hMemory = memMapEx(uiPhysical, uiSize, uiCachingType);
        if (hMemory != nullptr)
        {
            return hMemory;
        }
    }
    return nullptr;
}

uint32_t memUnmap(MEMHANDLE hMemory)
{
    return KrvVxdUnmapMemoryLinux(hMemory);
}

uint32_t tmInit()
{
    return 1;
}

uint32_t tmDelay(uint32_t uiDelayUs)
{
    return KrvVxdPrivateLinuxTimer_Delay(uiDelayUs);
}

uint32_t tmCounter(uint64_t* puiCounterUs)
{
    return KrvVxdPrivateLinuxTimer_Counter(puiCounterUs);
}

uint32_t tmFrequency(uint64_t* puiCounterFreqHz)
{
    return KrvVxdPrivateLinuxTimer_Frequency(puiCounterFreqHz);
}
