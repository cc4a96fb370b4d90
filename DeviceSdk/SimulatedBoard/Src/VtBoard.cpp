// The SDK's operations on the board.
#include "VtBoard.h"

#include <cstring>

#include "Board.h"
#include "BoardUnits.h"

namespace
{

VtStatus GetCaptureSkipCount(CChip& roChip, const void* pvIn, void* pvOut)
{
    VtBoard_CaptureSkipBufferCountIn oIn{};
    std::memcpy(&oIn, pvIn, sizeof(oIn));
    std::deque<CStream>& roaoInputs = roChip.GetStreams(EDirection::INPUT);
    if (oIn.uiCaptureIndex >= roaoInputs.size())
    {
        return VtStatus_INVALID_PARAM;
    }
    const CStream& roStream = roaoInputs[oIn.uiCaptureIndex];
    const uint64_t uiField = roStream.GetLatestField();
    if (!roStream.GetModel().HasSkipCount(uiField))
    {
        return VtStatus_UNSUPPORTED;
    }
    const VtBoard_CaptureSkipBufferCountOut oOut{.uiSkipBuffCnt = roStream.GetModel().GetSkipCount(uiField),
                                                 .uiBuffCnt = roStream.GetModel().GetFilledCount(uiField)};
    std::memcpy(pvOut, &oOut, sizeof(oOut));
    return VtStatus_OK;
}

// The clock of all chips begins when the board is loaded.
VtStatus GetSharedClock(const SChip& roChip, void* pvOut, uint32_t uiOutSize)
{
    if (roChip.uiClockId == 0)
    {
        return VtStatus_UNSUPPORTED;
    }
    if (pvOut == nullptr || uiOutSize != sizeof(VtBoard_SharedClockOut))
    {
        return VtStatus_INVALID_PARAM;
    }
    const UInt128 uiNs = UInt128{roChip.uiTickStart} * uiNsPerSecond + roChip.uiTickFreqHz / 2;
    const VtBoard_SharedClockOut oOut{
        .uiClockId = roChip.uiClockId, .uiReserved = 0, .iOffsetNs = -static_cast<int64_t>(uiNs / roChip.uiTickFreqHz)};
    std::memcpy(pvOut, &oOut, sizeof(oOut));
    return VtStatus_OK;
}

} // namespace

VtStatus VtBoard_GetTickReferenceFrequency(VtDevice_Handle hDev, uint32_t* puiFreqHz)
{
    const CDeviceCall oCall(hDev, EOperation::VtBoard_GetTickReferenceFrequency);
    if (oCall.IsRefused() || puiFreqHz == nullptr)
    {
        return oCall.IsRefused() ? oCall.GetStatus() : VtStatus_INVALID_PARAM;
    }
    *puiFreqHz = oCall.GetChip().GetSpec().uiTickFreqHz;
    return VtStatus_OK;
}

VtStatus VtBoard_GetConnectorCount(VtDevice_Handle hDev, uint32_t* puiCount)
{
    const CDeviceCall oCall(hDev, EOperation::VtBoard_GetConnectorCount);
    if (oCall.IsRefused() || puiCount == nullptr)
    {
        return oCall.IsRefused() ? oCall.GetStatus() : VtStatus_INVALID_PARAM;
    }
    *puiCount = static_cast<uint32_t>(oCall.GetChip().GetSpec().aoConnectors.size());
    return VtStatus_OK;
}

VtStatus VtBoard_GetConnectorInfo(VtDevice_Handle hDev, uint32_t uiConnectorIndex,
                                  VtBoard_ConnectorInfo* poConnectorInfo)
{
    const CDeviceCall oCall(hDev, EOperation::VtBoard_GetConnectorInfo);
    if (oCall.IsRefused())
    {
        return oCall.GetStatus();
    }
    const std::vector<VtBoard_ConnectorInfo>& raoConnectors = oCall.GetChip().GetSpec().aoConnectors;
    if (poConnectorInfo == nullptr || poConnectorInfo->uiSize != sizeof(VtBoard_ConnectorInfo) ||
        uiConnectorIndex >= raoConnectors.size())
    {
        return VtStatus_INVALID_PARAM;
    }
    *poConnectorInfo = raoConnectors[uiConnectorIndex];
    return VtStatus_OK;
}

VtStatus VtBoard_CustomCall(VtDevice_Handle hDev, uint32_t uiCall, const void* pvIn, uint32_t uiInSize, void* pvOut,
                            uint32_t uiOutSize)
{
    const CDeviceCall oCall(hDev, EOperation::VtBoard_CustomCall);
    if (oCall.IsRefused())
    {
        return oCall.GetStatus();
    }
    if (uiCall == VtBoard_CustomCallId_GET_SHARED_CLOCK)
    {
        return GetSharedClock(oCall.GetChip().GetSpec(), pvOut, uiOutSize);
    }
    if (uiCall != VtBoard_CustomCallId_GET_CAPTURE_SKIP_BUFFER_COUNT)
    {
        return VtStatus_UNSUPPORTED;
    }
    if (pvIn == nullptr || uiInSize != sizeof(VtBoard_CaptureSkipBufferCountIn) || pvOut == nullptr ||
        uiOutSize != sizeof(VtBoard_CaptureSkipBufferCountOut))
    {
        return VtStatus_INVALID_PARAM;
    }
    return GetCaptureSkipCount(oCall.GetChip(), pvIn, pvOut);
}
