#include "HttpSockets.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <dirent.h>

namespace
{

constexpr int iServerNice = 10;

sockaddr_in GetSocketAddress(const SListenAddress& roAddress)
{
    sockaddr_in oAddress = {};
    oAddress.sin_family = AF_INET;
    oAddress.sin_port = htons(roAddress.uiPort);
    inet_pton(AF_INET, roAddress.szHost.c_str(), &oAddress.sin_addr);
    return oAddress;
}

// sockaddr_in is what the calls take as a sockaddr.
sockaddr* AsSocketAddress(sockaddr_in& roAddress)
{
    return reinterpret_cast<sockaddr*>(&roAddress);
}

} // namespace

bool HttpSockets_TryListening(const SListenAddress& roAddress, std::string& rszProblem)
{
    const int iSocket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int iYes = 1;
    sockaddr_in oAddress = GetSocketAddress(roAddress);
    bool bCan = iSocket >= 0 && setsockopt(iSocket, SOL_SOCKET, SO_REUSEADDR, &iYes, sizeof(iYes)) == 0;
    bCan = bCan && bind(iSocket, AsSocketAddress(oAddress), sizeof(oAddress)) == 0 && listen(iSocket, 1) == 0;
    if (!bCan)
    {
        rszProblem = "cannot listen on " + roAddress.szHost + ":" + std::to_string(roAddress.uiPort) + ": " +
                     std::strerror(errno);
    }
    if (iSocket >= 0)
    {
        close(iSocket);
    }
    return bCan;
}

bool HttpSockets_ReadAddress(const std::string& szListen, SListenAddress& roAddress, std::string& rszProblem)
{
    if (szListen.starts_with('['))
    {
        rszProblem =
            "cannot listen on " + szListen + ": IPv6 is not supported, give an IPv4 address as in 127.0.0.1:9843";
        return false;
    }
    const size_t uiColon = szListen.rfind(':');
    in_addr oHost = {};
    if (uiColon != std::string::npos)
    {
        roAddress.szHost = szListen.substr(0, uiColon);
        const char* pchEnd = szListen.data() + szListen.size();
        const auto oResult = std::from_chars(szListen.data() + uiColon + 1, pchEnd, roAddress.uiPort);
        if (oResult.ec == std::errc() && oResult.ptr == pchEnd &&
            inet_pton(AF_INET, roAddress.szHost.c_str(), &oHost) == 1)
        {
            roAddress.bIsLoopback = (ntohl(oHost.s_addr) >> 24) == 127;
            return true;
        }
    }
    rszProblem = "cannot listen on \"" + szListen + "\": give ADDRESS:PORT in numbers, as in 127.0.0.1:9843";
    return false;
}

void HttpSockets_ShutDown(const SListenAddress& roAddress)
{
    DIR* poDirectory = opendir("/proc/self/fd");
    if (poDirectory == nullptr)
    {
        return;
    }
    const uint16_t uiPort = htons(roAddress.uiPort);
    while (const dirent* poEntry = readdir(poDirectory))
    {
        const int iSocket = std::atoi(poEntry->d_name);
        sockaddr_in oAddress = {};
        socklen_t uiSize = sizeof(oAddress);
        if (iSocket > 2 && getsockname(iSocket, AsSocketAddress(oAddress), &uiSize) == 0 &&
            oAddress.sin_family == AF_INET && oAddress.sin_port == uiPort)
        {
            shutdown(iSocket, SHUT_RDWR);
        }
    }
    closedir(poDirectory);
}

void HttpSockets_LowerThreadPriority()
{
    // On Linux a nice value belongs to a thread. If it cannot be had, the server is merely less polite.
    static_cast<void>(setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), iServerNice));
}

struct CSignalsBlocked::SMask
{
    sigset_t oBefore;
};

CSignalsBlocked::CSignalsBlocked() : m_poMask(new SMask)
{
    sigset_t oAll;
    sigfillset(&oAll);
    pthread_sigmask(SIG_SETMASK, &oAll, &m_poMask->oBefore);
}

CSignalsBlocked::~CSignalsBlocked()
{
    pthread_sigmask(SIG_SETMASK, &m_poMask->oBefore, nullptr);
    delete m_poMask;
}
