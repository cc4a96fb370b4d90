#include "OutputStream.h"

#include <algorithm>
#include <array>
#include <cerrno>

#include "MonotonicClock.h"
#include "PixelFormatTable.h"
#include "VideoTimings.h"

namespace
{

/* How often an output that is off is asked whether it is on again. */
constexpr uint64_t uiOffPauseNs = 10 * uiNsPerMs;
/* How often a card that is away is looked for. */
constexpr uint64_t uiAwayPauseNs = 100 * uiNsPerMs;
/* How often one without vertical blanks is asked what it shows. */
constexpr uint64_t uiNoVblankPauseNs = 1000 * uiNsPerMs;

} // namespace

VtStatus COutputStream::Open(const std::string& szCardNode, const std::string& szConnector)
{
    m_szCardNode = szCardNode;
    m_szConnector = szConnector;
    switch (OpenCard())
    {
    case 0:
        m_roKeeper.Keep(m_szCardNode);
        return VtStatus_OK;
    case -EACCES:
    case -EPERM:
        return VtStatus_ACCESS_DENIED;
    case -ENOENT:
    case -ENODEV:
    case -ENXIO:
        LoseCard();
        return VtStatus_OK;
    default:
        return VtStatus_FAIL;
    }
}

int COutputStream::OpenCard()
{
    const int iError = m_oCard.Open(m_szCardNode);
    if (iError != 0)
    {
        return iError;
    }
    m_uiConnectorId = m_oCard.FindConnector(m_szConnector);
    if (m_uiConnectorId == 0)
    {
        m_oCard.Close();
        return -ENOENT;
    }
    m_eSignal = ESignal::UNKNOWN;
    m_oWatch.Start(m_uiConnectorId);
    return 0;
}

void COutputStream::LoseCard()
{
    m_eSignal = ESignal::GONE;
    m_oWatch.Stop();
    m_oCard.Close();
    m_roKeeper.LetGo(m_szCardNode);
    m_uiCrtcId = 0;
    m_uiNextLookNs = MonotonicClock_NowNs() + uiAwayPauseNs;
}

void COutputStream::LookForCard(uint64_t uiNowNs)
{
    if (uiNowNs < m_uiNextLookNs)
    {
        return;
    }
    m_uiNextLookNs = uiNowNs + uiAwayPauseNs;
    if (OpenCard() == 0)
    {
        m_roKeeper.Keep(m_szCardNode);
    }
}

void COutputStream::SetSignal(int iError)
{
    switch (iError)
    {
    case 0:
        m_eSignal = ESignal::RUNNING;
        break;
    case -EOPNOTSUPP:
        m_eSignal = ESignal::NO_VBLANK;
        break;
    case -ENODEV:
    case -ENXIO:
        LoseCard();
        break;
    default: // -EINVAL: the CRTC is off, or in the middle of a change of mode
        m_eSignal = ESignal::OFF;
        break;
    }
}

/* Whose numbering counts may change while the output is off: another CRTC, or the same one begun anew. */
void COutputStream::FollowNumbering()
{
    uint64_t uiSequence = 0;
    uint64_t uiStampNs = 0;
    const uint32_t uiCrtcBefore = m_uiCrtcId;
    SetSignal(m_oCard.ReadCrtcOf(m_uiConnectorId, m_uiCrtcId));
    if (m_eSignal != ESignal::RUNNING)
    {
        return;
    }
    if (m_uiCrtcId == 0)
    {
        m_eSignal = ESignal::OFF;
        m_uiCrtcId = uiCrtcBefore;
        return;
    }
    SetSignal(m_oCard.ReadSequence(m_uiCrtcId, uiSequence, uiStampNs));
    if (m_eSignal != ESignal::RUNNING)
    {
        return;
    }
    if (!m_oTracker.IsStarted() || m_uiCrtcId != uiCrtcBefore || uiSequence < m_oTracker.LastSequence())
    {
        m_oTracker.Start(uiSequence);
    }
}

