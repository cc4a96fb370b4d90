// The SDK's operations on video inputs and outputs. See VtVideoIn.h and VtVideoOut.h.
#include "Veltrano.h"

#include "Board.h"

namespace
{

VtStatus GetCount(VtDevice_Handle hDev, EOperation eOperation, EDirection eDirection, uint32_t* puiCount)
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
VtStatus OpenStream(CChip& roChip, EDirection eDirection, uint32_t uiIndex, VtAccessMode eAccessMode,
                    uint64_t& ruiHandle)
{
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
    ruiHandle = Board_GetHandles().Open(eKind, &roChip, &roStream, bWriter);
    if (ruiHandle == 0 && bWriter)
    {
        roStream.GetWriterCount().fetch_sub(1);
    }
    return ruiHandle == 0 ? VtStatus_OUT_OF_RESOURCES : VtStatus_OK;
}

template <typename THandle>
VtStatus GetHandle(VtDevice_Handle hDev, EOperation eOperation, EDirection eDirection, uint32_t uiIndex,
                   VtAccessMode eAccessMode, THandle* phStream)
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
    uint64_t uiHandle = 0;
    const VtStatus eStatus = OpenStream(oCall.GetChip(), eDirection, uiIndex, eAccessMode, uiHandle);
    *phStream = reinterpret_cast<THandle>(uiHandle);
    return eStatus;
}

// A handle is given back even when the scenario or a lost device has the call fail.
VtStatus ReleaseHandle(const void* hStream, EHandleKind eKind, EOperation eOperation)
{
    const CStreamCall oCall(hStream, eKind, eOperation);
    if (!oCall.HasHandle() || !Board_GetHandles().Close(oCall.GetSlot(), reinterpret_cast<uintptr_t>(hStream)))
    {
        return VtStatus_INVALID_PARAM;
    }
    return oCall.GetStatus();
}

VtStatus WaitForField(const CStreamCall& roCall, uint32_t uiTimeOutMs, bool bOutputs, SFieldStart& roField)
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
    return roCall.GetStream().Wait(roCall.GetSlot().oReader, uiTimeOutMs, roField);
}

VtStatus GetParameters(const CStreamCall& roCall, VtVideo_VidParam* poVidParam)
{
    if (roCall.IsRefused() || poVidParam == nullptr)
    {
        return roCall.IsRefused() ? roCall.GetStatus() : VtStatus_INVALID_PARAM;
    }
    *poVidParam = roCall.GetModel().GetDescription(roCall.GetCurrentField()).oVidParam;
    return VtStatus_OK;
}

} // namespace

VtStatus VtVideoIn_GetCount(VtDevice_Handle hDev, uint32_t* puiCount)
{
    return GetCount(hDev, EOperation::VtVideoIn_GetCount, EDirection::INPUT, puiCount);
}

VtStatus VtVideoIn_GetHandle(VtDevice_Handle hDev, uint32_t uiIndex, VtAccessMode eAccessMode,
                             VtVideoIn_Handle* phVideoIn)
{
    return GetHandle(hDev, EOperation::VtVideoIn_GetHandle, EDirection::INPUT, uiIndex, eAccessMode, phVideoIn);
}

VtStatus VtVideoIn_ReleaseHandle(VtVideoIn_Handle hVideoIn)
{
    return ReleaseHandle(hVideoIn, EHandleKind::INPUT, EOperation::VtVideoIn_ReleaseHandle);
}

VtStatus VtVideoIn_GetDetectedVideoParameters(VtVideoIn_Handle hVideoIn, VtVideo_VidParam* poVidParam)
{
    const CStreamCall oCall(hVideoIn, EHandleKind::INPUT, EOperation::VtVideoIn_GetDetectedVideoParameters);
    return GetParameters(oCall, poVidParam);
}

VtStatus VtVideoIn_WaitForFieldStart(VtVideoIn_Handle hVideoIn, uint32_t uiTimeOutMs, uint64_t* puiFieldCounter,
                                     uint64_t* puiTickRefCounter, VtBool* pbIsTopField)
{
    const CStreamCall oCall(hVideoIn, EHandleKind::INPUT, EOperation::VtVideoIn_WaitForFieldStart);
    const bool bOutputs = puiFieldCounter != nullptr && puiTickRefCounter != nullptr && pbIsTopField != nullptr;
    SFieldStart oField;
    const VtStatus eStatus = WaitForField(oCall, uiTimeOutMs, bOutputs, oField);
    if (eStatus == VtStatus_OK && bOutputs && !oCall.IsRefused())
    {
        *puiFieldCounter = oField.uiFieldCounter;
        *puiTickRefCounter = oField.uiStamp;
        *pbIsTopField = oField.bIsTopField ? 1U : 0U;
    }
    return eStatus;
}

VtStatus VtVideoIn_GetCaptureState(VtVideoIn_Handle hVideoIn, VtVideoIn_State* peState, uint32_t* puiTotalBufferCount,
                                   uint32_t* puiReadyBufferCount, uint32_t* puiLoanBufferCount,
                                   uint32_t* puiInternalBufferCount)
{
    const CStreamCall oCall(hVideoIn, EHandleKind::INPUT, EOperation::VtVideoIn_GetCaptureState);
    if (oCall.IsRefused())
    {
        return oCall.GetStatus();
    }
    if (peState == nullptr || puiTotalBufferCount == nullptr || puiReadyBufferCount == nullptr ||
        puiLoanBufferCount == nullptr || puiInternalBufferCount == nullptr)
    {
        return VtStatus_INVALID_PARAM;
    }
    const uint64_t uiField = oCall.GetCurrentField();
    const SCaptureState oState = oCall.GetModel().GetCaptureState(uiField);
    *peState = oCall.GetModel().GetDescription(uiField).eCaptureState;
    *puiTotalBufferCount = oState.uiTotal;
    *puiReadyBufferCount = oState.uiReady;
    *puiLoanBufferCount = oState.uiLoan;
    *puiInternalBufferCount = oState.uiInternal;
    return VtStatus_OK;
}

