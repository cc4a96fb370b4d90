/*
 * Events and figures as JSON, in the shapes that docs/api/ describes by a schema each. Moments are ISO 8601 texts in
 * UTC with nanoseconds; a figure that is not known is null, and so is a number that JSON has no word for. No state; any
 * thread.
 */
#ifndef WATCH_JSON_H
#define WATCH_JSON_H

#include <cstdint>
#include <span>
#include <string>

#include <nlohmann/json_fwd.hpp>

#include "WatchData.h"

using CJson = nlohmann::ordered_json;

/* An event: the same object in the journal, in answers and in the live stream. */
CJson WatchJson_FromEvent(const SWatchEvent& roEvent);

/*
 * A stream.
 *   roStream  in  its figures
 *   roTexts   in  its texts
 *   aoEvents  in  events among which its newest one is looked for; without it only that one's number is told
 */
CJson WatchJson_FromStream(const SStreamFigures& roStream, const SStreamTexts& roTexts,
                           std::span<const SWatchEvent> aoEvents = {});

/* The newest event of a stream, {number, kind, utc}; null for the number 0. */
CJson WatchJson_FromLastEvent(uint64_t uiNumber, std::span<const SWatchEvent> aoEvents);

CJson WatchJson_FromPair(EStreamDirection eDirection, const SPairFigures& roPair);
CJson WatchJson_FromGroup(EStreamDirection eDirection, const SLockGroup& roGroup);
CJson WatchJson_FromClock(const SClockFigures& roClock);
CJson WatchJson_FromCosts(const SWatchCosts& roCosts);

/* An estimate under names of its own: {"hz": 60.0, "stderr_hz": 1e-6}; null when it is not valid. */
CJson WatchJson_FromEstimate(const SEstimate& roEstimate, const char* szValueName, const char* szStdErrName);

/* Which snapshot an answer tells of: number, utc, tick, tick_frequency_hz. */
CJson WatchJson_FromSnapshotMoment(const SWatchSnapshot& roSnapshot);

/* The answers of /api/v1/streams and /api/v1/pairs; aoEvents as for a stream. */
CJson WatchJson_FromStreams(const SWatchPublication& roPublication, std::span<const SWatchEvent> aoEvents = {});
CJson WatchJson_FromPairs(const SWatchPublication& roPublication);

/* Texts of a stream; empty ones when the publication has none for it. */
const SStreamTexts& WatchJson_GetTexts(const SWatchPublication& roPublication, EStreamDirection eDirection,
                                       uint32_t uiIndex);

/* A figure with so many significant digits, for answers that hold many; not finite: unchanged. */
double WatchJson_Round(double flValue, int iDigits);

/* On one line; bytes that are no UTF-8 come out as U+FFFD. */
std::string WatchJson_Print(const CJson& roJson);

#endif
