// Mappings of /dev/mem and the list that remembers how long each is.
#include "KrvVxd_Linux.h"

#include <cstdlib>
#include <fcntl.h>
#include <new>
#include <sys/mman.h>
#include <unistd.h>

namespace
{

constexpr uint32_t uiPageSize = 4096;
constexpr uint32_t uiPageMask = uiPageSize - 1;

struct MEMMAPINFO
{
    MEMMAPINFO* pNext;
    MEMMAPINFO* pPrev;
    void* pvLinear;  // what the caller was given: base of the mapping plus the offset inside the page
    uint32_t dwSize; // bytes that the caller asked for
};

// Head of the ring of live mappings, newest first; holds no mapping itself.
constinit MEMMAPINFO g_oKrvVxdMapList = {&g_oKrvVxdMapList, &g_oKrvVxdMapList, nullptr, 0};

void Link(MEMMAPINFO* poInfo)
{
    poInfo->pNext = g_oKrvVxdMapList.pNext;
    poInfo->pPrev = &g_oKrvVxdMapList;
    g_oKrvVxdMapList.pNext->pPrev = poInfo;
    g_oKrvVxdMapList.pNext = poInfo;
}

void Unlink(MEMMAPINFO* poInfo)
{
    poInfo->pPrev->pNext = poInfo->pNext;
    poInfo->pNext->pPrev = poInfo->pPrev;
}

// Base of the mapping whose first page is at this address, MAP_FAILED if the memory cannot be had.
void* MapPages(uint64_t ullPageAddress, uint32_t uiMapLength)
{
    const int iFile = open("/dev/mem", O_RDWR | O_CLOEXEC);
    if (iFile < 0)
    {
        return MAP_FAILED;
    }
    void* const pvBase =
        mmap(nullptr, uiMapLength, PROT_READ | PROT_WRITE, MAP_SHARED, iFile, static_cast<off_t>(ullPageAddress));
    close(iFile); // the mapping outlives the file
    return pvBase;
}

} // namespace

void* KrvVxdMapMemoryLinux(uint32_t uiAddressLow, uint32_t uiAddressHigh, uint32_t uiLength, uint32_t)
{
    void* const pvInfo = std::malloc(sizeof(MEMMAPINFO));
    if (pvInfo == nullptr)
    {
        return nullptr;
    }
    const uint32_t uiOffset = uiAddressLow & uiPageMask;
    const uint32_t uiMapLength = (uiOffset + uiLength + uiPageMask) & ~uiPageMask;
    const uint64_t ullPageAddress = (static_cast<uint64_t>(uiAddressHigh) << 32) | (uiAddressLow & ~uiPageMask);
    void* const pvBase = MapPages(ullPageAddress, uiMapLength);
    if (pvBase == MAP_FAILED)
    {
        std::free(pvInfo);
        return nullptr;
    }
    MEMMAPINFO* const poInfo = ::new (pvInfo) MEMMAPINFO;
    Link(poInfo);
    poInfo->pvLinear = static_cast<uint8_t*>(pvBase) + uiOffset;
    poInfo->dwSize = uiLength;
    return poInfo->pvLinear;
}

Bool32 KrvVxdUnmapMemoryLinux(void* pvMemory)
{
    for (MEMMAPINFO* poInfo = g_oKrvVxdMapList.pNext; poInfo != &g_oKrvVxdMapList; poInfo = poInfo->pNext)
    {
        if (poInfo->pvLinear != pvMemory)
        {
            continue;
        }
        Unlink(poInfo);
        const auto uiOffset = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(pvMemory) & uiPageMask);
        // Rounded down, although the mapping was rounded up: less than a page is not released.
        munmap(static_cast<uint8_t*>(pvMemory) - uiOffset, (uiOffset + poInfo->dwSize) & ~uiPageMask);
        std::free(poInfo);
        return 1;
    }
    return 0;
}