/* The watch has seen another mode. */
void COutputStream::FollowMode()
{
    m_uiMode = m_oWatch.Modes();
    const SCrtcView oCrtc = m_oWatch.View().oCrtc;
    const SSignal oSignal = oCrtc.bModeValid ? VideoTimings_FromMode(oCrtc.oMode) : SSignal{};
    m_oVidParam = oSignal.oVidParam;
    m_uiFieldPeriodNs = oSignal.uiFieldPeriodNs;
}

void COutputStream::FindSignal()
{
    FollowNumbering();
    if (IsDark())
    {
        return;
    }
    const SOutputView oView = m_oWatch.Ask(m_uiCrtcId);
    FollowMode();
    // Without vertical blanks nothing else would tell that the output is dark.
    if (m_eSignal == ESignal::NO_VBLANK && (!oView.oCrtc.bModeValid || oView.ePower != VtVideoOut_PowerState_ON))
    {
        m_eSignal = ESignal::OFF;
    }
    // Whoever asks for the timings before the first wait finds the signal for that wait, too.
    if (m_eSignal == ESignal::RUNNING)
    {
        KeepQueueFull();
    }
}

/* While fields run the watch looks; otherwise nobody does, and there are no fields that asking could cost. */
void COutputStream::AskIfStill()
{
    const uint64_t uiNowNs = MonotonicClock_NowNs();
    const bool bSilent = m_eSignal == ESignal::NO_VBLANK && uiNowNs < m_uiNextLookNs;
    if (m_eSignal == ESignal::RUNNING || m_eSignal == ESignal::GONE || bSilent)
    {
        return;
    }
    FindSignal();
    if (m_eSignal == ESignal::NO_VBLANK)
    {
        m_uiNextLookNs = uiNowNs + uiNoVblankPauseNs;
    }
}

void COutputStream::KeepQueueFull()
{
    for (uint64_t uiNext = m_oTracker.NextToQueue(); uiNext != 0; uiNext = m_oTracker.NextToQueue())
    {
        const int iError = m_oCard.QueueSequence(m_uiCrtcId, uiNext, m_oTracker.TagOf(uiNext));
        if (iError == -ENOMEM || iError == -EBUSY)
        { // the card's event space is full: what is queued must do
            return;
        }
        SetSignal(iError);
        if (iError != 0)
        {
            return;
        }
        m_oTracker.Queued(uiNext);
    }
}

bool COutputStream::TakeField(SFieldStart& roField, uint64_t& ruiSetBuffers)
{
    if (!m_oTracker.Take(roField))
    {
        return false;
    }
    m_oWatch.FieldBegan(m_uiCrtcId, roField.uiStampNs);
    ruiSetBuffers = m_oWatch.SetBuffers();
    return true;
}

void COutputStream::ReadFields()
{
    m_oCard.ReadEvents(m_oTracker);
    // A change of mode may have given the connector another CRTC, and the old one may run on for another connector.
    if (m_oTracker.TakeFlushed())
    {
        FindSignal();
    }
    if (m_eSignal != ESignal::RUNNING)
    {
        return;
    }
    uint64_t uiSequence = 0;
    uint64_t uiStampNs = 0;
    // Away for longer than the queue reaches: the newest field is not among the events.
    if (m_oTracker.IsQueueSpent() && m_oTracker.LastStampNs() != 0 &&
        m_oCard.ReadSequence(m_uiCrtcId, uiSequence, uiStampNs) == 0)
    {
        m_oTracker.Accept(uiSequence, uiStampNs);
    }
    KeepQueueFull();
}

/* Long silence with everything queued: the CRTC may have been switched off without a word. */
VtStatus COutputStream::TimedOut(uint64_t uiNowNs)
{
    uint64_t uiSequence = 0;
    uint64_t uiStampNs = 0;
    if (m_eSignal == ESignal::RUNNING && uiNowNs > m_oTracker.LastStampNs() + 4 * m_uiFieldPeriodNs)
    {
        SetSignal(m_oCard.ReadSequence(m_uiCrtcId, uiSequence, uiStampNs));
    }
    return VtStatus_TIMEOUT;
}

