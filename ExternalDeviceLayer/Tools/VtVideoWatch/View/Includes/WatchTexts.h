/*
 * The words of the watch: what states and windows are called, and how a moment is written, in every answer, metric and
 * line that it writes. All of them are snake_case. No state; any thread.
 */
#ifndef WATCH_TEXTS_H
#define WATCH_TEXTS_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "WatchSnapshot.h"

// Values outside of the enumeration are "unknown" throughout.
const char* WatchTexts_GetState(EStreamState eState);
const char* WatchTexts_GetLock(ELockState eLock);
const char* WatchTexts_GetSlip(ESlip eSlip);
const char* WatchTexts_GetCaptureState(VtVideoIn_State eState);
const char* WatchTexts_GetPowerState(VtVideoOut_PowerState eState);

// "1s" to "1000s".
const char* WatchTexts_GetRateWindow(ERateWindow eWindow);

/* A moment, nanoseconds since 1970-01-01 UTC, as ISO 8601 with nine decimals: "2026-11-21T22:05:37.000000000Z". */
std::string WatchTexts_GetUtc(int64_t iUtcNs);

/*
 * The moment that a text names: whole milliseconds since 1970-01-01 UTC ("1795299937000"), or ISO 8601 in UTC with up
 * to nine decimals ("2026-11-21T22:05:37Z", "2026-11-21"). Nothing for anything else, and outside of the years 1970 to
 * 2261.
 */
std::optional<int64_t> WatchTexts_FindUtc(std::string_view szText);

#endif
