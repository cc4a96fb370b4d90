#include "HttpRequest.h"

#include <algorithm>
#include <optional>

#include "ApiQuery.h"
#include "TextPart.h"

namespace
{

char ToLower(char ch)
{
    return ch >= 'A' && ch <= 'Z' ? static_cast<char>(ch + 32) : ch;
}

bool IsSameWord(std::string_view szA, std::string_view szB)
{
    return std::ranges::equal(szA, szB, {}, ToLower, ToLower);
}

std::string_view Trim(std::string_view szText)
{
    const size_t uiFrom = szText.find_first_not_of(" \t");
    return uiFrom == std::string_view::npos ? std::string_view()
                                            : szText.substr(uiFrom, szText.find_last_not_of(" \t") - uiFrom + 1);
}

constexpr int iFullWeight = 1000;

// "0.25" is 250; what is no weight at all counts as none given.
int ReadWeight(std::string_view szText)
{
    if (szText.empty() || (szText[0] != '0' && szText[0] != '1') || (szText.size() > 1 && szText[1] != '.'))
    {
        return iFullWeight;
    }
    int iWeight = (szText[0] - '0') * iFullWeight;
    int iDigit = iFullWeight / 10;
    for (size_t i = 2; i < szText.size() && szText[i] >= '0' && szText[i] <= '9'; ++i, iDigit /= 10)
    {
        iWeight += (szText[i] - '0') * iDigit;
    }
    return std::min(iWeight, iFullWeight);
}

// One part of a list: a word, and what its parameters say.
struct SRange
{
    std::string_view szWord;
    std::string_view szVersion;
    int iWeight = iFullWeight;
};

SRange ReadRange(std::string_view szPart)
{
    SRange oRange;
    oRange.szWord = Trim(TextPart_Take(szPart, ';'));
    while (!szPart.empty())
    {
        std::string_view szValue = Trim(TextPart_Take(szPart, ';'));
        const std::string_view szName = Trim(TextPart_Take(szValue, '='));
        szValue = Trim(szValue);
        if (IsSameWord(szName, "q"))
        {
            oRange.iWeight = ReadWeight(szValue);
        }
        else if (IsSameWord(szName, "version"))
        {
            oRange.szVersion = szValue;
        }
    }
    return oRange;
}

} // namespace

bool HttpRequest_ReadTarget(std::string_view szTarget, SHttpRequest& roRequest, std::string& rszHost)
{
    if (!szTarget.starts_with('/'))
    {
        const size_t uiScheme = szTarget.find("://");
        if (uiScheme == std::string_view::npos ||
            (!IsSameWord(szTarget.substr(0, uiScheme), "http") && !IsSameWord(szTarget.substr(0, uiScheme), "https")))
        {
            return false;
        }
        szTarget.remove_prefix(uiScheme + 3);
        const size_t uiPath = std::min(szTarget.find_first_of("/?"), szTarget.size());
        rszHost = szTarget.substr(0, uiPath);
        szTarget.remove_prefix(uiPath);
    }
    const size_t uiQuery = std::min(szTarget.find('?'), szTarget.size());
    roRequest.szQuery = szTarget.substr(std::min(uiQuery + 1, szTarget.size()));
    roRequest.szPath.clear();
    const bool bIsWhole = ApiQuery_DecodePercent(szTarget.substr(0, uiQuery), false, roRequest.szPath);
    roRequest.szPath = roRequest.szPath.empty() ? "/" : roRequest.szPath;
    return bIsWhole;
}

std::string_view HttpRequest_GetHostName(std::string_view szHost)
{
    const size_t uiColon = szHost.rfind(':');
    const size_t uiBracket = szHost.rfind(']');
    const bool bHasPort =
        uiColon != std::string_view::npos && (uiBracket == std::string_view::npos || uiBracket < uiColon);
    return bHasPort ? szHost.substr(0, uiColon) : szHost;
}

bool HttpRequest_AcceptsGzip(std::string_view szAcceptEncoding)
{
    bool bTakesAny = false;
    while (!szAcceptEncoding.empty())
    {
        const SRange oRange = ReadRange(Trim(TextPart_Take(szAcceptEncoding, ',')));
        if (IsSameWord(oRange.szWord, "gzip") || IsSameWord(oRange.szWord, "x-gzip"))
        {
            return oRange.iWeight > 0;
        }
        bTakesAny = bTakesAny || (oRange.szWord == "*" && oRange.iWeight > 0);
    }
    return bTakesAny;
}

int HttpRequest_GetAcceptWeight(std::string_view szAccept, std::string_view szType, std::string_view szVersion)
{
    const std::string szGroup = std::string(szType.substr(0, szType.find('/'))) + "/*";
    int iWeight = 0;
    int iClosest = 0;
    while (!szAccept.empty())
    {
        const SRange oRange = ReadRange(Trim(TextPart_Take(szAccept, ',')));
        const int iCloseness = IsSameWord(oRange.szWord, szType)    ? 3
                               : IsSameWord(oRange.szWord, szGroup) ? 2
                               : oRange.szWord == "*/*"             ? 1
                                                                    : 0;
        if (iCloseness == 0 || (!oRange.szVersion.empty() && !szVersion.empty() && oRange.szVersion != szVersion))
        {
            continue;
        }
        iWeight = iCloseness > iClosest    ? oRange.iWeight
                  : iCloseness == iClosest ? std::max(iWeight, oRange.iWeight)
                                           : iWeight;
        iClosest = std::max(iClosest, iCloseness);
    }
    return iWeight;
}

bool HttpRequest_HasTag(std::string_view szIfNoneMatch, std::string_view szETag)
{
    while (!szIfNoneMatch.empty())
    {
        std::string_view szPart = Trim(TextPart_Take(szIfNoneMatch, ','));
        if (szPart.starts_with("W/"))
        {
            szPart.remove_prefix(2);
        }
        if (szPart == "*" || szPart == szETag)
        {
            return true;
        }
    }
    return false;
}
