#include "Notice.h"

#include <cstdio>

void Notice_Say(const std::string& rszText)
{
    const std::string szLine = "VtVideoWatch: " + rszText + "\n";
    static_cast<void>(std::fwrite(szLine.data(), 1, szLine.size(), stderr));
    static_cast<void>(std::fflush(stderr));
}
