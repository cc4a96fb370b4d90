/*
 * One open output handle: a connector, the CRTC that feeds it, and the wait for its field starts. A card that is pulled
 * is gone until it is back under its path. Used by one thread at a time, what may block is asked beside it; owns its
 * own descriptor of the card. Times are nanoseconds of CLOCK_MONOTONIC.
 */
#ifndef LINUX_BOARD_OUTPUT_STREAM_H
#define LINUX_BOARD_OUTPUT_STREAM_H

#include <string>

#include "CardKeeper.h"
#include "FieldStart.h"
#include "KmsCard.h"
#include "OutputWatch.h"
#include "VblankTracker.h"
#include "VtVideoOut.h"

class COutputStream
{
public:
    explicit COutputStream(CCardKeeper& roKeeper) : m_roKeeper(roKeeper), m_oWatch(m_oCard) {}

    /* VtStatus_OK, also for a card that is away; VtStatus_ACCESS_DENIED; VtStatus_FAIL. */
    VtStatus Open(const std::string& szCardNode, const std::string& szConnector);

    VtStatus WaitForFieldStart(uint32_t uiTimeOutMs, SFieldStart& roField, uint64_t& ruiSetBuffers);
    VtStatus ReadVideoParameters(VtVideo_VidParam& roParam);
    VtStatus ReadBufferAttributes(VtPixelFormat& rePixelFormat, uint32_t& ruiWidth, uint32_t& ruiHeight,
                                  uint64_t& ruiLuid);
    VtStatus ReadPowerState(VtVideoOut_PowerState& rePowerState);

private:
    enum class ESignal
    {
        UNKNOWN, /* the numbering of the CRTC has to be found first */
        RUNNING,
        OFF,
        NO_VBLANK, /* there is a signal, but the card tells nothing of its fields */
        GONE       /* the card is away, and closed */
    };

    int OpenCard();
    void LoseCard();
    void LookForCard(uint64_t uiNowNs);
    void FindSignal();
    void AskIfStill();
    bool IsDark() const { return m_eSignal == ESignal::OFF || m_eSignal == ESignal::GONE; }
    VtStatus WithoutSignal() const { return m_eSignal == ESignal::GONE ? VtStatus_FAIL : VtStatus_CANCELED; }
    void FollowMode();
    void SleepInField(uint64_t uiNowNs, uint64_t uiDeadlineNs);
    void FollowNumbering();
    void KeepQueueFull();
    void SetSignal(int iError);
    void ReadFields();
    VtStatus TimedOut(uint64_t uiNowNs);
    bool TakeField(SFieldStart& roField, uint64_t& ruiSetBuffers);

    CCardKeeper& m_roKeeper;
    std::string m_szCardNode;
    std::string m_szConnector;
    CKmsCard m_oCard;
    CVblankTracker m_oTracker;
    COutputWatch m_oWatch;
    ESignal m_eSignal = ESignal::UNKNOWN;
    uint32_t m_uiConnectorId = 0;
    uint32_t m_uiCrtcId = 0;
    uint32_t m_uiMode = UINT32_MAX; /* of the watch's modes, the one that the parameters are of */
    VtVideo_VidParam m_oVidParam{};
    uint64_t m_uiFieldPeriodNs = 0;
    uint64_t m_uiNextLookNs = 0; /* when a card that is away, or one without vertical blanks, is asked next */
};

#endif
