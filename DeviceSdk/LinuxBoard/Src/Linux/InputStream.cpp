#include "InputStream.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <utility>

#include "MonotonicClock.h"
#include "Remark.h"

namespace
{

/* How long a wait without a signal takes. */
constexpr uint64_t uiLostPauseNs = 10 * uiNsPerMs;
/* How often a device that is away is looked for: at first, and when it has been found and lost at once time and again.
 */
constexpr uint64_t uiAwayPauseNs = 100 * uiNsPerMs;
constexpr uint64_t uiMostAwayPauseNs = 3200 * uiNsPerMs;
constexpr uint64_t uiSettledNs = 1000 * uiNsPerMs;
constexpr uint64_t uiRestartPauseNs = 500 * uiNsPerMs;
/* A person is shown the buffers twice a second. */
constexpr uint64_t uiCountPauseNs = 500 * uiNsPerMs;
/* A queue that gave no frame for this long counts as stopped, unless its buffers say otherwise. */
constexpr uint64_t uiSilenceNs = 1000 * uiNsPerMs;
/* A sleep that ended sooner than this was none: frames may have piled up. */
constexpr uint64_t uiNoSleepNs = uiNsPerMs / 20;

} // namespace

CInputStream::~CInputStream()
{
    const void* pvThis = this;
    m_roCounters.pvWriter.compare_exchange_strong(pvThis, nullptr);
}

VtStatus CInputStream::Open(const SInputSource& roSource)
{
    m_oSource = roSource;
    m_oOwned.ChooseSmallest(roSource.oOptions.bSmallest);
    switch (OpenNode())
    {
    case 0:
        break;
    case -EACCES:
    case -EPERM:
        return VtStatus_ACCESS_DENIED;
    case -EBUSY:
        return VtStatus_RESOURCES_BUSY;
    case -ENOENT:
    case -ENODEV:
    case -ENXIO:
        LoseDevice();
        break;
    default:
        return VtStatus_FAIL;
    }
    const void* pvNobody = nullptr;
    if (m_roCounters.pvWriter.compare_exchange_strong(pvNobody, this))
    {
        PublishCounters();
    }
    return VtStatus_OK;
}

int CInputStream::OpenNode()
{
    const int iError = m_oNode.Open(m_oSource.szNode, m_oSource.oOptions.bOwn ? O_RDWR : O_RDONLY);
    if (iError != 0)
    {
        return iError;
    }
    if (!m_oNode.IsCapture())
    {
        m_oNode.Close();
        return -ENOTTY;
    }
    // A node may stay for a while when its device is no more: then nothing is begun with it.
    if (m_oNode.DetectSignal(m_oSignal, m_oFormat) == EInputSignal::GONE)
    {
        m_oNode.Close();
        return -ENODEV;
    }
    m_uiOpenedNs = MonotonicClock_NowNs();
    m_bOwn = m_oSource.oOptions.bOwn && m_oOwned.Start() != -EBUSY;
    m_aoPolled.assign(1, {-1, 0, 0});
    if (!m_bOwn)
    {
        OpenTrace();
    }
    m_bReadable = true;
    m_eSignal = EInputSignal::PRESENT;
    m_uiNextCountNs = 0;
    m_uiStartedNs = MonotonicClock_NowNs();
    m_oSignalWatch.Start(m_oNode, m_bOwn);
    HeedSignal();
    return 0;
}

bool CInputStream::OpenTrace()
{
    m_oTrace.Open(m_oSource.szVideo, m_oNode.Minor(), m_oSignal.oVidParam.uiVRate_Hz);
    m_aoPolled.resize(1);
    for (const CFileDescriptor& roPipe : m_oTrace.Pipes())
    {
        m_aoPolled.push_back({roPipe.Get(), POLLIN, 0});
    }
    if (!m_oTrace.IsOpen() && CTraceFeed::Access(m_oSource.szVideo) == ETraceAccess::GRANTED)
    {
        SayOnce(m_bSaidRefused, "the kernel makes no trace for it now: no per-frame data");
    }
    return m_oTrace.IsOpen();
}

