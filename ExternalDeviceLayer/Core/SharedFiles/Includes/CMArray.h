/*
 * Growable array: one block of elements, a size, a capacity and a growth step. One thread at a time.
 *
 * Elements are moved by raw copy when the block grows, so their type must bear being relocated (no pointers into
 * itself). Sizes and indexes are in elements. A failed check is reported and execution goes on: a bad index reaches a
 * zeroed scratch element instead of the block, a bad size changes nothing.
 *
 * Here: the class, sizing and growing. What is built on them stands in CMArrayOperations.h, the life of elements in
 * CMArrayElements.h. "Measured" is Benchmarks/Foundation: adding and assigning 8-byte values, g++ 12.
 */
#ifndef CM_ARRAY_H
#define CM_ARRAY_H

#include <algorithm>
#include <concepts>
#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <type_traits>

#include "CMAllocator.h"
#include "CMArrayElements.h"
#include "KrvTypes.h"

// What may index an array besides the two types of the virtual operations.
template <typename INDEX>
concept CMArrayIndex = std::integral<INDEX> || std::is_enum_v<INDEX>;

// TYPE is the element, ARG_TYPE is how one is passed (TYPE itself, or a constant reference to it).
template <typename TYPE, typename ARG_TYPE> class CMArray
{
public:
    CMArray() = default;
    CMArray(const CMArray& roOther) { Copy(roOther); }
    CMArray(const TYPE* paoElements, int32_t iCount) { CopyElements(paoElements, iCount); }
    CMArray(const TYPE* paoElements, uint32_t uiCount) { CopyElements(paoElements, static_cast<int32_t>(uiCount)); }

    // ---- The virtual operations; their order is part of the interface.

    virtual ~CMArray() { FreeAll(); }
    /* iGrowBy: -1 keeps the growth step, 0 makes it automatic, anything else replaces it. Size 0 frees the block. */
    virtual void SetSize(int32_t iNewSize, int32_t iGrowBy = -1);
    virtual void SetCount(uint32_t uiNewCount, int32_t iGrowBy = -1)
    {
        SetSize(static_cast<int32_t>(uiNewCount), iGrowBy);
    }
    /* Gives back the capacity that is not in use. */
    virtual void FreeExtra();
    /* Assigns at the index, growing up to it if it is beyond the end. */
    virtual void SetAtGrow(int32_t iIndex, ARG_TYPE oValue);
    virtual void SetAtGrow(uint32_t uiIndex, ARG_TYPE oValue) { SetAtGrow(static_cast<int32_t>(uiIndex), oValue); }

    // ---- Sizes, the whole block

    int32_t GetSize() const { return m_iSize; }
    uint32_t GetCount() const { return static_cast<uint32_t>(m_iSize); }
    int32_t GetAllocSize() const { return m_iMaxSize; }
    uint32_t GetAllocCount() const { return static_cast<uint32_t>(m_iMaxSize); }
    int32_t GetUpperBound() const { return m_iSize - 1; }
    uint32_t GetUpperBoundU() const { return static_cast<uint32_t>(m_iSize) - 1; }
    Bool32 IsEmpty() const { return m_iSize == 0 ? 1 : 0; }
    void RemoveAll() { SetSize(0, -1); }

    TYPE* GetData() { return m_poData; }
    const TYPE* GetData() const { return m_poData; }
    TYPE* Begin() { return m_poData; }
    const TYPE* Begin() const { return m_poData; }
    TYPE* End() { return m_poData + m_iSize; }
    const TYPE* End() const { return m_poData + m_iSize; }

    // ---- Single elements

    template <CMArrayIndex INDEX> TYPE& ElementAt(INDEX iIndex)
    {
        return IsInside(iIndex) ? m_poData[static_cast<uint64_t>(iIndex)] : BadElement();
    }
    template <CMArrayIndex INDEX> const TYPE& ElementAt(INDEX iIndex) const
    {
        return IsInside(iIndex) ? m_poData[static_cast<uint64_t>(iIndex)] : BadElement();
    }
    template <CMArrayIndex INDEX> TYPE& operator[](INDEX iIndex) { return ElementAt(iIndex); }
    template <CMArrayIndex INDEX> const TYPE& operator[](INDEX iIndex) const { return ElementAt(iIndex); }
    template <CMArrayIndex INDEX> const TYPE& GetAt(INDEX iIndex) const { return ElementAt(iIndex); }
    template <CMArrayIndex INDEX> void SetAt(INDEX iIndex, ARG_TYPE oValue) { ElementAt(iIndex) = oValue; }
    template <CMArrayIndex INDEX> void SetAtGrow(INDEX iIndex, ARG_TYPE oValue)
    {
        constexpr uint64_t uiLargest = std::numeric_limits<int32_t>::max();
        SetAtGrow(static_cast<uint64_t>(iIndex) <= uiLargest ? static_cast<int32_t>(iIndex) : -1, oValue);
    }
    /* Returns the index of the new element. */
    int32_t Add(ARG_TYPE oValue)
    {
        const int32_t iIndex = m_iSize;
        SetAtGrow(iIndex, oValue);
        return iIndex;
    }

    // ---- Several elements

    void Copy(const CMArray& roOther);
    CMArray& operator=(const CMArray& roOther) // NOLINT(bugprone-unhandled-self-assignment): Copy looks for it
    {
        Copy(roOther);
        return *this;
    }
    /* Returns the index of the first element appended. */
    int32_t Append(const CMArray& roOther);
    /* Inserting beyond the end grows up to it, as SetAtGrow does. */
    void InsertAt(int32_t iIndex, ARG_TYPE oValue, int32_t iCount = 1);
    void InsertAt(int32_t iIndex, const CMArray& roOther);
    void RemoveAt(int32_t iIndex, int32_t iCount = 1);
    void SortElements() { std::sort(Begin(), End()); }

    // ---- Elements as a set

    /* Index of the first equal element from iStart on, or -1. */
    int32_t Find(ARG_TYPE oValue, int32_t iStart = 0) const;
    Bool32 IsPresent(ARG_TYPE oValue) const { return Find(oValue) >= 0 ? 1 : 0; }
    /* 1 if it was not there and has been added. */
    Bool32 AddIfNotPresent(ARG_TYPE oValue);
    /* Keeps the first of equal elements. */
    void RemoveDuplicates();
    /* Keeps what is in both; adds what is only in the other. */
    CMArray& operator&=(const CMArray& roOther);
    CMArray& operator|=(const CMArray& roOther);
    bool operator==(const CMArray& roOther) const { return std::equal(Begin(), End(), roOther.Begin(), roOther.End()); }
    bool operator!=(const CMArray& roOther) const { return !(*this == roOther); }

protected:
    // Unsigned, so that a negative index comes out huge.
    template <CMArrayIndex INDEX> bool IsInside(INDEX iIndex) const
    {
        return static_cast<uint64_t>(iIndex) < static_cast<uint32_t>(m_iSize);
    }
    bool IsInCapacity(uint32_t uiIndex) const { return uiIndex < static_cast<uint32_t>(m_iMaxSize); }
    static TYPE& BadElement()
    {
        KrvMFCTypes_ReportAssert(KrvMFCTypesAssert_BAD_INDEX);
        return CMScratchElement<TYPE>::Renewed();
    }
    static TYPE* Allocate(int32_t iCount)
    {
        static_assert(alignof(TYPE) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__, "blocks are aligned as new aligns bytes");
        return static_cast<TYPE*>(CMAllocator::AllocBlock(static_cast<uint64_t>(iCount) * sizeof(TYPE)));
    }
    void SetAnySize(int32_t iNewSize, int32_t iGrowBy);
    void AllocateFirst(int32_t iNewSize);
    void ResizeInPlace(int32_t iNewSize);
    void Grow(int32_t iNewSize);
    void MoveToBlock(TYPE* poNewData, int32_t iNewMaxSize);
    void FreeAll();
    void SetBeyondCapacity(int32_t iIndex, ARG_TYPE oValue);
    int32_t OwnIndexOf(ARG_TYPE oValue) const;
    void CopyElements(const TYPE* paoElements, int32_t iCount);

    TYPE* m_poData = nullptr;
    int32_t m_iSize = 0;
    int32_t m_iMaxSize = 0;
    int32_t m_iGrowBy = 0;
    // NOLINTNEXTLINE(readability-identifier-naming): the name is fixed, and so is the layout that the word is part of
    [[maybe_unused]] const uint32_t mc_uiPadding1 = 0;
};

