/*
 * Texts from outside, part by part. No state; any thread.
 */
#ifndef TEXT_PART_H
#define TEXT_PART_H

#include <algorithm>
#include <string_view>

/* Splits off what stands before a separator, and takes both off the front of the text. */
inline std::string_view TextPart_Take(std::string_view& rszText, char chSeparator)
{
    const size_t uiEnd = std::min(rszText.find(chSeparator), rszText.size());
    const std::string_view szPart = rszText.substr(0, uiEnd);
    rszText.remove_prefix(std::min(uiEnd + 1, rszText.size()));
    return szPart;
}

#endif
