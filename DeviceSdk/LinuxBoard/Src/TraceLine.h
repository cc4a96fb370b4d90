/*
 * Reads one line of the kernel's trace of dequeued video buffers. Text only; entered by any thread, keeps nothing.
 */
#ifndef LINUX_BOARD_TRACE_LINE_H
#define LINUX_BOARD_TRACE_LINE_H

#include "FieldTracker.h"

#include <string_view>

namespace LinuxBoard
{

struct STracedBuffer
{
    int32_t iMinor = -1;          /* device minor of the node */
    bool bCapture = false;        /* a video capture buffer, not one of an output or of side data */
    bool bMonotonicStamp = false; /* the stamp is of CLOCK_MONOTONIC */
    SCapturedFrame oFrame;
};

/* True when szLine is an event of a dequeued buffer and was read whole. */
bool TraceLine_Parse(std::string_view szLine, STracedBuffer& roBuffer);

} // namespace LinuxBoard

#endif
