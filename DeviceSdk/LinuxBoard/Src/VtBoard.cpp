/*
 * Queries of the board: connectors are the outputs, then the inputs.
 */
#include "SdkExport.h"

#include <cstdio>

#include "FieldStart.h"
#include "Linux/Board.h"

VtStatus VtBoard_GetTickReferenceFrequency(VtDevice_Handle hDev, uint32_t* puiFreqHz)
{
    if (CBoard::Get().EnterChip(hDev) == nullptr || puiFreqHz == nullptr)
    {
        return VtStatus_INVALID_PARAM;
    }
    *puiFreqHz = uiTickFreqHz;
    return VtStatus_OK;
}

VtStatus VtBoard_GetConnectorCount(VtDevice_Handle hDev, uint32_t* puiCount)
{
    const auto poChip = CBoard::Get().EnterChip(hDev);
    if (poChip == nullptr || puiCount == nullptr)
    {
        return VtStatus_INVALID_PARAM;
    }
    *puiCount = static_cast<uint32_t>(poChip->Devices().aoOutputs.size() + poChip->Devices().aoInputs.size());
    return VtStatus_OK;
}

VtStatus VtBoard_GetConnectorInfo(VtDevice_Handle hDev, uint32_t uiConnectorIndex,
                                  VtBoard_ConnectorInfo* poConnectorInfo)
{
    const auto poChip = CBoard::Get().EnterChip(hDev);
    if (poChip == nullptr || poConnectorInfo == nullptr || poConnectorInfo->uiSize != sizeof(VtBoard_ConnectorInfo))
    {
        return VtStatus_INVALID_PARAM;
    }
    const SDeviceList& roDevices = poChip->Devices();
    const size_t uiOutputs = roDevices.aoOutputs.size();
    if (uiConnectorIndex >= uiOutputs + roDevices.aoInputs.size())
    {
        return VtStatus_INVALID_PARAM;
    }
    const auto Fill = [poConnectorInfo](const auto& roSource)
    {
        *poConnectorInfo = {};
        poConnectorInfo->uiSize = sizeof(VtBoard_ConnectorInfo);
        poConnectorInfo->eType = roSource.eType;
        std::snprintf(poConnectorInfo->szName, sizeof(poConnectorInfo->szName), "%s", roSource.szName.c_str());
    };
    if (uiConnectorIndex < uiOutputs)
    {
        Fill(roDevices.aoOutputs[uiConnectorIndex]);
        poConnectorInfo->bVideoOutput = 1;
        poConnectorInfo->uiVideoOutIndex = uiConnectorIndex;
        return VtStatus_OK;
    }
    const auto uiInput = static_cast<uint32_t>(uiConnectorIndex - uiOutputs);
    Fill(roDevices.aoInputs[uiInput]);
    poConnectorInfo->bVideoInput = 1;
    poConnectorInfo->uiVideoInIndex = uiInput;
    return VtStatus_OK;
}

namespace
{

VtStatus ReadSkipCount(CChip& roChip, const void* pvIn, uint32_t uiInSize, void* pvOut, uint32_t uiOutSize)
{
    if (pvIn == nullptr || uiInSize != sizeof(VtBoard_CaptureSkipBufferCountIn) || pvOut == nullptr ||
        uiOutSize != sizeof(VtBoard_CaptureSkipBufferCountOut))
    {
        return VtStatus_INVALID_PARAM;
    }
    const uint32_t uiInput = static_cast<const VtBoard_CaptureSkipBufferCountIn*>(pvIn)->uiCaptureIndex;
    if (uiInput >= roChip.Devices().aoInputs.size())
    {
        return VtStatus_INVALID_PARAM;
    }
    const SInputCounters& roCounters = roChip.Counters(uiInput);
    *static_cast<VtBoard_CaptureSkipBufferCountOut*>(pvOut) = {
        roCounters.uiSkippedFields.load(std::memory_order_relaxed),
        roCounters.uiBuffers.load(std::memory_order_relaxed)};
    return VtStatus_OK;
}

/* An answer that is always the same. */
template <typename TOut> VtStatus Tell(const TOut& roAnswer, uint32_t uiInSize, void* pvOut, uint32_t uiOutSize)
{
    if (uiInSize != 0 || pvOut == nullptr || uiOutSize != sizeof(TOut))
    {
        return VtStatus_INVALID_PARAM;
    }
    *static_cast<TOut*>(pvOut) = roAnswer;
    return VtStatus_OK;
}

} // namespace

VtStatus VtBoard_CustomCall(VtDevice_Handle hDev, uint32_t uiCall, const void* pvIn, uint32_t uiInSize, void* pvOut,
                            uint32_t uiOutSize)
{
    const auto poChip = CBoard::Get().EnterChip(hDev);
    if (poChip == nullptr)
    {
        return VtStatus_INVALID_PARAM;
    }
    switch (uiCall)
    {
    case VtBoard_CustomCallId_GET_CAPTURE_SKIP_BUFFER_COUNT:
        return ReadSkipCount(*poChip, pvIn, uiInSize, pvOut, uiOutSize);
    case VtBoard_CustomCallId_GET_TICK_CLOCK:
        return Tell(VtBoard_TickClockOut{VtBoard_ClockId_MONOTONIC, 0, 0}, uiInSize, pvOut, uiOutSize);
    case VtBoard_CustomCallId_GET_SET_BUFFER_KIND:
        return Tell(VtBoard_SetBufferKindOut{VtBoard_SetBufferKind_ESTIMATED, 0}, uiInSize, pvOut, uiOutSize);
    default:
        return VtStatus_UNSUPPORTED;
    }
}
