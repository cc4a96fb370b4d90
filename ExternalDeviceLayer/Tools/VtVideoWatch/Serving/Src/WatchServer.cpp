#include "WatchServer.h"

#include <chrono>
#include <mutex>

#include "ApiQuery.h"
#include "HttpServer.h"
#include "HttpSockets.h"
#include "LiveHub.h"
#include "PageFiles.h"
#include "WatchApi.h"
#include "WatchMetrics.h"

struct SWatchServer
{
    explicit SWatchServer(IWatchReader& roWatchReader)
        : roReader(roWatchReader), oApi(roWatchReader), oHub(roWatchReader)
    {
    }

    IWatchReader& roReader;
    CWatchApi oApi;
    CLiveHub oHub;
    std::mutex oScrapeMutex; // one scrape at a time: a second one would only slow down both
    uint64_t uiScrapes = 0;
    double flScrapeSeconds = 0.0;
    HttpServerPtr poHttp; // the last member: its threads use all others
};

namespace
{

SHttpAnswer AnswerMetrics(SWatchServer& roServer, const SHttpServer& roHttp)
{
    const std::lock_guard oGuard(roServer.oScrapeMutex);
    const auto oBegin = std::chrono::steady_clock::now();
    SServingCosts oCosts;
    oCosts.auiRequests = HttpServer_GetCounts(roHttp);
    oCosts.uiListeners = roServer.oHub.GetListeners();
    oCosts.uiScrapes = roServer.uiScrapes;
    oCosts.flScrapeSeconds = roServer.flScrapeSeconds;
    SHttpAnswer oAnswer = HttpAnswer_Make(200, "text/plain; version=0.0.4; charset=utf-8",
                                          WatchMetrics_Print(roServer.roReader.GetLatest(), oCosts));
    roServer.flScrapeSeconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - oBegin).count();
    ++roServer.uiScrapes;
    return oAnswer;
}

struct SRoute
{
    const char* szPath;
    SHttpAnswer (*oAnswer)(SWatchServer& roServer, const SHttpRequest& roRequest);
};

using Server = SWatchServer&;
using Request = const SHttpRequest&;

constexpr SRoute aoRoutes[] = {
    {"/api/v1/streams", [](Server roServer, Request roRequest) { return roServer.oApi.AnswerStreams(roRequest); }},
    {"/api/v1/pairs", [](Server roServer, Request roRequest) { return roServer.oApi.AnswerPairs(roRequest); }},
    {"/api/v1/history", [](Server roServer, Request roRequest) { return roServer.oApi.AnswerHistory(roRequest); }},
    {"/api/v1/events", [](Server roServer, Request roRequest) { return roServer.oApi.AnswerEvents(roRequest); }},
    {"/api/v1/live", [](Server roServer, Request roRequest) { return roServer.oHub.Answer(roRequest); }},
    {"/healthz", [](Server roServer, Request roRequest) { return roServer.oApi.AnswerHealth(roRequest); }},
};

SHttpAnswer Answer(SWatchServer& roServer, const SHttpServer& roHttp, const SHttpRequest& roRequest)
{
    if (roRequest.szPath == "/metrics")
    {
        return AnswerMetrics(roServer, roHttp);
    }
    for (const SRoute& roRoute : aoRoutes)
    {
        if (roRequest.szPath == roRoute.szPath)
        {
            return roRoute.oAnswer(roServer, roRequest);
        }
    }
    return PageFiles_Answer(roRequest);
}

} // namespace

bool WatchServer_IsAddress(const std::string& szListen, std::string& rszProblem)
{
    SListenAddress oAddress;
    return HttpSockets_ReadAddress(szListen, oAddress, rszProblem);
}

WatchServerPtr WatchServer_Start(IWatchReader& roReader, const std::string& szListen, std::string& rszProblem)
{
    WatchServerPtr poServer(new SWatchServer(roReader));
    SWatchServer& roServer = *poServer;
    poServer->poHttp = HttpServer_Start(
        szListen,
        [&roServer](const SHttpServer& roHttp, const SHttpRequest& roRequest)
        { return Answer(roServer, roHttp, roRequest); },
        rszProblem);
    return poServer->poHttp == nullptr ? nullptr : std::move(poServer);
}

void WatchServer_Stop(SWatchServer* poServer)
{
    if (poServer != nullptr)
    {
        poServer->oHub.End();
        delete poServer;
    }
}

const std::string& WatchServer_GetAddress(const SWatchServer& roServer)
{
    return HttpServer_GetAddress(*roServer.poHttp);
}
