/*
 * Events as JSON, in the shape that docs/api/ describes: the same object in the journal, in answers and in the live
 * stream. See WatchJson.h. No state; any thread.
 */
#ifndef EVENT_JSON_H
#define EVENT_JSON_H

#include "WatchJson.h"

CJson EventJson_FromEvent(const SWatchEvent& roEvent);

/* A lock group of the direction that roOf is of; all of the inputs, or outputs, of all chips. */
CJson EventJson_FromGroup(const SStreamKey& roOf, const SLockGroup& roGroup);
CJson EventJson_FromGroups(EStreamDirection eDirection, const SWatchSnapshot& roSnapshot);

#endif
