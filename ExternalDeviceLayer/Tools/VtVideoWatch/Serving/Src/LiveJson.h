/*
 * What the live stream says once a second: as little as shows whether all is well. No state; any thread.
 */
#ifndef LIVE_JSON_H
#define LIVE_JSON_H

#include "WatchJson.h"

CJson LiveJson_FromPublication(const SWatchPublication& roPublication);

#endif
