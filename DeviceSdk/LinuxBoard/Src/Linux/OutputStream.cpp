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

} // namespace

VtStatus COutputStream::Open(const std::string& szCardNode, const std::string& szConnector)
{
    m_szCardNode = szCardNode;
    m_szConnector = szConnector;
    switch (OpenCard())
    {
    case 0:
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
    return 0;
}

void COutputStream::LoseCard()
{
    m_eSignal = ESignal::GONE;
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

void COutputStream::FindSignal()
{
    FollowNumbering();
    SCrtcView oView;
    if (m_eSignal == ESignal::OFF || m_eSignal == ESignal::GONE || m_oCard.ReadCrtc(m_uiCrtcId, oView) != 0)
    {
        return;
    }
    View(oView, MonotonicClock_NowNs());
    // Without vertical blanks nothing else would tell that the output is dark.
    if (m_eSignal == ESignal::NO_VBLANK &&
        (!oView.bModeValid || m_oCard.ReadPower(m_uiConnectorId) != VtVideoOut_PowerState_ON))
    {
        m_eSignal = ESignal::OFF;
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

void COutputStream::View(const SCrtcView& roView, uint64_t uiNowNs)
{
    m_oView = roView;
    m_uiViewedNs = uiNowNs;
    m_uiFieldPeriodNs = VideoTimings_FromMode(roView.oMode).uiFieldPeriodNs;
}

void COutputStream::SampleBuffer(uint64_t uiNowNs)
{
    SCrtcView oView;
    m_uiSampledStampNs = m_oTracker.LastStampNs();
    if (m_oCard.ReadCrtc(m_uiCrtcId, oView) != 0)
    {
        return;
    }
    m_oSetBuffers.Sample(oView.uiFramebufferId);
    View(oView, uiNowNs);
}

bool COutputStream::TakeField(SFieldStart& roField, uint64_t& ruiSetBuffers)
{
    if (!m_oTracker.Take(roField))
    {
        return false;
    }
    if (!m_oSetBuffers.IsDue())
    {
        m_uiSampledStampNs = roField.uiStampNs;
    }
    ruiSetBuffers = m_oSetBuffers.Count();
    return true;
}

uint64_t COutputStream::NextMomentNs(uint64_t uiDeadlineNs) const
{
    const uint64_t uiStampNs = m_oTracker.LastStampNs();
    if (uiStampNs == 0 || uiStampNs == m_uiSampledStampNs)
    {
        return uiDeadlineNs;
    }
    return std::min(uiDeadlineNs, CSetBufferEstimate::SampleMomentNs(uiStampNs, m_uiFieldPeriodNs));
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

/* Sleeps until a field has started, the buffer is to be looked at, or the deadline. */
void COutputStream::SleepInField(uint64_t uiNowNs, uint64_t uiDeadlineNs)
{
    if (NextMomentNs(uiDeadlineNs) <= uiNowNs)
    {
        SampleBuffer(uiNowNs);
    }
    std::array<pollfd, 1> aoPolled = {{{m_oCard.Fd(), POLLIN, 0}}};
    if (!MonotonicClock_PollUntil(aoPolled, NextMomentNs(uiDeadlineNs), uiNowNs))
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
    if (m_eSignal == ESignal::OFF || m_eSignal == ESignal::GONE)
    {
        MonotonicClock_PollUntil({}, std::min(uiDeadlineNs, uiNowNs + uiOffPauseNs), uiNowNs);
    }
    if (m_eSignal == ESignal::GONE)
    {
        LookForCard(MonotonicClock_NowNs());
    }
    if (m_eSignal != ESignal::RUNNING && m_eSignal != ESignal::GONE)
    {
        FindSignal();
        if (m_eSignal == ESignal::RUNNING)
        {
            KeepQueueFull();
        }
    }
    for (;; uiNowNs = MonotonicClock_NowNs())
    {
        if (m_eSignal == ESignal::GONE || m_eSignal == ESignal::OFF)
        {
            return VtStatus_CANCELED;
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
    // Nobody may be waiting, and only waits look again otherwise.
    if (m_eSignal != ESignal::RUNNING && m_eSignal != ESignal::GONE)
    {
        FindSignal();
    }
    if (m_eSignal == ESignal::OFF || m_eSignal == ESignal::GONE)
    {
        roParam = {};
        return VtStatus_OK;
    }
    // A reader who asks at every field is told what the last look into one has seen; a change of mode brings a new one.
    const uint64_t uiNowNs = MonotonicClock_NowNs();
    SCrtcView oView = m_oView;
    if (uiNowNs - m_uiViewedNs > 10 * m_uiFieldPeriodNs)
    {
        if (m_oCard.ReadCrtc(m_uiCrtcId, oView) != 0)
        {
            return VtStatus_FAIL;
        }
        View(oView, uiNowNs);
    }
    roParam = oView.bModeValid ? VideoTimings_FromMode(oView.oMode).oVidParam : VtVideo_VidParam{};
    return VtStatus_OK;
}

VtStatus COutputStream::ReadBufferAttributes(VtPixelFormat& rePixelFormat, uint32_t& ruiWidth, uint32_t& ruiHeight,
                                             uint64_t& ruiLuid)
{
    if (m_eSignal != ESignal::RUNNING && m_eSignal != ESignal::GONE)
    {
        FindSignal();
    }
    SCrtcView oView;
    SFramebufferView oFramebuffer;
    const bool bDark = m_eSignal == ESignal::OFF || m_eSignal == ESignal::GONE;
    if (!bDark && m_oCard.ReadCrtc(m_uiCrtcId, oView) != 0)
    {
        return VtStatus_FAIL;
    }
    // The framebuffer may be freed between the two questions; then there is none to describe.
    if (oView.uiFramebufferId == 0 || !m_oCard.ReadFramebuffer(oView.uiFramebufferId, oFramebuffer))
    {
        oView.uiFramebufferId = 0;
    }
    rePixelFormat = PixelFormat_FromDrm(oFramebuffer.uiFourCc);
    ruiWidth = oFramebuffer.uiWidth;
    ruiHeight = oFramebuffer.uiHeight;
    ruiLuid = oView.uiFramebufferId;
    return VtStatus_OK;
}

VtStatus COutputStream::ReadPowerState(VtVideoOut_PowerState& rePowerState)
{
    uint32_t uiCrtcId = 0;
    if (m_eSignal != ESignal::GONE && m_oCard.ReadCrtcOf(m_uiConnectorId, uiCrtcId) != 0)
    {
        return VtStatus_FAIL;
    }
    rePowerState = uiCrtcId == 0 ? VtVideoOut_PowerState_DISABLED : m_oCard.ReadPower(m_uiConnectorId);
    return VtStatus_OK;
}
