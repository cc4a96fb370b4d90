#include "HealthMetrics.h"

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

#include "HealthTexts.h"
#include "WatchJson.h"

namespace
{

using prometheus::MetricType;

constexpr int iDigits = 5;
constexpr uint32_t uiPacingStep = 10; // bins of the histogram that one bucket holds: a decade
// The last bound of each sign that is told unless all is: 1 ms. Beyond it all is equally bad, and the two decades
// behind it would be six percent of a scrape.
constexpr uint32_t uiPacingMost = 30;

struct SNamedHealth
{
    const char* szDomain;
    const SHealth& roHealth;
};

template <typename TVisit> void ForEachDomain(const SStreamHealth& roHealth, const TVisit& roVisit)
{
    roVisit(SNamedHealth{"overall", roHealth.oOverall});
    for (uint32_t uiDomain = 0; uiDomain < uiNbOfHealthDomains; ++uiDomain)
    {
        roVisit(
            SNamedHealth{HealthTexts_GetDomain(static_cast<EHealthDomain>(uiDomain)), roHealth.aoDomains[uiDomain]});
    }
}

CLabels GetLabels(const SStreamFigures& roStream, const char* szDomain, EHealthStatus eStatus)
{
    CLabels oLabels = MetricLabels_Get(roStream, "domain", szDomain);
    oLabels.push_back({"status", HealthTexts_GetStatus(eStatus)});
    return oLabels;
}

// Every status of every domain of every stream.
template <typename TVisit> void ForEachStatus(const SWatchPublication& roPublication, const TVisit& roVisit)
{
    WatchPublication_ForEachStream(roPublication.oSnapshot,
                                   [&](const SStreamFigures& roStream)
                                   {
                                       ForEachDomain(WatchPublication_GetHealth(roPublication, roStream.oKey),
                                                     [&](const SNamedHealth& roNamed)
                                                     {
                                                         for (uint32_t uiStatus = 0; uiStatus < uiNbOfHealthStatuses;
                                                              ++uiStatus)
                                                         {
                                                             const auto eStatus = static_cast<EHealthStatus>(uiStatus);
                                                             roVisit(GetLabels(roStream, roNamed.szDomain, eStatus),
                                                                     roNamed.roHealth.eStatus == eStatus,
                                                                     roNamed.roHealth.auiTransitions[uiStatus]);
                                                         }
                                                     });
                                   });
}

void CollectHealth(const SWatchPublication& roPublication, EMetricDetail eDetail, CFamilies& raoFamilies)
{
    const bool bAll = eDetail != EMetricDetail::FLEET;
    CFamily oHealth(raoFamilies, "vt_video_health", "1 for the status of a domain of a stream, 0 for the others.",
                    MetricType::Gauge);
    ForEachStatus(roPublication, [&](CLabels oLabels, bool bIsNow, uint64_t /*uiTransitions*/)
                  { oHealth.AddKnown(std::move(oLabels), bIsNow || bAll, bIsNow ? 1.0 : 0.0); });
}

// What never happened has no series: all of them would be a third of a scrape, and say nothing.
void CollectTransitions(const SWatchPublication& roPublication, CFamilies& raoFamilies)
{
    CFamily oTransitions(raoFamilies, "vt_video_health_transitions_total",
                         "Times that a domain of a stream came to a status; absent for those that it never came to.",
                         MetricType::Counter);
    ForEachStatus(roPublication,
                  [&](CLabels oLabels, bool /*bIsNow*/, uint64_t uiTransitions) {
                      oTransitions.AddKnown(std::move(oLabels), uiTransitions > 0, static_cast<double>(uiTransitions));
                  });
}

void CollectIncidents(const SJudgement& roJudgement, CFamilies& raoFamilies)
{
    CFamily(raoFamilies, "vt_video_incidents_open", "Incidents whose faults last.", MetricType::Gauge)
        .Add({}, roJudgement.uiIncidentsOpen);
    CFamily(raoFamilies, "vt_video_incidents_total", "Incidents that have begun.", MetricType::Counter)
        .Add({}, static_cast<double>(roJudgement.uiIncidents));
}

void CollectCauses(const SWatchSnapshot& roSnapshot, CFamilies& raoFamilies)
{
    CFamily oFamily(raoFamilies, "vt_video_fields_unobserved_cause_total",
                    "Fields that passed while the watch was late, by why it was; they add up to "
                    "vt_video_fields_unobserved_total.",
                    MetricType::Counter);
    WatchPublication_ForEachStream(
        roSnapshot,
        [&](const SStreamFigures& roStream)
        {
            for (uint32_t uiCause = 0; uiCause < uiNbOfUnobservedCauses; ++uiCause)
            {
                oFamily.Add(
                    MetricLabels_Get(roStream, "cause", HealthTexts_GetCause(static_cast<EUnobservedCause>(uiCause))),
                    static_cast<double>(roStream.oCounters.auiUnobservedCauses[uiCause]));
            }
        });
}

struct SQueueMetric
{
    const char* szName;
    const char* szHelp;
    double (*fnGet)(const SQueueFigures& roQueue);
    bool (*fnIsKnown)(const SQueueFigures& roQueue);
};

bool IsSecondKnown(const SQueueFigures& roQueue)
{
    return roQueue.aoWindows[0].bIsKnown;
}

constexpr SQueueMetric aoQueues[] = {
    {"vt_video_buffers_ready", "Filled buffers of an input that wait for the application, mean of the last second.",
     [](const SQueueFigures& roQueue) { return roQueue.aoWindows[0].oReady.flMean; }, IsSecondKnown},
    {"vt_video_buffers_loaned", "Buffers of an input in the application's hands, mean of the last second.",
     [](const SQueueFigures& roQueue) { return roQueue.aoWindows[0].oLoaned.flMean; }, IsSecondKnown},
    {"vt_video_buffers_held_seconds", "How long a picture stays in the queue of an input, over the last ten seconds.",
     [](const SQueueFigures& roQueue) { return roQueue.flHeldSeconds; },
     [](const SQueueFigures& roQueue) { return roQueue.bIsHeldKnown; }},
};

void CollectQueues(const SWatchSnapshot& roSnapshot, CFamilies& raoFamilies)
{
    for (const SQueueMetric& roMetric : aoQueues)
    {
        CFamily oFamily(raoFamilies, roMetric.szName, roMetric.szHelp, MetricType::Gauge);
        WatchPublication_ForEachStream(roSnapshot,
                                       [&](const SStreamFigures& roStream)
                                       {
                                           oFamily.AddKnown(MetricLabels_Get(roStream),
                                                            roStream.oKey.eDirection == EStreamDirection::INPUT &&
                                                                roMetric.fnIsKnown(roStream.oQueue),
                                                            WatchJson_Round(roMetric.fnGet(roStream.oQueue), iDigits));
                                       });
    }
}

// The bounds of buckets are those of bins.
prometheus::ClientMetric::Histogram MakePacing(const SPacingHistogram& roPacing, uint32_t uiMost)
{
    prometheus::ClientMetric::Histogram oHistogram;
    uint64_t uiCount = 0;
    for (uint32_t uiBin = 0; uiBin < uiPacingBins; ++uiBin)
    {
        uiCount += roPacing.auiCounts[uiBin];
        const bool bIsEarly = uiBin < uiPacingBinsPerSign;
        const uint32_t uiBound = bIsEarly ? uiPacingBinsPerSign - 1 - uiBin : uiBin - uiPacingBinsPerSign;
        if (uiBound % uiPacingStep == 0 && uiBound <= uiMost)
        {
            const double flBound = WatchJson_Round(aflPacingBounds[uiBound], 3);
            oHistogram.bucket.push_back({uiCount, bIsEarly ? -flBound : flBound});
        }
    }
    oHistogram.bucket.push_back({uiCount, std::numeric_limits<double>::infinity()});
    oHistogram.sample_count = uiCount;
    oHistogram.sample_sum = WatchJson_Round(roPacing.flSumSeconds, iDigits);
    return oHistogram;
}

void CollectPacing(const SWatchSnapshot& roSnapshot, EMetricDetail eDetail, CFamilies& raoFamilies)
{
    const uint32_t uiMost = eDetail == EMetricDetail::FULL ? uiPacingBinsPerSign - 1 : uiPacingMost;
    prometheus::MetricFamily& roFamily = raoFamilies.emplace_back();
    roFamily.name = "vt_video_pacing_seconds";
    roFamily.help = "Deviation of each field's start from its grid; negative: early.";
    roFamily.type = MetricType::Histogram;
    WatchPublication_ForEachStream(roSnapshot,
                                   [&](const SStreamFigures& roStream)
                                   {
                                       prometheus::ClientMetric& roMetric = roFamily.metric.emplace_back();
                                       roMetric.label = MetricLabels_Get(roStream);
                                       roMetric.histogram = MakePacing(roStream.oPacing, uiMost);
                                   });
}

} // namespace

void HealthMetrics_Collect(const SWatchPublication& roPublication, EMetricDetail eDetail, CFamilies& raoFamilies)
{
    CollectHealth(roPublication, eDetail, raoFamilies);
    CollectIncidents(roPublication.oJudgement, raoFamilies);
    if (eDetail != EMetricDetail::FLEET)
    {
        CollectTransitions(roPublication, raoFamilies);
        CollectCauses(roPublication.oSnapshot, raoFamilies);
    }
    CollectQueues(roPublication.oSnapshot, raoFamilies);
    CollectPacing(roPublication.oSnapshot, eDetail, raoFamilies);
}