/* As long as anybody has it open, the kernel keeps its number, and a returning device would get another one. */
void CInputStream::LoseDevice()
{
    m_eSignal = EInputSignal::GONE;
    m_oSignal = {};
    m_oCensus = {};
    m_oSignalWatch.Stop();
    m_oOwned.Stop();
    m_oTrace.Close();
    m_oNode.Close();
    m_aoPolled.assign(1, {-1, 0, 0});
    m_oTracker.Interrupt();
    const uint64_t uiNowNs = MonotonicClock_NowNs();
    const bool bAtOnce = m_uiOpenedNs != 0 && uiNowNs - m_uiOpenedNs < uiSettledNs;
    m_uiAwayPauseNs = bAtOnce ? std::clamp(2 * m_uiAwayPauseNs, uiAwayPauseNs, uiMostAwayPauseNs) : uiAwayPauseNs;
    m_uiNextLookNs = uiNowNs + m_uiAwayPauseNs;
}

void CInputStream::LookForDevice(uint64_t uiNowNs)
{
    if (uiNowNs >= m_uiNextLookNs)
    {
        m_uiNextLookNs = uiNowNs + m_uiAwayPauseNs;
        OpenNode();
    }
}

/* What we stream was set to the timings that were detected then. What was seen before our own start is old news. */
void CInputStream::RestartOutdated(const SSignalView& roView)
{
    if (!m_bOwn || !roView.bOtherTimings || !m_oOwned.IsRunning() || roView.uiSinceNs < m_uiStartedNs)
    {
        return;
    }
    m_oOwned.Stop();
    m_oOwned.Start();
    m_uiStartedNs = MonotonicClock_NowNs();
    m_oSignalWatch.LookSoon();
}

void CInputStream::TakeSignal(const SSignalView& roView)
{
    const EInputSignal eBefore = m_eSignal;
    m_eSignal = roView.eSignal;
    m_oSignal = roView.oSignal;
    m_oFormat = roView.oFormat;
    if (m_eSignal != EInputSignal::PRESENT)
    {
        return;
    }
    RestartOutdated(roView);
    m_bHalfFrames = m_oFormat.eField == V4L2_FIELD_TOP || m_oFormat.eField == V4L2_FIELD_BOTTOM;
    const VtVideo_VidParam& roParam = m_oSignal.oVidParam;
    m_oTracker.SetSignal({m_oSignal.uiFieldPeriodNs, roParam.bInterlaced != 0,
                          roParam.bBottomFieldFirst != 0 ? EFieldParity::BOTTOM : EFieldParity::TOP,
                          roView.bGapsInStamps});
    if (eBefore == EInputSignal::LOST)
    {
        m_oTracker.Interrupt();
    }
}

void CInputStream::HeedSignal()
{
    SSignalView oView;
    if (m_eSignal == EInputSignal::GONE || !m_oSignalWatch.Take(oView))
    {
        return;
    }
    TakeSignal(oView);
    if (m_eSignal == EInputSignal::GONE)
    {
        LoseDevice();
    }
}

void CInputStream::Accept(SCapturedFrame oFrame, uint64_t uiNowNs)
{
    m_uiLastArrivalNs = uiNowNs;
    // What a device without a signal captures is nobody's field; and what piled up before the first wait filled the
    // queue, so that the gap behind it is of our making.
    if (m_eSignal != EInputSignal::PRESENT || !m_bWaited)
    {
        return;
    }
    if (m_bHalfFrames)
    {
        oFrame.eParity = EFieldParity::NONE;
    }
    m_oTracker.Accept(oFrame, uiNowNs);
}

void CInputStream::RestartOwned(uint64_t uiNowNs)
{
    if (uiNowNs < m_uiNextStartNs)
    {
        return;
    }
    m_uiNextStartNs = uiNowNs + uiRestartPauseNs;
    m_oNode.RefreshInput();
    // Another program was faster: what cannot be owned is observed.
    if (m_oOwned.Start() == -EBUSY && OpenTrace())
    {
        m_bOwn = false;
    }
    m_uiStartedNs = MonotonicClock_NowNs();
}

void CInputStream::FetchOwned(uint64_t uiNowNs, bool bOnlyOne)
{
    if (!m_oOwned.IsRunning())
    {
        RestartOwned(uiNowNs);
    }
    SCapturedFrame oFrame;
    EFetch eFetch = EFetch::NOTHING;
    while (m_oOwned.IsRunning() && (eFetch = m_oOwned.Fetch(oFrame)) == EFetch::FRAME)
    {
        Accept(oFrame, uiNowNs);
        if (bOnlyOne)
        {
            break;
        }
    }
    if (eFetch == EFetch::GONE)
    {
        LoseDevice();
    }
    if (eFetch == EFetch::FAILED)
    {
        m_oOwned.Stop();
    }
}

