/*
 * The watch's figures in the text formats of Prometheus and OpenMetrics. A scrape tells of one publication, so its
 * figures belong together. An estimate that is not known is absent: a gap in a graph, and no alarm. Labels are
 * direction and index, and nothing that grows without bound; names and formats stand in vt_video_stream_info alone.
 */
#ifndef WATCH_METRICS_H
#define WATCH_METRICS_H

#include <cstdint>
#include <memory>
#include <string>

#include "HttpServer.h"
#include "WatchPublication.h"

enum class EMetricFormat : uint8_t
{
    PROMETHEUS,
    OPENMETRICS
};
constexpr size_t uiMetricFormats = 2;

// How much of a stream is told.
enum class EMetricDetail : uint8_t
{
    FLEET,  // at most forty series beside its histogram, whatever becomes of it: what rules, alerts and graphs need
    NORMAL, // every status of its health, and how often it came to each
    FULL    // whatever is known
};
constexpr size_t uiMetricDetails = 3;

// What the serving itself costs.
struct SServingCosts
{
    SHttpCounts oHttp;
    uint32_t uiListeners = 0;
    uint64_t uiScrapes = 0; // before this one
    double flScrapeSeconds = 0.0;
};

/* The whole answer to a scrape; without a publication only what does not need one. Thread-safe. */
std::string WatchMetrics_Print(const WatchPublicationPtr& rpoPublication, const SServingCosts& roServing,
                               EMetricFormat eFormat, EMetricDetail eDetail);

/* The one that an Accept header asks for: OpenMetrics only if it is named. */
EMetricFormat WatchMetrics_FindFormat(const std::string& rszAccept);

/*
 * The one that a request asks for by detail=; without it NORMAL.
 *   rszProblem  out  one line if the query cannot be understood, empty otherwise
 */
EMetricDetail WatchMetrics_FindDetail(const std::string& rszQuery, std::string& rszProblem);

#endif
