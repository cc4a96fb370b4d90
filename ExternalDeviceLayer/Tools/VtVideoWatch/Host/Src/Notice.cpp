#include "Notice.h"

#include <algorithm>
#include <cstdio>

#include "Memory.h"

std::string Notice_MakeLine(std::string szText)
{
    std::ranges::replace_if(
        szText, [](char cByte) { return static_cast<unsigned char>(cByte) < ' ' || cByte == '\x7f'; }, '?');
    return szText;
}

void Notice_Say(const std::string& rszText)
{
    const CFault oFault = Memory_Try(
        [&]
        {
            const std::string szLine = "VtVideoWatch: " + Notice_MakeLine(rszText) + "\n";
            static_cast<void>(std::fwrite(szLine.data(), 1, szLine.size(), stderr));
            return CFault();
        });
    if (oFault)
    {
        static_cast<void>(std::fprintf(stderr, "VtVideoWatch: %s\n", rszText.c_str()));
    }
    static_cast<void>(std::fflush(stderr));
}

void Notice_SayWriting(const char* szWhat, const std::string& rszFile, const char* szUnit, const CFault& roFault,
                       uint64_t uiDropped)
{
    const auto fnSay = [&]
    {
        const std::string szBegin = std::string(szWhat) + " " + rszFile;
        Notice_Say(roFault
                       ? szBegin + " cannot be written (" + roFault.GetText() + "); the watch goes on, " + szUnit +
                             " wait in memory"
                       : szBegin + " is written again; " + szUnit + " dropped so far: " + std::to_string(uiDropped));
    };
    Memory_Do("a notice", fnSay);
}
