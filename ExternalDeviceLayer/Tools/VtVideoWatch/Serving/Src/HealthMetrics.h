/*
 * A part of a scrape. The judgement, and what is followed field by field. No state; any thread.
 */
#ifndef HEALTH_METRICS_H
#define HEALTH_METRICS_H

#include "MetricFamilies.h"

void HealthMetrics_Collect(const SWatchPublication& roPublication, EMetricDetail eDetail, CFamilies& raoFamilies);

#endif