void CInputStream::ReadTrace(uint64_t uiNowNs, bool bOnlyOne)
{
    const auto aoPolled = bOnlyOne ? std::span<const pollfd>(m_aoPolled).subspan(1) : std::span<const pollfd>();
    const STraceBatch& roBatch = m_oTrace.Read(aoPolled, uiNowNs);
    if (roBatch.uiUnseen != 0 && m_bWaited)
    {
        m_oTracker.Unseen(roBatch.uiUnseen);
    }
    for (const STraceBatch::SEntry& roEntry : roBatch.aoEntries)
    {
        Accept(roEntry.oFrame, uiNowNs);
    }
    m_oTracker.AllSeen();
}

void CInputStream::ReadFrames(uint64_t uiNowNs)
{
    m_bReadable = false;
    if (m_eSignal == EInputSignal::GONE)
    {
        return;
    }
    // Whoever was woken by a frame finds this one; asking whether there are more would cost as much again.
    const bool bOnlyOne = m_uiSleptFromNs != 0 && uiNowNs > m_uiSleptFromNs + uiNoSleepNs;
    if (m_bOwn)
    {
        FetchOwned(uiNowNs, bOnlyOne);
    }
    else
    {
        ReadTrace(uiNowNs, bOnlyOne);
    }
    PublishCounters();
}

void CInputStream::PublishCounters() const
{
    if (m_roCounters.pvWriter.load(std::memory_order_relaxed) != this)
    {
        return;
    }
    m_roCounters.uiSkippedFields.store(m_oTracker.SkippedFields(), std::memory_order_relaxed);
    m_roCounters.uiBuffers.store(m_oTracker.Buffers(), std::memory_order_relaxed);
}

uint64_t CInputStream::NextMomentNs(uint64_t uiDeadlineNs) const
{
    uint64_t uiMomentNs = uiDeadlineNs;
    if (m_bOwn && !m_oOwned.IsRunning() && m_eSignal != EInputSignal::GONE)
    {
        uiMomentNs = std::min(uiMomentNs, m_uiNextStartNs);
    }
    const uint64_t uiDueNs = m_oTracker.NextDueNs();
    return uiDueNs != 0 && m_eSignal == EInputSignal::PRESENT ? std::min(uiMomentNs, uiDueNs) : uiMomentNs;
}

void CInputStream::Sleep(uint64_t uiNowNs, uint64_t uiDeadlineNs)
{
    // Never POLLIN on a queue that is not ours: the kernel would take it as the wish to read, and start the stream.
    const bool bOwnFrames = m_bOwn && m_oOwned.IsRunning() && m_eSignal == EInputSignal::PRESENT;
    const bool bTrace = m_eSignal == EInputSignal::PRESENT;
    const auto aoPolled = std::span(m_aoPolled).first(bTrace ? m_aoPolled.size() : 1);
    m_aoPolled[0] = {bOwnFrames ? m_oNode.Fd() : -1, POLLIN, 0};
    m_uiSleptFromNs = uiNowNs;
    m_bReadable = m_bOwn && !m_oOwned.IsRunning();
    if (!MonotonicClock_PollUntil(aoPolled, NextMomentNs(uiDeadlineNs), uiNowNs))
    {
        // A prepared trace may wake nobody before it is half full: look into all pipes.
        m_bReadable = m_bReadable || m_oTrace.IsOpen();
        m_uiSleptFromNs = 0;
        return;
    }
    // Also for a fault of our own stream: fetching says which.
    m_bReadable = m_bReadable || std::any_of(aoPolled.begin(), aoPolled.end(),
                                             [](const pollfd& roPolled) { return roPolled.revents != 0; });
}

void CInputStream::PauseWithoutSignal(uint64_t uiNowNs, uint64_t uiDeadlineNs)
{
    Sleep(uiNowNs, std::min(uiDeadlineNs, uiNowNs + uiLostPauseNs));
    m_bReadable = true;
    if (m_eSignal == EInputSignal::GONE)
    {
        LookForDevice(MonotonicClock_NowNs());
    }
}

VtStatus CInputStream::WithoutSignal() const
{
    return m_eSignal == EInputSignal::GONE ? VtStatus_FAIL : VtStatus_CANCELED;
}

