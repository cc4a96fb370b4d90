/*
 * Construction and destruction of array elements in raw memory, and the element that a bad index falls back to.
 */
#ifndef CM_ARRAY_ELEMENTS_H
#define CM_ARRAY_ELEMENTS_H

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>

// The failed checks of the containers carry these fixed numbers in their reports.
enum EKrvMFCTypesAssert : uint32_t
{
    KrvMFCTypesAssert_NULL_ELEMENTS = 110,
    KrvMFCTypesAssert_BAD_INDEX = 4309,
    KrvMFCTypesAssert_NEGATIVE_SIZE = 4816,
    KrvMFCTypesAssert_CAPACITY_OVERFLOW = 4890,
    KrvMFCTypesAssert_NO_GROWTH = 4898,
    KrvMFCTypesAssert_NEGATIVE_INDEX = 5051
};
void KrvMFCTypes_ReportAssert(EKrvMFCTypesAssert eAssert);

/* Fills iCount elements with zero and then constructs those that have a constructor. */
template <typename TYPE> void MConstructElementsAt(TYPE* paoElements, int32_t iCount)
{
    if constexpr (std::is_scalar_v<TYPE>)
    {
        // The same as filling bytes, but the compiler sees what is written and drops it if an assignment follows: Add
        // is 1.4 times as fast, measured.
        std::fill_n(paoElements, iCount, TYPE());
        return;
    }
    if (iCount > 0)
    {
        // The runtime's own call, for a block may be longer than 32 bits can say.
        std::memset(static_cast<void*>(paoElements), 0, static_cast<uint64_t>(iCount) * sizeof(TYPE));
    }
    if constexpr (!std::is_trivially_default_constructible_v<TYPE>)
    {
        for (int32_t iElement = 0; iElement < iCount; ++iElement)
        {
            ::new (static_cast<void*>(paoElements + iElement)) TYPE();
        }
    }
}

/* The same in memory that may not be there. */
template <typename TYPE> void MConstructElements(TYPE* paoElements, int32_t iCount)
{
    if (paoElements == nullptr)
    {
        KrvMFCTypes_ReportAssert(KrvMFCTypesAssert_NULL_ELEMENTS);
        return;
    }
    MConstructElementsAt(paoElements, iCount);
}

/* Destroys iCount elements that have a destructor; the memory stays. */
template <typename TYPE> void MDestructElements(TYPE* paoElements, int32_t iCount)
{
    if constexpr (!std::is_trivially_destructible_v<TYPE>)
    {
        for (int32_t iElement = 0; iElement < iCount; ++iElement)
        {
            std::destroy_at(paoElements + iElement);
        }
    }
}

// One element per thread outside every array, so that an access through a bad index touches no foreign memory.
template <typename TYPE> class CMScratchElement
{
public:
    CMScratchElement() { MConstructElements(Element(), 1); }
    ~CMScratchElement() { MDestructElements(Element(), 1); }
    CMScratchElement(const CMScratchElement&) = delete;
    CMScratchElement& operator=(const CMScratchElement&) = delete;

    /* The element of this thread, as new. */
    static TYPE& Renewed()
    {
        static thread_local CMScratchElement s_oScratch;
        MDestructElements(s_oScratch.Element(), 1);
        MConstructElements(s_oScratch.Element(), 1);
        return *s_oScratch.Element();
    }

private:
    TYPE* Element() { return reinterpret_cast<TYPE*>(m_aucMemory); }

    alignas(TYPE) unsigned char m_aucMemory[sizeof(TYPE)];
};

#endif