VtStatus VtVideoIn_GetBufferAttributes(VtVideoIn_Handle hVideoIn, uint32_t* puiWidth, uint32_t* puiHeight,
                                       VtPixelFormat* pePixelFormat, uint32_t* puiNbOfBuffer)
{
    const CStreamCall oCall(hVideoIn, EHandleKind::INPUT, EOperation::VtVideoIn_GetBufferAttributes);
    if (oCall.IsRefused())
    {
        return oCall.GetStatus();
    }
    if (puiWidth == nullptr || puiHeight == nullptr || pePixelFormat == nullptr || puiNbOfBuffer == nullptr)
    {
        return VtStatus_INVALID_PARAM;
    }
    const SStreamDescription oDescription = oCall.GetModel().GetDescription(oCall.GetCurrentField());
    *puiWidth = oDescription.uiWidth;
    *puiHeight = oDescription.uiHeight;
    *pePixelFormat = oDescription.ePixelFormat;
    *puiNbOfBuffer = oCall.GetModel().GetStream().uiBuffers;
    return VtStatus_OK;
}

VtStatus VtVideoOut_GetCount(VtDevice_Handle hDev, uint32_t* puiCount)
{
    return GetCount(hDev, EOperation::VtVideoOut_GetCount, EDirection::OUTPUT, puiCount);
}

VtStatus VtVideoOut_GetHandle(VtDevice_Handle hDev, uint32_t uiIndex, VtAccessMode eAccessMode,
                              VtVideoOut_Handle* phVideoOut)
{
    return GetHandle(hDev, EOperation::VtVideoOut_GetHandle, EDirection::OUTPUT, uiIndex, eAccessMode, phVideoOut);
}

VtStatus VtVideoOut_ReleaseHandle(VtVideoOut_Handle hVideoOut)
{
    return ReleaseHandle(hVideoOut, EHandleKind::OUTPUT, EOperation::VtVideoOut_ReleaseHandle);
}

VtStatus VtVideoOut_WaitForFieldStart(VtVideoOut_Handle hVideoOut, uint32_t uiTimeOutMs, uint64_t* puiFieldCounter,
                                      uint64_t* puiSetBufferCounter, uint64_t* puiTickRefCounter, VtBool* pbIsTopField)
{
    const CStreamCall oCall(hVideoOut, EHandleKind::OUTPUT, EOperation::VtVideoOut_WaitForFieldStart);
    const bool bOutputs = puiFieldCounter != nullptr && puiSetBufferCounter != nullptr &&
                          puiTickRefCounter != nullptr && pbIsTopField != nullptr;
    SFieldStart oField;
    const VtStatus eStatus = WaitForField(oCall, uiTimeOutMs, bOutputs, oField);
    if (eStatus == VtStatus_OK && bOutputs && !oCall.IsRefused())
    {
        *puiFieldCounter = oField.uiFieldCounter;
        *puiSetBufferCounter = oField.uiSetBufferCounter;
        *puiTickRefCounter = oField.uiStamp;
        *pbIsTopField = oField.bIsTopField ? 1U : 0U;
    }
    return eStatus;
}

VtStatus VtVideoOut_GetVideoParameters(VtVideoOut_Handle hVideoOut, VtVideo_VidParam* poVidParam)
{
    const CStreamCall oCall(hVideoOut, EHandleKind::OUTPUT, EOperation::VtVideoOut_GetVideoParameters);
    return GetParameters(oCall, poVidParam);
}

VtStatus VtVideoOut_GetBufferAttributes(VtVideoOut_Handle hVideoOut, VtPixelFormat* pePixelFormat, uint32_t* puiWidth,
                                        uint32_t* puiHeight, uint64_t* puiLuid)
{
    const CStreamCall oCall(hVideoOut, EHandleKind::OUTPUT, EOperation::VtVideoOut_GetBufferAttributes);
    if (oCall.IsRefused())
    {
        return oCall.GetStatus();
    }
    if (pePixelFormat == nullptr || puiWidth == nullptr || puiHeight == nullptr || puiLuid == nullptr)
    {
        return VtStatus_INVALID_PARAM;
    }
    const CStreamModel& roModel = oCall.GetModel();
    const uint64_t uiField = oCall.GetCurrentField();
    const bool bShown = roModel.GetFate(uiField) != EFieldFate::LOST;
    const SStreamDescription oDescription = roModel.GetDescription(uiField);
    *puiWidth = oDescription.uiWidth;
    *puiHeight = oDescription.uiHeight;
    *pePixelFormat = oDescription.ePixelFormat;
    *puiLuid = bShown ? roModel.GetStream().uiLuidStart + roModel.GetSetBufferCount(uiField) : 0;
    return VtStatus_OK;
}

VtStatus VtVideoOut_GetPowerState(VtVideoOut_Handle hVideoOut, VtVideoOut_PowerState* pePowerState)
{
    const CStreamCall oCall(hVideoOut, EHandleKind::OUTPUT, EOperation::VtVideoOut_GetPowerState);
    if (oCall.IsRefused() || pePowerState == nullptr)
    {
        return oCall.IsRefused() ? oCall.GetStatus() : VtStatus_INVALID_PARAM;
    }
    *pePowerState = oCall.GetModel().GetPowerState(oCall.GetCurrentField());
    return VtStatus_OK;
}
