/*
 * Video inputs. Field counters advance by 16 per field; timestamps are ticks of the board's reference counter
 * (VtBoard_GetTickReferenceFrequency), one counter for all inputs and outputs of a chip.
 */
#ifndef VT_VIDEO_IN_H
#define VT_VIDEO_IN_H

#include "VtTypes.h"
#include "VtVideoTypes.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Counts the video inputs of a chip.
 *   hDev     in   the chip
 *   puiCount out  number of inputs, 0 to 32
 * VtStatus_OK; VtStatus_INVALID_PARAM; VtStatus_FAIL when the device is gone. Thread-safe, does not block.
 */
VtStatus VtVideoIn_GetCount(VtDevice_Handle hDev, uint32_t* puiCount);

/*
 * Opens one video input.
 *   hDev        in   the chip
 *   uiIndex     in   0 to the count - 1
 *   eAccessMode in   VtAccessMode_READONLY to watch
 *   phVideoIn   out  the handle, to be released with VtVideoIn_ReleaseHandle; null on failure
 * VtStatus_OK; VtStatus_INVALID_PARAM for an index that does not exist; VtStatus_RESOURCES_BUSY or
 * VtStatus_ACCESS_DENIED when the input may not be opened that way; VtStatus_FAIL. Thread-safe.
 */
VtStatus VtVideoIn_GetHandle(VtDevice_Handle hDev, uint32_t uiIndex, VtAccessMode eAccessMode,
                             VtVideoIn_Handle* phVideoIn);

/*
 * Gives a handle back. No other thread may be inside an operation on this same handle.
 *   hVideoIn  in  the handle, invalid afterwards
 * VtStatus_OK; VtStatus_INVALID_PARAM. Per handle, does not block.
 */
VtStatus VtVideoIn_ReleaseHandle(VtVideoIn_Handle hVideoIn);

/*
 * Reads the timings that the input detects now; all fields 0 while there is no signal.
 *   hVideoIn    in   the input
 *   poVidParam  out  the timings
 * VtStatus_OK; VtStatus_INVALID_PARAM; VtStatus_FAIL. Per handle, does not block.
 */
VtStatus VtVideoIn_GetDetectedVideoParameters(VtVideoIn_Handle hVideoIn, VtVideo_VidParam* poVidParam);

/*
 * Waits for the next field start that this handle has not seen. A caller that comes late gets the newest field
 * that has already started; the counter tells how many it missed. All handles of an input give a field the same
 * counter and stamp.
 *   hVideoIn           in   the input
 *   uiTimeOutMs        in   longest wait, milliseconds
 *   puiFieldCounter    out  field counter, 16 per field
 *   puiTickRefCounter  out  when the field started, ticks; never goes back
 *   pbIsTopField       out  1 when the field is the top field; 0 for the bottom field and for progressive signals
 * VtStatus_OK with all outputs written; VtStatus_TIMEOUT; VtStatus_CANCELED while the signal is lost, at once or when
 * the time-out has passed;
 * VtStatus_INVALID_PARAM; any other status when the device is gone. Blocks. Per handle.
 */
VtStatus VtVideoIn_WaitForFieldStart(VtVideoIn_Handle hVideoIn, uint32_t uiTimeOutMs, uint64_t* puiFieldCounter,
                                     uint64_t* puiTickRefCounter, VtBool* pbIsTopField);

/*
 * Reads the capture state and where the capture buffers are.
 *   hVideoIn                in   the input
 *   peState                 out  capture state
 *   puiTotalBufferCount     out  buffers in all
 *   puiReadyBufferCount     out  filled, waiting for the application
 *   puiLoanBufferCount      out  in the application's hands
 *   puiInternalBufferCount  out  in the board's hands
 * VtStatus_OK; VtStatus_INVALID_PARAM; VtStatus_FAIL. Per handle, does not block.
 */
VtStatus VtVideoIn_GetCaptureState(VtVideoIn_Handle hVideoIn, VtVideoIn_State* peState, uint32_t* puiTotalBufferCount,
                                   uint32_t* puiReadyBufferCount, uint32_t* puiLoanBufferCount,
                                   uint32_t* puiInternalBufferCount);

/*
 * Reads the attributes of the capture buffers.
 *   hVideoIn         in   the input
 *   puiWidth         out  pixels
 *   puiHeight        out  lines
 *   pePixelFormat    out  layout
 *   puiNbOfBuffer    out  number of buffers
 * VtStatus_OK; VtStatus_INVALID_PARAM; VtStatus_FAIL. Per handle, does not block.
 */
VtStatus VtVideoIn_GetBufferAttributes(VtVideoIn_Handle hVideoIn, uint32_t* puiWidth, uint32_t* puiHeight,
                                       VtPixelFormat* pePixelFormat, uint32_t* puiNbOfBuffer);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif
