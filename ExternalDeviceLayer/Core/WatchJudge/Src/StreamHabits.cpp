// See StreamHabits.h.
#include "StreamHabits.h"

#include <cmath>

#include "TimeUnits.h"

namespace
{

// So long after its cadence broke a feed may still turn out to have stalled, or find its cadence again.
constexpr uint64_t uiSettleNs = 5'000'000'000;

} // namespace

void CStreamHabits::TakeFeed(const SStreamFigures& roFigures, uint64_t uiNowNs, uint64_t uiLongNs)
{
    const bool bIsSteady = roFigures.oFeed.oCadence.IsKnown() && !roFigures.oFeed.bIsStalled;
    m_oHabits.bIsFed |= m_oSteady.Take(bIsSteady, uiNowNs, uiLongNs);
    if (m_oIrregular.Take(!bIsSteady && !roFigures.oFeed.bIsStalled, uiNowNs, uiSettleNs))
    {
        m_oHabits.bIsFed = false;
    }
}

void CStreamHabits::Take(const SStreamFigures& roFigures, const SStreamNews& roNews, uint64_t uiNowNs,
                         double flLearnSeconds, double flMostPpm)
{
    const auto uiLongNs = static_cast<uint64_t>(flLearnSeconds * flNsPerSecond);
    const bool bRuns = roFigures.eState == EStreamState::RUNNING;
    m_oHabits.bHasRun |= roFigures.oCounters.flRunningSeconds >= flLearnSeconds;
    if (roFigures.eState == EStreamState::IDLE)
    {
        m_oHabits.bIsFed = false; // what is stopped on purpose begins anew
    }
    TakeFeed(roFigures, uiNowNs, uiLongNs);
    const bool bIsTaken =
        bRuns && roFigures.oDescription.bHasSkippedBuffers && roNews.Find(EWatchEventKind::BUFFERS_SKIPPED) == nullptr;
    m_oHabits.bIsTaken |= m_oTaken.Take(bIsTaken, uiNowNs, uiLongNs);
    const SEstimate& roPpm = roFigures.aoRatePpm[static_cast<size_t>(ERateWindow::SECONDS_10)];
    const bool bIsNear = bRuns && roPpm.bIsValid && std::abs(roPpm.flValue) <= flMostPpm;
    m_oHabits.bRateWasNear |= m_oNear.Take(bIsNear, uiNowNs, uiLongNs);
    const bool bIsSame =
        bRuns && roFigures.oDescription.uiMomentNs != 0 && roNews.Find(EWatchEventKind::DESCRIPTION_CHANGED) == nullptr;
    m_oHabits.bIsDescribed = m_oDescribed.Take(bIsSame, uiNowNs, uiLongNs);
}
