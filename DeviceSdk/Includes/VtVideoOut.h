/*
 * Video outputs. Counters and timestamps have the units of the video inputs (VtVideoIn.h); the set-buffer counter
 * counts the buffers that an application has handed to the output, one each.
 */
#ifndef VT_VIDEO_OUT_H
#define VT_VIDEO_OUT_H

#include "VtTypes.h"
#include "VtVideoTypes.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Counts the video outputs of a chip.
 *   hDev     in   the chip
 *   puiCount out  number of outputs, 0 to 32
 * VtStatus_OK; VtStatus_INVALID_PARAM; VtStatus_FAIL when the device is gone. Thread-safe, does not block.
 */
VtStatus VtVideoOut_GetCount(VtDevice_Handle hDev, uint32_t* puiCount);

/*
 * Opens one video output.
 *   hDev        in   the chip
 *   uiIndex     in   0 to the count - 1
 *   eAccessMode in   VtAccessMode_READONLY to watch
 *   phVideoOut  out  the handle, to be released with VtVideoOut_ReleaseHandle; null on failure
 * VtStatus_OK; VtStatus_INVALID_PARAM for an index that does not exist; VtStatus_RESOURCES_BUSY or
 * VtStatus_ACCESS_DENIED when the output may not be opened that way; VtStatus_FAIL. Thread-safe.
 */
VtStatus VtVideoOut_GetHandle(VtDevice_Handle hDev, uint32_t uiIndex, VtAccessMode eAccessMode,
                              VtVideoOut_Handle* phVideoOut);

/*
 * Gives a handle back. No other thread may be inside an operation on this same handle.
 *   hVideoOut  in  the handle, invalid afterwards
 * VtStatus_OK; VtStatus_INVALID_PARAM. Per handle, does not block.
 */
VtStatus VtVideoOut_ReleaseHandle(VtVideoOut_Handle hVideoOut);

/*
 * Waits for the next field start that this handle has not seen, as VtVideoIn_WaitForFieldStart does.
 *   hVideoOut            in   the output
 *   uiTimeOutMs          in   longest wait, milliseconds
 *   puiFieldCounter      out  field counter, 16 per field
 *   puiSetBufferCounter  out  buffers set so far
 *   puiTickRefCounter    out  when the field started, ticks; never goes back
 *   pbIsTopField         out  1 when the field is the top field; 0 for the bottom field and for progressive signals
 * VtStatus_OK with all outputs written; VtStatus_TIMEOUT; VtStatus_CANCELED while the output has no signal;
 * VtStatus_INVALID_PARAM; any other status when the device is gone. Blocks. Per handle.
 */
VtStatus VtVideoOut_WaitForFieldStart(VtVideoOut_Handle hVideoOut, uint32_t uiTimeOutMs, uint64_t* puiFieldCounter,
                                      uint64_t* puiSetBufferCounter, uint64_t* puiTickRefCounter, VtBool* pbIsTopField);

/*
 * Reads the timings that the output sends now; all fields 0 when it sends none.
 *   hVideoOut   in   the output
 *   poVidParam  out  the timings
 * VtStatus_OK; VtStatus_INVALID_PARAM; VtStatus_FAIL. Per handle, does not block.
 */
VtStatus VtVideoOut_GetVideoParameters(VtVideoOut_Handle hVideoOut, VtVideo_VidParam* poVidParam);

/*
 * Reads the attributes of the buffer that is shown.
 *   hVideoOut      in   the output
 *   pePixelFormat  out  layout
 *   puiWidth       out  pixels
 *   puiHeight      out  lines
 *   puiLuid        out  identifier of the buffer, 0 when there is none
 * VtStatus_OK; VtStatus_INVALID_PARAM; VtStatus_FAIL. Per handle, does not block.
 */
VtStatus VtVideoOut_GetBufferAttributes(VtVideoOut_Handle hVideoOut, VtPixelFormat* pePixelFormat, uint32_t* puiWidth,
                                        uint32_t* puiHeight, uint64_t* puiLuid);

/*
 * Reads the power state.
 *   hVideoOut     in   the output
 *   pePowerState  out  power state
 * VtStatus_OK; VtStatus_INVALID_PARAM; VtStatus_FAIL. Per handle, does not block.
 */
VtStatus VtVideoOut_GetPowerState(VtVideoOut_Handle hVideoOut, VtVideoOut_PowerState* pePowerState);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif
