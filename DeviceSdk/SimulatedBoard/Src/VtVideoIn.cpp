// The SDK's operations on video inputs.
#include "VtVideoIn.h"

#include "StreamOperations.h"

VtStatus VtVideoIn_GetCount(VtDevice_Handle hDev, uint32_t* puiCount)
{
    return StreamOperations_GetCount(hDev, EOperation::VtVideoIn_GetCount, EDirection::INPUT, puiCount);
}

VtStatus VtVideoIn_GetHandle(VtDevice_Handle hDev, uint32_t uiIndex, VtAccessMode eAccessMode,
                             VtVideoIn_Handle* phVideoIn)
{
    return StreamOperations_GetHandle(hDev, EOperation::VtVideoIn_GetHandle, EDirection::INPUT, uiIndex, eAccessMode,
                                      phVideoIn);
}

VtStatus VtVideoIn_ReleaseHandle(VtVideoIn_Handle hVideoIn)
{
    return StreamOperations_Release(hVideoIn, EHandleKind::INPUT, EOperation::VtVideoIn_ReleaseHandle);
}

VtStatus VtVideoIn_GetDetectedVideoParameters(VtVideoIn_Handle hVideoIn, VtVideo_VidParam* poVidParam)
{
    const CStreamCall oCall(hVideoIn, EHandleKind::INPUT, EOperation::VtVideoIn_GetDetectedVideoParameters);
    return StreamOperations_GetParameters(oCall, poVidParam);
}

VtStatus VtVideoIn_WaitForFieldStart(VtVideoIn_Handle hVideoIn, uint32_t uiTimeOutMs, uint64_t* puiFieldCounter,
                                     uint64_t* puiTickRefCounter, VtBool* pbIsTopField)
{
    const CStreamCall oCall(hVideoIn, EHandleKind::INPUT, EOperation::VtVideoIn_WaitForFieldStart);
    const bool bOutputs = puiFieldCounter != nullptr && puiTickRefCounter != nullptr && pbIsTopField != nullptr;
    SFieldStart oField;
    const VtStatus eStatus = StreamOperations_Wait(oCall, uiTimeOutMs, bOutputs, oField);
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
    *puiNbOfBuffer = oCall.GetModel().GetNbOfBuffers(oCall.GetCurrentField());
    return VtStatus_OK;
}
