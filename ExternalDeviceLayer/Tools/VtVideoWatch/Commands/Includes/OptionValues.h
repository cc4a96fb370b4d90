/*
 * Values of options that are more than a number or a text. No state. Each returns nothing for a text that is none.
 */
#ifndef OPTION_VALUES_H
#define OPTION_VALUES_H

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "WatchOptions.h"

/* "1line", "0.5lines", "5us", "200ns", "2ms", "0.001s". */
std::optional<SLockThreshold> OptionValues_FindThreshold(std::string_view szText);

/* "IN_00,OUT_01": at least one stream. */
std::optional<std::vector<SStreamKey>> OptionValues_FindStreams(std::string_view szText);

/* "IN_00,OUT_01": an input and an output, in either order. */
std::optional<SStreamPath> OptionValues_FindPath(std::string_view szText);
/* "0", "0,1": numbers of chips, ascending; none for "all". */
std::optional<std::vector<uint32_t>> OptionValues_FindChips(std::string_view szText);

/* "20" for both limits, "5,20" for warning and critical; not negative, in this order. */
std::optional<SLimits<double>> OptionValues_FindLimits(std::string_view szText);
std::optional<SLimits<uint64_t>> OptionValues_FindCounts(std::string_view szText);

/* What is wrong with a text that is none of these; null: nothing that its form does not say. */
const char* OptionValues_WhyNoThreshold(std::string_view szText);
const char* OptionValues_WhyNoStreams(std::string_view szText);
const char* OptionValues_WhyNoPath(std::string_view szText);
const char* OptionValues_WhyNoChips(std::string_view szText);
const char* OptionValues_WhyNoLimits(std::string_view szText);

/*
 * "now", "-90s", "-15m", "-24h", "-7d" before iNowUtcNs, or an ISO moment in UTC, "2026-11-21T22:05:37Z", down to a
 * date alone.
 */
std::optional<int64_t> OptionValues_FindMoment(std::string_view szText, int64_t iNowUtcNs);

/* "0660": rights of a file, in octal digits. */
std::optional<uint32_t> OptionValues_FindMode(std::string_view szText);

#endif
