/*
 * A stream's figures at an instant, out of its grid.
 */
#ifndef STREAM_FIGURES_H
#define STREAM_FIGURES_H

#include "StreamGrid.h"
#include "StreamPhase.h"

using RateFits = std::array<SRateFit, 3>; // by EBlockLength

/* The lines through the windows that end with an instant. */
RateFits StreamFigures_FitWindows(const CStreamGrid& roGrid, const SInstant& roInstant);

/* Rates over all windows. */
void StreamFigures_FillRates(CStreamOutput& roOutput, const CStreamGrid& roGrid, const RateFits& raoFits,
                             const SInstant& roInstant);

/* Where the grid is; roPhase: found before. */
void StreamFigures_FillGrid(CStreamOutput& roOutput, const CStreamGrid& roGrid, const SStreamPhase& roPhase);

/* Jitter, intervals and time deviation. */
void StreamFigures_FillJitter(CStreamOutput& roOutput, const CStreamGrid& roGrid, const SLine& roTen,
                              const SInstant& roInstant);

#endif
