/*
 * The exact nominal rate behind timings whose pixel clock is told in whole kilohertz. Pure functions.
 */
#ifndef NOMINAL_RATE_H
#define NOMINAL_RATE_H

#include <cstdint>

#include "VtVideoTypes.h"

// Fields per second as a ratio in lowest terms; 0 / 1: not known.
struct SNominalRate
{
    uint64_t uiNumerator = 0;
    uint64_t uiDenominator = 1;

    bool IsKnown() const { return uiNumerator != 0; }
    double GetHz() const { return static_cast<double>(uiNumerator) / static_cast<double>(uiDenominator); }
    bool operator==(const SNominalRate&) const = default;
};

/*
 * Chooses the rate that timings mean. The clock, rounded to kilohertz, leaves an interval of rates: those in it of the
 * form n/2 and n/2 x 1000/1001 are what a maker means; without one it is the rate of the clock as it is told. Where the
 * interval holds several, the measured rate decides, or the clock as it is told when none is measured.
 *   roTimings      in  as the board tells them; without a clock the vertical rate counts, which is in whole hertz
 *   flMeasuredHz   in  fields per second, 0: not measured
 * Not known without a signal.
 */
SNominalRate NominalRate_Choose(const VtVideo_VidParam& roTimings, double flMeasuredHz);

/* Whether the one is a whole multiple of the other; both are known. */
bool NominalRate_IsMultiple(const SNominalRate& roSlow, const SNominalRate& roFast);

/* Whether the measured rate can have a say in the choice. */
bool NominalRate_IsAmbiguous(const VtVideo_VidParam& roTimings);

/* Duration of a line in seconds, 0: not known. */
double NominalRate_GetLineSeconds(const VtVideo_VidParam& roTimings, const SNominalRate& roRate);

#endif
