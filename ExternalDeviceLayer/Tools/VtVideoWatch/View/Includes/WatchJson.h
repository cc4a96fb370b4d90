/*
 * Figures as JSON, in the shapes that docs/api/ describes by a schema each. Moments are ISO 8601 texts in
 * UTC with nanoseconds; a figure that is not known is null, and so is a number that JSON has no word for. No state; any
 * thread.
 */
#ifndef WATCH_JSON_H
#define WATCH_JSON_H

#include <functional>
#include <optional>
#include <string>

#include <nlohmann/json_fwd.hpp>

#include "WatchPublication.h"

using CJson = nlohmann::ordered_json;

CJson WatchJson_FromStream(const SStreamFigures& roStream, const SStreamTexts& roTexts);

/* The newest event of a stream, {number, kind, utc}; null without one. */
CJson WatchJson_FromLastEvent(const SLastEvent& roEvent);

CJson WatchJson_FromPair(const SStreamKey& roFirst, const SStreamKey& roSecond, const SPairFigures& roPair);
CJson WatchJson_FromClock(const SClockFigures& roClock);
CJson WatchJson_FromCosts(const SWatchCosts& roCosts);

/* An estimate under names of its own: {"hz": 60.0, "stderr_hz": 1e-6}; null when it is not valid. */
CJson WatchJson_FromEstimate(const SEstimate& roEstimate, const char* szValueName, const char* szStdErrName);

/* Which snapshot an answer tells of: number, utc, tick, tick_frequency_hz. */
CJson WatchJson_FromSnapshotMoment(const SWatchSnapshot& roSnapshot);

/* The identity of a direction's reference, null without one; of several chips, which have one each, all of them. */
void WatchJson_AddReference(CJson& roJson, EStreamDirection eDirection, const SWatchSnapshot& roSnapshot);

/* The chips, where there are several. */
void WatchJson_AddChips(CJson& roJson, const SWatchPublication& roPublication);

/* What fnMake says of each stream of a direction. */
CJson WatchJson_ByStream(
    const SWatchPublication& roPublication, EStreamDirection eDirection,
    const std::function<CJson(const SStreamFigures&, const SStreamTexts&, const SStreamHealth&)>& fnMake);

/* What fnMake says of either direction, under its name. */
CJson WatchJson_ByDirection(const std::function<CJson(EStreamDirection)>& fnMake);

/* The answers of /api/v1/streams and /api/v1/pairs. */
CJson WatchJson_FromStreams(const SWatchPublication& roPublication);
/* Those of one stream alone where that is given. */
CJson WatchJson_FromPairs(const SWatchPublication& roPublication, const std::optional<SStreamKey>& roOnly = {});

/* A figure with so many significant digits, for answers that hold many; not finite: unchanged. */
double WatchJson_Round(double flValue, int iDigits);

/* On one line; bytes that are no UTF-8 come out as U+FFFD. */
std::string WatchJson_Print(const CJson& roJson);

#endif
