// The SDK's operations on the library, the device and its debug channel.
#include "Veltrano.h"

#include <cstring>

#include "Board.h"
#include "DebugChannel.h"
#include "PixelFormatNames.h"

namespace
{

constexpr uint64_t MakeVersion(uint64_t uiMajor, uint64_t uiMinor, uint64_t uiPatch, uint64_t uiBuild)
{
    return uiMajor << 48 | uiMinor << 32 | uiPatch << 16 | uiBuild;
}

// A failure that the scenario wants of an operation that has no device handle.
std::optional<VtStatus> CountLibraryCall(EOperation eOperation, std::optional<uint32_t> uiChip = std::nullopt)
{
    Board_CountCall(eOperation);
    const std::shared_ptr<CBoard> poBoard = Board_Get();
    return poBoard == nullptr ? std::nullopt : poBoard->GetFaults().Count(eOperation, uiChip, std::nullopt);
}

} // namespace

void Veltrano_LoadLite(void)
{
    if (Board_Load())
    {
        DebugChannel_Clear();
    }
    Board_CountCall(EOperation::Veltrano_LoadLite);
}

uint64_t Veltrano_Version(void)
{
    return CountLibraryCall(EOperation::Veltrano_Version) ? 0 : MakeVersion(1, 0, 0, 0);
}

VtDevice_Handle Veltrano_GetDevice(uint32_t uiChipIndex)
{
    const std::shared_ptr<CBoard> poBoard = Board_Get();
    if (CountLibraryCall(EOperation::Veltrano_GetDevice, uiChipIndex) || poBoard == nullptr ||
        uiChipIndex >= poBoard->GetChips().size() || poBoard->GetChips()[uiChipIndex].IsGone())
    {
        return nullptr;
    }
    CChip& roChip = poBoard->GetChips()[uiChipIndex];
    void* hDevice = roChip.GetHandle().load();
    if (hDevice == nullptr)
    {
        hDevice = Board_Open(EHandleKind::DEVICE, roChip, nullptr, false);
        roChip.GetHandle().store(hDevice);
    }
    return static_cast<VtDevice_Handle>(hDevice);
}

void Veltrano_UnLoad(void)
{
    Board_CountCall(EOperation::Veltrano_UnLoad);
    Board_UnLoad();
}

VtStatus VtDebug_WriteMsg(VtDevice_Handle hDev, const char* szMsg)
{
    const CDeviceCall oCall(hDev, EOperation::VtDebug_WriteMsg);
    if (oCall.IsRefused())
    {
        return oCall.GetStatus();
    }
    if (szMsg == nullptr)
    {
        return VtStatus_INVALID_PARAM;
    }
    DebugChannel_Add(std::string(szMsg, strnlen(szMsg, VtTextSize_DEBUG_MSG - 1)));
    return VtStatus_OK;
}

VtStatus VtPixelFormat_GetName(VtPixelFormat ePixelFormat, char* szName)
{
    if (const auto eInjected = CountLibraryCall(EOperation::VtPixelFormat_GetName))
    {
        return *eInjected;
    }
    if (szName == nullptr)
    {
        return VtStatus_INVALID_PARAM;
    }
    szName[PixelFormat_GetName(ePixelFormat).copy(szName, VtTextSize_PIXEL_FORMAT_NAME - 1)] = '\0';
    return VtStatus_OK;
}
