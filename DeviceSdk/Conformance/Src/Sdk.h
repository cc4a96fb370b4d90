// The SDK as a board under test may have it: every operation is referred to weakly, so that a library without some of
// them still loads, and the list can say which. Included in place of Veltrano.h by everything here.
#ifndef SDK_H
#define SDK_H

#include <Veltrano.h>

#pragma weak Veltrano_LoadLite
#pragma weak Veltrano_Version
#pragma weak Veltrano_GetDevice
#pragma weak Veltrano_UnLoad
#pragma weak VtDebug_WriteMsg
#pragma weak VtBoard_GetTickReferenceFrequency
#pragma weak VtBoard_GetConnectorCount
#pragma weak VtBoard_GetConnectorInfo
#pragma weak VtBoard_CustomCall
#pragma weak VtPixelFormat_GetName
#pragma weak VtVideoIn_GetCount
#pragma weak VtVideoIn_GetHandle
#pragma weak VtVideoIn_ReleaseHandle
#pragma weak VtVideoIn_GetDetectedVideoParameters
#pragma weak VtVideoIn_WaitForFieldStart
#pragma weak VtVideoIn_GetCaptureState
#pragma weak VtVideoIn_GetBufferAttributes
#pragma weak VtVideoOut_GetCount
#pragma weak VtVideoOut_GetHandle
#pragma weak VtVideoOut_ReleaseHandle
#pragma weak VtVideoOut_WaitForFieldStart
#pragma weak VtVideoOut_GetVideoParameters
#pragma weak VtVideoOut_GetBufferAttributes
#pragma weak VtVideoOut_GetPowerState

#endif
