/*
 * Families of metrics in the making: what the parts of a scrape have in common. One thread at a time.
 */
#ifndef METRIC_FAMILIES_H
#define METRIC_FAMILIES_H

#include <string>
#include <utility>
#include <vector>

#include <prometheus/metric_family.h>

#include "WatchPublication.h"

using CFamilies = std::vector<prometheus::MetricFamily>;
using CLabels = std::vector<prometheus::ClientMetric::Label>;

// A family to which samples are added.
class CFamily
{
public:
    CFamily(CFamilies& raoFamilies, const char* szName, const char* szHelp, prometheus::MetricType eType);

    void Add(CLabels oLabels, double flValue);

    // Unless the figure is not known.
    void AddKnown(CLabels oLabels, bool bIsKnown, double flValue);

private:
    prometheus::MetricFamily& m_roFamily;
};

/* Of a stream, with one more label if szName is given. */
CLabels MetricLabels_Get(const SStreamFigures& roStream, const char* szName = nullptr, const char* szValue = nullptr);

#endif
