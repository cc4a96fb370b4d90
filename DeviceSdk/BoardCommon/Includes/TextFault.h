/* What is wrong with a text, and where. */
#ifndef BOARD_COMMON_TEXT_FAULT_H
#define BOARD_COMMON_TEXT_FAULT_H

#include <cstdint>
#include <string>
#include <utility>

// Why a text is refused. The first fault found stands.
struct STextFault
{
    uint32_t uiLine = 1;
    std::string szText; // empty: none

    bool IsSet() const { return !szText.empty(); }
    void Set(uint32_t uiAtLine, std::string szWhat)
    {
        if (!IsSet())
        {
            uiLine = uiAtLine;
            szText = std::move(szWhat);
        }
    }
};

#endif
