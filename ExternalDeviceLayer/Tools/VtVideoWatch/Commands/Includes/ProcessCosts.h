/*
 * What the process costs the machine. Belongs to one thread at a time.
 */
#ifndef PROCESS_COSTS_H
#define PROCESS_COSTS_H

#include "WatchData.h"

/* Fills in processor time so far and resident memory. */
void ProcessCosts_Fill(SWatchCosts& roCosts);

#endif
