/*
 * Families of metrics in the making: what the parts of a scrape have in common. One thread at a time.
 */
#ifndef METRIC_FAMILIES_H
#define METRIC_FAMILIES_H

#include <string>
#include <utility>
#include <vector>

#include <prometheus/metric_family.h>

#include "WatchMetrics.h"
#include "WatchPublication.h"

using CFamilies = std::vector<prometheus::MetricFamily>;
using CLabels = std::vector<prometheus::ClientMetric::Label>;

// Of which details a figure is.
enum class ETold : uint8_t
{
    ALWAYS,
    MOVED,  // unless it is 0 and the detail is not full: what seldom happens, and never to most
    BEYOND, // the same, and not for a fleet
    FULL
};

/* Whether a figure of a value is told at all. */
bool MetricDetail_Tells(EMetricDetail eDetail, ETold eTold, double flValue);

// A family to which samples are added.
class CFamily
{
public:
    CFamily(CFamilies& raoFamilies, const char* szName, const char* szHelp, prometheus::MetricType eType);

    void Add(CLabels oLabels, double flValue);

    // Unless the figure is not known.
    void AddKnown(CLabels oLabels, bool bIsKnown, double flValue);

    // 1 for the state that a stream is in; the others, with 0, if all is told.
    template <typename EState>
    void AddStates(const SStreamFigures& roStream, EState eState, const char* (*fnGetName)(EState),
                   EMetricDetail eDetail);

private:
    prometheus::MetricFamily& m_roFamily;
};

/* Of a stream, with one more label if szName is given. */
CLabels MetricLabels_Get(const SStreamFigures& roStream, const char* szName = nullptr, const char* szValue = nullptr);

template <typename EState>
void CFamily::AddStates(const SStreamFigures& roStream, EState eState, const char* (*fnGetName)(EState),
                        EMetricDetail eDetail)
{
    for (size_t i = 0; i < static_cast<size_t>(EState::COUNT); ++i)
    {
        const double flIsNow = static_cast<size_t>(eState) == i ? 1.0 : 0.0;
        AddKnown(MetricLabels_Get(roStream, "state", fnGetName(static_cast<EState>(i))),
                 MetricDetail_Tells(eDetail, ETold::MOVED, flIsNow), flIsNow);
    }
}

#endif
