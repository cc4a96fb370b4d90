/*
 * A part of a scrape. References, pairs and groups. No state; any thread.
 */
#ifndef LOCK_METRICS_H
#define LOCK_METRICS_H

#include "MetricFamilies.h"

void LockMetrics_Collect(const SWatchPublication& roPublication, EMetricDetail eDetail, CFamilies& raoFamilies);

#endif
