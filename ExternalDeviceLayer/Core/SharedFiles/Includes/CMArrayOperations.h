/*
 * What CMArray can do with several elements: copy, insert, remove, search. Built on its sizing alone; a part of
 * CMArray.h, which includes it.
 */
#ifndef CM_ARRAY_OPERATIONS_H
#define CM_ARRAY_OPERATIONS_H

#include "CMArray.h"

template <typename TYPE, typename ARG_TYPE>
void CMArray<TYPE, ARG_TYPE>::CopyElements(const TYPE* paoElements, int32_t iCount)
{
    CMArray::SetSize(iCount, -1); // also from constructors, where nothing is overridden yet
    if (iCount > 0)
    {
        std::copy_n(paoElements, iCount, m_poData);
    }
}

template <typename TYPE, typename ARG_TYPE> void CMArray<TYPE, ARG_TYPE>::Copy(const CMArray& roOther)
{
    if (this != &roOther)
    {
        CopyElements(roOther.m_poData, roOther.m_iSize);
    }
}

template <typename TYPE, typename ARG_TYPE> int32_t CMArray<TYPE, ARG_TYPE>::Append(const CMArray& roOther)
{
    const int32_t iOldSize = m_iSize;
    const int32_t iCount = roOther.m_iSize; // the other may be this array
    if (iCount > std::numeric_limits<int32_t>::max() - iOldSize)
    {
        KrvMFCTypes_ReportAssert(KrvMFCTypesAssert_NEGATIVE_SIZE);
        return iOldSize;
    }
    SetSize(iOldSize + iCount, -1);
    std::copy_n(roOther.Begin(), iCount, Begin() + iOldSize);
    return iOldSize;
}

template <typename TYPE, typename ARG_TYPE>
void CMArray<TYPE, ARG_TYPE>::InsertAt(int32_t iIndex, ARG_TYPE oValue, int32_t iCount)
{
    const int64_t iNewSize = std::max<int64_t>(iIndex, m_iSize) + static_cast<int64_t>(iCount);
    if (iIndex < 0 || iCount < 0 || iNewSize > std::numeric_limits<int32_t>::max())
    {
        KrvMFCTypes_ReportAssert(KrvMFCTypesAssert_BAD_INDEX);
        return;
    }
    const int32_t iOldSize = m_iSize;
    TYPE oCopy{};
    oCopy = oValue; // the value may be an element of this very array
    SetSize(static_cast<int32_t>(iNewSize), -1);
    std::fill(End() - iCount, End(), oCopy);
    if (iIndex < iOldSize)
    {
        std::rotate(Begin() + iIndex, Begin() + iOldSize, End());
    }
}

template <typename TYPE, typename ARG_TYPE>
void CMArray<TYPE, ARG_TYPE>::InsertAt(int32_t iIndex, const CMArray& roOther)
{
    const CMArray oCopy(roOther); // the other may be this array
    if (oCopy.m_iSize == 0)
    {
        return;
    }
    const int32_t iOldSize = m_iSize;
    InsertAt(iIndex, oCopy.m_poData[0], oCopy.m_iSize);
    if (m_iSize > iOldSize)
    {
        std::copy(oCopy.Begin(), oCopy.End(), Begin() + iIndex);
    }
}

template <typename TYPE, typename ARG_TYPE> void CMArray<TYPE, ARG_TYPE>::RemoveAt(int32_t iIndex, int32_t iCount)
{
    if (iIndex < 0 || iCount < 0 || iIndex > m_iSize || iCount > m_iSize - iIndex)
    {
        KrvMFCTypes_ReportAssert(KrvMFCTypesAssert_BAD_INDEX);
        return;
    }
    if (iCount > 0)
    {
        std::move(Begin() + iIndex + iCount, End(), Begin() + iIndex);
        SetSize(m_iSize - iCount, -1);
    }
}

template <typename TYPE, typename ARG_TYPE> int32_t CMArray<TYPE, ARG_TYPE>::Find(ARG_TYPE oValue, int32_t iStart) const
{
    for (int32_t iElement = std::max(iStart, 0); iElement < m_iSize; ++iElement)
    {
        if (m_poData[iElement] == oValue)
        {
            return iElement;
        }
    }
    return -1;
}

template <typename TYPE, typename ARG_TYPE> Bool32 CMArray<TYPE, ARG_TYPE>::AddIfNotPresent(ARG_TYPE oValue)
{
    if (IsPresent(oValue))
    {
        return 0;
    }
    Add(oValue);
    return 1;
}

template <typename TYPE, typename ARG_TYPE> void CMArray<TYPE, ARG_TYPE>::RemoveDuplicates()
{
    int32_t iKept = 0;
    for (int32_t iElement = 0; iElement < m_iSize; ++iElement)
    {
        if (std::find(Begin(), Begin() + iKept, m_poData[iElement]) != Begin() + iKept)
        {
            continue;
        }
        if (iKept != iElement)
        {
            m_poData[iKept] = m_poData[iElement];
        }
        ++iKept;
    }
    SetSize(iKept, -1);
}

template <typename TYPE, typename ARG_TYPE>
CMArray<TYPE, ARG_TYPE>& CMArray<TYPE, ARG_TYPE>::operator&=(const CMArray& roOther)
{
    if (this == &roOther)
    {
        return *this;
    }
    const auto IsMissing = [&roOther](const TYPE& roElement)
    { return std::find(roOther.Begin(), roOther.End(), roElement) == roOther.End(); };
    const auto poKeptEnd = std::remove_if(Begin(), End(), IsMissing);
    SetSize(static_cast<int32_t>(poKeptEnd - Begin()), -1);
    return *this;
}

template <typename TYPE, typename ARG_TYPE>
CMArray<TYPE, ARG_TYPE>& CMArray<TYPE, ARG_TYPE>::operator|=(const CMArray& roOther)
{
    for (int32_t iElement = 0; iElement < roOther.m_iSize; ++iElement)
    {
        AddIfNotPresent(roOther.m_poData[iElement]);
    }
    return *this;
}

#endif
