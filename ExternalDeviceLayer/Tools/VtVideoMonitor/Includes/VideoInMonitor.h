/*
 * One monitor thread per video input. Every field start is stamped into the ring of the record; every half second or so
 * a statistics pass turns the rings into rates, buffer counts and a row of text.
 *
 * The stages of the thread are functions over one state record, so that a caller can drive them without a thread. All
 * of them belong to the stream's own thread. Times are ticks of the board's reference counter, counters 16 per field.
 */
#ifndef VIDEO_IN_MONITOR_H
#define VIDEO_IN_MONITOR_H

#include <cstdint>

#include "KrvTypes.h"
#include "MonitorUserData.h"
#include "VtVideoIn.h"

// State of one input's thread. All zero at start.
struct SVideoInMonitor
{
    SMonitorUserData* poData;
    VtDevice_Handle hDev;
    uint32_t uiVideoInIndex;
    Bool32 bShowOnlyError;
    VtVideoIn_Handle hVideoInHandle;
    VTSTR64 szVideoName;
    VTSTR256 szVideoParam;
    VTSTR64 szPixelFormat;
    VtVideo_VidParam oCurrentVidParam;
    uint32_t uiWidth;
    uint32_t uiHeight;
    VtPixelFormat ePixelFormat;
    uint32_t uiNbOfBuffer;
    uint32_t uiTotalBufferCount;
    uint32_t uiInternalBufferCount;
    VtVideoIn_State eCaptureState;
    const char* szCaptureState; // text of the state that stands in the record, null: none yet
    uint32_t uiTickPerSecond;
    double flCurrVideoVRate;      // nominal rate of the start-up parameters; later refreshes do not change it
    uint32_t uiTotalScreenPixels; // pixels per frame, blanking included
    uint32_t uiSampleCount;       // fields since start or since the last lost signal
    uint32_t uiLastSampleCount;   // uiSampleCount at the previous pass
    uint64_t auiFieldCounter[NB_OF_SAMPLES];
    VtBool abIsTopField[NB_OF_SAMPLES];
    uint32_t auiReadyBufferCount[NB_OF_SAMPLES];
    uint32_t auiLoanBufferCount[NB_OF_SAMPLES];
    uint64_t uiFrameSkipped; // as the board reports it
    uint64_t uiFrameMissed;
    uint64_t uiFrameDoubled;
    uint64_t uiFrameTotal;
    Bool32 bLastWaitCanceled;
};

// What one statistics pass found.
struct SVideoInPass
{
    double flFramePerSecondCur; // rate over the pass
    double flFramePerSecondMin; // of single fields
    double flFramePerSecondMax;
    double flReadyCountAvg;
    double flLoanCountAvg;
    uint32_t uiReadyCountMax;
    uint32_t uiReadyCountMin;
    uint32_t uiLoanCountMax;
    uint32_t uiLoanCountMin;
};

/*
 * Thread function of an input.
 *   pvData  in/out  the input's SMonitorUserData
 * 0 after a normal stop; 1 after a fatal error or for a null argument.
 */
uint32_t VtVideoInMonitorThreadFunc(void* pvData);

/*
 * Opens the input and computes its nominal rate.
 *   roMonitor  in/out  a cleared state with poData set
 * 1, or 0 when the input cannot be opened, which is reported.
 */
Bool32 VideoInMonitor_Open(SVideoInMonitor& roMonitor);

/* Waits for a field start, at most 50 ms, and stamps it. Returns the status of the wait. */
VtStatus VideoInMonitor_WaitAndStamp(SVideoInMonitor& roMonitor);

/* Takes in a field that WaitAndStamp has delivered; makes a statistics pass when one is due. */
void VideoInMonitor_ProcessField(SVideoInMonitor& roMonitor);

/* After a cancelled wait: pauses, then numbers the samples from 0 again. */
void VideoInMonitor_RestartSamples(SVideoInMonitor& roMonitor);

/* Rebuilds the description when the record asks for it. */
void VideoInMonitor_Refresh(SVideoInMonitor& roMonitor);

/* Releases the handle, if there is one. */
void VideoInMonitor_Close(SVideoInMonitor& roMonitor);

#endif
