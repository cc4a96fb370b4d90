/*
 * One run of the tool: opens the board, starts one monitor thread per stream, then runs a test or the command loop, and
 * takes everything down again. Main thread only.
 */
#ifndef MONITOR_RUN_H
#define MONITOR_RUN_H

#include <cstdint>

#include "KrvTypes.h"
#include "MonitorUserData.h"
#include "OsServicesClient.h"

// The streams of one direction. The records and timestamps belong to RunTest.
struct SMonitorStreams
{
    uint32_t uiNbOfVideo;
    Bool32 bIsVideoIn;
    HCpuThread* pahVideoMonitorThread;
    SMonitorUserData* paoVideoMonitorData;
    uint64_t* pauiVideoLastTimeStamp; // newest timestamp that the genlock report has seen, one per stream
    PfnCpuThreadFunction pThreadFunc;
    const char* szEmptyLine; // placeholder row
};

// State of the run that key commands and redraws share.
struct SMonitorRun
{
    VtDevice_Handle hDev;
    SMonitorStreams oVideoOut;
    SMonitorStreams oVideoIn;
    VTSTR64 szStartTime;
    VTSTR64 szCurrentTime;
    uint64_t uiStart;   // time of the previous redraw, ms
    uint64_t uiEnd;     // current time, ms
    Bool32 bStopSignal; // the one-shot report has been printed
    uint32_t uiGenLockDisplayMode;
    uint32_t uiGenLockThresholdMode;
};

/*
 * Runs the tool with the settings of the command line.
 * 0 after a quit by key or the one-shot report; -1 after a device error and after the frame-lock and cable-lock tests,
 * whatever they found.
 */
int32_t RunTest();

/*
 * Initialises the records of one direction and starts one thread per record; the threads block on g_hStartSig.
 *   hDev                   in   the board
 *   uiNbOfVideo            in   number of streams
 *   pahVideoMonitorThread  out  thread handles
 *   paoVideoMonitorData    out  records; fields that are not reset by a restart keep their values
 *   pThreadFunc            in   thread function, given the record
 *   szEmptyLine            in   placeholder row
 * 1 when all threads were started; 0 at the first that was not, and later records get none.
 */
Bool32 CreateThreads(VtDevice_Handle hDev, uint32_t uiNbOfVideo, HCpuThread* pahVideoMonitorThread,
                     SMonitorUserData* paoVideoMonitorData, PfnCpuThreadFunction pThreadFunc, const char* szEmptyLine);

/* Starts the threads of both directions, outputs first, and releases them together. */
void StartMonitorThreads(SMonitorRun& roRun);

/* Ends the threads of both directions, inputs first. Returns when all have ended. */
void StopMonitorThreads(SMonitorRun& roRun);

#endif
