/*
 * Records of the watch as rows of the store, both ways. The caller's connection; no state.
 */
#ifndef STORE_ROWS_H
#define STORE_ROWS_H

#include "HistoryPoint.h"
#include "StoreFile.h"
#include "WatchEvent.h"

// Columns in the order in which the operations below bind and read them.
constexpr char szEventColumns[] = "number, utc_ns, tick, kind, direction, stream, count, value_before, value_after, "
                                  "real_before, real_after, seconds, lock_group, members";
constexpr char szMinuteColumns[] = "direction, stream, utc_ns, points, rate_points, phase_points, fields, observed, "
                                   "lost, unobserved, skipped, watched_s, running_s, rate_hz, rate_stderr_hz, phase_s, "
                                   "phase_stderr_s, phase_min_s, phase_max_s, drift, drift_stderr, jitter_rms_s, "
                                   "lock, state";
constexpr int iEventColumns = 14;
constexpr int iMinuteColumns = 24;

/* "(?, ?, ...)" */
std::string StoreRows_GetPlaces(int iColumns);

void StoreRows_Bind(CStoreStatement& roStatement, const SWatchEvent& roEvent);
void StoreRows_Bind(CStoreStatement& roStatement, const SMinuteSummary& roSummary);
SStreamKey StoreRows_ReadKey(CStoreStatement& roStatement);
SWatchEvent StoreRows_ReadEvent(CStoreStatement& roStatement);
SMinuteSummary StoreRows_ReadMinute(CStoreStatement& roStatement);

#endif
