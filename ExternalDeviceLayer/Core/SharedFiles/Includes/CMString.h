/*
 * Reference-counted text. Copies share one unchanging block and may live in different threads; a single object
 * belongs to one thread at a time. The empty text has no block. Lengths are in characters, without the terminator.
 */
#ifndef CM_STRING_H
#define CM_STRING_H

#include <compare>
#include <cstdarg>
#include <cstdint>

class CMString
{
public:
    CMString() = default;
    CMString(const char* szText); // null is the empty text
    CMString(const CMString& roOther);
    CMString(CMString&& roOther) noexcept;
    CMString& operator=(const CMString& roOther);
    CMString& operator=(CMString&& roOther) noexcept;
    CMString& operator=(const char* szText);
    ~CMString();

    /*
     * Replace and extend the text, printf style and of any length. Arguments may point into the text itself. A text
     * that cannot be formatted leaves the old one.
     */
    [[gnu::format(printf, 2, 3)]] void Format(const char* pszFormat, ...);
    [[gnu::format(printf, 2, 3)]] void AppendFormat(const char* pszFormat, ...);

    /* Never null; valid until the object changes or ends. */
    const char* GetString() const;
    int32_t GetLength() const;
    bool IsEmpty() const { return m_poBlock == nullptr; }

    /* Below, equal to or above 0 as this text stands before, at or behind the other in the order of its bytes. */
    int32_t Compare(const char* szOther) const;
    friend bool operator==(const CMString& roLeft, const CMString& roRight)
    {
        return roLeft.Compare(roRight.GetString()) == 0;
    }
    friend bool operator==(const CMString& roLeft, const char* szRight) { return roLeft.Compare(szRight) == 0; }
    friend std::strong_ordering operator<=>(const CMString& roLeft, const CMString& roRight)
    {
        return roLeft.Compare(roRight.GetString()) <=> 0;
    }

private:
    struct SBlock;

    [[gnu::format(printf, 3, 0)]] void FormatBehind(int32_t iKeptLength, const char* pszFormat, va_list oArguments);
    static SBlock* NewBlock(int32_t iLength);
    void Release();

    SBlock* m_poBlock = nullptr; // null for the empty text
};

#endif
