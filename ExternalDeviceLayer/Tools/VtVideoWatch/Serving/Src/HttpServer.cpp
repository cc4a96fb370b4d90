#include "HttpServer.h"

#include <algorithm>
#include <cerrno>
#include <optional>
#include <poll.h>
#include <sys/eventfd.h>
#include <system_error>
#include <thread>
#include <unistd.h>

#include "HttpCall.h"
#include "HttpDaemon.h"
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
    SHttpServer() : uiConnections(CountConnections()), oService(uiConnections), oDaemon(oService) {}

    const size_t uiConnections;
    SHttpService oService;
    std::vector<SHttpListener> aoListeners;
    std::vector<std::string> aszAddresses;
    CHttpDaemon oDaemon;
    int iEnd = -1; // eventfd: readable at the end
    std::thread oDoor;
};

namespace
{

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
        if (roServer.oService.oConnections.Enter(iSocket, roListener) == nullptr)
        {
            close(iSocket);
            continue;
        }
        roServer.oDaemon.Add(iSocket);
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
    while (!roServer.oService.bIsEnding)
    {
        const int iLookMs = roServer.oService.oConnections.EndOverdue();
        poll(aoFiles.data(), bHasFiles ? aoFiles.size() : 1, bHasFiles ? iLookMs : iNoFilesMs);
        bHasFiles = true;
        for (size_t i = 1; i < aoFiles.size() && !roServer.oService.bIsEnding; ++i)
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

// All threads come from one of a lower priority, which they inherit.
bool StartThreads(SHttpServer& roServer)
{
    const CSignalsBlocked oBlocked;
    bool bIsWell = false;
    try
    {
        std::thread(
            [&]
            {
                HttpSockets_LowerThreadPriority();
                bIsWell = roServer.oDaemon.Start(static_cast<unsigned>(3 * roServer.uiConnections)) &&
                          roServer.oService.oJobs.Start();
            })
            .join();
        if (bIsWell)
        {
            roServer.oDoor = std::thread(
                [&roServer]
                {
                    HttpSockets_LowerThreadPriority();
                    Stand(roServer);
                });
        }
    }
    catch (const std::system_error&)
    {
        return false;
    }
    return bIsWell;
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
    if (!Listen(roServer, oSetup, rszProblem))
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
    poServer->oService.bIsEnding = true;
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
    // The library does not end with anything laid aside; what comes now is not laid aside any more.
    for (const HttpCallPtr& rpoCall : poServer->oService.oConnections.GetCalls())
    {
        HttpCall_Wake(*rpoCall);
    }
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

SHttpCounts HttpServer_GetCounts(const SHttpServer& roServer)
{
    SHttpCounts oCounts;
    std::ranges::transform(roServer.oService.auiCounts, oCounts.auiAnswers.begin(),
                           [](const auto& ruiCount) { return ruiCount.load(std::memory_order_relaxed); });
    oCounts.uiOpen = roServer.oService.oConnections.GetOpen();
    oCounts.uiDropped = roServer.oService.oConnections.GetDropped();
    return oCounts;
}