void COutputStream::SleepInField(uint64_t uiNowNs, uint64_t uiDeadlineNs)
{
    std::array<pollfd, 1> aoPolled = {{{m_oCard.Fd(), POLLIN, 0}}};
    if (!MonotonicClock_PollUntil(aoPolled, uiDeadlineNs, uiNowNs))
    {
        return;
    }
    if ((aoPolled[0].revents & POLLIN) == 0)
    {
        LoseCard();
    }
    else
    {
        ReadFields();
    }
}

VtStatus COutputStream::WaitForFieldStart(uint32_t uiTimeOutMs, SFieldStart& roField, uint64_t& ruiSetBuffers)
{
    uint64_t uiNowNs = MonotonicClock_NowNs();
    const uint64_t uiDeadlineNs = uiNowNs + uiTimeOutMs * uiNsPerMs;
    if (IsDark())
    {
        MonotonicClock_PollUntil({}, std::min(uiDeadlineNs, uiNowNs + uiOffPauseNs), uiNowNs);
    }
    if (m_eSignal == ESignal::GONE)
    {
        LookForCard(MonotonicClock_NowNs());
    }
    AskIfStill();
    for (;; uiNowNs = MonotonicClock_NowNs())
    {
        if (IsDark())
        {
            return WithoutSignal();
        }
        if (TakeField(roField, ruiSetBuffers))
        {
            return VtStatus_OK;
        }
        if (uiNowNs >= uiDeadlineNs)
        {
            return TimedOut(uiNowNs);
        }
        if (m_eSignal == ESignal::NO_VBLANK)
        {
            MonotonicClock_PollUntil({}, uiDeadlineNs, uiNowNs);
        }
        else
        {
            SleepInField(uiNowNs, uiDeadlineNs);
        }
    }
}

VtStatus COutputStream::ReadVideoParameters(VtVideo_VidParam& roParam)
{
    AskIfStill();
    if (m_uiMode != m_oWatch.Modes())
    {
        FollowMode();
    }
    roParam = IsDark() ? VtVideo_VidParam{} : m_oVidParam;
    return m_eSignal == ESignal::GONE ? VtStatus_FAIL : VtStatus_OK;
}

VtStatus COutputStream::ReadBufferAttributes(VtPixelFormat& rePixelFormat, uint32_t& ruiWidth, uint32_t& ruiHeight,
                                             uint64_t& ruiLuid)
{
    AskIfStill();
    const SOutputView oView = IsDark() ? SOutputView{} : m_oWatch.View();
    rePixelFormat = PixelFormat_FromDrm(oView.oFramebuffer.uiFourCc);
    ruiWidth = oView.oFramebuffer.uiWidth;
    ruiHeight = oView.oFramebuffer.uiHeight;
    ruiLuid = oView.oCrtc.uiFramebufferId;
    return m_eSignal == ESignal::GONE ? VtStatus_FAIL : VtStatus_OK;
}

VtStatus COutputStream::ReadPowerState(VtVideoOut_PowerState& rePowerState)
{
    AskIfStill();
    // A CRTC that is off in this moment may still be the connector's.
    uint32_t uiCrtcId = 0;
    rePowerState = VtVideoOut_PowerState_DISABLED;
    if (m_eSignal == ESignal::GONE)
    {
        return VtStatus_FAIL;
    }
    if (m_eSignal == ESignal::RUNNING)
    {
        rePowerState = m_oWatch.View().ePower;
    }
    else if (m_oCard.ReadCrtcOf(m_uiConnectorId, uiCrtcId) == 0 && uiCrtcId != 0)
    {
        rePowerState = m_oCard.ReadPower(m_uiConnectorId);
    }
    return VtStatus_OK;
}
