#include "WatchMetrics.h"

#include <algorithm>
#include <array>

#include "ApiQuery.h"
#include "CostMetrics.h"
#include "HealthMetrics.h"
#include "HttpRequest.h"
#include "LockMetrics.h"
#include "MetricFamilies.h"
#include "MetricText.h"
#include "ProcessFigures.h"
#include "StreamMetrics.h"

namespace
{

using prometheus::MetricType;

void CollectServing(const SServingCosts& roServing, CFamilies& raoFamilies)
{
    raoFamilies.reserve(raoFamilies.size() + 5);
    CFamily oListeners(raoFamilies, "vt_video_live_listeners", "Listeners of the live stream.", MetricType::Gauge);
    oListeners.Add({}, roServing.uiListeners);
    CFamily oRequests(raoFamilies, "vt_video_http_requests_total", "Requests answered, by status.",
                      MetricType::Counter);
    for (size_t i = 0; i < aiHttpStatuses.size(); ++i)
    {
        const std::string szCode = aiHttpStatuses[i] == 0 ? "other" : std::to_string(aiHttpStatuses[i]);
        oRequests.Add({{"code", szCode}}, static_cast<double>(roServing.oHttp.auiAnswers[i]));
    }
    CFamily oOpen(raoFamilies, "vt_video_http_connections", "Connections of clients now.", MetricType::Gauge);
    oOpen.Add({}, static_cast<double>(roServing.oHttp.uiOpen));
    CFamily oDropped(raoFamilies, "vt_video_http_connections_dropped_total",
                     "Connections that were ended because they took too long, or for the sake of others.",
                     MetricType::Counter);
    oDropped.Add({}, static_cast<double>(roServing.oHttp.uiDropped));
    prometheus::MetricFamily& roScrapes = raoFamilies.emplace_back();
    roScrapes.name = "vt_video_scrape_seconds";
    roScrapes.help = "Time that the scrapes before this one took here.";
    roScrapes.type = MetricType::Summary;
    auto& roSummary = roScrapes.metric.emplace_back().summary;
    roSummary.sample_count = roServing.uiScrapes;
    roSummary.sample_sum = roServing.flScrapeSeconds;
}

void CollectProcess(CFamilies& raoFamilies)
{
    const SProcessFigures oFigures = ProcessFigures_Read();
    const auto Add = [&](const char* szName, const char* szHelp, uint64_t uiValue)
    {
        CFamily oFamily(raoFamilies, szName, szHelp, MetricType::Gauge);
        oFamily.AddKnown({}, uiValue != 0, static_cast<double>(uiValue));
    };
    Add("process_open_fds", "Files that the watch has open.", oFigures.uiOpenFiles);
    Add("process_max_fds", "Files that it may have open.", oFigures.uiMostFiles);
    Add("process_virtual_memory_bytes", "Virtual memory of the watch.", oFigures.uiVirtualBytes);
    Add("process_threads", "Threads of the watch.", oFigures.uiThreads);
}

void CollectBuild(CFamilies& raoFamilies)
{
    CFamily oFamily(raoFamilies, "vt_video_build_info", "Version of the watch; always 1.", MetricType::Gauge);
    oFamily.Add({{"version", VT_WATCH_VERSION}}, 1.0);
}

} // namespace

std::string WatchMetrics_Print(const WatchPublicationPtr& rpoPublication, const SServingCosts& roServing,
                               EMetricFormat eFormat, EMetricDetail eDetail)
{
    CFamilies aoFamilies;
    CollectBuild(aoFamilies);
    if (rpoPublication != nullptr)
    {
        CostMetrics_Collect(*rpoPublication, aoFamilies);
        LockMetrics_Collect(*rpoPublication, eDetail, aoFamilies);
        StreamMetrics_Collect(*rpoPublication, eDetail, aoFamilies);
        HealthMetrics_Collect(*rpoPublication, eDetail, aoFamilies);
    }
    CollectProcess(aoFamilies);
    CollectServing(roServing, aoFamilies);
    return MetricText_Print(aoFamilies, eFormat);
}

EMetricFormat WatchMetrics_FindFormat(const std::string& rszAccept)
{
    constexpr const char* szOpenMetrics = "application/openmetrics-text";
    const int iOpen = HttpRequest_GetAcceptWeight(rszAccept, szOpenMetrics, "1.0.0");
    const bool bIsNamed = rszAccept.find(szOpenMetrics) != std::string::npos;
    return bIsNamed && iOpen > 0 && iOpen >= HttpRequest_GetAcceptWeight(rszAccept, "text/plain", "0.0.4")
               ? EMetricFormat::OPENMETRICS
               : EMetricFormat::PROMETHEUS;
}

EMetricDetail WatchMetrics_FindDetail(const std::string& rszQuery, std::string& rszProblem)
{
    constexpr const char* aszNames[] = {"detail"};
    constexpr std::array<const char*, uiMetricDetails> aszDetails = {"fleet", "normal", "full"};
    CApiQuery oQuery(rszQuery, aszNames);
    const std::vector<std::string> aszGiven = oQuery.GetList("detail");
    const auto pszDetail = aszGiven.size() == 1 ? std::ranges::find(aszDetails, aszGiven.front()) : aszDetails.end();
    if (oQuery.Has("detail") && pszDetail == aszDetails.end())
    {
        oQuery.SetProblem("parameter detail: give fleet, normal or full");
    }
    rszProblem = oQuery.GetProblem();
    return pszDetail == aszDetails.end() ? EMetricDetail::NORMAL
                                         : static_cast<EMetricDetail>(pszDetail - aszDetails.begin());
}
