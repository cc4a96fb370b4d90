/*
 * Video outputs of the interface: checks handles and outputs, and leaves the rest to the stream.
 */
#include "SdkExport.h"

#include "Linux/Board.h"

VtStatus VtVideoOut_GetCount(VtDevice_Handle hDev, uint32_t* puiCount)
{
    const auto poChip = CBoard::Get().EnterChip(hDev);
    if (poChip == nullptr || puiCount == nullptr)
    {
        return VtStatus_INVALID_PARAM;
    }
    *puiCount = static_cast<uint32_t>(poChip->Devices().aoOutputs.size());
    return VtStatus_OK;
}

VtStatus VtVideoOut_GetHandle(VtDevice_Handle hDev, uint32_t uiIndex, VtAccessMode eAccessMode,
                              VtVideoOut_Handle* phVideoOut)
{
    const auto poChip = CBoard::Get().EnterChip(hDev);
    if (phVideoOut != nullptr)
    {
        *phVideoOut = nullptr;
    }
    if (poChip == nullptr || phVideoOut == nullptr || uiIndex >= poChip->Devices().aoOutputs.size())
    {
        return VtStatus_INVALID_PARAM;
    }
    if (eAccessMode != VtAccessMode_READONLY)
    { // this board only watches
        return VtStatus_ACCESS_DENIED;
    }
    const SOutputSource& roSource = poChip->Devices().aoOutputs[uiIndex];
    auto poStream = std::make_unique<COutputStream>(poChip->Keeper());
    const VtStatus eStatus = poStream->Open(roSource.szCardNode, roSource.szConnector);
    if (eStatus != VtStatus_OK)
    {
        return eStatus;
    }
    *phVideoOut = CBoard::Get().AddOutput(std::move(poStream));
    return *phVideoOut != nullptr ? VtStatus_OK : VtStatus_RESOURCES_BUSY;
}

VtStatus VtVideoOut_ReleaseHandle(VtVideoOut_Handle hVideoOut)
{
    return CBoard::Get().CloseOutput(hVideoOut) ? VtStatus_OK : VtStatus_INVALID_PARAM;
}

VtStatus VtVideoOut_WaitForFieldStart(VtVideoOut_Handle hVideoOut, uint32_t uiTimeOutMs, uint64_t* puiFieldCounter,
                                      uint64_t* puiSetBufferCounter, uint64_t* puiTickRefCounter, VtBool* pbIsTopField)
{
    const auto poStream = CBoard::Get().EnterOutput(hVideoOut);
    if (poStream == nullptr || puiFieldCounter == nullptr || puiSetBufferCounter == nullptr ||
        puiTickRefCounter == nullptr || pbIsTopField == nullptr)
    {
        return VtStatus_INVALID_PARAM;
    }
    SFieldStart oField;
    uint64_t uiSetBuffers = 0;
    const VtStatus eStatus = poStream->WaitForFieldStart(uiTimeOutMs, oField, uiSetBuffers);
    if (eStatus != VtStatus_OK)
    {
        return eStatus;
    }
    *puiFieldCounter = oField.uiFieldCounter;
    *puiSetBufferCounter = uiSetBuffers;
    *puiTickRefCounter = Ticks_FromNs(oField.uiStampNs);
    *pbIsTopField = oField.bIsTopField ? 1 : 0;
    return VtStatus_OK;
}

VtStatus VtVideoOut_GetVideoParameters(VtVideoOut_Handle hVideoOut, VtVideo_VidParam* poVidParam)
{
    const auto poStream = CBoard::Get().EnterOutput(hVideoOut);
    if (poStream == nullptr || poVidParam == nullptr)
    {
        return VtStatus_INVALID_PARAM;
    }
    return poStream->ReadVideoParameters(*poVidParam);
}

VtStatus VtVideoOut_GetBufferAttributes(VtVideoOut_Handle hVideoOut, VtPixelFormat* pePixelFormat, uint32_t* puiWidth,
                                        uint32_t* puiHeight, uint64_t* puiLuid)
{
    const auto poStream = CBoard::Get().EnterOutput(hVideoOut);
    if (poStream == nullptr || pePixelFormat == nullptr || puiWidth == nullptr || puiHeight == nullptr ||
        puiLuid == nullptr)
    {
        return VtStatus_INVALID_PARAM;
    }
    return poStream->ReadBufferAttributes(*pePixelFormat, *puiWidth, *puiHeight, *puiLuid);
}

VtStatus VtVideoOut_GetPowerState(VtVideoOut_Handle hVideoOut, VtVideoOut_PowerState* pePowerState)
{
    const auto poStream = CBoard::Get().EnterOutput(hVideoOut);
    if (poStream == nullptr || pePowerState == nullptr)
    {
        return VtStatus_INVALID_PARAM;
    }
    return poStream->ReadPowerState(*pePowerState);
}
