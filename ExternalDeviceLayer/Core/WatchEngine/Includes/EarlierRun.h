/*
 * What earlier runs of the watch knew of a stream. Plain data.
 */
#ifndef EARLIER_RUN_H
#define EARLIER_RUN_H

#include <cstdint>

#include "StreamKey.h"

enum class EEarlierState : uint8_t
{
    UNKNOWN, // never seen running, or meant to stand still in the end
    RUNNING, // fields came until the run ended
    LOST     // the run saw the signal go
};

struct SEarlierRun
{
    EEarlierState eState = EEarlierState::UNKNOWN;
    int64_t iUtcNs = 0; // RUNNING: when it last ran; LOST: since when
};

struct SEarlierStream
{
    SStreamKey oKey;
    SEarlierRun oRun;
};

#endif
