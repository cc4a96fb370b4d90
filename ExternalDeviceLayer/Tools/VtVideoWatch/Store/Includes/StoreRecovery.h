/*
 * What a store needs before a new run goes on with it. The caller's connection; no state.
 */
#ifndef STORE_RECOVERY_H
#define STORE_RECOVERY_H

#include <cstdint>

#include "StoreFile.h"
#include "StoreWriter.h"

/*
 * Ends a run that was killed with the events that it could not write (its streams are watched no longer, from the last
 * second on that it wrote), and puts minutes away that will not go on.
 *   poFile      in
 *   iNowUtcNs   in   the begin of the new run
 *   roRemains   out  what the new run goes on with
 * False when the store could not be written or read; nothing has changed then.
 */
bool StoreRecovery_Run(sqlite3* poFile, int64_t iNowUtcNs, SStoreRemains& roRemains);

/* Number of the last event, 0 when there is none. */
uint64_t StoreRecovery_GetLastEvent(sqlite3* poFile);

#endif
