/*
 * The board's reference counter, and sleeping on file descriptors until a moment of it. Entered by any thread.
 */
#ifndef LINUX_BOARD_MONOTONIC_CLOCK_H
#define LINUX_BOARD_MONOTONIC_CLOCK_H

#include <cstdint>
#include <poll.h>
#include <span>

#include "BoardUnits.h"

/* CLOCK_MONOTONIC, nanoseconds. */
uint64_t MonotonicClock_NowNs();

/*
 * Sleeps until one of the descriptors has something or the moment has come; with none, until the moment. Signals do
 * not end the sleep. uiNowNs: what the clock has just said. True when a descriptor has something.
 */
bool MonotonicClock_PollUntil(std::span<pollfd> aoPolled, uint64_t uiMomentNs, uint64_t uiNowNs);

#endif
