/*
 * What the live stream says once a second: as little as shows whether all is well. No state; any thread.
 */
#ifndef LIVE_JSON_H
#define LIVE_JSON_H

#include <span>

#include "WatchJson.h"

/* A snapshot; aoEvents holds the newest event of every stream. */
CJson LiveJson_FromPublication(const SWatchPublication& roPublication, std::span<const SWatchEvent> aoEvents);

#endif
