#include "Notice.h"

#include <algorithm>
#include <cstdio>

std::string Notice_MakeLine(std::string szText)
{
    std::ranges::replace_if(
        szText, [](char cByte) { return static_cast<unsigned char>(cByte) < ' ' || cByte == '\x7f'; }, '?');
    return szText;
}

void Notice_Say(const std::string& rszText)
{
    const std::string szLine = "VtVideoWatch: " + Notice_MakeLine(rszText) + "\n";
    static_cast<void>(std::fwrite(szLine.data(), 1, szLine.size(), stderr));
    static_cast<void>(std::fflush(stderr));
}
