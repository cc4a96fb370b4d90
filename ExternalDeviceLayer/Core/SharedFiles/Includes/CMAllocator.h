/*
 * Where the containers get their memory: from one replaceable allocator of the process or, as long as none is set,
 * from the plain array new and delete of bytes. The setting is unguarded and belongs to start-up: a block must be
 * freed by what allocated it.
 */
#ifndef CM_ALLOCATOR_H
#define CM_ALLOCATOR_H

#include <cstdint>

class CMAllocator
{
public:
    CMAllocator() = default;
    CMAllocator(const CMAllocator&) = delete;
    CMAllocator& operator=(const CMAllocator&) = delete;

    /* A block of uiSize bytes, aligned as new aligns it. The base forwards to the global allocator if there is one. */
    virtual void* Alloc(uint64_t uiSize);
    virtual void Free(const void* pvBlock);
    virtual ~CMAllocator() = default;

    /* poAllocator must outlive every container; null goes back to new and delete. */
    static void SetGlobalAllocator(CMAllocator* poAllocator) { m_poGlobalAllocator = poAllocator; }

    /* What the containers call. A null block is not freed. */
    static void* AllocBlock(uint64_t uiSize)
    {
        return m_poGlobalAllocator != nullptr ? m_poGlobalAllocator->Alloc(uiSize) : new uint8_t[uiSize];
    }
    static void FreeBlock(const void* pvBlock)
    {
        if (pvBlock == nullptr)
        {
            return;
        }
        if (m_poGlobalAllocator != nullptr)
        {
            m_poGlobalAllocator->Free(pvBlock);
            return;
        }
        delete[] static_cast<const uint8_t*>(pvBlock);
    }

private:
    static CMAllocator* m_poGlobalAllocator; // NOLINT(readability-identifier-naming): the name is fixed
};

#endif
