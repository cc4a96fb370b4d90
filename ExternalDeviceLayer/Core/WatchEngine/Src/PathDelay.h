/*
 * How long a picture takes through the machine at the least: from the start of its field at an input to the first field
 * start of an output that can show it. Its field has to be over, and so have those of the pictures that wait before it;
 * then the next field of the output can show it. What the application takes is not in it.
 *
 * With the periods Ti and To, s the shorter one, and w the offset of the output after the input modulo s:
 *
 *     least = Ti (1 + fewest waiting) + w
 *     most  = Ti (1 + most waiting) + w + (To - Ti, where the output is the slower one)
 *
 * since of several fields of the input within one of the output each waits for another time. Where w is as close to 0
 * or to s as fields jitter, some of them still catch the field of the output that others miss: w is both then.
 */
#ifndef PATH_DELAY_H
#define PATH_DELAY_H

#include "WatchSnapshot.h"

/* Draws the delay anew: roPair is that of the input and the output; how often it stepped is left alone. */
void PathDelay_Fill(const SStreamFigures& roInput, const SStreamFigures& roOutput, const SPairFigures& roPair,
                    SPathFigures& roPath);

#endif
