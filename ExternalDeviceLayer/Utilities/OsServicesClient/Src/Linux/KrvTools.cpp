#include "KrvTools.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>

namespace
{

// Of the basic letters alone; std::tolower would follow the locale.
constexpr char ToLower(char cCharacter)
{
    return cCharacter >= 'A' && cCharacter <= 'Z' ? static_cast<char>(cCharacter - 'A' + 'a') : cCharacter;
}

constexpr char ToUpper(char cCharacter)
{
    return cCharacter >= 'a' && cCharacter <= 'z' ? static_cast<char>(cCharacter - 'a' + 'A') : cCharacter;
}

char* ConvertText(char* szText, uint32_t uiSize, char (*pfnConvert)(char))
{
    if (szText == nullptr)
    {
        return szText;
    }
    for (uint32_t uiIndex = 0; uiIndex < uiSize && szText[uiIndex] != '\0'; ++uiIndex)
    {
        szText[uiIndex] = pfnConvert(szText[uiIndex]);
    }
    return szText;
}

} // namespace

void KrvTools_Assert(Bool32, const char*, uint32_t) {}

int32_t KrvTools_memcmp(const void* pvLeft, const void* pvRight, uint32_t uiCount)
{
    return std::memcmp(pvLeft, pvRight, uiCount);
}

void* KrvTools_memcpy(void* pvDest, const void* pvSource, uint32_t uiCount)
{
    return std::memcpy(pvDest, pvSource, uiCount);
}

void* KrvTools_memmove(void* pvDest, const void* pvSource, uint32_t uiCount)
{
    return std::memmove(pvDest, pvSource, uiCount);
}

void* KrvTools_memset(void* pvDest, int32_t iValue, uint32_t uiCount)
{
    return std::memset(pvDest, iValue, uiCount);
}

int32_t KrvTools_strlen(const char* szText)
{
    return static_cast<int32_t>(std::strlen(szText));
}

int32_t KrvTools_strcmp(const char* szLeft, const char* szRight)
{
    return std::strcmp(szLeft, szRight);
}

int32_t KrvTools_strncmp(const char* szLeft, const char* szRight, uint32_t uiCount)
{
    return std::strncmp(szLeft, szRight, uiCount);
}

const char* KrvTools_strstr(const char* szText, const char* szNeedle)
{
    return std::strstr(szText, szNeedle);
}

const char* KrvTools_strchr(const char* szText, int32_t iCharacter)
{
    return std::strchr(szText, iCharacter);
}

const char* KrvTools_strrchr(const char* szText, int32_t iCharacter)
{
    return std::strrchr(szText, iCharacter);
}

int32_t KrvTools_wcslen(const wchar_t* szText)
{
    return static_cast<int32_t>(std::wcslen(szText));
}

int32_t KrvTools_atoi(const char* szText)
{
    return static_cast<int32_t>(std::strtol(szText, nullptr, 10));
}

int32_t KrvTools_isDigit(int32_t iCharacter)
{
    return std::isdigit(iCharacter);
}

void KrvTools_strcpy_s(char* pszDest, uint32_t uiDestSize, const char* pszSrc)
{
    std::snprintf(pszDest, uiDestSize, "%s", pszSrc);
}

int32_t KrvTools_vsprintf_s(char* pszDest, uint32_t uiDestSize, const char* pszFormat, va_list oArguments)
{
    return std::vsnprintf(pszDest, uiDestSize, pszFormat, oArguments);
}

char* KrvTools_strtok_s(char* szText, const char* szDelimiters, char** pszContext)
{
    return strtok_r(szText, szDelimiters, pszContext);
}

int32_t KrvTools_stricmp(const char* szLeft, const char* szRight)
{
    for (;; ++szLeft, ++szRight)
    {
        const auto cLeft = static_cast<signed char>(ToLower(*szLeft));
        const auto cRight = static_cast<signed char>(ToLower(*szRight));
        if (cLeft != cRight || cLeft == '\0')
        {
            return cLeft - cRight;
        }
    }
}

char* KrvTools_strupr_s(char* szText, uint32_t uiSize)
{
    return ConvertText(szText, uiSize, ToUpper);
}

char* KrvTools_strlwr_s(char* szText, uint32_t uiSize)
{
    return ConvertText(szText, uiSize, ToLower);
}

char* KrvTools_strrev(char* szText)
{
    if (szText != nullptr)
    {
        std::reverse(szText, szText + std::strlen(szText));
    }
    return szText;
}

uint32_t KrvTools_RoundedDivision(uint32_t uiDividend, uint32_t uiDivider)
{
    if (uiDivider == 0)
    {
        return 0;
    }
    const uint32_t uiQuotient = uiDividend / uiDivider;
    const uint32_t uiRemainder = uiDividend % uiDivider;
    const uint32_t uiHalf = uiDivider / 2;
    const bool bIsUp = uiDivider % 2 == 0 ? uiRemainder >= uiHalf : uiRemainder > uiHalf;
    return bIsUp ? uiQuotient + 1 : uiQuotient;
}

uint32_t KrvTools_RoundedDownDivision(uint32_t uiDividend, uint32_t uiDivider)
{
    return uiDivider == 0 ? 0 : uiDividend / uiDivider;
}

uint32_t KrvTools_RoundedUpDivision(uint32_t uiDividend, uint32_t uiDivider)
{
    if (uiDivider == 0)
    {
        return 0;
    }
    const uint32_t uiQuotient = uiDividend / uiDivider;
    return uiDividend % uiDivider == 0 ? uiQuotient : uiQuotient + 1;
}

uint32_t KrvTools_SquareRoot(uint32_t uiValue)
{
    // Newton's iteration from above. The start is also the answer for 0 and 1, so the root of 1 comes out as 0.
    uint32_t uiCurrent = uiValue / 2;
    uint32_t uiPrevious = 0;
    while (uiCurrent != uiPrevious && uiCurrent != 0)
    {
        const uint32_t uiNext = (uiValue / uiCurrent + uiCurrent) / 2;
        if (uiNext > uiCurrent)
        {
            break;
        }
        uiPrevious = uiCurrent;
        uiCurrent = uiNext;
    }
    return uiCurrent;
}

uint32_t KrvTools_GCD(uint32_t uiA, uint32_t uiB)
{
    uint32_t uiLarger = std::max(uiA, uiB);
    uint32_t uiSmaller = std::min(uiA, uiB);
    while (uiSmaller != 0)
    {
        const uint32_t uiRemainder = uiLarger % uiSmaller;
        uiLarger = uiSmaller;
        uiSmaller = uiRemainder;
    }
    return uiLarger;
}
