#include "ListenAddress.h"

#include <algorithm>
#include <arpa/inet.h>
#include <charconv>
#include <netinet/in.h>
#include <sys/un.h>

namespace
{

constexpr const char* szUnix = "unix:";

bool ReadUnix(const std::string& rszText, SListenAddress& roAddress)
{
    roAddress.eKind = EListenKind::UNIX;
    roAddress.szHost = rszText.substr(std::char_traits<char>::length(szUnix));
    roAddress.bIsLoopback = true;
    return !roAddress.szHost.empty() && roAddress.szHost.size() < sizeof(sockaddr_un::sun_path) &&
           roAddress.szHost.find('\0') == std::string::npos;
}

bool IsLoopback(const in6_addr& roHost)
{
    return IN6_IS_ADDR_LOOPBACK(&roHost) || (IN6_IS_ADDR_V4MAPPED(&roHost) && roHost.s6_addr[12] == 127);
}

bool ReadHost(std::string szHost, SListenAddress& roAddress)
{
    // The calls below end at a zero byte.
    if (szHost.find('\0') != std::string::npos)
    {
        return false;
    }
    if (!szHost.starts_with('['))
    {
        in_addr oHost = {};
        roAddress.eKind = EListenKind::IPV4;
        roAddress.szHost = szHost;
        const bool bIsHost = inet_pton(AF_INET, szHost.c_str(), &oHost) == 1;
        roAddress.bIsLoopback = (ntohl(oHost.s_addr) >> 24) == 127;
        return bIsHost;
    }
    if (!szHost.ends_with(']'))
    {
        return false;
    }
    szHost = szHost.substr(1, szHost.size() - 2);
    const size_t uiZone = szHost.find('%');
    in6_addr oHost = {};
    roAddress.eKind = EListenKind::IPV6;
    roAddress.szHost = szHost.substr(0, uiZone);
    roAddress.szZone = uiZone == std::string::npos ? "" : szHost.substr(uiZone + 1);
    const bool bIsHost = inet_pton(AF_INET6, roAddress.szHost.c_str(), &oHost) == 1;
    roAddress.bIsLoopback = IsLoopback(oHost);
    return bIsHost && (uiZone == std::string::npos || !roAddress.szZone.empty());
}

bool ReadPort(const char* pchBegin, const char* pchEnd, uint16_t& ruiPort)
{
    const auto oResult = std::from_chars(pchBegin, pchEnd, ruiPort);
    return oResult.ec == std::errc() && oResult.ptr == pchEnd;
}

} // namespace

CFault ListenAddress_Read(const std::string& rszText, SListenAddress& roAddress)
{
    roAddress = {};
    if (rszText.starts_with(szUnix) && ReadUnix(rszText, roAddress))
    {
        return {};
    }
    const size_t uiColon = rszText.rfind(':');
    if (uiColon != std::string::npos &&
        ReadPort(rszText.data() + uiColon + 1, rszText.data() + rszText.size(), roAddress.uiPort) &&
        ReadHost(rszText.substr(0, uiColon), roAddress))
    {
        return {};
    }
    return CFault("cannot listen on \"" + rszText + "\": give ADDRESS:PORT in numbers, [ADDRESS]:PORT or unix:PATH" +
                  (rszText.starts_with(szUnix) ? ", of 107 bytes at most" : ""));
}

std::string ListenAddress_Print(const SListenAddress& roAddress)
{
    const std::string szPort = ":" + std::to_string(roAddress.uiPort);
    switch (roAddress.eKind)
    {
    case EListenKind::UNIX:
        return szUnix + roAddress.szHost;
    case EListenKind::IPV6:
        return "[" + roAddress.szHost + (roAddress.szZone.empty() ? "" : "%" + roAddress.szZone) + "]" + szPort;
    default:
        return roAddress.szHost + szPort;
    }
}

bool ListenAddress_IsLoopbackHost(const std::string& rszHost)
{
    constexpr std::string_view szLocalhost = "localhost";
    const auto IsSame = [](char ch, char chLower) { return (ch >= 'A' && ch <= 'Z' ? ch + 32 : ch) == chLower; };
    if (std::ranges::equal(rszHost, szLocalhost, IsSame))
    {
        return true;
    }
    SListenAddress oAddress;
    return ReadHost(rszHost, oAddress) && oAddress.bIsLoopback;
}
