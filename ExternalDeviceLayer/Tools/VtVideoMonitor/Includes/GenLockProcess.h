/*
 * The measuring core of the synchronisation analysis: snapshots the timestamp rings of all streams of one direction,
 * puts them in time order, and measures for every pair of live streams how far apart their fields are. Main thread
 * only; g_oMutex is held for the copy of the rings alone.
 */
#ifndef GENLOCK_PROCESS_H
#define GENLOCK_PROCESS_H

#include <cstdint>

#include "KrvMFCTypes.h"
#include "KrvTypes.h"
#include "MonitorUserData.h"

struct SFrameLockVideoData
{
    uint64_t auiTimeStamp[NB_OF_SAMPLES]; // ticks, oldest first; 0: empty
    Bool32 bActive;                       // delivered a field since the caller last looked
    uint32_t uiSampleCount;               // index of the first empty slot of the ring, NB_OF_SAMPLES when full
    uint32_t uiTickFreqHz;                // ticks per second
    uint32_t uiLineFreqHz;                // lines per second
};

struct SFrameLockPairData
{
    uint32_t uiVideoIndexA;
    uint32_t uiVideoIndexB; // always the greater one
    int32_t iDeltaMin;      // smallest difference A - B, ticks
    int32_t iDeltaMax;      // largest difference A - B, ticks
    uint32_t uiDeltaAbs;    // worst misalignment, ticks
    uint32_t uiSampleCount; // samples compared
};

using CFrameLockVideoArray = CMArray<SFrameLockVideoData, const SFrameLockVideoData&>;
using CFrameLockPairArray = CMArray<SFrameLockPairData, const SFrameLockPairData&>;

/*
 * Measures the streams of one direction.
 *   uiNbOfVideo             in      number of streams
 *   paoVideoMonitorData     in      their records
 *   pauiVideoLastTimeStamp  in/out  the caller's newest timestamp of each stream, kept between its calls; 0 at first
 *   rdaoFrameLockVideoData  out     an empty array; gets one record per stream
 *   rdaoFrameLockPairData   out     an empty array; gets one record per pair of active streams, by A, then B
 * 1; 0 for null pointers, no streams, or a video array that was not empty.
 */
Bool32 ProcessGenLock(uint32_t uiNbOfVideo, const SMonitorUserData* paoVideoMonitorData,
                      uint64_t* pauiVideoLastTimeStamp, CFrameLockVideoArray& rdaoFrameLockVideoData,
                      CFrameLockPairArray& rdaoFrameLockPairData);

/* Ticks of one line of a stream, rounded down; 0 when the stream's frequencies do not tell. */
inline uint32_t TicksPerLine(const SFrameLockVideoData& roVideo)
{
    return roVideo.uiLineFreqHz == 0 ? 0 : roVideo.uiTickFreqHz / roVideo.uiLineFreqHz;
}

/* Factorial in 32 bits: wraps above 12. 1 below 2. */
uint32_t Fact(uint32_t uiN);

/*
 * Number of combinations of uiR out of uiN, in wrapping 32-bit arithmetic, so right up to uiN = 12.
 * 1 when uiN is smaller than uiR, and when the wrapped divisor is 0.
 */
uint32_t NCR(uint32_t uiN, uint32_t uiR);

#endif
