/*
 * Texts by printf's formats. No state; any thread.
 */
#ifndef TEXT_FORMAT_H
#define TEXT_FORMAT_H

#include <cstdint>
#include <string>

/* What printf would print, cut to 511 bytes. */
[[gnu::format(printf, 1, 2)]] std::string TextFormat_Print(const char* szFormat, ...);

/* "1 field", "2 fields" */
std::string TextFormat_Count(uint64_t uiCount, const char* szOne);

#endif
