#include "StreamPort.h"

#include <cstring>

#include "ConnectorNames.h"
#include "FieldRates.h"
#include "VideoTexts.h"
#include "WatchClocks.h"

namespace
{

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
}

void CStreamPort::Describe(SDescriptionRecord& roRecord)
{
    SStreamDescription& roDescription = roRecord.oDescription;
    roDescription = {};
    roDescription.uiMomentNs = ReadMonotonicNs();
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
    static_cast<void>(VtVideoIn_GetDetectedVideoParameters(m_hInput, &roDescription.oTimings));
    static_cast<void>(VtVideoIn_GetBufferAttributes(m_hInput, &roDescription.uiWidth, &roDescription.uiHeight,
                                                    &roDescription.ePixelFormat, &roDescription.uiNbOfBuffer));
    static_cast<void>(VtVideoIn_GetCaptureState(m_hInput, &roDescription.eCaptureState, &uiTotal,
                                                &roDescription.uiReadyBufferCount, &roDescription.uiLoanBufferCount,
                                                &uiInternal));
    const VtBoard_CaptureSkipBufferCountIn oIn = {m_oKey.uiIndex};
    VtBoard_CaptureSkipBufferCountOut oOut = {};
    roDescription.bHasSkippedBuffers = VtBoard_CustomCall(m_hDev, VtBoard_CustomCallId_GET_CAPTURE_SKIP_BUFFER_COUNT,
                                                          &oIn, sizeof(oIn), &oOut, sizeof(oOut)) == VtStatus_OK;
    roDescription.uiSkippedBuffers = oOut.uiSkipBuffCnt;
}

void CStreamPort::DescribeOutput(SStreamDescription& roDescription)
{
    uint64_t uiLuid = 0;
    static_cast<void>(VtVideoOut_GetVideoParameters(m_hOutput, &roDescription.oTimings));
    static_cast<void>(VtVideoOut_GetBufferAttributes(m_hOutput, &roDescription.ePixelFormat, &roDescription.uiWidth,
                                                     &roDescription.uiHeight, &uiLuid));
    static_cast<void>(VtVideoOut_GetPowerState(m_hOutput, &roDescription.ePowerState));
}
