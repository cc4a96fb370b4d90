#include "InputStream.h"

#include "MonotonicClock.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>

namespace LinuxBoard
{

namespace
{

/* Looking at the signal costs some devices a slow bus transfer, so it is done seldom where the driver tells of changes.
 */
constexpr uint64_t uiCheckToldNs = 1000 * uiNsPerMs;
constexpr uint64_t uiCheckUntoldNs = 250 * uiNsPerMs;
/* How often an input without a signal is looked at. */
constexpr uint64_t uiLostPauseNs = 10 * uiNsPerMs;
constexpr uint64_t uiRestartPauseNs = 500 * uiNsPerMs;
/* A queue that gave no frame for this long counts as stopped, unless its buffers say otherwise. */
constexpr uint64_t uiSilenceNs = 1000 * uiNsPerMs;

} // namespace

CInputStream::~CInputStream()
{
    const void* pvThis = this;
    m_roCounters.pvWriter.compare_exchange_strong(pvThis, nullptr);
}

VtStatus CInputStream::Open(const std::string& szNode, const std::string& szVideo, bool bOwn)
{
    switch (m_oNode.Open(szNode, bOwn ? O_RDWR : O_RDONLY))
    {
    case 0:
        break;
    case -EACCES:
    case -EPERM:
        return VtStatus_ACCESS_DENIED;
    case -EBUSY:
        return VtStatus_RESOURCES_BUSY;
    default:
        return VtStatus_FAIL;
    }
    if (!m_oNode.IsCapture())
        return VtStatus_FAIL;
    m_szVideo = szVideo;
    m_bOwn = bOwn && m_oOwned.Start() != -EBUSY;
    if (!m_bOwn)
        m_oTrace.Open(szVideo, m_oNode.Minor());
    CheckSignal();
    const void* pvNobody = nullptr;
    if (m_roCounters.pvWriter.compare_exchange_strong(pvNobody, this))
        PublishCounters();
    return VtStatus_OK;
}

void CInputStream::CheckSignal()
{
    const EInputSignal eBefore = m_eSignal;
    m_eSignal = m_oNode.DetectSignal(m_oSignal);
    m_uiNextCheckNs = MonotonicClock_NowNs() + (m_oNode.TellsChanges() ? uiCheckToldNs : uiCheckUntoldNs);
    m_bPollNode = true;
    if (m_eSignal != EInputSignal::Present)
        return;
    if (m_bOwn && m_oOwned.IsOutdated())
    {
        m_oOwned.Stop();
        m_oOwned.Start();
    }
    SInputFormat oFormat;
    m_oNode.ReadFormat(oFormat);
    m_bHalfFrames = oFormat.eField == V4L2_FIELD_TOP || oFormat.eField == V4L2_FIELD_BOTTOM;
    const VtVideo_VidParam& roParam = m_oSignal.oVidParam;
    m_oTracker.SetSignal(m_oSignal.uiFieldPeriodNs, roParam.bInterlaced != 0,
                         roParam.bBottomFieldFirst != 0 ? EFieldParity::Bottom : EFieldParity::Top);
    if (eBefore == EInputSignal::Lost)
        m_oTracker.Interrupt();
}

void CInputStream::Accept(SCapturedFrame oFrame)
{
    m_uiLastArrivalNs = MonotonicClock_NowNs();
    // What a device without a signal captures is nobody's field; and what piled up before the first wait filled the
    // queue, so that the gap behind it is of our making.
    if (m_eSignal != EInputSignal::Present || !m_bWaited)
        return;
    if (m_bHalfFrames)
        oFrame.eParity = EFieldParity::None;
    m_oTracker.Accept(oFrame);
}

void CInputStream::FetchOwned()
{
    if (!m_oOwned.IsRunning())
    {
        if (MonotonicClock_NowNs() < m_uiNextStartNs)
            return;
        m_uiNextStartNs = MonotonicClock_NowNs() + uiRestartPauseNs;
        // Another program was faster: what cannot be owned is observed.
        if (m_oOwned.Start() == -EBUSY && m_oTrace.Open(m_szVideo, m_oNode.Minor()))
            m_bOwn = false;
        m_bPollNode = true;
    }
    SCapturedFrame oFrame;
    EFetch eFetch = EFetch::Nothing;
    while (m_oOwned.IsRunning() && (eFetch = m_oOwned.Fetch(oFrame)) == EFetch::Frame)
        Accept(oFrame);
    if (eFetch == EFetch::Gone)
        m_eSignal = EInputSignal::Gone;
    if (eFetch == EFetch::Failed)
        m_oOwned.Stop();
}

void CInputStream::ReadFrames()
{
    if (m_bOwn)
        FetchOwned();
    else
        m_oTrace.Read([this](const SCapturedFrame& roFrame) { Accept(roFrame); });
}

void CInputStream::PublishCounters() const
{
    if (m_roCounters.pvWriter.load(std::memory_order_relaxed) != this)
        return;
    m_roCounters.uiSkippedFields.store(m_oTracker.SkippedFields(), std::memory_order_relaxed);
    m_roCounters.uiBuffers.store(m_oTracker.Buffers(), std::memory_order_relaxed);
}

uint64_t CInputStream::NextMomentNs(uint64_t uiDeadlineNs) const
{
    uint64_t uiMomentNs = std::min(uiDeadlineNs, m_uiNextCheckNs);
    if (m_bOwn && !m_oOwned.IsRunning())
        uiMomentNs = std::min(uiMomentNs, m_uiNextStartNs);
    const uint64_t uiDueNs = m_oTracker.NextDueNs();
    return uiDueNs != 0 && m_eSignal == EInputSignal::Present ? std::min(uiMomentNs, uiDueNs) : uiMomentNs;
}

void CInputStream::HeedNode(short iEvents)
{
    if ((iEvents & POLLPRI) != 0 && m_oNode.ReadEvents())
        m_uiNextCheckNs = 0;
    if ((iEvents & (POLLERR | POLLHUP | POLLNVAL)) == 0)
        return;
    CheckSignal();
    m_bPollNode = false;
}

void CInputStream::Sleep(uint64_t uiDeadlineNs)
{
    // Never POLLIN on a queue that is not ours: the kernel would take it as the wish to read, and start the stream.
    const bool bOwnFrames = m_bOwn && m_oOwned.IsRunning() && m_eSignal == EInputSignal::Present;
    const auto iNodeEvents = static_cast<short>(bOwnFrames ? POLLPRI | POLLIN : POLLPRI);
    const int iTraceFd = m_eSignal == EInputSignal::Present ? m_oTrace.Fd() : -1;
    std::array<pollfd, 2> aoPolled = {{{m_bPollNode ? m_oNode.Fd() : -1, iNodeEvents, 0}, {iTraceFd, POLLIN, 0}}};
    if (MonotonicClock_PollUntil(aoPolled, NextMomentNs(uiDeadlineNs)))
        HeedNode(aoPolled[0].revents);
}

VtStatus CInputStream::WaitForFieldStart(uint32_t uiTimeOutMs, SFieldStart& roField)
{
    uint64_t uiNowNs = MonotonicClock_NowNs();
    const uint64_t uiDeadlineNs = uiNowNs + uiTimeOutMs * uiNsPerMs;
    if (!m_bWaited)
        ReadFrames();
    m_bWaited = true;
    if (m_eSignal == EInputSignal::Lost)
    {
        Sleep(std::min(uiDeadlineNs, uiNowNs + uiLostPauseNs));
        m_uiNextCheckNs = m_oNode.TellsChanges() ? m_uiNextCheckNs : std::min(m_uiNextCheckNs, uiNowNs + uiLostPauseNs);
    }
    for (;;)
    {
        uiNowNs = MonotonicClock_NowNs();
        if (uiNowNs >= m_uiNextCheckNs)
            CheckSignal();
        ReadFrames();
        PublishCounters();
        if (m_eSignal == EInputSignal::Gone)
            return VtStatus_CONNECTION_LOST;
        if (m_eSignal == EInputSignal::Lost)
            return VtStatus_CANCELED;
        if (m_oTracker.Take(uiNowNs, roField))
            return VtStatus_OK;
        if (uiNowNs >= uiDeadlineNs)
            return VtStatus_TIMEOUT;
        Sleep(uiDeadlineNs);
    }
}

VtStatus CInputStream::ReadDetectedParameters(VtVideo_VidParam& roParam)
{
    CheckSignal();
    if (m_eSignal == EInputSignal::Gone)
        return VtStatus_FAIL;
    roParam = m_oSignal.oVidParam;
    return VtStatus_OK;
}

VtStatus CInputStream::ReadCaptureState(VtVideoIn_State& reState, SBufferCensus& roCensus)
{
    if (m_eSignal == EInputSignal::Gone)
        return VtStatus_FAIL;
    roCensus = m_oNode.CountBuffers();
    const bool bFlowing = m_uiLastArrivalNs != 0 && MonotonicClock_NowNs() - m_uiLastArrivalNs < uiSilenceNs;
    if (bFlowing || roCensus.uiQueued + roCensus.uiReady != 0)
        reState = VtVideoIn_State_STARTED;
    else
        reState = roCensus.uiTotal != 0 ? VtVideoIn_State_STOPPED : VtVideoIn_State_NOT_INITIALIZED;
    return VtStatus_OK;
}

VtStatus CInputStream::ReadBufferAttributes(SInputFormat& roFormat, uint32_t& ruiBuffers)
{
    if (m_eSignal == EInputSignal::Gone || m_oNode.ReadFormat(roFormat) != 0)
        return VtStatus_FAIL;
    ruiBuffers = m_oNode.CountBuffers().uiTotal;
    return VtStatus_OK;
}

} // namespace LinuxBoard
