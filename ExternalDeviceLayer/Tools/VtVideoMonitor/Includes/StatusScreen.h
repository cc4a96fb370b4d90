/*
 * What a redraw prints. Main thread only; reads the texts of the records without a lock.
 */
#ifndef STATUS_SCREEN_H
#define STATUS_SCREEN_H

#include "MonitorRun.h"

inline constexpr char szEmptyLineVideoIn[] =
    "--------  ------ ------ ------  ------ ------ ------  ------ ------ ------  -------- -------- -------- --------";
inline constexpr char szEmptyLineVideoOut[] =
    "--------  ------ ------ ------  ------ ------ ------  -------- -------- -------- --------";

/* Logs the two lines that name the product, its version and its build date. */
void DisplayBanner();

/* Logs the key help. */
void DisplayMenuOptions();

/*
 * Logs the whole screen in place: banner, times, key help, one table per direction, and the genlock report when it is
 * on. Ends the first launch; after that asks the one-shot report to stop.
 */
void RedrawStatusScreen(SMonitorRun& roRun);

#endif
