/*
 * Events as JSON, in the shape that docs/api/ describes: the same object in the journal, in answers and in the live
 * stream. See WatchJson.h. No state; any thread.
 */
#ifndef EVENT_JSON_H
#define EVENT_JSON_H

#include "WatchJson.h"

CJson EventJson_FromEvent(const SWatchEvent& roEvent);

/* A lock group, as an event tells of one and as it is now. */
CJson EventJson_FromGroup(EStreamDirection eDirection, const SLockGroup& roGroup);
CJson EventJson_FromGroups(EStreamDirection eDirection, const SDirectionFigures& roFigures);

#endif
