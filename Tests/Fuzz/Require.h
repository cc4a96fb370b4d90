// How a fuzz target says that something is wrong.
#ifndef FUZZ_REQUIRE_H
#define FUZZ_REQUIRE_H

#include <cstdlib>
#include <string>

inline void Require(bool bTrue)
{
    if (!bTrue)
    {
        std::abort();
    }
}

inline void RequireOneLine(const std::string& rszText)
{
    Require(!rszText.empty() && rszText.find('\n') == std::string::npos);
}

#endif
