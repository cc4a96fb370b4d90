/*
 * What a recording holds besides its fields: whose it is, its streams, what they were and when. Plain data. Moments are
 * nanoseconds of CLOCK_MONOTONIC unless their name says otherwise.
 */
#ifndef RECORDING_H
#define RECORDING_H

#include <cstdint>
#include <string>

#include "FieldRecord.h"
#include "StreamKey.h"

struct SRecordingAbout
{
    std::string szVersion; // of the program
    std::string szHost;
    std::string szBoard; // path of its library
    uint64_t uiBoardVersion = 0;
    bool bIsSimulated = false;
    uint32_t uiTickFrequencyHz = 0;
    std::string szReason; // why it was made, one line
};

// A moment in all clocks.
struct SRecordedClock
{
    uint64_t uiTick = 0;
    uint64_t uiMonotonicNs = 0;
    int64_t iUtcNs = 0;
    double flUncertaintySeconds = 0.0; // of the tick against CLOCK_MONOTONIC
    int32_t iTaiOffsetSeconds = 0;     // 0: not known
};

// What a stream was from a moment on.
struct SRecordedDescription
{
    SStreamKey oStream;
    SStreamDescription oDescription = {};
    std::string szName;   // connector's
    std::string szFormat; // pixel format's
};

#endif
