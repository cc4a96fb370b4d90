/*
 * The record that every video stream has, and the constants of the tool.
 *
 * A record is the only channel between a stream's monitor thread and the rest of the tool. The thread writes texts,
 * statistics and the timestamp ring; the main thread reads them and raises flags. Only the ring is guarded, by
 * g_oMutex, and only on the input side: an output's wait writes its slot directly. All other fields are shared without
 * a lock, on purpose: they are for display, where a torn line is acceptable.
 */
#ifndef MONITOR_USER_DATA_H
#define MONITOR_USER_DATA_H

#include <cstdint>

#include "KrvTypes.h"
#include "VtTypes.h"

enum EVideoMonitorConstants : uint32_t
{
    NB_OF_SAMPLES = 120, // slots of every sample ring

    GENLOCK_DISPLAY_OFF = 0,
    GENLOCK_DISPLAY_SUMMARY = 1,
    GENLOCK_DISPLAY_DETAILED = 2,
    GENLOCK_DISPLAY_COUNT = 3,

    GENLOCK_THRESHOLD_1 = 0,
    GENLOCK_THRESHOLD_5 = 1,
    GENLOCK_THRESHOLD_30 = 2,
    GENLOCK_THRESHOLD_90 = 3,
    GENLOCK_THRESHOLD_COUNT = 4
};

// One flat block: arrays of it are cleared with a single fill and never resized while threads run.
struct SMonitorUserData
{
    VtDevice_Handle hDev;
    uint32_t uiInOutIndex; // index of the input or output on the board, from 0
    Bool32 bOnlyShowError; // the row is refreshed only when something is wrong; read once by the thread

    volatile Bool32 bStopSignal;         // the thread is to end
    volatile Bool32 bShowExtraData;      // the description is to be rebuilt
    volatile Bool32 bShowDetailedTiming; // the same, raised when the extended timings are toggled

    uint32_t uiVRate_Hz;   // of the current parameters, copied at every field
    uint32_t uiHRate_KHz;  // likewise
    VTSTR256 szVidParam;   // description of the stream
    VTSTR256 szStatusData; // its row of the statistics table

    uint32_t uiTickRefFreq;                    // ticks per second, never 0
    uint64_t auiTickRefCounter[NB_OF_SAMPLES]; // field starts in ticks; 0: no sample
    volatile Bool32 bFirstPassDone;            // the thread has been released by the start signal

    uint64_t uiFpsTotalFieldCounter;   // since the last reset, 16 per field
    uint64_t uiFpsTotalTickRefCounter; // ticks over the same fields
    double fFpsAvg;                    // long-run average
    double fFpsMin;                    // smallest rate of a pass, 0: none yet
    double fFpsMax;                    // largest rate of a pass, 0: none yet
    double fFpsRef;                    // reference of the ppm figure, 0: none
    double fFpsPpm;                    // deviation of fFpsAvg from fFpsRef
    VTSTR256 szFpsData;                // its line of the detailed frame rates
    VTSTR64 szVideoState;              // capture state, inputs only
};

#endif
