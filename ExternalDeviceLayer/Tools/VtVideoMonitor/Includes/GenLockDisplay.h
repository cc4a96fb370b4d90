/*
 * The genlock report: which streams of one direction run in step, and by how many ticks, hundredths of a line and
 * nanoseconds they don't. Main thread only.
 */
#ifndef GENLOCK_DISPLAY_H
#define GENLOCK_DISPLAY_H

#include <cstdint>

#include "GenLockProcess.h"
#include "KrvTypes.h"
#include "MonitorUserData.h"

/*
 * Measures the streams and logs the report. Logs nothing when they cannot be measured.
 *   uiNbOfVideo             in      number of streams
 *   bIsVideoIn              in      1 for inputs, 0 for outputs
 *   uiDisplayMode           in      GENLOCK_DISPLAY_DETAILED adds the pairs to the summary
 *   uiThresholdMode         in      GENLOCK_THRESHOLD_...; any other value counts as GENLOCK_THRESHOLD_1
 *   paoVideoMonitorData     in      records of the streams
 *   pauiVideoLastTimeStamp  in/out  as ProcessGenLock takes it
 */
void DisplayGenLock(uint32_t uiNbOfVideo, Bool32 bIsVideoIn, uint32_t uiDisplayMode, uint32_t uiThresholdMode,
                    const SMonitorUserData* paoVideoMonitorData, uint64_t* pauiVideoLastTimeStamp);

/* A time in the unit that TimeConvertUnit names, truncated toward zero. */
int64_t TimeConvertValue(int64_t iTimeNs);

/* "ns" below 100000 ns, "us" below 100000000 ns, else "ms"; likewise for negative times. */
const char* TimeConvertUnit(int64_t iTimeNs);

#endif
