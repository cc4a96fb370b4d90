/*
 * The cable-lock test: shows that for a given number of seconds all streams of one direction stay on one cable clock.
 * Main thread only; blocks for its length.
 */
#ifndef CABLE_LOCK_STATUS_H
#define CABLE_LOCK_STATUS_H

#include <cstdint>

#include "GenLockProcess.h"
#include "KrvTypes.h"
#include "MonitorUserData.h"

// Newest timestamps further apart than this many ticks come from different counters.
constexpr uint64_t uiCableLockTimeStampMask = 0x8000000;

// What the test has found so far. All zero at start.
struct SCableLockResult
{
    uint32_t uiSecondsGood;
    uint32_t uiWorstTicks; // worst difference of any pair in any second
};

/*
 * Runs the test for g_uiCableLockDurationSec seconds, one sample per second, and reports through Log and, but for the
 * rows of timestamps, the SDK's debug channel.
 *   uiNbOfVideo          in  number of streams
 *   paoVideoMonitorData  in  their records
 *   hDev                 in  the board, for the debug channel
 */
void CableLockStatus(uint32_t uiNbOfVideo, const SMonitorUserData* paoVideoMonitorData, VtDevice_Handle hDev);

/*
 * Judges one second: 1 when every stream has delivered fields, every pair was measured and stays within one line of its
 * first stream, and no two newest timestamps are further apart than uiCableLockTimeStampMask. At least two streams.
 *   rdaoFrameLockVideoData  in      the measurement of the second
 *   rdaoFrameLockPairData   in      its pairs
 *   pauiVideoLastTimeStamp  in      newest timestamp of each stream
 */
Bool32 IsCableLocked(const CFrameLockVideoArray& rdaoFrameLockVideoData,
                     const CFrameLockPairArray& rdaoFrameLockPairData, const uint64_t* pauiVideoLastTimeStamp);

/*
 * Begin of the second that follows the one planned for uiPlannedMs, when it is uiNowMs: one second later, so that hours
 * of seconds do not drift. After a stall that leaves less than half a second until then (the process was stopped, say)
 * whole seconds are passed over, for streams that got no time to deliver anything would look lost.
 */
uint64_t GetNextCableLockSecond(uint64_t uiPlannedMs, uint64_t uiNowMs);

/* The text of the verdict, without a line end. A duration of 0 proves nothing: "Failed". */
void FormatCableLockVerdict(const SCableLockResult& roResult, uint32_t uiDurationSec, CMString& rszLogMsg);

#endif
