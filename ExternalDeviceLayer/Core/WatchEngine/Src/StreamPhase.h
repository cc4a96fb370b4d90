/*
 * What a stream's history says at an instant: lines through windows of ten blocks, where its grid lies, and its phase
 * block by block, in which pairs are compared. Ticks, and seconds where said.
 */
#ifndef STREAM_PHASE_H
#define STREAM_PHASE_H

#include <array>
#include <cstdint>

#include "BlockFit.h"
#include "Instant.h"
#include "NominalRate.h"
#include "RateHistory.h"
#include "WatchSnapshot.h"

using PhaseSeries = std::array<SLinePoint, uiBlocksPerWindow>;

struct SStreamPhase
{
    bool bIsKnown = false;
    SNominalRate oNominal;
    double flPeriod = 0.0;          // measured
    double flReferencePeriod = 0.0; // that the series are told against: the nominal one where it is known
    double flGrid = 0.0;            // field start nearest to the instant, ticks after it
    double flGridErr = 0.0;
    double flNoise = 0.0;  // variance of a field, free of wander
    double flWander = 0.0; // and of what neighbouring fields share within a second
    // By block length: how much later the field starts are than on the reference period; times in seconds after the
    // instant, weights in seconds. The zero is the field start nearest to the instant.
    std::array<PhaseSeries, 3> aoSeries = {};
};

// A stream's rate over a window.
struct SRateFit
{
    SLine oLine;
    double flSlopeErr = 0.0;
    PhaseSeries aoPoints = {};
    SBlockFit oBlocks;    // of its ten blocks; times are numbers relative to the line's
    bool bIsFull = false; // enough of the window is there
};

/* Standard error of a line's slope: by its fields or by its blocks, whichever is larger, and by the rounding. */
double StreamPhase_GetSlopeErr(const SLine& roLine, double flByBlocks);

/* The line through a window of ten blocks. */
SRateFit StreamPhase_FitWindow(const CRateHistory& roHistory, EBlockLength eLength, const SWindowTimes& roTimes);

/* Everything about the phase; oNominal is set before. */
void StreamPhase_Find(SStreamPhase& roPhase, const CRateHistory& roHistory, const SInstant& roInstant,
                      const std::array<SRateFit, 3>& raoFits, double flTicksPerSecond);

#endif
