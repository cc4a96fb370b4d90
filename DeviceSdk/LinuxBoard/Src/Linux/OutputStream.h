/*
 * One open output handle: a connector, the CRTC that feeds it, and the wait for its field starts. Used by one thread
 * at a time; owns its own descriptor of the card. Times are nanoseconds of CLOCK_MONOTONIC.
 */
#ifndef LINUX_BOARD_OUTPUT_STREAM_H
#define LINUX_BOARD_OUTPUT_STREAM_H

#include "../FieldStart.h"
#include "../VblankTracker.h"
#include "KmsCard.h"
#include "VtVideoOut.h"

#include <string>

namespace LinuxBoard
{

class COutputStream
{
public:
    /* VtStatus_OK; VtStatus_ACCESS_DENIED; VtStatus_FAIL when the card or the connector is not there. */
    VtStatus Open(const std::string& szCardNode, const std::string& szConnector);

    VtStatus WaitForFieldStart(uint32_t uiTimeOutMs, SFieldStart& roField, uint64_t& ruiSetBuffers);
    VtStatus ReadVideoParameters(VtVideo_VidParam& roParam);
    VtStatus ReadBufferAttributes(VtPixelFormat& rePixelFormat, uint32_t& ruiWidth, uint32_t& ruiHeight,
                                  uint64_t& ruiLuid);
    VtStatus ReadPowerState(VtVideoOut_PowerState& rePowerState);

private:
    enum class ESignal
    {
        Unknown, /* the numbering of the CRTC has to be found first */
        Running,
        Off,
        NoVblank, /* there is a signal, but the card tells nothing of its fields */
        Gone
    };

    void FindSignal();
    void FollowNumbering();
    void KeepQueueFull();
    void SetSignal(int iError);
    void SampleBuffer();
    void ReadFields();
    VtStatus TimedOut(uint64_t uiNowNs);
    bool TakeField(SFieldStart& roField, uint64_t& ruiSetBuffers);
    uint64_t NextMomentNs(uint64_t uiDeadlineNs) const;

    CKmsCard m_oCard;
    CVblankTracker m_oTracker;
    CSetBufferEstimate m_oSetBuffers;
    ESignal m_eSignal = ESignal::Unknown;
    uint32_t m_uiConnectorId = 0;
    uint32_t m_uiCrtcId = 0;
    uint64_t m_uiFieldPeriodNs = 0;
    uint64_t m_uiSampledStampNs = 0; /* the field in which the framebuffer was last looked at */
};

} // namespace LinuxBoard

#endif
