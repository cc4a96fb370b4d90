/*
 * Rates from counters and ticks, and the long-run totals of a stream: what is the same for inputs and outputs.
 * Field counters advance by 16 per field; ticks are those of the board's reference counter.
 */
#ifndef FRAME_RATE_TOTALS_H
#define FRAME_RATE_TOTALS_H

#include <cstdint>

#include "FieldRates.h"
#include "KrvTypes.h"
#include "MonitorUserData.h"
#include "VtVideoTypes.h"

/* Fields between two passes: half the vertical rate; 120 when there is none; 1 when half of it is 0. */
inline uint32_t FieldsPerPass(uint32_t uiVRate_Hz)
{
    if (uiVRate_Hz == 0)
    {
        return NB_OF_SAMPLES;
    }
    return uiVRate_Hz == 1 ? 1 : uiVRate_Hz / 2;
}

/* Fields that a pass can look back on: those since the last one, but no more than the ring holds. */
inline uint32_t FieldsInRing(uint32_t uiSampleCount, uint32_t uiLastSampleCount)
{
    const uint32_t uiFields = uiSampleCount - uiLastSampleCount;
    return uiFields < NB_OF_SAMPLES ? uiFields : static_cast<uint32_t>(NB_OF_SAMPLES);
}

/* Copies the rates of the current signal into the record, for the analysis of all streams. Unguarded. */
inline void PublishRates(SMonitorUserData& roData, const VtVideo_VidParam& roVidParam)
{
    roData.uiVRate_Hz = roVidParam.uiVRate_Hz;
    roData.uiHRate_KHz = roVidParam.uiHRate_kHz;
}

/*
 * Adds a pass to the long-run totals of a record and derives average, ppm, maximum and minimum. The average is fields
 * per second also for interlaced streams.
 *   roData           in/out  the record; its own thread only
 *   uiCounts         in      field counts of the pass
 *   uiTicks          in      ticks of the pass
 *   uiTickPerSecond  in      tick frequency, not 0
 *   flPassRate       in      rate of the pass
 */
void AddPassToTotals(SMonitorUserData& roData, uint64_t uiCounts, uint64_t uiTicks, uint32_t uiTickPerSecond,
                     double flPassRate);

/*
 * Reads the tick frequency of the board into the record; a board that delivers none, or 0, leaves 1.
 * The frequency, ticks per second.
 */
uint32_t ReadTickFrequency(SMonitorUserData& roData);

/* Writes the line of the detailed frame rates. */
void FormatFrameRateDetails(SMonitorUserData& roData, const char* szPrefix);

#endif