// ---- Sizing. The word inline is a hint that counts at SetSize and SetAtGrow, which are virtual and would stay calls:
// an Add takes 7 times as long without it, measured.

template <typename TYPE, typename ARG_TYPE>
inline void CMArray<TYPE, ARG_TYPE>::SetSize(int32_t iNewSize, int32_t iGrowBy)
{
    // What Add nearly always comes to, small enough to be compiled in place: 7 times as fast, measured.
    if (iGrowBy == -1 && IsInCapacity(static_cast<uint32_t>(iNewSize) - 1))
    {
        ResizeInPlace(iNewSize);
        return;
    }
    SetAnySize(iNewSize, iGrowBy);
}

template <typename TYPE, typename ARG_TYPE> void CMArray<TYPE, ARG_TYPE>::SetAnySize(int32_t iNewSize, int32_t iGrowBy)
{
    if (iNewSize < 0)
    {
        KrvMFCTypes_ReportAssert(KrvMFCTypesAssert_NEGATIVE_SIZE);
        return;
    }
    if (iGrowBy != -1)
    {
        m_iGrowBy = iGrowBy;
    }
    if (iNewSize == 0)
    {
        FreeAll();
    }
    else if (m_poData == nullptr)
    {
        AllocateFirst(iNewSize);
    }
    else if (iNewSize <= m_iMaxSize)
    {
        ResizeInPlace(iNewSize);
    }
    else
    {
        Grow(iNewSize);
    }
}

