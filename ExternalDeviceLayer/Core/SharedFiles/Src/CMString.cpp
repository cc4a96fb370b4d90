#include "CMString.h"

#include <atomic>
#include <limits>
#include <new>
#include <utility>

#include "CMAllocator.h"
#include "KrvTools.h"

// The count stands before the text in one block; the text never changes once another object can see it.
struct CMString::SBlock
{
    std::atomic<uint32_t> uiReferences{1};
    int32_t iLength = 0;

    char* Text() { return reinterpret_cast<char*>(this + 1); }
};

CMString::CMString(const char* szText)
{
    const int32_t iLength = szText != nullptr ? KrvTools_strlen(szText) : 0;
    if (iLength > 0)
    {
        m_poBlock = NewBlock(iLength);
        KrvTools_memcpy(m_poBlock->Text(), szText, static_cast<uint32_t>(iLength));
    }
}

CMString::CMString(const CMString& roOther) : m_poBlock(roOther.m_poBlock)
{
    if (m_poBlock != nullptr)
    {
        m_poBlock->uiReferences.fetch_add(1, std::memory_order_relaxed);
    }
}

CMString::CMString(CMString&& roOther) noexcept : m_poBlock(std::exchange(roOther.m_poBlock, nullptr)) {}

CMString& CMString::operator=(const CMString& roOther)
{
    CMString oCopy(roOther);
    std::swap(m_poBlock, oCopy.m_poBlock);
    return *this;
}

CMString& CMString::operator=(CMString&& roOther) noexcept
{
    CMString oTaken(std::move(roOther));
    std::swap(m_poBlock, oTaken.m_poBlock);
    return *this;
}

CMString& CMString::operator=(const char* szText)
{
    return *this = CMString(szText); // a copy first: the text may be our own
}

CMString::~CMString()
{
    Release();
}

void CMString::Format(const char* pszFormat, ...)
{
    va_list oArguments;
    va_start(oArguments, pszFormat);
    FormatBehind(0, pszFormat, oArguments);
    va_end(oArguments);
}

void CMString::AppendFormat(const char* pszFormat, ...)
{
    va_list oArguments;
    va_start(oArguments, pszFormat);
    FormatBehind(GetLength(), pszFormat, oArguments);
    va_end(oArguments);
}

const char* CMString::GetString() const
{
    return m_poBlock != nullptr ? m_poBlock->Text() : "";
}

int32_t CMString::GetLength() const
{
    return m_poBlock != nullptr ? m_poBlock->iLength : 0;
}

int32_t CMString::Compare(const char* szOther) const
{
    return KrvTools_strcmp(GetString(), szOther != nullptr ? szOther : "");
}

// The first iKeptLength characters stay, the formatted text follows. The old block lives until the new one stands,
// because arguments may point into it.
void CMString::FormatBehind(int32_t iKeptLength, const char* pszFormat, va_list oArguments)
{
    va_list oMeasured;
    va_copy(oMeasured, oArguments);
    const int32_t iAdded = KrvTools_vsprintf_s(nullptr, 0, pszFormat, oMeasured);
    va_end(oMeasured);
    if (iAdded < 0 || iAdded > std::numeric_limits<int32_t>::max() - 1 - iKeptLength)
    {
        return;
    }
    CMString oResult;
    if (iKeptLength + iAdded > 0)
    {
        oResult.m_poBlock = NewBlock(iKeptLength + iAdded);
        char* const szText = oResult.m_poBlock->Text();
        KrvTools_memcpy(szText, GetString(), static_cast<uint32_t>(iKeptLength));
        KrvTools_vsprintf_s(szText + iKeptLength, static_cast<uint32_t>(iAdded) + 1, pszFormat, oArguments);
    }
    std::swap(m_poBlock, oResult.m_poBlock);
}

// A block for a text of this length, terminated, with one reference.
CMString::SBlock* CMString::NewBlock(int32_t iLength)
{
    void* const pvBlock = CMAllocator::AllocBlock(sizeof(SBlock) + static_cast<uint64_t>(iLength) + 1);
    SBlock* const poBlock = ::new (pvBlock) SBlock;
    poBlock->iLength = iLength;
    poBlock->Text()[iLength] = '\0';
    return poBlock;
}

void CMString::Release()
{
    // The last release must see everything that the other objects did with the block.
    if (m_poBlock != nullptr && m_poBlock->uiReferences.fetch_sub(1, std::memory_order_acq_rel) == 1)
    {
        m_poBlock->~SBlock();
        CMAllocator::FreeBlock(m_poBlock);
    }
    m_poBlock = nullptr;
}
