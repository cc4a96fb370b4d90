#include "TextFormat.h"

#include <cstdarg>
#include <cstdio>

std::string TextFormat_Print(const char* szFormat, ...)
{
    char szText[512];
    std::va_list oArguments;
    va_start(oArguments, szFormat);
    static_cast<void>(std::vsnprintf(szText, sizeof(szText), szFormat, oArguments));
    va_end(oArguments);
    return szText;
}

std::string TextFormat_Count(uint64_t uiCount, const char* szOne)
{
    return std::to_string(uiCount) + " " + szOne + (uiCount == 1 ? "" : "s");
}
