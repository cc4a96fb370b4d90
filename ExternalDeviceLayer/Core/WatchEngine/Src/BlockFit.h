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

#include <cstdint>
#include <span>

#include "LineFit.h"

struct SBlockFit
{
    bool bIsValid = false;
    uint32_t uiBlocks = 0;
    SLineSums oSums;         // x are times, y values
    double flSlopeErr = 0.0; // widened
};

/* Needs four blocks at least. */
SBlockFit BlockFit_Get(std::span<const SLinePoint> aoPoints);

/*
 * Variance at a time, inside the window or near its ends, of a line through points that lie on a curve: slow wander
 * bends them, and the line is off most at its ends. From their parts along Legendre's polynomials of the second and the
 * third degree, and from what these leave beyond flNoise, the variance that a point of weight 1 has by itself.
 */
double BlockFit_GetBend(std::span<const SLinePoint> aoPoints, const SBlockFit& roFit, double flTime, double flNoise);

#endif
