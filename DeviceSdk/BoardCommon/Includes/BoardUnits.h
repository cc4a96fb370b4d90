/* Nanoseconds in the larger units of time. */
#ifndef BOARD_COMMON_BOARD_UNITS_H
#define BOARD_COMMON_BOARD_UNITS_H

#include <cstdint>

inline constexpr uint64_t uiNsPerMs = 1'000'000;
inline constexpr uint64_t uiNsPerSecond = 1000 * uiNsPerMs;
inline constexpr int64_t iNsPerSecond = int64_t{uiNsPerSecond};

#endif