template <typename TYPE, typename ARG_TYPE> void CMArray<TYPE, ARG_TYPE>::FreeAll()
{
    MDestructElements(m_poData, m_iSize);
    CMAllocator::FreeBlock(m_poData);
    m_poData = nullptr;
    m_iSize = 0;
    m_iMaxSize = 0;
}

template <typename TYPE, typename ARG_TYPE> void CMArray<TYPE, ARG_TYPE>::AllocateFirst(int32_t iNewSize)
{
    m_poData = Allocate(iNewSize);
    MConstructElements(m_poData, iNewSize);
    m_iMaxSize = iNewSize;
    m_iSize = iNewSize;
}

template <typename TYPE, typename ARG_TYPE> void CMArray<TYPE, ARG_TYPE>::ResizeInPlace(int32_t iNewSize)
{
    const int32_t iAdded = iNewSize - m_iSize;
    if (iAdded > 0)
    {
        MConstructElementsAt(m_poData + m_iSize, iAdded);
    }
    else
    {
        MDestructElements(m_poData + iNewSize, -iAdded);
    }
    m_iSize = iNewSize;
}

template <typename TYPE, typename ARG_TYPE> void CMArray<TYPE, ARG_TYPE>::Grow(int32_t iNewSize)
{
    constexpr int32_t iSmallestStep = 4;
    constexpr int32_t iLargestStep = 1024;
    if (m_iGrowBy == 0)
    {
        // Computed at the first automatic growth and frozen from then on.
        m_iGrowBy = std::clamp(m_iSize / 8, iSmallestStep, iLargestStep);
    }
    const int64_t iStepped = static_cast<int64_t>(m_iMaxSize) + m_iGrowBy;
    const int32_t iNewMaxSize =
        iStepped > std::numeric_limits<int32_t>::max() ? iNewSize : std::max(static_cast<int32_t>(iStepped), iNewSize);
    // The sizes above cannot come to either of these; they stay checked, because all that is copied rests on them.
    if (iNewMaxSize < m_iMaxSize)
    {
        KrvMFCTypes_ReportAssert(KrvMFCTypesAssert_CAPACITY_OVERFLOW);
        return;
    }
    if (iNewSize <= m_iSize)
    {
        KrvMFCTypes_ReportAssert(KrvMFCTypesAssert_NO_GROWTH);
        return;
    }
    const int32_t iOldSize = m_iSize;
    MoveToBlock(Allocate(iNewMaxSize), iNewMaxSize);
    MConstructElements(m_poData + iOldSize, iNewSize - iOldSize);
    m_iSize = iNewSize;
}

