/*
 * What a stream's thread hands to the analysis: one record per end of a wait, and a description of the stream whenever
 * it was read. Plain data; moments are nanoseconds of CLOCK_MONOTONIC, stamps are ticks of the board.
 */
#ifndef FIELD_RECORD_H
#define FIELD_RECORD_H

#include <cstdint>

#include "VtVideoTypes.h"

// How a wait for a field start ended.
enum class EWaitResult : uint8_t
{
    FIELD,     // a field: stamp and counters are set
    TIMED_OUT, // no field within the time-out
    CANCELED,  // the board says that there is no signal
    GONE       // any other status: the device or its handle is no more
};

struct SFieldRecord
{
    uint64_t uiWaitBeginNs;      // when the thread entered the wait
    uint64_t uiArrivalNs;        // when the wait returned to it
    uint64_t uiTick;             // when the field started
    uint64_t uiFieldCounter;     // 16 per field
    uint64_t uiSetBufferCounter; // outputs: buffers set so far
    uint64_t uiRunDelayNs; // how long the thread stood ready without a processor since its last record; upper bound
    EWaitResult eResult;
    bool bIsTopField;
    bool bHasBuffers;           // inputs: the board told the three counts behind
    bool bHasSkippedBuffers;    // inputs: and the one of skipped buffers
    uint16_t uiReadyBuffers;    // filled, waiting for the application
    uint16_t uiLoanedBuffers;   // in the application's hands
    uint16_t uiInternalBuffers; // in the board's hands
    uint64_t uiSkippedBuffers;  // the board's own count since its start
};

// What the stream is at a moment. Fields that the direction does not have are 0.
struct SStreamDescription
{
    uint64_t uiMomentNs;         // when it was read
    VtVideo_VidParam oTimings;   // all 0 without a signal
    VtPixelFormat ePixelFormat;  // of the buffers
    uint32_t uiWidth;            // of the buffers, pixels
    uint32_t uiHeight;           // lines
    uint32_t uiNbOfBuffer;       // inputs
    uint32_t uiReadyBufferCount; // inputs
    uint32_t uiLoanBufferCount;  // inputs
    uint64_t uiSkippedBuffers;   // inputs: the board's own count since its start
    bool bHasSkippedBuffers;     // the board could tell it
    VtVideoIn_State eCaptureState;
    VtVideoOut_PowerState ePowerState;
};

#endif
