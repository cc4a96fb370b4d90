/*
 * A line through a few block means, and how sure it is by how far these agree among each other. Wander that lasts
 * longer than a field makes neighbouring fields deviate together, and the usual standard error, which takes them for
 * independent, claims too much; only blocks are taken for independent here.
 *
 * Few blocks say little about their own spread. The errors are widened, by Student's t for 99.73 %, so that three of
 * them hold as much as three standard deviations would (JCGM 100:2008, table G.2).
 */
#ifndef BLOCK_FIT_H
#define BLOCK_FIT_H

#include <cmath>
#include <span>

#include "LineFit.h"

struct SBlockFit
{
    bool bIsValid = false;
    SLineSums oSums;          // x are times, y values
    double flSlopeErr = 0.0;  // widened
    double flHeightErr = 0.0; // of the line at the mean time, widened

    /* Standard error of the line at a time. */
    double GetErrAt(double flTime) const { return std::hypot(flHeightErr, flSlopeErr * (flTime - oSums.flMeanX)); }
};

/* Needs four blocks at least. */
SBlockFit BlockFit_Get(std::span<const SLinePoint> aoPoints);

#endif