template <typename TYPE, typename ARG_TYPE>
void CMArray<TYPE, ARG_TYPE>::MoveToBlock(TYPE* poNewData, int32_t iNewMaxSize)
{
    // By raw copy: the old block is freed without destroying what moved out of it.
    std::memcpy(static_cast<void*>(poNewData), static_cast<const void*>(m_poData),
                static_cast<uint64_t>(m_iSize) * sizeof(TYPE));
    CMAllocator::FreeBlock(m_poData);
    m_poData = poNewData;
    m_iMaxSize = iNewMaxSize;
}

template <typename TYPE, typename ARG_TYPE> void CMArray<TYPE, ARG_TYPE>::FreeExtra()
{
    if (m_iSize == m_iMaxSize)
    {
        return;
    }
    if (m_iSize == 0)
    {
        FreeAll();
        return;
    }
    MoveToBlock(Allocate(m_iSize), m_iSize);
}

// ---- Assigning with growth

template <typename TYPE, typename ARG_TYPE>
inline void CMArray<TYPE, ARG_TYPE>::SetAtGrow(int32_t iIndex, ARG_TYPE oValue)
{
    if (iIndex >= m_iSize)
    {
        if (!IsInCapacity(static_cast<uint32_t>(iIndex)))
        {
            SetBeyondCapacity(iIndex, oValue);
            return;
        }
        SetSize(iIndex + 1, -1);
        if (iIndex < m_iSize)
        {
            // Not left to the end of the function: here the compiler sees that the zero which the element began with
            // is never read, and drops it. 1.4 times as fast, measured.
            m_poData[iIndex] = oValue;
            return;
        }
    }
    else if (iIndex < 0)
    {
        KrvMFCTypes_ReportAssert(KrvMFCTypesAssert_NEGATIVE_INDEX);
    }
    ElementAt(iIndex) = oValue;
}

template <typename TYPE, typename ARG_TYPE>
void CMArray<TYPE, ARG_TYPE>::SetBeyondCapacity(int32_t iIndex, ARG_TYPE oValue)
{
    // The value may be an element of this very array, which growing moves away.
    const int32_t iOwnIndex = OwnIndexOf(oValue);
    SetSize(iIndex < std::numeric_limits<int32_t>::max() ? iIndex + 1 : -1, -1);
    if (iOwnIndex >= 0)
    {
        ElementAt(iIndex) = m_poData[iOwnIndex];
        return;
    }
    ElementAt(iIndex) = oValue;
}

// -1 for a value that is none of the elements.
template <typename TYPE, typename ARG_TYPE> int32_t CMArray<TYPE, ARG_TYPE>::OwnIndexOf(ARG_TYPE oValue) const
{
    if constexpr (std::is_reference_v<ARG_TYPE> && std::is_same_v<std::remove_cvref_t<ARG_TYPE>, TYPE>)
    {
        const TYPE* const poValue = std::addressof(oValue);
        if (!std::less<>{}(poValue, Begin()) && std::less<>{}(poValue, End()))
        {
            return static_cast<int32_t>(poValue - Begin());
        }
    }
    return -1;
}

#include "CMArrayOperations.h"

#endif
