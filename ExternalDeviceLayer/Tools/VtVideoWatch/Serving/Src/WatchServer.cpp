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

struct SWatchServerParts
{
    SWatchServerParts(IWatchReader& roWatchReader, IRecordingSource* poSource)
        : roReader(roWatchReader), oApi(roWatchReader, poSource), oHub(roWatchReader)
    {
    }

    IWatchReader& roReader;
    CWatchApi oApi;
    CLiveHub oHub;
    std::mutex oScrapeMutex; // one scrape at a time: a second one would only slow down both
    SScrape aoScrapes[uiMetricDetails][uiMetricFormats][2]; // plain, gzip
    uint64_t uiScrapes = 0;
    double flScrapeSeconds = 0.0;
    CHttpServer oHttp; // the last member: its threads use all others
};

namespace
{

SHttpAnswer MakeMetrics(SWatchServerParts& roParts, const CHttpServer& roHttp, const WatchPublicationPtr& rpoLatest,
                        EMetricFormat eFormat, EMetricDetail eDetail)
{
    constexpr const char* aszTypes[] = {"text/plain; version=0.0.4; charset=utf-8",
                                        "application/openmetrics-text; version=1.0.0; charset=utf-8"};
    SServingCosts oCosts;
    oCosts.oHttp = roHttp.GetCounts();
    oCosts.uiListeners = roParts.oHub.GetListeners();
    oCosts.uiScrapes = roParts.uiScrapes;
    oCosts.flScrapeSeconds = roParts.flScrapeSeconds;
    return HttpAnswer_Make(200, aszTypes[static_cast<size_t>(eFormat)],
                           WatchMetrics_Print(rpoLatest, oCosts, eFormat, eDetail));
}

// However many ask, each form of a moment's metrics is made once.
SHttpAnswer AnswerMetrics(SWatchServerParts& roParts, const CHttpServer& roHttp, const SHttpRequest& roRequest)
{
    const WatchPublicationPtr poLatest = roParts.roReader.GetLatest();
    const EMetricFormat eFormat = WatchMetrics_FindFormat(roRequest.szAccept);
    std::string szProblem;
    const EMetricDetail eDetail = WatchMetrics_FindDetail(roRequest.szQuery, szProblem);
    if (!szProblem.empty())
    {
        return HttpAnswer_MakeError(400, szProblem);
    }
    const std::lock_guard oGuard(roParts.oScrapeMutex);
    SScrape& roScrape =
        roParts.aoScrapes[static_cast<size_t>(eDetail)][static_cast<size_t>(eFormat)][roRequest.bAcceptsGzip ? 1 : 0];
    const auto oBegin = std::chrono::steady_clock::now();
    if (poLatest == nullptr || roScrape.poFrom != poLatest)
    {
        roScrape.oAnswer = HttpAnswer_Compress(MakeMetrics(roParts, roHttp, poLatest, eFormat, eDetail), roRequest);
        roScrape.poFrom = poLatest;
    }
    roParts.flScrapeSeconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - oBegin).count();
    ++roParts.uiScrapes;
    return roScrape.oAnswer;
}

struct SRoute
{
    const char* szPath;
    SHttpAnswer (*oAnswer)(SWatchServerParts& roParts, const SHttpRequest& roRequest);
    bool bIsSlow = false; // reads as much as it is asked for, perhaps from the store
};

using Parts = SWatchServerParts&;
using Request = const SHttpRequest&;

constexpr SRoute aoRoutes[] = {
    {"/api/v1/streams", [](Parts roParts, Request roRequest) { return roParts.oApi.AnswerStreams(roRequest); }},
    {"/api/v1/pairs", [](Parts roParts, Request roRequest) { return roParts.oApi.AnswerPairs(roRequest); }},
    {"/api/v1/history", [](Parts roParts, Request roRequest) { return roParts.oApi.AnswerHistory(roRequest); }, true},
    {"/api/v1/events", [](Parts roParts, Request roRequest) { return roParts.oApi.AnswerEvents(roRequest); }, true},
    {"/api/v1/incidents", [](Parts roParts, Request roRequest) { return roParts.oApi.AnswerIncidents(roRequest); },
     true},
    {"/api/v1/recording", [](Parts roParts, Request roRequest) { return roParts.oApi.AnswerRecording(roRequest); },
     true},
    {"/api/v1/recordings", [](Parts roParts, Request roRequest) { return roParts.oApi.AnswerRecordings(roRequest); },
     true},
    {"/api/v1/fields", [](Parts roParts, Request roRequest) { return roParts.oApi.AnswerFields(roRequest); }, true},
    {"/api/v1/live", [](Parts roParts, Request roRequest) { return roParts.oHub.Answer(roRequest); }},
    {"/healthz", [](Parts roParts, Request roRequest) { return roParts.oApi.AnswerHealth(roRequest); }},
};

SHttpAnswer Answer(SWatchServerParts& roParts, const CHttpServer& roHttp, const SHttpRequest& roRequest)
{
    if (roRequest.szPath == "/metrics")
    {
        return AnswerMetrics(roParts, roHttp, roRequest);
    }
    for (const SRoute& roRoute : aoRoutes)
    {
        if (roRequest.szPath == roRoute.szPath)
        {
            return HttpAnswer_Compress(roRoute.oAnswer(roParts, roRequest), roRequest);
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

CWatchServer::CWatchServer(IWatchReader& roReader, IRecordingSource* poSource)
    : m_poParts(std::make_unique<SWatchServerParts>(roReader, poSource))
{
}

CWatchServer::~CWatchServer()
{
    m_poParts->oHub.End();
}

CFault CWatchServer::Start(const SServingOptions& roOptions)
{
    SWatchServerParts& roParts = *m_poParts;
    if (!roParts.oHub.Start())
    {
        return CFault("cannot serve: the system gives no threads");
    }
    SHttpSetup oSetup;
    oSetup.aszListen = roOptions.aszListen;
    oSetup.oSocketFile = roOptions.oSocketFile;
    oSetup.oFiles = roOptions.oFiles;
    oSetup.oHandler = [&roParts](const CHttpServer& roHttp, const SHttpRequest& roRequest)
    { return Answer(roParts, roHttp, roRequest); };
    oSetup.oIsSlow = IsSlow;
    return roParts.oHttp.Start(std::move(oSetup));
}

const std::vector<std::string>& CWatchServer::GetAddresses() const
{
    return m_poParts->oHttp.GetAddresses();
}

std::vector<std::string> CWatchServer::GetUrls() const
{
    return m_poParts->oHttp.GetUrls();
}

std::string CWatchServer::GetWarning() const
{
    return m_poParts->oHttp.GetWarning();
}

CFault CWatchServer::Reload()
{
    return m_poParts->oHttp.Reload();
}
