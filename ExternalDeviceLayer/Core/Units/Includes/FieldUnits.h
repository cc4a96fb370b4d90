/*
 * What field counters count in.
 */
#ifndef FIELD_UNITS_H
#define FIELD_UNITS_H

#include <cstdint>

// Field counters of the SDK advance by so much per field.
inline constexpr uint64_t uiCountsPerField = 16;

#endif
