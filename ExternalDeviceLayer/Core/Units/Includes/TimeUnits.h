/*
 * Nanoseconds in the larger units of time.
 */
#ifndef TIME_UNITS_H
#define TIME_UNITS_H

#include <cstdint>

constexpr int64_t iNsPerMillisecond = 1'000'000;
constexpr int64_t iNsPerSecond = 1000 * iNsPerMillisecond;
constexpr int64_t iNsPerMinute = 60 * iNsPerSecond;
constexpr int64_t iNsPerHour = 60 * iNsPerMinute;
constexpr int64_t iNsPerDay = 24 * iNsPerHour;

constexpr double flNsPerSecond = 1e9;
constexpr double flSecondsPerNs = 1e-9;

#endif
