#include "SignalWatch.h"

#include <poll.h>

#include "MonotonicClock.h"

namespace
{

/* A look costs some devices a slow bus transfer, so it is done seldom where the driver tells of changes. */
constexpr uint64_t uiToldPauseNs = 2000 * uiNsPerMs;
constexpr uint64_t uiUntoldPauseNs = 250 * uiNsPerMs;
/* While there is no signal. */
constexpr uint64_t uiLostPauseNs = 10 * uiNsPerMs;

} // namespace

uint64_t CSignalWatch::PauseNs(EInputSignal eSignal) const
{
    if (m_oNode.TellsChanges())
    {
        return uiToldPauseNs;
    }
    return eSignal == EInputSignal::PRESENT ? uiUntoldPauseNs : uiLostPauseNs;
}

void CSignalWatch::Look(uint64_t uiNowNs)
{
    SSignalView oView;
    oView.uiSinceNs = uiNowNs;
    oView.eSignal = m_oNode.DetectSignal(oView.oSignal, oView.oFormat);
    oView.bGapsInStamps = m_oNode.HasGapsInStamps();
    v4l2_dv_timings oDetected{};
    oView.bOtherTimings = m_bOwn && oView.eSignal == EInputSignal::PRESENT && m_oNode.HasOtherTimings(oDetected);
    m_uiNextLookNs = MonotonicClock_NowNs() + PauseNs(oView.eSignal);
    const std::lock_guard oGuard(m_oMutex);
    m_oView = oView;
    m_uiViews.fetch_add(1, std::memory_order_release);
}

SBesidePause CSignalWatch::Work(uint64_t uiNowNs, short iEvents)
{
    const bool bFault = (iEvents & (POLLERR | POLLHUP | POLLNVAL)) != 0;
    const bool bChanged = (iEvents & POLLPRI) != 0 && m_oNode.ReadEvents();
    if (bFault || bChanged || m_bAsked.exchange(false) || uiNowNs >= m_uiNextLookNs)
    {
        Look(uiNowNs);
    }
    // A fault that stays would end every pause at once.
    return {m_uiNextLookNs, bFault ? -1 : m_oNode.Fd()};
}

void CSignalWatch::Start(const CV4l2Node& roNode, bool bOwn)
{
    Stop();
    m_oNode = roNode.Share();
    m_bOwn = bOwn;
    Look(MonotonicClock_NowNs());
    m_oThread.Start("vt-signal", [this](uint64_t uiNowNs, short iEvents) { return Work(uiNowNs, iEvents); });
}

void CSignalWatch::Stop()
{
    m_oThread.Stop();
    m_oNode.Close();
}

bool CSignalWatch::Take(SSignalView& roView)
{
    const uint32_t uiViews = m_uiViews.load(std::memory_order_acquire);
    if (uiViews == m_uiTaken)
    {
        return false;
    }
    m_uiTaken = uiViews;
    const std::lock_guard oGuard(m_oMutex);
    roView = m_oView;
    return true;
}

void CSignalWatch::LookSoon()
{
    m_bAsked.store(true);
    m_oThread.Wake();
}
