/*
 * Whether streams of some timings can be compared at all. Pure functions; any thread.
 */
#ifndef RATE_COMPARISON_H
#define RATE_COMPARISON_H

#include "VtVideoTypes.h"

/* Fields per second that timings mean; 0 without a signal. */
double RateComparison_GetHz(const VtVideo_VidParam& roTimings);

/* Whether both rates are known and neither is a whole multiple of the other. */
bool RateComparison_AreDifferent(const VtVideo_VidParam& roFirst, const VtVideo_VidParam& roSecond);

#endif
