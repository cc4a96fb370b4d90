/*
 * A part of a scrape. Of every stream: its state, counters and figures. No state; any thread.
 */
#ifndef STREAM_METRICS_H
#define STREAM_METRICS_H

#include "MetricFamilies.h"

void StreamMetrics_Collect(const SWatchPublication& roPublication, EMetricDetail eDetail, CFamilies& raoFamilies);

#endif
