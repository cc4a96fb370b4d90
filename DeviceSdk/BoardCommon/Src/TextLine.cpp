// See TextLine.h.
#include "TextLine.h"

#include <algorithm>

std::string TextLine_Make(std::string szText)
{
    const auto fnIsControl = [](char cCharacter)
    { return static_cast<unsigned char>(cCharacter) < 0x20 || cCharacter == 0x7F; };
    std::ranges::replace_if(szText, fnIsControl, ' ');
    return szText;
}

std::string TextLine_OfFault(const std::string& rszFile, const STextFault& roFault)
{
    return TextLine_Make(rszFile + ":" + std::to_string(roFault.uiLine) + ": " + roFault.szText);
}
