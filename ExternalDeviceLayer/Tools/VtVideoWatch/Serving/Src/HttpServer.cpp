#include "HttpServer.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <mutex>
#include <poll.h>
#include <sys/eventfd.h>
#include <system_error>
#include <thread>
#include <unistd.h>

#include "HttpCall.h"
#include "HttpDaemon.h"
#include "HttpFiles.h"
#include "HttpSockets.h"
#include "ListenAddress.h"

namespace
{

// What it may have open at once, and what must be left for the rest of the program where files are scarce.
constexpr size_t uiMostConnections = 256;
constexpr size_t uiLeastConnections = 4;
constexpr size_t uiFilesForOthers = 8;
constexpr int iAcceptsPerTurn = 64;
constexpr int iNoFilesMs = 20;

// Of the files that may still be opened, at most half are for connections, and there may be twice as many for a moment.
size_t CountConnections()
{
    const size_t uiFree = HttpSockets_CountFreeFiles();
    return std::min(uiMostConnections, uiFree < uiFilesForOthers ? 0 : (uiFree - uiFilesForOthers) / 2);
}

} // namespace

struct SHttpServerParts
{
    SHttpServerParts() : uiConnections(CountConnections()), oService(uiConnections) {}
    ~SHttpServerParts();
    SHttpServerParts(const SHttpServerParts&) = delete;
    SHttpServerParts& operator=(const SHttpServerParts&) = delete;

    const size_t uiConnections;
    SHttpService oService;
    SHttpFiles oFiles;
    std::vector<SHttpListener> aoListeners;
    std::vector<std::string> aszAddresses;
    std::mutex oDaemonMutex; // for what follows
    SHttpKeys oKeys;
    std::unique_ptr<CHttpDaemon> poPlain;
    std::unique_ptr<CHttpDaemon> poTls; // null: everything is plain
    std::atomic<bool> bIsEnding = false;
    int iEnd = -1; // eventfd: readable at the end
    std::thread oDoor;
};

