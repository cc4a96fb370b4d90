/*
 * One monitor thread per video output. Built like the input monitor (VideoInMonitor.h), with differences that are kept
 * on purpose: the wait writes the timestamp straight into the record's ring without the mutex, the parameters are read
 * at every field, there is no error-only filter, set buffers are counted instead of ready and loaned ones, and a
 * refresh that cannot read the parameters is tried again.
 */
#ifndef VIDEO_OUT_MONITOR_H
#define VIDEO_OUT_MONITOR_H

#include <cstdint>

#include "KrvTypes.h"
#include "MonitorUserData.h"
#include "VtVideoOut.h"

// State of one output's thread. All zero at start, but for szPixelFormat and ePowerState (VideoOutMonitor_Open).
struct SVideoOutMonitor
{
    SMonitorUserData* poData;
    VtDevice_Handle hDev;
    uint32_t uiVideoOutIndex;
    VtVideoOut_Handle hVideoOutHandle;
    VTSTR64 szVideoName;
    VTSTR256 szVideoParam;
    VTSTR64 szPixelFormat;
    VtVideo_VidParam oCurrentVidParam;
    VtVideoOut_PowerState ePowerState;
    VtPixelFormat ePixelFmt;
    uint32_t uiBuffWidth;
    uint32_t uiBuffHeight;
    uint64_t uiBuffLUID;
    uint32_t uiTickPerSecond;
    uint32_t uiSampleCount;     // fields since start or since the last cancelled wait
    uint32_t uiLastSampleCount; // sample number of the field that ended the previous pass
    uint64_t auiFieldCounter[NB_OF_SAMPLES];
    uint64_t auiSetBufferCounter[NB_OF_SAMPLES];
    VtBool abIsTopField[NB_OF_SAMPLES];
    uint64_t uiFrameSkipped; // buffers set but never shown
    uint64_t uiFrameSet;
    uint64_t uiFrameDoubled; // field intervals without a new buffer
    uint64_t uiFrameTotal;
    Bool32 bLastWaitCanceled;
};

// What one statistics pass found.
struct SVideoOutPass
{
    double flFramePerSecondCur; // rate over the pass
    double flFramePerSecondMin; // of single fields
    double flFramePerSecondMax;
    double flSetBufferPerSecondCur;
    double flSetBufferPerSecondMin; // of single fields in which a buffer was set
    double flSetBufferPerSecondMax;
};

/*
 * Thread function of an output.
 *   pvData  in/out  the output's SMonitorUserData
 * 0 after a normal stop; 1 after a fatal error or for a null argument.
 */
uint32_t VtVideoOutMonitorThreadFunc(void* pvData);

/*
 * Opens the output.
 *   roMonitor  in/out  a cleared state with poData set
 * 1, or 0 when the output cannot be opened, which is reported.
 */
Bool32 VideoOutMonitor_Open(SVideoOutMonitor& roMonitor);

/* Waits for a field start, at most 50 ms; the wait stamps it into the record. Returns the status of the wait. */
VtStatus VideoOutMonitor_WaitAndStamp(SVideoOutMonitor& roMonitor);

/* Takes in a field that WaitAndStamp has delivered; makes a statistics pass when one is due. */
void VideoOutMonitor_ProcessField(SVideoOutMonitor& roMonitor);

/* After a cancelled wait: pauses, then numbers the samples from 0 again. */
void VideoOutMonitor_RestartSamples(SVideoOutMonitor& roMonitor);

/* Rebuilds the description when the record asks for it. */
void VideoOutMonitor_Refresh(SVideoOutMonitor& roMonitor);

/* Releases the handle, if there is one. */
void VideoOutMonitor_Close(SVideoOutMonitor& roMonitor);

#endif
