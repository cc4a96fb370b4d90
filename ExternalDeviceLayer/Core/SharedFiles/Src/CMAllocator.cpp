#include "CMAllocator.h"

constinit CMAllocator* CMAllocator::m_poGlobalAllocator = nullptr;

void* CMAllocator::Alloc(uint64_t uiSize)
{
    // An allocator that falls back on its base may be the global one itself.
    return m_poGlobalAllocator != this ? AllocBlock(uiSize) : new uint8_t[uiSize];
}

void CMAllocator::Free(const void* pvBlock)
{
    if (m_poGlobalAllocator != this)
    {
        FreeBlock(pvBlock);
        return;
    }
    delete[] static_cast<const uint8_t*>(pvBlock);
}