namespace
{

bool IsSecured(const SListenAddress& roAddress)
{
    return roAddress.eKind != EListenKind::UNIX;
}

void TakeOver(SHttpServerParts& roParts, const SHttpListener& roListener, int iSocket)
{
    const std::lock_guard oGuard(roParts.oDaemonMutex);
    CHttpDaemon& roDaemon =
        roParts.poTls != nullptr && IsSecured(roListener.oAddress) ? *roParts.poTls : *roParts.poPlain;
    if (roParts.oService.oConnections.Enter(iSocket, roListener, roDaemon.GetState()) == nullptr)
    {
        close(iSocket);
        return;
    }
    roDaemon.Add(iSocket);
}

// Takes in who waits at a listener. False when files are scarce.
bool TakeIn(SHttpServerParts& roParts, const SHttpListener& roListener)
{
    for (int i = 0; i < iAcceptsPerTurn; ++i)
    {
        const int iSocket = HttpSockets_Accept(roListener);
        if (iSocket < 0)
        {
            return errno != EMFILE && errno != ENFILE && errno != ENOBUFS && errno != ENOMEM;
        }
        TakeOver(roParts, roListener, iSocket);
    }
    return true;
}

// The thread that stands at the door.
void Stand(SHttpServerParts& roParts)
{
    std::vector<pollfd> aoFiles = {{roParts.iEnd, POLLIN, 0}};
    for (const SHttpListener& roListener : roParts.aoListeners)
    {
        aoFiles.push_back({roListener.iSocket, POLLIN, 0});
    }
    bool bHasFiles = true;
    while (!roParts.bIsEnding)
    {
        const int iLookMs = roParts.oService.oConnections.EndOverdue();
        poll(aoFiles.data(), bHasFiles ? aoFiles.size() : 1, bHasFiles ? iLookMs : iNoFilesMs);
        bHasFiles = true;
        for (size_t i = 1; i < aoFiles.size() && !roParts.bIsEnding; ++i)
        {
            bHasFiles = TakeIn(roParts, roParts.aoListeners[i - 1]) && bHasFiles;
        }
        if (!bHasFiles)
        {
            roParts.oService.oConnections.EndIdle();
        }
    }
}

CFault Listen(SHttpServerParts& roParts, const SHttpSetup& roSetup)
{
    if (CFault oFault = HttpSockets_TakeGiven(roParts.aoListeners))
    {
        return oFault;
    }
    std::vector<std::string> aszListen = roSetup.aszListen;
    if (aszListen.empty() && roParts.aoListeners.empty())
    {
        aszListen.emplace_back(szDefaultListen);
    }
    for (const std::string& rszListen : aszListen)
    {
        SListenAddress oAddress;
        SHttpListener oListener;
        CFault oFault = ListenAddress_Read(rszListen, oAddress);
        oFault = oFault ? oFault : HttpSockets_Listen(oAddress, roSetup.oSocketFile, oListener);
        if (oFault)
        {
            return oFault;
        }
        roParts.aoListeners.push_back(std::move(oListener));
    }
    for (const SHttpListener& roListener : roParts.aoListeners)
    {
        roParts.aszAddresses.push_back(ListenAddress_Print(roListener.oAddress));
    }
    return {};
}

// Does something in a thread of a lower priority, which the threads that it starts inherit. False when there is none.
template <typename FDo> bool DoHumbly(const FDo& roDo)
{
    const CSignalsBlocked oBlocked;
    bool bIsDone = false;
    try
    {
        std::thread(
            [&]
            {
                HttpSockets_LowerThreadPriority();
                bIsDone = roDo();
            })
            .join();
    }
    catch (const std::system_error&)
    {
        return false;
    }
    return bIsDone;
}

std::unique_ptr<CHttpDaemon> MakeDaemon(SHttpServerParts& roParts, const SHttpKeys* poKeys)
{
    auto poDaemon = std::make_unique<CHttpDaemon>(roParts.oService);
    const auto uiMost = static_cast<unsigned>(3 * roParts.uiConnections);
    return DoHumbly([&] { return poDaemon->Start(uiMost, poKeys); }) ? std::move(poDaemon) : nullptr;
}

bool OpenDoor(SHttpServerParts& roParts)
{
    try
    {
        roParts.oDoor = std::thread([&roParts] { Stand(roParts); });
    }
    catch (const std::system_error&)
    {
        return false;
    }
    return true;
}

bool StartThreads(SHttpServerParts& roParts)
{
    roParts.poPlain = MakeDaemon(roParts, nullptr);
    roParts.poTls = roParts.oKeys.szCertificate.empty() ? nullptr : MakeDaemon(roParts, &roParts.oKeys);
    const bool bHasDaemons =
        roParts.poPlain != nullptr && (roParts.poTls != nullptr || roParts.oKeys.szCertificate.empty());
    return bHasDaemons &&
           DoHumbly(
               [&roParts]
               { return OpenDoor(roParts) && roParts.oService.oJobs.Start() && roParts.oService.oChecks.Start(); });
}

CFault ReadFiles(SHttpServerParts& roParts, SHttpKeys& roKeys)
{
    std::vector<SUser> aoUsers;
    CFault oFault = HttpFiles_ReadKeys(roParts.oFiles, roKeys);
    oFault = oFault ? oFault : HttpFiles_ReadUsers(roParts.oFiles, aoUsers);
    if (!oFault)
    {
        roParts.oService.oUsers.Set(std::move(aoUsers));
    }
    return oFault;
}

} // namespace

SHttpServerParts::~SHttpServerParts()
{
    bIsEnding = true;
    if (oDoor.joinable())
    {
        static_cast<void>(eventfd_write(iEnd, 1));
        oDoor.join();
    }
    for (SHttpListener& roListener : aoListeners)
    {
        HttpSockets_Close(roListener);
    }
    oService.oJobs.End();
    oService.oChecks.End();
    if (iEnd >= 0)
    {
        close(iEnd);
    }
}

