/*
 * The frame-lock check: for three seconds measures all pairs of streams of one direction, then says whether all of them
 * stayed within one line. Main thread only; blocks for its length.
 */
#ifndef FRAME_LOCK_STATUS_H
#define FRAME_LOCK_STATUS_H

#include <cstdint>

#include "GenLockProcess.h"
#include "KrvMFCTypes.h"
#include "MonitorUserData.h"

// What the check has found so far. All zero at start.
struct SFrameLockVerdict
{
    uint32_t uiMaxDiff;    // worst difference of any pair in any cycle, ticks
    uint32_t uiMaxAllowed; // one line of the first stream of the last cycle's first pair, ticks
};

/*
 * Runs the check and reports through Log and the SDK's debug channel.
 *   uiNbOfVideo          in  number of streams
 *   paoVideoMonitorData  in  their records
 *   hDev                 in  the board, for the debug channel
 */
void FrameLockStatus(uint32_t uiNbOfVideo, const SMonitorUserData* paoVideoMonitorData, VtDevice_Handle hDev);

/*
 * Takes the measurement of one cycle into the verdict; a cycle without pairs changes nothing.
 *   rdaoFrameLockVideoData  in      the streams
 *   rdaoFrameLockPairData   in      their pairs
 *   roVerdict               in/out  the check so far
 */
void JudgeFrameLockCycle(const CFrameLockVideoArray& rdaoFrameLockVideoData,
                         const CFrameLockPairArray& rdaoFrameLockPairData, SFrameLockVerdict& roVerdict);

/* The text of a verdict, without a line end. */
void FormatFrameLockVerdict(const SFrameLockVerdict& roVerdict, CMString& rszLogMsg);

#endif
