#include "ApiQuery.h"

#include <algorithm>
#include <charconv>

#include "StreamId.h"
#include "TextPart.h"
#include "WatchTexts.h"

bool ApiQuery_DecodePercent(std::string_view szText, bool bPlusIsSpace, std::string& rszDecoded)
{
    for (size_t i = 0; i < szText.size(); ++i)
    {
        if (szText[i] != '%')
        {
            rszDecoded += bPlusIsSpace && szText[i] == '+' ? ' ' : szText[i];
            continue;
        }
        uint8_t uiByte = 0;
        const char* pchDigits = szText.data() + i + 1;
        if (szText.size() - i < 3 || std::from_chars(pchDigits, pchDigits + 2, uiByte, 16).ptr != pchDigits + 2)
        {
            return false;
        }
        rszDecoded += static_cast<char>(uiByte);
        i += 2;
    }
    return true;
}

CApiQuery::CApiQuery(std::string_view szQuery, std::span<const char* const> aszNames)
{
    while (!szQuery.empty())
    {
        std::string_view szPart = TextPart_Take(szQuery, '&');
        const std::string szName(TextPart_Take(szPart, '='));
        std::string szValue;
        const bool bIsKnown = std::ranges::any_of(aszNames, [&](const char* szKnown) { return szName == szKnown; });
        if (!bIsKnown)
        {
            SetProblem("there is no parameter \"" + szName + "\" here");
        }
        else if (!ApiQuery_DecodePercent(szPart, true, szValue))
        {
            SetProblem("parameter " + szName + ": a percent sign must be followed by two hexadecimal digits");
        }
        else if (!m_oValues.emplace(szName, szValue).second)
        {
            SetProblem("parameter " + szName + " is given twice");
        }
    }
}

void CApiQuery::SetProblem(const std::string& szProblem)
{
    if (m_szProblem.empty())
    {
        m_szProblem = szProblem;
    }
}

uint64_t CApiQuery::GetNumber(const char* szName, uint64_t uiDefault, uint64_t uiLeast, uint64_t uiMost)
{
    const auto oValue = m_oValues.find(szName);
    if (oValue == m_oValues.end())
    {
        return uiDefault;
    }
    const char* pchEnd = oValue->second.data() + oValue->second.size();
    uint64_t uiNumber = 0;
    const auto oResult = std::from_chars(oValue->second.data(), pchEnd, uiNumber);
    if (oResult.ec != std::errc() || oResult.ptr != pchEnd || uiNumber < uiLeast || uiNumber > uiMost)
    {
        SetProblem("parameter " + std::string(szName) + ": give a number from " + std::to_string(uiLeast) + " to " +
                   std::to_string(uiMost));
        return uiDefault;
    }
    return uiNumber;
}

int64_t CApiQuery::GetUtc(const char* szName, int64_t iDefault)
{
    const auto oValue = m_oValues.find(szName);
    if (oValue == m_oValues.end())
    {
        return iDefault;
    }
    const std::optional<int64_t> iUtcNs = WatchTexts_FindUtc(oValue->second);
    if (!iUtcNs)
    {
        SetProblem("parameter " + std::string(szName) +
                   ": give milliseconds since 1970 in UTC, or a moment as in 2026-11-21T22:05:37Z");
    }
    return iUtcNs.value_or(iDefault);
}

std::vector<std::string> CApiQuery::GetList(const char* szName) const
{
    std::vector<std::string> aszParts;
    const auto oValue = m_oValues.find(szName);
    std::string_view szRest = oValue == m_oValues.end() ? std::string_view() : std::string_view(oValue->second);
    bool bHasMore = !szRest.empty();
    while (bHasMore)
    {
        bHasMore = szRest.find(',') != std::string_view::npos;
        aszParts.emplace_back(TextPart_Take(szRest, ','));
    }
    return aszParts;
}

SStreamKey CApiQuery::GetStream(const char* szName)
{
    const auto oValue = m_oValues.find(szName);
    const auto oStream = oValue == m_oValues.end() ? std::nullopt : StreamId_Find(oValue->second);
    if (!oStream)
    {
        SetProblem("parameter " + std::string(szName) + ": give one stream, as in IN_00 or OUT_03");
    }
    return oStream.value_or(SStreamKey());
}
