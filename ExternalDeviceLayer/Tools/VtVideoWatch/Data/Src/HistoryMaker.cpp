#include "HistoryMaker.h"

#include <algorithm>

#include "MinuteSummary.h"
#include "WatchPublication.h"

namespace
{

uint32_t Growth(uint64_t uiNow, uint64_t uiBefore)
{
    return static_cast<uint32_t>(uiNow - std::min(uiBefore, uiNow));
}

SHistoryPoint MakeSecond(const SStreamFigures& roFigures, const SStreamCounters& roBefore, int64_t iBeginUtcNs)
{
    const SStreamCounters& roNow = roFigures.oCounters;
    SHistoryPoint oPoint;
    oPoint.iUtcNs = iBeginUtcNs;
    oPoint.uiSeconds = 1;
    oPoint.uiFields = Growth(roNow.uiFields, roBefore.uiFields);
    oPoint.uiObserved = Growth(roNow.uiFieldsObserved, roBefore.uiFieldsObserved);
    oPoint.uiLost = Growth(roNow.uiFieldsLost, roBefore.uiFieldsLost);
    oPoint.uiUnobserved = Growth(roNow.uiFieldsUnobserved, roBefore.uiFieldsUnobserved);
    oPoint.uiSkipped = Growth(roNow.uiBuffersSkipped, roBefore.uiBuffersSkipped);
    oPoint.uiRepeated = Growth(roNow.uiRepeatedBeyond, roBefore.uiRepeatedBeyond);
    const SQueueWindow& roQueue = roFigures.oQueue.aoWindows[static_cast<size_t>(EQueueWindow::SECONDS_1)];
    if (roQueue.bIsKnown)
    {
        oPoint.flReady = static_cast<float>(roQueue.oReady.flMean);
        oPoint.flLoaned = static_cast<float>(roQueue.oLoaned.flMean);
        oPoint.flHeldSeconds =
            roFigures.oQueue.bIsHeldKnown ? static_cast<float>(roFigures.oQueue.flHeldSeconds) : -1.0F;
    }
    oPoint.flRunningSeconds = roNow.flRunningSeconds - roBefore.flRunningSeconds;
    oPoint.oRateHz = roFigures.aoRateHz[static_cast<size_t>(ERateWindow::SECONDS_1)];
    oPoint.oPhaseSeconds = roFigures.oPhaseSeconds;
    oPoint.flPhaseMinSeconds = roFigures.oPhaseSeconds.flValue;
    oPoint.flPhaseMaxSeconds = roFigures.oPhaseSeconds.flValue;
    oPoint.oDriftRatio = roFigures.oDriftRatio;
    oPoint.flJitterRmsSeconds = roFigures.flJitterRmsSeconds;
    oPoint.eLock = roFigures.eLock;
    oPoint.eState = roFigures.eState;
    return oPoint;
}

} // namespace

CHistoryMaker::CHistoryMaker(std::span<const SMinuteSummary> aoRunning)
{
    for (const SMinuteSummary& roSummary : aoRunning)
    {
        m_oStreams[roSummary.oKey].oRunning = roSummary;
    }
}

void CHistoryMaker::TakeStream(const SStreamFigures& roFigures, int64_t iBeginUtcNs)
{
    SStreamPast& roPast = m_oStreams[roFigures.oKey];
    const SHistoryPoint oSecond = MakeSecond(roFigures, roPast.oCounters, iBeginUtcNs);
    const double flSeconds = roFigures.oCounters.flWatchedSeconds - roPast.oCounters.flWatchedSeconds;
    roPast.oCounters = roFigures.oCounters;
    m_aoSeconds.push_back({roFigures.oKey, oSecond});
    SMinuteSummary& roRunning = roPast.oRunning;
    if (roRunning.uiPoints > 0 && roRunning.oPoint.iUtcNs != MinuteSummary_GetMinute(oSecond))
    {
        roRunning.bIsComplete = true;
        m_aoMinutes.push_back(roRunning);
        roRunning = {};
    }
    roRunning.oKey = roFigures.oKey;
    SPacingHistogram oPacing = Pacing_GetGrowth(roFigures.oPacing, roPast.oPacing);
    if (roFigures.oPacing.flWorstSeconds != roPast.oPacing.flWorstSeconds)
    {
        oPacing.flWorstSeconds = roFigures.oPacing.flWorstSeconds;
        oPacing.iWorstUtcNs = roFigures.oPacing.iWorstUtcNs;
    }
    roPast.oPacing = roFigures.oPacing;
    Pacing_Merge(roRunning.oPacing, oPacing);
    MinuteSummary_Add(roRunning, oSecond, flSeconds, roFigures.flPeriodSeconds);
    m_aoMinutes.push_back(roRunning);
}

void CHistoryMaker::Take(const SWatchSnapshot& roSnapshot)
{
    // The first second began about one before the first snapshot; later ones begin where the last one ended.
    const int64_t iNowUtcNs = roSnapshot.oClock.iUtcNs;
    const int64_t iBeginUtcNs = m_iLastUtcNs == 0 ? iNowUtcNs - iNsPerSecond : m_iLastUtcNs;
    m_iLastUtcNs = iNowUtcNs;
    m_aoSeconds.clear();
    m_aoMinutes.clear();
    WatchPublication_ForEachStream(roSnapshot,
                                   [&](const SStreamFigures& roFigures) { TakeStream(roFigures, iBeginUtcNs); });
}
