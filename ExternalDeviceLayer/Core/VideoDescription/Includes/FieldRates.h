/*
 * Units of field counters and ticks, and rates from them. Field counters of the SDK advance by 16 per field, ticks are
 * those of the board's reference counter. No state; any thread.
 */
#ifndef FIELD_RATES_H
#define FIELD_RATES_H

#include <cstdint>

#include "FieldUnits.h"
#include "KrvTypes.h"
#include "VtVideoTypes.h"

inline constexpr double flFieldsPerCount = 1.0 / uiCountsPerField;
inline constexpr uint32_t uiCountToFieldShift = 4;

// How long a monitor thread waits for a field, and how long it pauses when the signal is lost.
inline constexpr uint32_t uiFieldWaitTimeOutMs = 50;
inline constexpr uint32_t uiLostSignalPauseMs = 10;

/* A number of ticks in seconds. */
inline double TicksToSeconds(uint64_t uiTicks, uint32_t uiTickPerSecond)
{
    return static_cast<double>(uiTicks) / static_cast<double>(uiTickPerSecond);
}

/* Fields per second of a number of counts in a time; frames per second when interlaced. */
inline double FieldRate(uint64_t uiCounts, double flSeconds, Bool32 bInterlaced)
{
    const double flRate = static_cast<double>(uiCounts) * flFieldsPerCount / flSeconds;
    return bInterlaced ? flRate * 0.5 : flRate;
}

/*
 * Nominal rate of signal timings, in single precision: 1000 x pixel clock in kHz / pixels per frame; 0.0 when there
 * are no pixels.
 *   roVidParam            in   the timings
 *   ruiTotalScreenPixels  out  pixels per frame, blanking included
 */
double ComputeNominalRate(const VtVideo_VidParam& roVidParam, uint32_t& ruiTotalScreenPixels);

#endif
