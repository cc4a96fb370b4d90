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

SBufferLevel MakeLevel(const SQueueLevel& roLevel)
{
    const auto Cut = [](uint32_t uiLevel) { return static_cast<uint16_t>(std::min<uint32_t>(uiLevel, UINT16_MAX)); };
    return {static_cast<float>(roLevel.flMean), Cut(roLevel.uiLeast), Cut(roLevel.uiMost)};
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
        oPoint.oReady = MakeLevel(roQueue.oReady);
        oPoint.oLoaned = MakeLevel(roQueue.oLoaned);
        oPoint.oInternal = MakeLevel(roQueue.oInternal);
        oPoint.flHeldSeconds =
            roFigures.oQueue.bIsHeldKnown ? static_cast<float>(roFigures.oQueue.flHeldSeconds) : -1.0F;
    }
    oPoint.uiCadence = Cadence_Pack(roFigures.oFeed.oCadence);
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
    SHistoryPoint oSecond = MakeSecond(roFigures, roPast.oCounters, iBeginUtcNs);
    const double flSeconds = roFigures.oCounters.flWatchedSeconds - roPast.oCounters.flWatchedSeconds;
    const SPacingHistogram oPacing = Pacing_GetGrowth(roFigures.oPacing, roPast.oPacing, roFigures.oPacingWorst);
    oSecond.oPacing = HistoryPoint_GetPacing(oPacing);
    roPast.oCounters = roFigures.oCounters;
    roPast.oPacing = roFigures.oPacing;
    m_aoSeconds.push_back({roFigures.oKey, oSecond});
    SMinuteSummary& roRunning = roPast.oRunning;
    if (roRunning.uiPoints > 0 && roRunning.oPoint.iUtcNs != MinuteSummary_GetMinute(oSecond))
    {
        roRunning.bIsComplete = true;
        m_aoMinutes.push_back(roRunning);
        roRunning = {};
    }
    roRunning.oKey = roFigures.oKey;
    MinuteSummary_Add(roRunning, oSecond, flSeconds, roFigures.flPeriodSeconds);
    Pacing_Merge(roRunning.oPacing, oPacing);
    roRunning.oPoint.oPacing = HistoryPoint_GetPacing(roRunning.oPacing);
    m_aoMinutes.push_back(roRunning);
}

void CHistoryMaker::Take(const SWatchSnapshot& roSnapshot)
{
    m_aoSeconds.clear();
    m_aoMinutes.clear();
    for (size_t uiSlot = 0; uiSlot < roSnapshot.aoDirections.size(); ++uiSlot)
    {
        TakeDirection(roSnapshot, uiSlot);
    }
    for (SChipPast& roPast : m_aoChips)
    {
        const auto uiChip = static_cast<uint32_t>(&roPast - m_aoChips.data());
        const SChipFigures* poChip = roSnapshot.FindChip(uiChip);
        roPast.iUtcNs = roSnapshot.GetClock(uiChip).iUtcNs;
        roPast.uiInstants = poChip == nullptr ? 0 : poChip->uiInstants;
    }
}

void CHistoryMaker::TakeDirection(const SWatchSnapshot& roSnapshot, size_t uiSlot)
{
    const uint32_t uiChip = StreamKey_FromSlot(uiSlot, 0).uiChip;
    const SChipPast& roPast = m_aoChips[uiChip];
    const SChipFigures* poChip = roSnapshot.FindChip(uiChip);
    if (poChip != nullptr && poChip->uiInstants == roPast.uiInstants)
    {
        return; // its second lasts still
    }
    // The first second began about one before the first snapshot; later ones begin where the last one ended.
    const int64_t iNowUtcNs = roSnapshot.GetClock(uiChip).iUtcNs;
    const int64_t iBeginUtcNs = roPast.iUtcNs == 0 ? iNowUtcNs - iNsPerSecond : roPast.iUtcNs;
    for (const SStreamFigures& roFigures : roSnapshot.aoDirections[uiSlot].aoStreams)
    {
        TakeStream(roFigures, iBeginUtcNs);
    }
}
