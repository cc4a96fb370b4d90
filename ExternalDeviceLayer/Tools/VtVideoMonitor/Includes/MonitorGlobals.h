/*
 * Every object and setting that the whole tool shares, in construction order; nothing else in the tool shares one
 * (state that a single function or signal handler keeps stands beside it). Booleans are 0 or 1. "main" below is the
 * main thread.
 */
#ifndef MONITOR_GLOBALS_H
#define MONITOR_GLOBALS_H

#include <cstdint>
#include <vector>

#include "KrvTypes.h"
#include "OsMutex.h"
#include "OsServices.h"

extern OsServices g_oOsServices; // built first, destroyed last; any thread
extern OsMutex g_oMutex;         // guards the timestamp rings of all records; any thread

extern HSignal g_hStartSig; // releases all monitor threads at once; created and destroyed by RunTest

// Handles of the monitor threads, one per stream. Kept until the process ends.
extern std::vector<HCpuThread> g_dahVideoOutMonitorThread;
extern std::vector<HCpuThread> g_dahVideoInMonitorThread;

// Settings of the command line: written by main before any thread exists, read by all.
extern uint32_t g_uiSelectedGpu;          // chip index
extern Bool32 g_bFilterError;             // rows of inputs only when something is wrong
extern Bool32 g_bMonitor;                 // scrolling log instead of the status screen
extern Bool32 g_bLog;                     // copy to the log file
extern const char* g_pszLogFileName;      // its path: the argument itself
extern Bool32 g_bStatus;                  // one-shot report
extern Bool32 g_bFrameLockStatus;         // frame-lock check, then exit
extern Bool32 g_bCableLockStatus;         // cable-lock test, then exit
extern uint32_t g_uiCableLockDurationSec; // its length, seconds
extern Bool32 g_bExtendedTimingStart;     // start with the extended timings

// State of the run. Written by main without a lock while monitor threads read; the output threads write
// g_bAddTimeStamp too, around their own lines.
extern Bool32 g_bExtendVidTimingDetails; // descriptions carry the extended timings
extern Bool32 g_bFpsDetailedInfo;        // the screen shows the detailed frame rates
extern Bool32 g_bAddTimeStamp;           // the log file gets time headers
extern Bool32 g_bInitialLaunch;          // 1 until the end of the first redraw

#endif