VtStatus CInputStream::WaitForFieldStart(uint32_t uiTimeOutMs, SFieldStart& roField)
{
    uint64_t uiNowNs = MonotonicClock_NowNs();
    const uint64_t uiDeadlineNs = uiNowNs + uiTimeOutMs * uiNsPerMs;
    if (!m_bWaited)
    {
        ReadFrames(uiNowNs);
    }
    m_bWaited = true;
    if (m_eSignal != EInputSignal::PRESENT)
    {
        PauseWithoutSignal(uiNowNs, uiDeadlineNs);
        uiNowNs = MonotonicClock_NowNs();
    }
    // A second field that is due must not hide newer frames from a caller that comes late.
    m_bReadable = m_bReadable || m_oTracker.NextDueNs() != 0;
    m_uiSleptFromNs = 0;
    for (;;)
    {
        HeedSignal();
        if (m_bReadable)
        {
            ReadFrames(uiNowNs);
        }
        if (m_eSignal != EInputSignal::PRESENT)
        {
            return WithoutSignal();
        }
        if (m_oTracker.Take(uiNowNs, roField))
        {
            return VtStatus_OK;
        }
        if (uiNowNs >= uiDeadlineNs)
        {
            return VtStatus_TIMEOUT;
        }
        Sleep(uiNowNs, uiDeadlineNs);
        uiNowNs = MonotonicClock_NowNs();
    }
}

VtStatus CInputStream::ReadDetectedParameters(VtVideo_VidParam& roParam)
{
    HeedSignal();
    roParam = m_oSignal.oVidParam;
    return m_eSignal == EInputSignal::GONE ? VtStatus_FAIL : VtStatus_OK;
}

void CInputStream::SayOnce(bool& rbSaid, const char* szText) const
{
    if (!std::exchange(rbSaid, true))
    {
        Remark_Say(m_oSource.szVideo + ": " + szText);
    }
}

/* Where our own buffers are needs no asking: all of them are the driver's but for the moment of a fetch. */
void CInputStream::CountBuffers(uint64_t uiNowNs)
{
    m_uiNextCountNs = uiNowNs + uiCountPauseNs;
    m_oCensus = m_bOwn && m_oOwned.IsRunning() ? m_oOwned.Census() : m_oNode.CountBuffers();
    const bool bSilent = uiNowNs - std::max(m_uiLastArrivalNs, m_uiOpenedNs) > uiSilenceNs;
    if (bSilent && m_oTrace.IsOpen() && m_oCensus.IsReadByCalls())
    {
        SayOnce(m_bSaidReading, "its owner fetches pictures by read(), of which the kernel's trace tells nothing: no "
                                "per-frame data");
    }
    if (m_oTracker.IsLossUnknown())
    {
        SayOnce(m_bSaidUnknown, "the trace ran over while this program could not read it: how many fields were skipped "
                                "meanwhile is unknown, and not counted");
    }
}

VtStatus CInputStream::ReadCaptureState(VtVideoIn_State& reState, SBufferCensus& roCensus)
{
    const uint64_t uiNowNs = MonotonicClock_NowNs();
    HeedSignal();
    reState = VtVideoIn_State_STOPPED;
    if (m_eSignal == EInputSignal::GONE)
    {
        return VtStatus_FAIL;
    }
    if (uiNowNs >= m_uiNextCountNs)
    {
        CountBuffers(uiNowNs);
    }
    const bool bFlowing = m_uiLastArrivalNs != 0 && uiNowNs - m_uiLastArrivalNs < uiSilenceNs;
    const bool bQueued = m_oCensus.uiQueued + m_oCensus.uiReady != 0;
    if (bFlowing || bQueued || (m_oCensus.bHidden && !m_oTrace.IsOpen()))
    {
        reState = VtVideoIn_State_STARTED;
    }
    else if (m_oCensus.uiTotal == 0 && !m_oCensus.bHidden)
    {
        reState = VtVideoIn_State_NOT_INITIALIZED;
    }
    roCensus = m_oCensus;
    return VtStatus_OK;
}

VtStatus CInputStream::ReadBufferAttributes(SInputFormat& roFormat, uint32_t& ruiBuffers)
{
    HeedSignal();
    if (m_eSignal == EInputSignal::GONE)
    {
        return VtStatus_FAIL;
    }
    roFormat = m_oFormat;
    CountBuffers(MonotonicClock_NowNs());
    ruiBuffers = m_oCensus.uiTotal;
    return VtStatus_OK;
}
