#include "TraceLine.h"

#include <charconv>
#include <string>

namespace LinuxBoard
{

namespace
{

/* The text behind "szKey = ", up to the next comma; empty when the key is not there. */
std::string_view Value(std::string_view szLine, std::string_view szKey)
{
    for (size_t uiAt = szLine.find(szKey); uiAt != std::string_view::npos; uiAt = szLine.find(szKey, uiAt + 1))
    {
        const std::string_view szRest = szLine.substr(uiAt + szKey.size());
        const bool bWhole = uiAt == 0 || szLine[uiAt - 1] == ' ';
        if (bWhole && szRest.starts_with(" = "))
            return szRest.substr(3, szRest.find_first_of(", \n", 3) - 3);
    }
    return {};
}

template <typename TInteger> bool ReadNumber(std::string_view szText, TInteger& riValue)
{
    const auto [pEnd, eError] = std::from_chars(szText.data(), szText.data() + szText.size(), riValue);
    return eError == std::errc() && pEnd == szText.data() + szText.size();
}

} // namespace

bool TraceLine_Parse(std::string_view szLine, STracedBuffer& roBuffer)
{
    constexpr std::string_view szEvent = "v4l2_dqbuf: ";
    const size_t uiAt = szLine.find(szEvent);
    if (uiAt == std::string_view::npos)
        return false;
    const std::string_view szFields = szLine.substr(uiAt + szEvent.size());
    // "type", "flags" and the like stand again in the time code, but later.
    const std::string_view szType = Value(szFields, "type");
    const std::string_view szField = Value(szFields, "field");
    roBuffer.bCapture = szType == "VIDEO_CAPTURE" || szType == "VIDEO_CAPTURE_MPLANE";
    roBuffer.bMonotonicStamp = Value(szFields, "flags").find("TIMESTAMP_MONOTONIC") != std::string_view::npos;
    roBuffer.oFrame.bError = ("|" + std::string(Value(szFields, "flags")) + "|").find("|ERROR|") != std::string::npos;
    roBuffer.oFrame.eParity = szField == "TOP"      ? EFieldParity::Top
                              : szField == "BOTTOM" ? EFieldParity::Bottom
                                                    : EFieldParity::None;
    return ReadNumber(Value(szFields, "minor"), roBuffer.iMinor) &&
           ReadNumber(Value(szFields, "timestamp"), roBuffer.oFrame.uiStampNs) &&
           ReadNumber(Value(szFields, "sequence"), roBuffer.oFrame.uiSequence);
}

} // namespace LinuxBoard
