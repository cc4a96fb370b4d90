/*
 * Video inputs of the interface: checks handles and outputs, and leaves the rest to the stream.
 */
#include "SdkExport.h"

#include "Linux/Board.h"
#include "PixelFormatTable.h"

VtStatus VtVideoIn_GetCount(VtDevice_Handle hDev, uint32_t* puiCount)
{
    const auto poChip = CBoard::Get().EnterChip(hDev);
    if (poChip == nullptr || puiCount == nullptr)
    {
        return VtStatus_INVALID_PARAM;
    }
    *puiCount = static_cast<uint32_t>(poChip->Devices().aoInputs.size());
    return VtStatus_OK;
}

VtStatus VtVideoIn_GetHandle(VtDevice_Handle hDev, uint32_t uiIndex, VtAccessMode eAccessMode,
                             VtVideoIn_Handle* phVideoIn)
{
    const auto poChip = CBoard::Get().EnterChip(hDev);
    if (phVideoIn != nullptr)
    {
        *phVideoIn = nullptr;
    }
    if (poChip == nullptr || phVideoIn == nullptr || uiIndex >= poChip->Devices().aoInputs.size())
    {
        return VtStatus_INVALID_PARAM;
    }
    if (eAccessMode != VtAccessMode_READONLY)
    { // this board only watches
        return VtStatus_ACCESS_DENIED;
    }
    const SInputSource& roSource = poChip->Devices().aoInputs[uiIndex];
    auto poStream = std::make_unique<CInputStream>(poChip->Counters(uiIndex));
    const VtStatus eStatus = poStream->Open(roSource);
    if (eStatus != VtStatus_OK)
    {
        return eStatus;
    }
    *phVideoIn = CBoard::Get().AddInput(std::move(poStream));
    return *phVideoIn != nullptr ? VtStatus_OK : VtStatus_RESOURCES_BUSY;
}

VtStatus VtVideoIn_ReleaseHandle(VtVideoIn_Handle hVideoIn)
{
    return CBoard::Get().CloseInput(hVideoIn) ? VtStatus_OK : VtStatus_INVALID_PARAM;
}

VtStatus VtVideoIn_GetDetectedVideoParameters(VtVideoIn_Handle hVideoIn, VtVideo_VidParam* poVidParam)
{
    const auto poStream = CBoard::Get().EnterInput(hVideoIn);
    if (poStream == nullptr || poVidParam == nullptr)
    {
        return VtStatus_INVALID_PARAM;
    }
    return poStream->ReadDetectedParameters(*poVidParam);
}

VtStatus VtVideoIn_WaitForFieldStart(VtVideoIn_Handle hVideoIn, uint32_t uiTimeOutMs, uint64_t* puiFieldCounter,
                                     uint64_t* puiTickRefCounter, VtBool* pbIsTopField)
{
    const auto poStream = CBoard::Get().EnterInput(hVideoIn);
    if (poStream == nullptr || puiFieldCounter == nullptr || puiTickRefCounter == nullptr || pbIsTopField == nullptr)
    {
        return VtStatus_INVALID_PARAM;
    }
    SFieldStart oField;
    const VtStatus eStatus = poStream->WaitForFieldStart(uiTimeOutMs, oField);
    if (eStatus != VtStatus_OK)
    {
        return eStatus;
    }
    *puiFieldCounter = oField.uiFieldCounter;
    *puiTickRefCounter = Ticks_FromNs(oField.uiStampNs);
    *pbIsTopField = oField.bIsTopField ? 1 : 0;
    return VtStatus_OK;
}

VtStatus VtVideoIn_GetCaptureState(VtVideoIn_Handle hVideoIn, VtVideoIn_State* peState, uint32_t* puiTotalBufferCount,
                                   uint32_t* puiReadyBufferCount, uint32_t* puiLoanBufferCount,
                                   uint32_t* puiInternalBufferCount)
{
    const auto poStream = CBoard::Get().EnterInput(hVideoIn);
    if (poStream == nullptr || peState == nullptr || puiTotalBufferCount == nullptr || puiReadyBufferCount == nullptr ||
        puiLoanBufferCount == nullptr || puiInternalBufferCount == nullptr)
    {
        return VtStatus_INVALID_PARAM;
    }
    SBufferCensus oCensus;
    VtVideoIn_State eState = VtVideoIn_State_INVALID;
    const VtStatus eStatus = poStream->ReadCaptureState(eState, oCensus);
    if (eStatus != VtStatus_OK)
    {
        return eStatus;
    }
    *peState = eState;
    *puiTotalBufferCount = oCensus.uiTotal;
    *puiReadyBufferCount = oCensus.uiReady;
    *puiLoanBufferCount = oCensus.uiLoaned;
    *puiInternalBufferCount = oCensus.uiQueued;
    return VtStatus_OK;
}

VtStatus VtVideoIn_GetBufferAttributes(VtVideoIn_Handle hVideoIn, uint32_t* puiWidth, uint32_t* puiHeight,
                                       VtPixelFormat* pePixelFormat, uint32_t* puiNbOfBuffer)
{
    const auto poStream = CBoard::Get().EnterInput(hVideoIn);
    if (poStream == nullptr || puiWidth == nullptr || puiHeight == nullptr || pePixelFormat == nullptr ||
        puiNbOfBuffer == nullptr)
    {
        return VtStatus_INVALID_PARAM;
    }
    SInputFormat oFormat;
    uint32_t uiBuffers = 0;
    const VtStatus eStatus = poStream->ReadBufferAttributes(oFormat, uiBuffers);
    if (eStatus != VtStatus_OK)
    {
        return eStatus;
    }
    *puiWidth = oFormat.uiWidth;
    *puiHeight = oFormat.uiHeight;
    *pePixelFormat = PixelFormat_FromV4l2(oFormat.uiFourCc);
    *puiNbOfBuffer = uiBuffers;
    return VtStatus_OK;
}
