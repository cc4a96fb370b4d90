#include "HttpSockets.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <net/if.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

namespace
{

constexpr int iServerNice = 10;
constexpr int iBacklog = 511;

union USocketAddress
{
    sockaddr oAny;
    sockaddr_in oIpv4;
    sockaddr_in6 oIpv6;
    sockaddr_un oUnix;
};

socklen_t Fill(const SListenAddress& roAddress, USocketAddress& ruAddress)
{
    std::memset(&ruAddress, 0, sizeof(ruAddress));
    switch (roAddress.eKind)
    {
    case EListenKind::UNIX:
        ruAddress.oUnix.sun_family = AF_UNIX;
        roAddress.szHost.copy(ruAddress.oUnix.sun_path, sizeof(ruAddress.oUnix.sun_path) - 1);
        return sizeof(ruAddress.oUnix);
    case EListenKind::IPV6:
        ruAddress.oIpv6.sin6_family = AF_INET6;
        ruAddress.oIpv6.sin6_port = htons(roAddress.uiPort);
        ruAddress.oIpv6.sin6_scope_id = roAddress.szZone.empty() ? 0 : if_nametoindex(roAddress.szZone.c_str());
        inet_pton(AF_INET6, roAddress.szHost.c_str(), &ruAddress.oIpv6.sin6_addr);
        return sizeof(ruAddress.oIpv6);
    default:
        ruAddress.oIpv4.sin_family = AF_INET;
        ruAddress.oIpv4.sin_port = htons(roAddress.uiPort);
        inet_pton(AF_INET, roAddress.szHost.c_str(), &ruAddress.oIpv4.sin_addr);
        return sizeof(ruAddress.oIpv4);
    }
}

// A socket file whose owner was killed stays behind; nobody answers there.
void RemoveStale(const USocketAddress& ruAddress)
{
    struct stat oStat = {};
    const int iProbe = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (lstat(ruAddress.oUnix.sun_path, &oStat) == 0 && S_ISSOCK(oStat.st_mode) &&
        connect(iProbe, &ruAddress.oAny, sizeof(ruAddress.oUnix)) != 0 && errno == ECONNREFUSED)
    {
        unlink(ruAddress.oUnix.sun_path);
    }
    close(iProbe);
}

bool SetOwners(const SHttpListener& roListener, const SHttpSocketFile& roFile)
{
    const char* szPath = roListener.oAddress.szHost.c_str();
    // A name of the system's own list; that is not for several threads, and only one starts a server.
    const group* poGroup = roFile.szGroup.empty() ? nullptr : getgrnam(roFile.szGroup.c_str());
    return (poGroup == nullptr || chown(szPath, static_cast<uid_t>(-1), poGroup->gr_gid) == 0) &&
           chmod(szPath, roFile.uiMode) == 0;
}

bool Bind(SHttpListener& roListener, const SHttpSocketFile& roFile)
{
    USocketAddress uAddress;
    const socklen_t uiSize = Fill(roListener.oAddress, uAddress);
    const int iYes = 1;
    const int iNo = 0;
    roListener.iSocket = socket(uAddress.oAny.sa_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (roListener.iSocket < 0)
    {
        return false;
    }
    if (roListener.oAddress.eKind == EListenKind::UNIX)
    {
        RemoveStale(uAddress);
        // Nobody else's before its owners are set: the file gets the rights of the socket.
        fchmod(roListener.iSocket, 0600);
    }
    else
    {
        setsockopt(roListener.iSocket, SOL_SOCKET, SO_REUSEADDR, &iYes, sizeof(iYes));
    }
    if (roListener.oAddress.eKind == EListenKind::IPV6)
    {
        // [::] is meant for both families, whatever the system's default.
        setsockopt(roListener.iSocket, IPPROTO_IPV6, IPV6_V6ONLY, &iNo, sizeof(iNo));
    }
    if (bind(roListener.iSocket, &uAddress.oAny, uiSize) != 0)
    {
        return false;
    }
    roListener.bIsFile = roListener.oAddress.eKind == EListenKind::UNIX;
    return (!roListener.bIsFile || SetOwners(roListener, roFile)) && listen(roListener.iSocket, iBacklog) == 0;
}

// The address that a socket is bound to.
SListenAddress GetAddress(int iSocket)
{
    USocketAddress uAddress = {};
    socklen_t uiSize = sizeof(uAddress);
    char szHost[INET6_ADDRSTRLEN] = "";
    char szZone[IF_NAMESIZE] = "";
    SListenAddress oAddress;
    getsockname(iSocket, &uAddress.oAny, &uiSize);
    if (uAddress.oAny.sa_family == AF_UNIX)
    {
        oAddress.eKind = EListenKind::UNIX;
        oAddress.szHost = uAddress.oUnix.sun_path;
        oAddress.bIsLoopback = true;
        return oAddress;
    }
    // Both families have their port in the same place.
    const std::string szPort = ":" + std::to_string(ntohs(uAddress.oIpv4.sin_port));
    std::string szText = inet_ntop(AF_INET, &uAddress.oIpv4.sin_addr, szHost, sizeof(szHost)) + szPort;
    if (uAddress.oAny.sa_family == AF_INET6)
    {
        const bool bHasZone =
            uAddress.oIpv6.sin6_scope_id != 0 && if_indextoname(uAddress.oIpv6.sin6_scope_id, szZone) != nullptr;
        inet_ntop(AF_INET6, &uAddress.oIpv6.sin6_addr, szHost, sizeof(szHost));
        szText = std::string("[") + szHost + (bHasZone ? "%" : "") + szZone + "]" + szPort;
    }
    static_cast<void>(ListenAddress_Read(szText, oAddress));
    return oAddress;
}

} // namespace

CFault HttpSockets_Listen(const SListenAddress& roAddress, const SHttpSocketFile& roFile, SHttpListener& roListener)
{
    roListener.oAddress = roAddress;
    if (!roFile.szGroup.empty() && getgrnam(roFile.szGroup.c_str()) == nullptr)
    {
        return CFault("--socket-group: there is no group " + roFile.szGroup);
    }
    if (!Bind(roListener, roFile))
    {
        CFault oFault("cannot listen on " + ListenAddress_Print(roAddress) + ": " + std::strerror(errno));
        HttpSockets_Close(roListener);
        return oFault;
    }
    if (roAddress.eKind != EListenKind::UNIX)
    {
        roListener.oAddress.uiPort = GetAddress(roListener.iSocket).uiPort;
    }
    return {};
}

CFault HttpSockets_TakeGiven(std::vector<SHttpListener>& raoListeners)
{
    const int iSockets = sd_listen_fds(1);
    for (int iSocket = SD_LISTEN_FDS_START; iSocket < SD_LISTEN_FDS_START + iSockets; ++iSocket)
    {
        SHttpListener oListener;
        oListener.iSocket = iSocket;
        raoListeners.push_back(oListener);
        if (sd_is_socket(iSocket, AF_UNSPEC, SOCK_STREAM, 1) <= 0)
        {
            return CFault("cannot serve: file " + std::to_string(iSocket) +
                          " was handed over, and is no socket to listen on");
        }
        fcntl(iSocket, F_SETFL, fcntl(iSocket, F_GETFL) | O_NONBLOCK);
        raoListeners.back().oAddress = GetAddress(iSocket);
    }
    return {};
}

void HttpSockets_Close(SHttpListener& roListener)
{
    if (roListener.iSocket >= 0)
    {
        close(roListener.iSocket);
    }
    if (roListener.bIsFile)
    {
        unlink(roListener.oAddress.szHost.c_str());
    }
    roListener.iSocket = -1;
    roListener.bIsFile = false;
}

int HttpSockets_Accept(const SHttpListener& roListener)
{
    const int iSocket = accept4(roListener.iSocket, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    const int iYes = 1;
    if (iSocket >= 0 && roListener.oAddress.eKind != EListenKind::UNIX)
    {
        setsockopt(iSocket, IPPROTO_TCP, TCP_NODELAY, &iYes, sizeof(iYes));
    }
    return iSocket;
}

size_t HttpSockets_CountFreeFiles()
{
    rlimit oLimit = {};
    DIR* poDirectory = opendir("/proc/self/fd");
    if (poDirectory == nullptr || getrlimit(RLIMIT_NOFILE, &oLimit) != 0)
    {
        return 0;
    }
    size_t uiOpen = 0;
    while (readdir(poDirectory) != nullptr)
    {
        ++uiOpen;
    }
    closedir(poDirectory);
    // Among them were this folder itself, "." and "..".
    uiOpen -= std::min<size_t>(uiOpen, 3);
    return oLimit.rlim_cur > uiOpen ? static_cast<size_t>(oLimit.rlim_cur - uiOpen) : 0;
}

void HttpSockets_LowerThreadPriority()
{
    // On Linux a nice value belongs to a thread. If it cannot be had, the server is merely less polite.
    static_cast<void>(setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), iServerNice));
}

CSignalsBlocked::CSignalsBlocked()
{
    sigset_t oAll;
    sigfillset(&oAll);
    pthread_sigmask(SIG_SETMASK, &oAll, &m_oBefore);
}

CSignalsBlocked::~CSignalsBlocked()
{
    pthread_sigmask(SIG_SETMASK, &m_oBefore, nullptr);
}
