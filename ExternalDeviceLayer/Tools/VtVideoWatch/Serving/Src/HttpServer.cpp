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

struct SHttpServer
{
    SHttpServer() : uiConnections(CountConnections()), oService(uiConnections) {}

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

void TakeOver(SHttpServer& roServer, const SHttpListener& roListener, int iSocket)
{
    const std::lock_guard oGuard(roServer.oDaemonMutex);
    CHttpDaemon& roDaemon =
        roServer.poTls != nullptr && IsSecured(roListener.oAddress) ? *roServer.poTls : *roServer.poPlain;
    if (roServer.oService.oConnections.Enter(iSocket, roListener, roDaemon.GetState()) == nullptr)
    {
        close(iSocket);
        return;
    }
    roDaemon.Add(iSocket);
}

// Takes in who waits at a listener. False when files are scarce.
bool TakeIn(SHttpServer& roServer, const SHttpListener& roListener)
{
    for (int i = 0; i < iAcceptsPerTurn; ++i)
    {
        const int iSocket = HttpSockets_Accept(roListener);
        if (iSocket < 0)
        {
            return errno != EMFILE && errno != ENFILE && errno != ENOBUFS && errno != ENOMEM;
        }
        TakeOver(roServer, roListener, iSocket);
    }
    return true;
}

// The thread that stands at the door.
void Stand(SHttpServer& roServer)
{
    std::vector<pollfd> aoFiles = {{roServer.iEnd, POLLIN, 0}};
    for (const SHttpListener& roListener : roServer.aoListeners)
    {
        aoFiles.push_back({roListener.iSocket, POLLIN, 0});
    }
    bool bHasFiles = true;
    while (!roServer.bIsEnding)
    {
        const int iLookMs = roServer.oService.oConnections.EndOverdue();
        poll(aoFiles.data(), bHasFiles ? aoFiles.size() : 1, bHasFiles ? iLookMs : iNoFilesMs);
        bHasFiles = true;
        for (size_t i = 1; i < aoFiles.size() && !roServer.bIsEnding; ++i)
        {
            bHasFiles = TakeIn(roServer, roServer.aoListeners[i - 1]) && bHasFiles;
        }
        if (!bHasFiles)
        {
            roServer.oService.oConnections.EndIdle();
        }
    }
}

bool Listen(SHttpServer& roServer, const SHttpSetup& roSetup, std::string& rszProblem)
{
    if (!HttpSockets_TakeGiven(roServer.aoListeners, rszProblem))
    {
        return false;
    }
    std::vector<std::string> aszListen = roSetup.aszListen;
    if (aszListen.empty() && roServer.aoListeners.empty())
    {
        aszListen.emplace_back(szDefaultListen);
    }
    for (const std::string& rszListen : aszListen)
    {
        SListenAddress oAddress;
        SHttpListener oListener;
        if (!ListenAddress_Read(rszListen, oAddress, rszProblem) ||
            !HttpSockets_Listen(oAddress, roSetup.oSocketFile, oListener, rszProblem))
        {
            return false;
        }
        roServer.aoListeners.push_back(std::move(oListener));
    }
    for (const SHttpListener& roListener : roServer.aoListeners)
    {
        roServer.aszAddresses.push_back(ListenAddress_Print(roListener.oAddress));
    }
    return true;
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

std::unique_ptr<CHttpDaemon> MakeDaemon(SHttpServer& roServer, const SHttpKeys* poKeys)
{
    auto poDaemon = std::make_unique<CHttpDaemon>(roServer.oService);
    const auto uiMost = static_cast<unsigned>(3 * roServer.uiConnections);
    return DoHumbly([&] { return poDaemon->Start(uiMost, poKeys); }) ? std::move(poDaemon) : nullptr;
}

bool OpenDoor(SHttpServer& roServer)
{
    try
    {
        roServer.oDoor = std::thread([&roServer] { Stand(roServer); });
    }
    catch (const std::system_error&)
    {
        return false;
    }
    return true;
}

bool StartThreads(SHttpServer& roServer)
{
    roServer.poPlain = MakeDaemon(roServer, nullptr);
    roServer.poTls = roServer.oKeys.szCertificate.empty() ? nullptr : MakeDaemon(roServer, &roServer.oKeys);
    const bool bHasDaemons =
        roServer.poPlain != nullptr && (roServer.poTls != nullptr || roServer.oKeys.szCertificate.empty());
    return bHasDaemons &&
           DoHumbly(
               [&roServer]
               { return OpenDoor(roServer) && roServer.oService.oJobs.Start() && roServer.oService.oChecks.Start(); });
}

bool ReadFiles(SHttpServer& roServer, std::string& rszProblem)
{
    std::vector<SUser> aoUsers;
    if (!HttpFiles_ReadKeys(roServer.oFiles, roServer.oKeys, rszProblem) ||
        !HttpFiles_ReadUsers(roServer.oFiles, aoUsers, rszProblem))
    {
        return false;
    }
    roServer.oService.oUsers.Set(std::move(aoUsers));
    return true;
}

} // namespace

HttpServerPtr HttpServer_Start(SHttpSetup oSetup, std::string& rszProblem)
{
    HttpServerPtr poServer(new SHttpServer);
    SHttpServer& roServer = *poServer;
    roServer.oService.oIsSlow = std::move(oSetup.oIsSlow);
    roServer.oService.oAnswer = [&roServer, oHandler = std::move(oSetup.oHandler)](const SHttpRequest& roRequest)
    { return oHandler(roServer, roRequest); };
    if (roServer.uiConnections < uiLeastConnections)
    {
        rszProblem = "cannot serve: too few files may be opened (see ulimit -n)";
        return nullptr;
    }
    roServer.oFiles = oSetup.oFiles;
    if (!ReadFiles(roServer, rszProblem) || !Listen(roServer, oSetup, rszProblem))
    {
        return nullptr;
    }
    roServer.iEnd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (roServer.iEnd < 0 || !StartThreads(roServer))
    {
        rszProblem = "cannot serve: the system gives no threads or files";
        return nullptr;
    }
    return poServer;
}

void HttpServer_Stop(SHttpServer* poServer)
{
    if (poServer == nullptr)
    {
        return;
    }
    poServer->bIsEnding = true;
    if (poServer->oDoor.joinable())
    {
        static_cast<void>(eventfd_write(poServer->iEnd, 1));
        poServer->oDoor.join();
    }
    for (SHttpListener& roListener : poServer->aoListeners)
    {
        HttpSockets_Close(roListener);
    }
    poServer->oService.oJobs.End();
    poServer->oService.oChecks.End();
    if (poServer->iEnd >= 0)
    {
        close(poServer->iEnd);
    }
    delete poServer;
}

const std::vector<std::string>& HttpServer_GetAddresses(const SHttpServer& roServer)
{
    return roServer.aszAddresses;
}

std::vector<std::string> HttpServer_GetUrls(const SHttpServer& roServer)
{
    std::vector<std::string> aszUrls;
    for (const SHttpListener& roListener : roServer.aoListeners)
    {
        const std::string szAddress = ListenAddress_Print(roListener.oAddress);
        const char* szScheme = roServer.oFiles.szCertificate.empty() ? "http://" : "https://";
        aszUrls.push_back(IsSecured(roListener.oAddress) ? szScheme + szAddress + "/" : szAddress);
    }
    return aszUrls;
}

std::string HttpServer_GetWarning(const SHttpServer& roServer)
{
    const auto oOpen = std::ranges::find_if(roServer.aoListeners, [](const SHttpListener& roListener)
                                            { return !roListener.oAddress.bIsLoopback; });
    const bool bAsks = !roServer.oFiles.szUsers.empty() || !roServer.oFiles.szClientCa.empty();
    if (oOpen == roServer.aoListeners.end() || (bAsks && !roServer.oFiles.szCertificate.empty()))
    {
        return {};
    }
    return "whoever reaches " + ListenAddress_Print(oOpen->oAddress) +
           (bAsks ? " may read passwords on their way: see --tls-certificate"
                  : " may read everything: see --users and --tls-certificate");
}

bool HttpServer_Reload(SHttpServer& roServer, std::string& rszProblem)
{
    SHttpKeys oKeys;
    std::vector<SUser> aoUsers;
    if (!HttpFiles_ReadKeys(roServer.oFiles, oKeys, rszProblem) ||
        !HttpFiles_ReadUsers(roServer.oFiles, aoUsers, rszProblem))
    {
        return false;
    }
    roServer.oService.oUsers.Set(std::move(aoUsers));
    std::unique_ptr<CHttpDaemon> poDaemon;
    const std::lock_guard oGuard(roServer.oDaemonMutex);
    if (oKeys == roServer.oKeys)
    {
        return true;
    }
    poDaemon = MakeDaemon(roServer, &oKeys);
    if (poDaemon == nullptr)
    {
        rszProblem = "the new certificate cannot be used";
        return false;
    }
    roServer.oKeys = std::move(oKeys);
    roServer.poTls.swap(poDaemon);
    return true;
}

SHttpCounts HttpServer_GetCounts(const SHttpServer& roServer)
{
    SHttpCounts oCounts;
    std::ranges::transform(roServer.oService.auiCounts, oCounts.auiAnswers.begin(),
                           [](const auto& ruiCount) { return ruiCount.load(std::memory_order_relaxed); });
    oCounts.uiOpen = roServer.oService.oConnections.GetOpen();
    oCounts.uiDropped = roServer.oService.oConnections.GetDropped();
    return oCounts;
}
