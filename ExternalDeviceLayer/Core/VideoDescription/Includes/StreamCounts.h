/*
 * How many streams a board has. A count is what memory is reserved by, so one that no board can have is refused.
 * No state; any thread.
 */
#ifndef STREAM_COUNTS_H
#define STREAM_COUNTS_H

#include <cstdint>

#include "KrvTypes.h"
#include "VtTypes.h"

/* The interface's own limit, per direction. */
inline constexpr uint32_t uiMaxNbOfVideo = 32;

enum class EStreamCount
{
    COUNTED,
    FAILED,  // the board cannot count its streams
    TOO_MANY // it says more than the interface allows
};

/*
 * Counts the video inputs or outputs of a board.
 *   hDev           in   the board
 *   bIsVideoInput  in   1 for inputs, 0 for outputs
 *   ruiNbOfVideo   out  what the board says; 0 when it cannot count
 */
EStreamCount CountStreams(VtDevice_Handle hDev, Bool32 bIsVideoInput, uint32_t& ruiNbOfVideo);

#endif
