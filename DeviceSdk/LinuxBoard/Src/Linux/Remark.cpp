#include "Remark.h"

#include <algorithm>
#include <cstdio>
#include <syslog.h>

namespace
{

/* Names come from outside: what would break a line or move a cursor becomes a blank. */
std::string OneLine(std::string szText)
{
    std::replace_if(
        szText.begin(), szText.end(),
        [](char cCharacter) { return static_cast<unsigned char>(cCharacter) < 0x20 || cCharacter == 0x7F; }, ' ');
    return szText;
}

} // namespace

void Remark_Say(const std::string& szText)
{
    Remark_SayPlain("libVeltrano (Linux): " + szText);
}

void Remark_SayPlain(const std::string& szText)
{
    const std::string szLine = OneLine(szText);
    std::fprintf(stderr, "%s\n", szLine.c_str());
    syslog(LOG_USER | LOG_NOTICE, "%s", szLine.c_str());
}
