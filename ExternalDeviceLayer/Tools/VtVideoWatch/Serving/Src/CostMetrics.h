/*
 * A part of a scrape. What the watch itself costs, and what it had no room for. No state; any thread.
 */
#ifndef COST_METRICS_H
#define COST_METRICS_H

#include "MetricFamilies.h"

void CostMetrics_Collect(const SWatchPublication& roPublication, CFamilies& raoFamilies);

#endif
