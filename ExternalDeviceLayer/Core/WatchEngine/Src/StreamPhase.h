/*
 * What a stream's fit says once a second: rates over four windows, where its grid lies at the common instant, and its
 * phase block by block, in which pairs are compared. Ticks, and seconds where said.
 */
#ifndef STREAM_PHASE_H
#define STREAM_PHASE_H

#include <array>
#include <cstdint>

#include "BlockFit.h"
#include "NominalRate.h"
#include "RateHistory.h"
#include "WatchSnapshot.h"

// The moment of everything in an analysis: a whole second of the chip's clock.
struct SInstant
{
    bool bIsKnown = false;
    int64_t iSecond = 0; // since tick 0
    uint64_t uiTick = 0;
    std::array<SWindowTimes, 3> aoTimes; // by EBlockLength
};

using PhaseSeries = std::array<SBlockPoint, uiBlocksPerWindow>;

struct SStreamPhase
{
    bool bIsKnown = false;
    SNominalRate oNominal;
    double flPeriod = 0.0;          // measured
    double flReferencePeriod = 0.0; // that the series are told against: the nominal one where it is known
    double flGrid = 0.0;            // field start nearest to the instant, ticks after it
    double flGridErr = 0.0;
    double flNoise = 0.0; // variance of a field, free of wander
    // By block length: how much later the field starts are than on the reference period; times in seconds after the
    // instant, weights in seconds. The zero is the field start nearest to the instant.
    std::array<PhaseSeries, 3> aoSeries = {};
};

// A stream's rate over a window.
struct SRateFit
{
    SLine oLine;
    double flSlopeErr = 0.0;
    bool bIsFull = false; // enough of the window is there
};

/* The line through a window of ten blocks. */
SRateFit StreamPhase_FitWindow(const CRateHistory& roHistory, EBlockLength eLength, const SWindowTimes& roTimes);

/* Everything about the phase; oNominal is set before. */
void StreamPhase_Find(SStreamPhase& roPhase, const CRateHistory& roHistory, const SInstant& roInstant,
                      const std::array<SRateFit, 3>& raoFits, double flTicksPerSecond);

#endif
