/*
 * What the SDK's operations on inputs and on outputs have in common. Each as the operations that it stands for, which
 * VtVideoIn.h and VtVideoOut.h describe.
 */
#ifndef SIMULATED_BOARD_STREAM_OPERATIONS_H
#define SIMULATED_BOARD_STREAM_OPERATIONS_H

#include "Board.h"

VtStatus StreamOperations_GetCount(VtDevice_Handle hDev, EOperation eOperation, EDirection eDirection,
                                   uint32_t* puiCount);

/* rhStream: the handle, null for none. */
VtStatus StreamOperations_Open(const CDeviceCall& roCall, EDirection eDirection, uint32_t uiIndex,
                               VtAccessMode eAccessMode, void*& rhStream);

template <typename THandle>
VtStatus StreamOperations_GetHandle(VtDevice_Handle hDev, EOperation eOperation, EDirection eDirection,
                                    uint32_t uiIndex, VtAccessMode eAccessMode, THandle* phStream)
{
    const CDeviceCall oCall(hDev, eOperation, uiIndex);
    if (oCall.IsInjected() || phStream == nullptr)
    {
        return oCall.IsInjected() ? oCall.GetStatus() : VtStatus_INVALID_PARAM;
    }
    *phStream = nullptr;
    if (oCall.IsRefused())
    {
        return oCall.GetStatus();
    }
    void* hStream = nullptr;
    const VtStatus eStatus = StreamOperations_Open(oCall, eDirection, uiIndex, eAccessMode, hStream);
    *phStream = static_cast<THandle>(hStream);
    return eStatus;
}

VtStatus StreamOperations_Release(const void* hStream, EHandleKind eKind, EOperation eOperation);
/* bOutputs: the caller has given somewhere to put everything. */
VtStatus StreamOperations_Wait(const CStreamCall& roCall, uint32_t uiTimeOutMs, bool bOutputs, SFieldStart& roField);
VtStatus StreamOperations_GetParameters(const CStreamCall& roCall, VtVideo_VidParam* poVidParam);

#endif
