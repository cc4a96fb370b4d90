#include "WatchServer.h"

#include <algorithm>
#include <chrono>
#include <mutex>

#include "ApiQuery.h"
#include "HttpServer.h"
#include "LiveHub.h"
#include "PageFiles.h"
#include "WatchApi.h"
#include "WatchMetrics.h"

// The metrics of a moment, in one form.
struct SScrape
{
    WatchPublicationPtr poFrom;
    SHttpAnswer oAnswer;
};

struct SWatchServer
{
    explicit SWatchServer(IWatchReader& roWatchReader)
        : roReader(roWatchReader), oApi(roWatchReader), oHub(roWatchReader)
    {
    }

    IWatchReader& roReader;
    CWatchApi oApi;
    CLiveHub oHub;
    std::mutex oScrapeMutex;               // one scrape at a time: a second one would only slow down both
    SScrape aoScrapes[uiMetricFormats][2]; // plain, gzip
    uint64_t uiScrapes = 0;
    double flScrapeSeconds = 0.0;
    HttpServerPtr poHttp; // the last member: its threads use all others
};

namespace
{

SHttpAnswer MakeMetrics(SWatchServer& roServer, const SHttpServer& roHttp, const WatchPublicationPtr& rpoLatest,
                        EMetricFormat eFormat)
{
    constexpr const char* aszTypes[] = {"text/plain; version=0.0.4; charset=utf-8",
                                        "application/openmetrics-text; version=1.0.0; charset=utf-8"};
    SServingCosts oCosts;
    oCosts.oHttp = HttpServer_GetCounts(roHttp);
    oCosts.uiListeners = roServer.oHub.GetListeners();
    oCosts.uiScrapes = roServer.uiScrapes;
    oCosts.flScrapeSeconds = roServer.flScrapeSeconds;
    return HttpAnswer_Make(200, aszTypes[static_cast<size_t>(eFormat)], WatchMetrics_Print(rpoLatest, oCosts, eFormat));
}

// However many ask, each form of a moment's metrics is made once.
SHttpAnswer AnswerMetrics(SWatchServer& roServer, const SHttpServer& roHttp, const SHttpRequest& roRequest)
{
    const WatchPublicationPtr poLatest = roServer.roReader.GetLatest();
    const EMetricFormat eFormat = WatchMetrics_FindFormat(roRequest.szAccept);
    const std::lock_guard oGuard(roServer.oScrapeMutex);
    SScrape& roScrape = roServer.aoScrapes[static_cast<size_t>(eFormat)][roRequest.bAcceptsGzip ? 1 : 0];
    const auto oBegin = std::chrono::steady_clock::now();
    if (poLatest == nullptr || roScrape.poFrom != poLatest)
    {
        roScrape.oAnswer = HttpAnswer_Compress(MakeMetrics(roServer, roHttp, poLatest, eFormat), roRequest);
        roScrape.poFrom = poLatest;
    }
    roServer.flScrapeSeconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - oBegin).count();
    ++roServer.uiScrapes;
    return roScrape.oAnswer;
}

struct SRoute
{
    const char* szPath;
    SHttpAnswer (*oAnswer)(SWatchServer& roServer, const SHttpRequest& roRequest);
    bool bIsSlow = false; // reads as much as it is asked for, perhaps from the store
};

using Server = SWatchServer&;
using Request = const SHttpRequest&;

constexpr SRoute aoRoutes[] = {
    {"/api/v1/streams", [](Server roServer, Request roRequest) { return roServer.oApi.AnswerStreams(roRequest); }},
    {"/api/v1/pairs", [](Server roServer, Request roRequest) { return roServer.oApi.AnswerPairs(roRequest); }},
    {"/api/v1/history", [](Server roServer, Request roRequest) { return roServer.oApi.AnswerHistory(roRequest); },
     true},
    {"/api/v1/events", [](Server roServer, Request roRequest) { return roServer.oApi.AnswerEvents(roRequest); }, true},
    {"/api/v1/incidents", [](Server roServer, Request roRequest) { return roServer.oApi.AnswerIncidents(roRequest); },
     true},
    {"/api/v1/live", [](Server roServer, Request roRequest) { return roServer.oHub.Answer(roRequest); }},
    {"/healthz", [](Server roServer, Request roRequest) { return roServer.oApi.AnswerHealth(roRequest); }},
};

SHttpAnswer Answer(SWatchServer& roServer, const SHttpServer& roHttp, const SHttpRequest& roRequest)
{
    if (roRequest.szPath == "/metrics")
    {
        return AnswerMetrics(roServer, roHttp, roRequest);
    }
    for (const SRoute& roRoute : aoRoutes)
    {
        if (roRequest.szPath == roRoute.szPath)
        {
            return HttpAnswer_Compress(roRoute.oAnswer(roServer, roRequest), roRequest);
        }
    }
    return PageFiles_Answer(roRequest);
}

bool IsSlow(const SHttpRequest& roRequest)
{
    return std::ranges::any_of(aoRoutes, [&](const SRoute& roRoute)
                               { return roRoute.bIsSlow && roRequest.szPath == roRoute.szPath; });
}

} // namespace

WatchServerPtr WatchServer_Start(IWatchReader& roReader, const SServingOptions& roOptions, std::string& rszProblem)
{
    WatchServerPtr poServer(new SWatchServer(roReader));
    SWatchServer& roServer = *poServer;
    if (!roServer.oHub.Start())
    {
        rszProblem = "cannot serve: the system gives no threads";
        return nullptr;
    }
    SHttpSetup oSetup;
    oSetup.aszListen = roOptions.aszListen;
    oSetup.oSocketFile = roOptions.oSocketFile;
    oSetup.oFiles = roOptions.oFiles;
    oSetup.oHandler = [&roServer](const SHttpServer& roHttp, const SHttpRequest& roRequest)
    { return Answer(roServer, roHttp, roRequest); };
    oSetup.oIsSlow = IsSlow;
    poServer->poHttp = HttpServer_Start(std::move(oSetup), rszProblem);
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

const std::vector<std::string>& WatchServer_GetAddresses(const SWatchServer& roServer)
{
    return HttpServer_GetAddresses(*roServer.poHttp);
}

std::vector<std::string> WatchServer_GetUrls(const SWatchServer& roServer)
{
    return HttpServer_GetUrls(*roServer.poHttp);
}

std::string WatchServer_GetWarning(const SWatchServer& roServer)
{
    return HttpServer_GetWarning(*roServer.poHttp);
}

bool WatchServer_Reload(SWatchServer& roServer, std::string& rszProblem)
{
    return HttpServer_Reload(*roServer.poHttp, rszProblem);
}
