#include "StreamPort.h"

#include <algorithm>
#include <cstring>

#include "ConnectorNames.h"
#include "FieldRates.h"
#include "VideoTexts.h"
#include "WatchClocks.h"

namespace
{

constexpr uint64_t uiCheapNs = 5000; // a call that takes no longer can be made for every field

EWaitResult ToResult(VtStatus eStatus)
{
    switch (eStatus)
    {
    case VtStatus_OK:
        return EWaitResult::FIELD;
    case VtStatus_TIMEOUT:
        return EWaitResult::TIMED_OUT;
    case VtStatus_CANCELED:
        return EWaitResult::CANCELED;
    default:
        return EWaitResult::GONE;
    }
}

} // namespace

bool CStreamPort::Open()
{
    const bool bIsInput = m_oKey.eDirection == EStreamDirection::INPUT;
    const VtStatus eStatus = bIsInput ? VtVideoIn_GetHandle(m_hDev, m_oKey.uiIndex, VtAccessMode_READONLY, &m_hInput)
                                      : VtVideoOut_GetHandle(m_hDev, m_oKey.uiIndex, VtAccessMode_READONLY, &m_hOutput);
    if (eStatus < 0)
    {
        m_hInput = nullptr;
        m_hOutput = nullptr;
    }
    if (IsOpen())
    {
        static_cast<void>(FindConnectorName(m_hDev, m_oKey.uiIndex, bIsInput ? 1 : 0, m_szName));
    }
    return IsOpen();
}

void CStreamPort::Close()
{
    if (m_hInput != nullptr)
    {
        static_cast<void>(VtVideoIn_ReleaseHandle(m_hInput));
    }
    if (m_hOutput != nullptr)
    {
        static_cast<void>(VtVideoOut_ReleaseHandle(m_hOutput));
    }
    m_hInput = nullptr;
    m_hOutput = nullptr;
}

void CStreamPort::Wait(SFieldRecord& roRecord)
{
    VtBool bIsTopField = 0;
    roRecord = {};
    roRecord.uiWaitBeginNs = ReadMonotonicNs();
    const VtStatus eStatus =
        m_oKey.eDirection == EStreamDirection::INPUT
            ? VtVideoIn_WaitForFieldStart(m_hInput, uiFieldWaitTimeOutMs, &roRecord.uiFieldCounter, &roRecord.uiTick,
                                          &bIsTopField)
            : VtVideoOut_WaitForFieldStart(m_hOutput, uiFieldWaitTimeOutMs, &roRecord.uiFieldCounter,
                                           &roRecord.uiSetBufferCounter, &roRecord.uiTick, &bIsTopField);
    roRecord.uiArrivalNs = ReadMonotonicNs();
    roRecord.eResult = ToResult(eStatus);
    roRecord.bIsTopField = bIsTopField != 0;
    if (m_hInput != nullptr && roRecord.eResult == EWaitResult::FIELD)
    {
        AskBuffers(roRecord);
    }
}

// Where the buffers are as this field starts. What the board does not tell stays unknown.
void CStreamPort::AskBuffers(SFieldRecord& roRecord)
{
    VtVideoIn_State eState = VtVideoIn_State_INVALID;
    uint32_t uiTotal = 0;
    uint32_t uiReady = 0;
    uint32_t uiLoaned = 0;
    uint32_t uiInternal = 0;
    roRecord.bHasBuffers =
        VtVideoIn_GetCaptureState(m_hInput, &eState, &uiTotal, &uiReady, &uiLoaned, &uiInternal) == VtStatus_OK &&
        uiTotal > 0;
    roRecord.uiReadyBuffers = static_cast<uint16_t>(std::min<uint32_t>(uiReady, UINT16_MAX));
    roRecord.uiLoanedBuffers = static_cast<uint16_t>(std::min<uint32_t>(uiLoaned, UINT16_MAX));
    roRecord.uiInternalBuffers = static_cast<uint16_t>(std::min<uint32_t>(uiInternal, UINT16_MAX));
    roRecord.bHasSkippedBuffers = AskSkipped(roRecord.uiSkippedBuffers);
}

bool CStreamPort::AskSkipped(uint64_t& ruiSkipped)
{
    const VtBoard_CaptureSkipBufferCountIn oIn = {m_oKey.uiIndex};
    VtBoard_CaptureSkipBufferCountOut oOut = {};
    const bool bIsKnown = VtBoard_CustomCall(m_hDev, VtBoard_CustomCallId_GET_CAPTURE_SKIP_BUFFER_COUNT, &oIn,
                                             sizeof(oIn), &oOut, sizeof(oOut)) == VtStatus_OK;
    ruiSkipped = oOut.uiSkipBuffCnt;
    return bIsKnown;
}

VtStatus CStreamPort::ReadTimings(VtVideo_VidParam& roTimings)
{
    return m_hInput != nullptr ? VtVideoIn_GetDetectedVideoParameters(m_hInput, &roTimings)
                               : VtVideoOut_GetVideoParameters(m_hOutput, &roTimings);
}

bool CStreamPort::HasOtherTimings()
{
    VtVideo_VidParam oTimings = {};
    return m_bTimingsAreCheap && ReadTimings(oTimings) == VtStatus_OK &&
           std::memcmp(&oTimings, &m_oTimings, sizeof(oTimings)) != 0;
}

void CStreamPort::Describe(SDescriptionRecord& roRecord)
{
    SStreamDescription& roDescription = roRecord.oDescription;
    roDescription = {};
    roDescription.uiMomentNs = ReadMonotonicNs();
    static_cast<void>(ReadTimings(roDescription.oTimings));
    m_bTimingsAreCheap = ReadMonotonicNs() - roDescription.uiMomentNs < uiCheapNs;
    m_oTimings = roDescription.oTimings;
    if (m_oKey.eDirection == EStreamDirection::INPUT)
    {
        DescribeInput(roDescription);
    }
    else
    {
        DescribeOutput(roDescription);
    }
    if (roDescription.ePixelFormat != m_eFormat)
    {
        m_eFormat = roDescription.ePixelFormat;
        GetPixelFormatString(m_eFormat, m_szFormat);
    }
    std::memcpy(roRecord.szName, m_szName, sizeof(m_szName));
    std::memcpy(roRecord.szFormat, m_szFormat, sizeof(m_szFormat));
}

// A call that fails leaves zeros: nothing is known then.
void CStreamPort::DescribeInput(SStreamDescription& roDescription)
{
    uint32_t uiTotal = 0;
    uint32_t uiInternal = 0;
    static_cast<void>(VtVideoIn_GetBufferAttributes(m_hInput, &roDescription.uiWidth, &roDescription.uiHeight,
                                                    &roDescription.ePixelFormat, &roDescription.uiNbOfBuffer));
    static_cast<void>(VtVideoIn_GetCaptureState(m_hInput, &roDescription.eCaptureState, &uiTotal,
                                                &roDescription.uiReadyBufferCount, &roDescription.uiLoanBufferCount,
                                                &uiInternal));
    roDescription.bHasSkippedBuffers = AskSkipped(roDescription.uiSkippedBuffers);
}

void CStreamPort::DescribeOutput(SStreamDescription& roDescription)
{
    uint64_t uiLuid = 0;
    static_cast<void>(VtVideoOut_GetBufferAttributes(m_hOutput, &roDescription.ePixelFormat, &roDescription.uiWidth,
                                                     &roDescription.uiHeight, &uiLuid));
    static_cast<void>(VtVideoOut_GetPowerState(m_hOutput, &roDescription.ePowerState));
}