CHttpServer::CHttpServer() : m_poParts(std::make_unique<SHttpServerParts>()) {}

CHttpServer::~CHttpServer() = default;

CFault CHttpServer::Start(SHttpSetup oSetup)
{
    SHttpServerParts& roParts = *m_poParts;
    roParts.oService.oIsSlow = std::move(oSetup.oIsSlow);
    roParts.oService.oAnswer = [this, oHandler = std::move(oSetup.oHandler)](const SHttpRequest& roRequest)
    { return oHandler(*this, roRequest); };
    if (roParts.uiConnections < uiLeastConnections)
    {
        return CFault("cannot serve: too few files may be opened (see ulimit -n)");
    }
    roParts.oFiles = oSetup.oFiles;
    CFault oFault = ReadFiles(roParts, roParts.oKeys);
    oFault = oFault ? oFault : Listen(roParts, oSetup);
    if (oFault)
    {
        return oFault;
    }
    roParts.iEnd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    return roParts.iEnd < 0 || !StartThreads(roParts) ? CFault("cannot serve: the system gives no threads or files")
                                                      : CFault();
}

const std::vector<std::string>& CHttpServer::GetAddresses() const
{
    return m_poParts->aszAddresses;
}

std::vector<std::string> CHttpServer::GetUrls() const
{
    std::vector<std::string> aszUrls;
    for (const SHttpListener& roListener : m_poParts->aoListeners)
    {
        const std::string szAddress = ListenAddress_Print(roListener.oAddress);
        const char* szScheme = m_poParts->oFiles.szCertificate.empty() ? "http://" : "https://";
        aszUrls.push_back(IsSecured(roListener.oAddress) ? szScheme + szAddress + "/" : szAddress);
    }
    return aszUrls;
}

std::string CHttpServer::GetWarning() const
{
    const SHttpFiles& roFiles = m_poParts->oFiles;
    const auto oOpen = std::ranges::find_if(m_poParts->aoListeners, [](const SHttpListener& roListener)
                                            { return !roListener.oAddress.bIsLoopback; });
    const bool bAsks = !roFiles.szUsers.empty() || !roFiles.szClientCa.empty();
    if (oOpen == m_poParts->aoListeners.end() || (bAsks && !roFiles.szCertificate.empty()))
    {
        return {};
    }
    return "whoever reaches " + ListenAddress_Print(oOpen->oAddress) +
           (bAsks ? " may read passwords on their way: see --tls-certificate"
                  : " may read everything: see --users and --tls-certificate");
}

CFault CHttpServer::Reload()
{
    SHttpKeys oKeys;
    if (CFault oFault = ReadFiles(*m_poParts, oKeys))
    {
        return oFault;
    }
    std::unique_ptr<CHttpDaemon> poDaemon;
    const std::lock_guard oGuard(m_poParts->oDaemonMutex);
    if (oKeys == m_poParts->oKeys)
    {
        return {};
    }
    poDaemon = MakeDaemon(*m_poParts, &oKeys);
    if (poDaemon == nullptr)
    {
        return CFault("the new certificate cannot be used");
    }
    m_poParts->oKeys = std::move(oKeys);
    m_poParts->poTls.swap(poDaemon);
    return {};
}

SHttpCounts CHttpServer::GetCounts() const
{
    const SHttpService& roService = m_poParts->oService;
    SHttpCounts oCounts;
    std::ranges::transform(roService.auiCounts, oCounts.auiAnswers.begin(),
                           [](const auto& ruiCount) { return ruiCount.load(std::memory_order_relaxed); });
    oCounts.uiOpen = roService.oConnections.GetOpen();
    oCounts.uiDropped = roService.oConnections.GetDropped();
    return oCounts;
}
