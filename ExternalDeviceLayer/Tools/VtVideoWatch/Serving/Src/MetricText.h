/*
 * Families of metrics as text: that of Prometheus, version 0.0.4, and that of OpenMetrics, version 1.0.0. No state; any
 * thread.
 */
#ifndef METRIC_TEXT_H
#define METRIC_TEXT_H

#include <string>

#include "MetricFamilies.h"
#include "WatchMetrics.h"

std::string MetricText_Print(const CFamilies& raoFamilies, EMetricFormat eFormat);

#endif
