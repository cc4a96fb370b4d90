#include "UserFile.h"

#include <algorithm>
#include <cstdint>

namespace
{

// A check of this cost takes a quarter of a second; the end of the program waits for one.
constexpr int iMostCost = 12;
constexpr int iLeastCost = 4;
constexpr size_t uiHashSize = 60;
constexpr std::string_view szBase64 = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

bool IsDigit(char ch)
{
    return ch >= '0' && ch <= '9';
}

bool IsOfHash(char ch)
{
    return IsDigit(ch) || (ch >= 'A' && ch <= 'Z') || (ch >= 'a' && ch <= 'z') || ch == '.' || ch == '/';
}

// Empty when it is "$2y$05$" and 53 characters.
std::string FindHashProblem(std::string_view szHash)
{
    const bool bIsBcrypt = szHash.size() == uiHashSize && szHash.starts_with("$2") &&
                           std::string_view("aby").find(szHash[2]) != std::string_view::npos && szHash[3] == '$' &&
                           IsDigit(szHash[4]) && IsDigit(szHash[5]) && szHash[6] == '$' &&
                           std::ranges::all_of(szHash.substr(7), IsOfHash);
    if (!bIsBcrypt)
    {
        return "no bcrypt hash, as htpasswd -B makes it";
    }
    const int iCost = (szHash[4] - '0') * 10 + szHash[5] - '0';
    return iCost < iLeastCost || iCost > iMostCost
               ? "a hash of cost " + std::to_string(iCost) + "; from " + std::to_string(iLeastCost) + " to " +
                     std::to_string(iMostCost) + " are taken"
               : "";
}

std::string ReadUser(std::string_view szLine, std::vector<SUser>& raoUsers)
{
    const size_t uiColon = szLine.find(':');
    if (uiColon == 0 || uiColon == std::string_view::npos)
    {
        return "give a name, a colon and a hash";
    }
    SUser oUser;
    oUser.szName = szLine.substr(0, uiColon);
    oUser.szHash = szLine.substr(uiColon + 1);
    if (std::ranges::any_of(raoUsers, [&](const SUser& roOther) { return roOther.szName == oUser.szName; }))
    {
        return "a name for the second time";
    }
    std::string szProblem = FindHashProblem(oUser.szHash);
    if (szProblem.empty())
    {
        raoUsers.push_back(std::move(oUser));
    }
    return szProblem;
}

bool DecodeBase64(std::string_view szText, std::string& rszDecoded)
{
    uint32_t uiBits = 0;
    int iBits = 0;
    while (szText.ends_with('='))
    {
        szText.remove_suffix(1);
    }
    for (const char ch : szText)
    {
        const size_t uiValue = szBase64.find(ch);
        if (uiValue == std::string_view::npos)
        {
            return false;
        }
        uiBits = uiBits << 6 | static_cast<uint32_t>(uiValue);
        iBits += 6;
        if (iBits >= 8)
        {
            iBits -= 8;
            rszDecoded += static_cast<char>(uiBits >> iBits & 0xFFU);
        }
    }
    return true;
}

} // namespace

CFault UserFile_Read(std::string_view szText, std::vector<SUser>& raoUsers)
{
    raoUsers.clear();
    for (int iLine = 1; !szText.empty(); ++iLine)
    {
        const size_t uiEnd = std::min(szText.find('\n'), szText.size());
        std::string_view szLine = szText.substr(0, uiEnd);
        szText.remove_prefix(std::min(uiEnd + 1, szText.size()));
        if (szLine.ends_with('\r'))
        {
            szLine.remove_suffix(1);
        }
        const std::string szFault = szLine.empty() || szLine.starts_with('#') ? "" : ReadUser(szLine, raoUsers);
        if (!szFault.empty())
        {
            return CFault("line " + std::to_string(iLine) + ": " + szFault);
        }
    }
    return raoUsers.empty() ? CFault("no users in it") : CFault();
}

bool UserFile_ReadAuthorization(std::string_view szHeader, SCredentials& roCredentials)
{
    constexpr std::string_view szBasic = "basic ";
    const auto IsSame = [](char ch, char chLower) { return (ch >= 'A' && ch <= 'Z' ? ch + 32 : ch) == chLower; };
    if (!std::ranges::equal(szHeader.substr(0, szBasic.size()), szBasic, IsSame))
    {
        return false;
    }
    szHeader.remove_prefix(szBasic.size());
    szHeader.remove_prefix(std::min(szHeader.find_first_not_of(' '), szHeader.size()));
    std::string szBoth;
    if (!DecodeBase64(szHeader, szBoth) || szBoth.find(':') == std::string::npos ||
        szBoth.find('\0') != std::string::npos)
    {
        return false;
    }
    roCredentials.szName = szBoth.substr(0, szBoth.find(':'));
    roCredentials.szPassword = szBoth.substr(szBoth.find(':') + 1);
    return true;
}
