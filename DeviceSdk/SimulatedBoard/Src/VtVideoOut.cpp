// The SDK's operations on video outputs.
#include "VtVideoOut.h"

#include "StreamOperations.h"

VtStatus VtVideoOut_GetCount(VtDevice_Handle hDev, uint32_t* puiCount)
{
    return StreamOperations_GetCount(hDev, EOperation::VtVideoOut_GetCount, EDirection::OUTPUT, puiCount);
}

VtStatus VtVideoOut_GetHandle(VtDevice_Handle hDev, uint32_t uiIndex, VtAccessMode eAccessMode,
                              VtVideoOut_Handle* phVideoOut)
{
    return StreamOperations_GetHandle(hDev, EOperation::VtVideoOut_GetHandle, EDirection::OUTPUT, uiIndex, eAccessMode,
                                      phVideoOut);
}

VtStatus VtVideoOut_ReleaseHandle(VtVideoOut_Handle hVideoOut)
{
    return StreamOperations_Release(hVideoOut, EHandleKind::OUTPUT, EOperation::VtVideoOut_ReleaseHandle);
}

VtStatus VtVideoOut_WaitForFieldStart(VtVideoOut_Handle hVideoOut, uint32_t uiTimeOutMs, uint64_t* puiFieldCounter,
                                      uint64_t* puiSetBufferCounter, uint64_t* puiTickRefCounter, VtBool* pbIsTopField)
{
    const CStreamCall oCall(hVideoOut, EHandleKind::OUTPUT, EOperation::VtVideoOut_WaitForFieldStart);
    const bool bOutputs = puiFieldCounter != nullptr && puiSetBufferCounter != nullptr &&
                          puiTickRefCounter != nullptr && pbIsTopField != nullptr;
    SFieldStart oField;
    const VtStatus eStatus = StreamOperations_Wait(oCall, uiTimeOutMs, bOutputs, oField);
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
    return StreamOperations_GetParameters(oCall, poVidParam);
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
