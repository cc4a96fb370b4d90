#include "StreamName.h"

#include <algorithm>

#include "VtTypes.h"

namespace
{

constexpr size_t uiMaxLength = VtTextSize_CONNECTOR_NAME - 1;

std::string Bracketed(std::string_view szRemark)
{
    return szRemark.empty() ? std::string() : " (" + std::string(szRemark) + ")";
}

/* The longest beginning of szText of at most uiLength bytes that splits no UTF-8 character. */
std::string_view Beginning(std::string_view szText, size_t uiLength)
{
    if (szText.size() <= uiLength)
    {
        return szText;
    }
    while (uiLength > 0 && (static_cast<unsigned char>(szText[uiLength]) & 0xC0U) == 0x80U)
    {
        uiLength--;
    }
    return szText.substr(0, uiLength);
}

} // namespace

SStreamName StreamName_Build(std::string_view szName, std::string_view szRemark, std::string_view szShortRemark)
{
    SStreamName oName;
    std::string szSuffix = Bracketed(szRemark);
    if (szName.size() + szSuffix.size() > uiMaxLength)
    {
        oName.bCut = true;
        if (!szShortRemark.empty())
        {
            szSuffix = Bracketed(szShortRemark);
        }
    }
    oName.szText = std::string(Beginning(szName, uiMaxLength - std::min(szSuffix.size(), uiMaxLength))) + szSuffix;
    std::replace_if(
        oName.szText.begin(), oName.szText.end(),
        [](char cCharacter) { return static_cast<unsigned char>(cCharacter) < 0x20 || cCharacter == 0x7F; }, '?');
    return oName;
}
