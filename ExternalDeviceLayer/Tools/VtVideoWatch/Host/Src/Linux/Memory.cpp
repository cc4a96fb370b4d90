#include "Memory.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cinttypes>
#include <cstdio>
#include <sys/mman.h>

#include "WatchClocks.h"

namespace
{

constexpr uint64_t uiQuietNs = 1'000'000'000;
constexpr size_t uiBlocks = 16;
constexpr size_t uiLeastBlocks = uiBlocks / 2; // with fewer nothing is begun
constexpr size_t uiBlockBytes = 256 * size_t{1024};

std::atomic<uint64_t> g_uiFailures{0};
std::atomic<uint64_t> g_uiSaidNs{0};
std::array<std::atomic<void*>, uiBlocks> g_apvReserve;
std::atomic<size_t> g_uiReserved{0};

// Gives a part of the reserve back to the system, where the allocation that asks for it finds it.
void GiveBlock()
{
    for (std::atomic<void*>& rpvBlock : g_apvReserve)
    {
        if (void* pvBlock = rpvBlock.exchange(nullptr))
        {
            g_uiReserved.fetch_sub(1);
            munmap(pvBlock, uiBlockBytes);
            return;
        }
    }
    std::set_new_handler(nullptr); // so that allocations fail
}

} // namespace

void Memory_Reserve()
{
    for (std::atomic<void*>& rpvBlock : g_apvReserve)
    {
        if (rpvBlock.load() != nullptr)
        {
            continue;
        }
        void* pvBlock = mmap(nullptr, uiBlockBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        void* pvNone = nullptr;
        if (pvBlock == MAP_FAILED)
        {
            break;
        }
        if (rpvBlock.compare_exchange_strong(pvNone, pvBlock))
        {
            g_uiReserved.fetch_add(1);
        }
        else
        {
            munmap(pvBlock, uiBlockBytes); // another thread was faster
        }
    }
    if (g_uiReserved.load() > 0)
    {
        std::set_new_handler(GiveBlock);
    }
}

bool Memory_MayBegin()
{
    if (g_uiReserved.load(std::memory_order_relaxed) < uiBlocks)
    {
        Memory_Reserve();
    }
    return g_uiReserved.load(std::memory_order_relaxed) >= uiLeastBlocks;
}

uint64_t Memory_GetFailures()
{
    return g_uiFailures.load(std::memory_order_relaxed);
}

void Memory_Lack(const char* szWhat)
{
    const uint64_t uiCount = g_uiFailures.fetch_add(1, std::memory_order_relaxed) + 1;
    const uint64_t uiNowNs = ReadMonotonicNs();
    uint64_t uiLastNs = g_uiSaidNs.load();
    if ((uiLastNs == 0 || uiNowNs - uiLastNs >= uiQuietNs) && g_uiSaidNs.compare_exchange_strong(uiLastNs, uiNowNs))
    {
        static_cast<void>(std::fprintf(
            stderr, "VtVideoWatch: no memory for %s; the watch goes on (%" PRIu64 " times so far)\n", szWhat, uiCount));
    }
}
