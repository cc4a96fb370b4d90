#include "BoardText.h"

#include <cstddef>
#include <cstdint>

#include "KrvTools.h"

namespace
{

// A lead byte of UTF-8: what of it belongs to the character, and the smallest character that needs this length.
struct SLeadByte
{
    uint8_t uiMask;
    uint8_t uiMark;
    uint8_t uiNbOfFollowing;
    uint32_t uiSmallest;
};

constexpr SLeadByte aoLeadBytes[] = {
    {0xE0, 0xC0, 1, 0x80},
    {0xF0, 0xE0, 2, 0x800},
    {0xF8, 0xF0, 3, 0x10000},
};

struct SRange
{
    uint32_t uiFirst;
    uint32_t uiLast;
};

// Controls, line and paragraph separators, marks of direction, surrogates, and what lies behind the last character.
constexpr SRange aoNotPrintable[] = {
    {0x00, 0x1F},     {0x7F, 0x9F},     {0x061C, 0x061C}, {0x200E, 0x200F},       {0x2028, 0x202E},
    {0x2066, 0x2069}, {0xD800, 0xDFFF}, {0xFFFE, 0xFFFF}, {0x110000, UINT32_MAX},
};

bool IsPrintable(uint32_t uiCharacter)
{
    for (const SRange& roRange : aoNotPrintable)
    {
        if (uiCharacter >= roRange.uiFirst && uiCharacter <= roRange.uiLast)
        {
            return false;
        }
    }
    return true;
}

// Length in bytes of the printable character that the text begins with; 0 when it begins with none.
size_t PrintableLength(std::span<const char> szText)
{
    const uint32_t uiLead = static_cast<uint8_t>(szText.front());
    if (uiLead < 0x80)
    {
        return IsPrintable(uiLead) ? 1 : 0;
    }
    for (const SLeadByte& roLead : aoLeadBytes)
    {
        if ((uiLead & roLead.uiMask) != roLead.uiMark || szText.size() <= roLead.uiNbOfFollowing)
        {
            continue;
        }
        uint32_t uiCharacter = uiLead & ~static_cast<uint32_t>(roLead.uiMask);
        for (const char cFollowing : szText.subspan(1, roLead.uiNbOfFollowing))
        {
            const uint32_t uiFollowing = static_cast<uint8_t>(cFollowing);
            if ((uiFollowing & 0xC0) != 0x80)
            {
                return 0;
            }
            uiCharacter = uiCharacter << 6 | (uiFollowing & 0x3F);
        }
        // A longer form than needed would bring a control past the ranges.
        return uiCharacter >= roLead.uiSmallest && IsPrintable(uiCharacter) ? roLead.uiNbOfFollowing + 1U : 0;
    }
    return 0;
}

} // namespace

void MakePrintable(std::span<char> szText)
{
    while (!szText.empty() && szText.front() != '\0')
    {
        size_t uiLength = PrintableLength(szText);
        if (uiLength == 0)
        {
            szText.front() = '?';
            uiLength = 1;
        }
        szText = szText.subspan(uiLength);
    }
}

void CopyBoardText(std::span<char> szText, VTSTR64& szCopy)
{
    szText.back() = '\0';
    // Cut first, so that no half character stands at the end of the copy.
    KrvTools_strcpy_s(szCopy, sizeof(szCopy), szText.data());
    MakePrintable(szCopy);
}
