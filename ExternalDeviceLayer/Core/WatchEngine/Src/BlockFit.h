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

#include <span>

struct SBlockPoint
{
    double flTime = 0.0;
    double flValue = 0.0;
    double flWeight = 0.0; // 0: not there
};

struct SBlockFit
{
    bool bIsValid = false;
    double flWeight = 0.0; // of all blocks
    double flMeanTime = 0.0;
    double flMean = 0.0;
    double flSlope = 0.0;
    double flSpread = 0.0;   // weighted variance of the times
    double flSlopeErr = 0.0; // widened
    double flEndErr = 0.0;   // of the line at time 0, widened
};

/* Needs four blocks at least. */
SBlockFit BlockFit_Get(std::span<const SBlockPoint> aoPoints);

#endif
