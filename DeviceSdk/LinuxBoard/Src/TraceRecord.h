/*
 * Reads one binary record of the kernel's trace of dequeued video buffers. Entered by any thread, keeps nothing.
 */
#ifndef LINUX_BOARD_TRACE_RECORD_H
#define LINUX_BOARD_TRACE_RECORD_H

#include <cstddef>
#include <span>

#include "FieldTracker.h"
#include "TraceLayout.h"

struct STracedBuffer
{
    uint32_t uiMinor = 0;         /* device minor of the node */
    bool bCapture = false;        /* a video capture buffer, not one of an output or of side data */
    bool bMonotonicStamp = false; /* the stamp is of CLOCK_MONOTONIC */
    SCapturedFrame oFrame;
};

/* True when aoRecord is an event of a dequeued buffer and holds all of it. */
bool TraceRecord_Read(const STraceLayout& roLayout, std::span<const std::byte> aoRecord, STracedBuffer& roBuffer);

/* The trace buffer, in KiB for each processor, that holds what this many frames a second leave in a second. */
uint32_t TraceRecord_BufferKb(uint32_t uiFramesPerSecond);

#endif
