/*
 * How close streams in lock are: in lines (SPairFigures says of which stream) or, when that is not 0, in seconds. Plain
 * data.
 */
#ifndef LOCK_THRESHOLD_H
#define LOCK_THRESHOLD_H

struct SLockThreshold
{
    double flLines = 1.0;
    double flSeconds = 0.0;
};

#endif
