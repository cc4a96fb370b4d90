/*
 * Where a moment lies on the grid of fields that starts at 1970-01-01T00:00:00 TAI (the alignment of SMPTE ST 2059-1).
 * Exact in integers, also for the rates with 1001 in them.
 */
#ifndef TAI_GRID_H
#define TAI_GRID_H

#include <cstdint>

#include "NominalRate.h"

/*
 * The moment after the nearest grid point, in seconds within half a period.
 *   iTaiNs        in  nanoseconds since the epoch, TAI
 *   flRestNs      in  what is to be added to it
 *   roRate        in  known
 */
double TaiGrid_GetPhase(int64_t iTaiNs, double flRestNs, const SNominalRate& roRate);

/* Whether the phase is the same for every whole number of seconds between TAI and UTC. */
bool TaiGrid_IsWholePerSecond(const SNominalRate& roRate);

#endif
