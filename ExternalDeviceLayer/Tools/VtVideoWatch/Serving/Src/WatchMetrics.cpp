#include "WatchMetrics.h"

#include <prometheus/collectable.h>
#include <prometheus/text_serializer.h>

#include "MetricFamilies.h"

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

// One publication, seen by the metrics library.
class CWatchCollectable : public prometheus::Collectable
{
public:
    CWatchCollectable(WatchPublicationPtr poPublication, const SServingCosts& roServing)
        : m_poPublication(std::move(poPublication)), m_oServing(roServing)
    {
    }

    CFamilies Collect() const override
    {
        CFamilies aoFamilies;
        if (m_poPublication != nullptr)
        {
            CostMetrics_Collect(*m_poPublication, aoFamilies);
            LockMetrics_Collect(*m_poPublication, aoFamilies);
            StreamMetrics_Collect(*m_poPublication, aoFamilies);
        }
        CollectServing(m_oServing, aoFamilies);
        // A family without samples would be two lines that say nothing.
        std::erase_if(aoFamilies, [](const prometheus::MetricFamily& roFamily) { return roFamily.metric.empty(); });
        return aoFamilies;
    }

private:
    WatchPublicationPtr m_poPublication;
    SServingCosts m_oServing;
};

} // namespace

std::string WatchMetrics_Print(const WatchPublicationPtr& rpoPublication, const SServingCosts& roServing)
{
    const CWatchCollectable oCollectable(rpoPublication, roServing);
    return prometheus::TextSerializer().Serialize(oCollectable.Collect());
}
