/*
 * The frame-lock check: for three seconds measures all pairs of streams of one direction, then says whether all of them
 * stayed within one line. Main thread only; blocks for its length.
 */
#ifndef FRAME_LOCK_STATUS_H
#define FRAME_LOCK_STATUS_H

#include <cstdint>

#include "MonitorUserData.h"

/*
 * Runs the check and reports through Log and the SDK's debug channel.
 *   uiNbOfVideo          in  number of streams
 *   paoVideoMonitorData  in  their records
 *   hDev                 in  the board, for the debug channel
 */
void FrameLockStatus(uint32_t uiNbOfVideo, const SMonitorUserData* paoVideoMonitorData, VtDevice_Handle hDev);

#endif
