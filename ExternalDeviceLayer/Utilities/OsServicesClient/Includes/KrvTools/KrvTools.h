/*
 * String, memory and integer tools under one plain set of names, so that the layers above never call the C runtime
 * directly. All of them work on the caller's memory alone, keep no state and are thread-safe; none blocks.
 * Counts and sizes are unsigned 32-bit and in characters or bytes. Texts are 8-bit and zero-terminated; a null text
 * is the caller's fault unless a function says otherwise.
 */
#ifndef KRV_TOOLS_H
#define KRV_TOOLS_H

#include <cstdarg>

#include "KrvTypes.h"

/* Where a failed check ends after it was reported. Does nothing on this platform: execution always continues. */
void KrvTools_Assert(Bool32 bCondition, const char* szFilePath, uint32_t uiLine);

/* The standard calls of the same names. Results: the sign of the comparison, the destination. */
int32_t KrvTools_memcmp(const void* pvLeft, const void* pvRight, uint32_t uiCount);
void* KrvTools_memcpy(void* pvDest, const void* pvSource, uint32_t uiCount);
void* KrvTools_memmove(void* pvDest, const void* pvSource, uint32_t uiCount);
void* KrvTools_memset(void* pvDest, int32_t iValue, uint32_t uiCount);

/* The standard calls of the same names; the length is cut to 32 bits, a search without a hit gives null. */
int32_t KrvTools_strlen(const char* szText);
int32_t KrvTools_strcmp(const char* szLeft, const char* szRight);
int32_t KrvTools_strncmp(const char* szLeft, const char* szRight, uint32_t uiCount);
const char* KrvTools_strstr(const char* szText, const char* szNeedle);
const char* KrvTools_strchr(const char* szText, int32_t iCharacter);
const char* KrvTools_strrchr(const char* szText, int32_t iCharacter);
int32_t KrvTools_wcslen(const wchar_t* szText);

/* The decimal number that the text begins with, cut to 32 bits; 0 without one. */
int32_t KrvTools_atoi(const char* szText);

/* Non-zero if the character is a decimal digit. */
int32_t KrvTools_isDigit(int32_t iCharacter);

/* Copies at most uiDestSize - 1 characters and terminates, for any size but 0; longer text is cut silently. */
void KrvTools_strcpy_s(char* pszDest, uint32_t uiDestSize, const char* pszSrc);

/*
 * Formats with the same bound. Returns the length that the whole text would have had, negative if it cannot be
 * formatted.
 */
[[gnu::format(printf, 3, 0)]] int32_t KrvTools_vsprintf_s(char* pszDest, uint32_t uiDestSize, const char* pszFormat,
                                                          va_list oArguments);

/* Next token of szText (null: of the text that *pszContext remembers), or null; cuts the text in place. */
char* KrvTools_strtok_s(char* szText, const char* szDelimiters, char** pszContext);

/*
 * Compares without regard to the case of 'A' to 'Z', whatever the locale. Returns the difference of the first two
 * characters that differ, as signed 8-bit values, or 0.
 */
int32_t KrvTools_stricmp(const char* szLeft, const char* szRight);

/*
 * Change the case of the basic letters in place, up to the terminator or uiSize characters. A null text or a size of
 * 0 changes nothing. Both return the text.
 */
char* KrvTools_strupr_s(char* szText, uint32_t uiSize);
char* KrvTools_strlwr_s(char* szText, uint32_t uiSize);

/* Reverses the text in place and returns it; null is returned as it is. */
char* KrvTools_strrev(char* szText);

/* Quotients rounded to the nearest (halves up), down and up. A divider of 0 gives 0. */
uint32_t KrvTools_RoundedDivision(uint32_t uiDividend, uint32_t uiDivider);
uint32_t KrvTools_RoundedDownDivision(uint32_t uiDividend, uint32_t uiDivider);
uint32_t KrvTools_RoundedUpDivision(uint32_t uiDividend, uint32_t uiDivider);

/* Integer square root, rounded down; 1 gives 0. */
uint32_t KrvTools_SquareRoot(uint32_t uiValue);

/* Greatest common divisor; if one value is 0, the other one. */
uint32_t KrvTools_GCD(uint32_t uiA, uint32_t uiB);

#endif
