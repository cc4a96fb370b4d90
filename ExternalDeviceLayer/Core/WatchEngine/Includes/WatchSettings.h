/*
 * What an engine is told once: the clock of the board, and how streams are compared. Plain data.
 */
#ifndef WATCH_SETTINGS_H
#define WATCH_SETTINGS_H

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "LockThreshold.h"
#include "StreamKey.h"

// An input and an output that an application feeds from it.
struct SStreamPath
{
    SStreamKey oInput;
    SStreamKey oOutput;

    bool operator==(const SStreamPath&) const = default;
};

struct SWatchSettings
{
    uint32_t uiTickFrequencyHz = 0;
    SLockThreshold oThreshold = {};
    // By EStreamDirection: the stream that its phases are told against, of either direction; none: the engine chooses.
    std::array<std::optional<SStreamKey>, 2> aoReferences = {};
    std::vector<SStreamPath> aoPaths = {};
    bool bTicksAreMonotonic = false; // the board says that its ticks count CLOCK_MONOTONIC
    int64_t iTickOffsetNs = 0;       // what that showed at tick 0, when they do
    bool bSetsAreEstimated = false;  // the board says that its set-buffer counters are estimates
    uint64_t uiEventsBefore = 0;     // events are numbered on from here
    // Instead: the last number that engines of one thread have given together; null: this one numbers alone.
    std::shared_ptr<uint64_t> puiLastEvent = {};
};

#endif
