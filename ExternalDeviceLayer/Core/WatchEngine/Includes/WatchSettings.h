/*
 * What an engine is told once: the clock of the board, and how streams are compared. Plain data.
 */
#ifndef WATCH_SETTINGS_H
#define WATCH_SETTINGS_H

#include <cstdint>

#include "LockThreshold.h"

struct SWatchSettings
{
    uint32_t uiTickFrequencyHz = 0;
    SLockThreshold oThreshold = {};
    int32_t iReferenceInput = -1; // index of the stream that phases are told against; -1: the engine chooses
    int32_t iReferenceOutput = -1;
    bool bTicksAreMonotonic = false; // the board says that its ticks count CLOCK_MONOTONIC
    int64_t iTickOffsetNs = 0;       // what that showed at tick 0, when they do
    bool bSetsAreEstimated = false;  // the board says that its set-buffer counters are estimates
    uint64_t uiEventsBefore = 0;     // events are numbered on from here
};

#endif
