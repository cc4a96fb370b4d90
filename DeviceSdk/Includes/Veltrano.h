/*
 * Entry of the device SDK: loading, devices, debug channel. Includes the whole interface.
 */
#ifndef VELTRANO_H
#define VELTRANO_H

#include "VtBoard.h"
#include "VtTypes.h"
#include "VtVideoIn.h"
#include "VtVideoOut.h"
#include "VtVideoTypes.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Loads the SDK. To be called once before anything else, and again after Veltrano_UnLoad. Main thread only. */
void Veltrano_LoadLite(void);

/*
 * Version of the SDK: major, minor, patch and build in 16 bits each, major highest.
 * Thread-safe, does not block.
 */
uint64_t Veltrano_Version(void);

/*
 * Opens a chip.
 *   uiChipIndex  in  from 0
 * The handle, the same at every call for the same chip; null when there is no such chip or the SDK is not loaded.
 * Main thread only.
 */
VtDevice_Handle Veltrano_GetDevice(uint32_t uiChipIndex);

/*
 * Unloads the SDK: every handle becomes invalid, every resource is given back. No other thread may be inside an
 * operation. Main thread only.
 */
void Veltrano_UnLoad(void);

/*
 * Writes a text to the SDK's debug channel.
 *   hDev   in  the chip
 *   szMsg  in  terminated text without a line end; data, never a format
 * VtStatus_OK; VtStatus_INVALID_PARAM; VtStatus_FAIL. Thread-safe.
 */
VtStatus VtDebug_WriteMsg(VtDevice_Handle hDev, const char* szMsg);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif
