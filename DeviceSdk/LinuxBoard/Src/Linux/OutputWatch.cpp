#include "OutputWatch.h"

#include <cstring>

#include "MonotonicClock.h"
#include "VideoTimings.h"

namespace
{

/* No field for so long: there is nothing to look at. */
constexpr uint64_t uiIdleNs = 500 * uiNsPerMs;
constexpr uint64_t uiRestPauseNs = 1000 * uiNsPerMs;

bool IsSameMode(const SCrtcView& roOne, const SCrtcView& roOther)
{
    return roOne.bModeValid == roOther.bModeValid &&
           std::memcmp(&roOne.oMode, &roOther.oMode, sizeof(roOne.oMode)) == 0;
}

} // namespace

void COutputWatch::Start(uint32_t uiConnectorId)
{
    Stop();
    m_uiConnectorId = uiConnectorId;
    m_uiFieldNs.store(0);
    m_bIdle.store(false);
    m_oThread.Start("vt-look", [this](uint64_t uiNowNs, short /*iEvents*/) { return Work(uiNowNs); });
}

uint64_t COutputWatch::Publish(const SOutputView& roView)
{
    const std::lock_guard oGuard(m_oMutex);
    if (!IsSameMode(m_oView.oCrtc, roView.oCrtc))
    {
        m_uiFieldPeriodNs = VideoTimings_FromMode(roView.oCrtc.oMode).uiFieldPeriodNs;
        m_uiModes.fetch_add(1, std::memory_order_release);
    }
    m_oView = roView;
    return m_uiFieldPeriodNs;
}

/* The framebuffer may be freed between the two questions; then there is none to describe. */
void COutputWatch::ReadFramebuffer(SOutputView& roView) const
{
    roView.oFramebuffer = {};
    const uint32_t uiFramebufferId = roView.oCrtc.uiFramebufferId;
    if (uiFramebufferId == 0 || !m_roCard.ReadFramebuffer(uiFramebufferId, roView.oFramebuffer))
    {
        roView.oCrtc.uiFramebufferId = 0;
    }
}

SOutputView COutputWatch::Ask(uint32_t uiCrtcId)
{
    SOutputView oView;
    if (uiCrtcId != 0 && m_roCard.ReadCrtc(uiCrtcId, oView.oCrtc) == 0)
    {
        ReadFramebuffer(oView);
        oView.ePower = m_roCard.ReadPower(m_uiConnectorId);
    }
    Publish(oView);
    return oView;
}

SOutputView COutputWatch::View()
{
    const std::lock_guard oGuard(m_oMutex);
    return m_oView;
}

void COutputWatch::FieldBegan(uint32_t uiCrtcId, uint64_t uiStampNs)
{
    m_uiCrtcId.store(uiCrtcId, std::memory_order_relaxed);
    m_uiFieldNs.store(uiStampNs, std::memory_order_release);
    if (m_bIdle.load(std::memory_order_relaxed) && m_bIdle.exchange(false))
    {
        m_oThread.Wake();
    }
}

void COutputWatch::LookAtBuffer(uint32_t uiCrtcId, uint64_t uiFieldNs)
{
    SOutputView oView = View();
    const bool bRead = m_roCard.ReadCrtc(uiCrtcId, oView.oCrtc) == 0;
    const uint64_t uiNowNs = MonotonicClock_NowNs();
    m_uiNextLookNs = uiNowNs + uiIdleNs;
    if (!bRead)
    {
        return;
    }
    m_oEstimate.Look(oView.oCrtc.uiFramebufferId, uiNowNs);
    m_uiSetBuffers.store(m_oEstimate.Count(), std::memory_order_relaxed);
    const uint64_t uiPeriodNs = Publish(oView);
    if (uiPeriodNs != 0)
    {
        m_uiNextLookNs = m_oEstimate.NextLookNs(uiFieldNs, uiPeriodNs);
    }
}

void COutputWatch::LookAtRest()
{
    uint32_t uiCrtcId = 0;
    SOutputView oView = View();
    if (m_roCard.ReadCrtcOf(m_uiConnectorId, uiCrtcId) == 0)
    {
        oView.ePower = uiCrtcId == 0 ? VtVideoOut_PowerState_DISABLED : m_roCard.ReadPower(m_uiConnectorId);
        ReadFramebuffer(oView);
        Publish(oView);
    }
    m_uiNextRestNs = MonotonicClock_NowNs() + uiRestPauseNs;
}

SBesidePause COutputWatch::Work(uint64_t uiNowNs)
{
    const uint64_t uiFieldNs = m_uiFieldNs.load(std::memory_order_acquire);
    if (uiNowNs > uiFieldNs + uiIdleNs)
    {
        m_bIdle.store(true);
        return {};
    }
    if (uiNowNs >= m_uiNextLookNs)
    {
        LookAtBuffer(m_uiCrtcId.load(std::memory_order_relaxed), uiFieldNs);
        if (uiNowNs >= m_uiNextRestNs)
        {
            LookAtRest();
        }
    }
    return {m_uiNextLookNs, -1};
}
