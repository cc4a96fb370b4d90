#include "StreamOperations.h"

VtStatus StreamOperations_GetCount(VtDevice_Handle hDev, EOperation eOperation, EDirection eDirection,
                                   uint32_t* puiCount)
{
    const CDeviceCall oCall(hDev, eOperation);
    if (oCall.IsRefused() || puiCount == nullptr)
    {
        return oCall.IsRefused() ? oCall.GetStatus() : VtStatus_INVALID_PARAM;
    }
    *puiCount = static_cast<uint32_t>(oCall.GetChip().GetStreams(eDirection).size());
    return VtStatus_OK;
}

// Any number of readers beside one writer.
VtStatus StreamOperations_Open(const CDeviceCall& roCall, EDirection eDirection, uint32_t uiIndex,
                               VtAccessMode eAccessMode, void*& rhStream)
{
    CChip& roChip = roCall.GetChip();
    std::deque<CStream>& roaoStreams = roChip.GetStreams(eDirection);
    const bool bWriter = eAccessMode == VtAccessMode_READWRITE;
    if (uiIndex >= roaoStreams.size() || (!bWriter && eAccessMode != VtAccessMode_READONLY))
    {
        return VtStatus_INVALID_PARAM;
    }
    CStream& roStream = roaoStreams[uiIndex];
    uint32_t uiWriters = 0;
    if (bWriter && !roStream.GetWriterCount().compare_exchange_strong(uiWriters, 1))
    {
        return VtStatus_RESOURCES_BUSY;
    }
    const EHandleKind eKind = eDirection == EDirection::INPUT ? EHandleKind::INPUT : EHandleKind::OUTPUT;
    rhStream = Board_Open(eKind, roChip, &roStream, bWriter);
    if (rhStream == nullptr && bWriter)
    {
        roStream.GetWriterCount().fetch_sub(1);
    }
    return rhStream == nullptr ? VtStatus_OUT_OF_RESOURCES : VtStatus_OK;
}

// A handle is given back even when the scenario or a lost device has the call fail.
VtStatus StreamOperations_Release(const void* hStream, EHandleKind eKind, EOperation eOperation)
{
    const CStreamCall oCall(hStream, eKind, eOperation);
    return Board_Close(hStream, eKind) ? oCall.GetStatus() : VtStatus_INVALID_PARAM;
}

VtStatus StreamOperations_Wait(const CStreamCall& roCall, uint32_t uiTimeOutMs, bool bOutputs, SFieldStart& roField)
{
    if (!roCall.HasHandle())
    {
        return roCall.GetStatus();
    }
    if (roCall.IsRefused() || !bOutputs)
    {
        roCall.GetStream().CountFailedWait();
        return roCall.IsRefused() ? roCall.GetStatus() : VtStatus_INVALID_PARAM;
    }
    return roCall.GetStream().Wait(roCall.GetReader(), uiTimeOutMs, roField);
}

VtStatus StreamOperations_GetParameters(const CStreamCall& roCall, VtVideo_VidParam* poVidParam)
{
    if (roCall.IsRefused() || poVidParam == nullptr)
    {
        return roCall.IsRefused() ? roCall.GetStatus() : VtStatus_INVALID_PARAM;
    }
    *poVidParam = roCall.GetModel().GetDescription(roCall.GetCurrentField()).oVidParam;
    return VtStatus_OK;
}
