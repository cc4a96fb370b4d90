#include "WatchHistory.h"

#include <algorithm>

#include "WatchClocks.h"

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
    oPoint.flRunningSeconds = static_cast<float>(roNow.flRunningSeconds - roBefore.flRunningSeconds);
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

bool IsInRange(const SHistoryPoint& roPoint, const SHistoryQuery& roQuery)
{
    return roPoint.iUtcNs >= roQuery.iFromUtcNs && roPoint.iUtcNs < roQuery.iToUtcNs;
}

} // namespace

void CPointRing::Add(const SHistoryPoint& roPoint)
{
    m_aoPoints[m_uiNext] = roPoint;
    m_uiNext = (m_uiNext + 1) % static_cast<uint32_t>(m_aoPoints.size());
    m_uiCount = std::min(m_uiCount + 1, static_cast<uint32_t>(m_aoPoints.size()));
}

const SHistoryPoint& CPointRing::operator[](uint32_t uiPoint) const
{
    const auto uiSize = static_cast<uint32_t>(m_aoPoints.size());
    return m_aoPoints[(m_uiNext + uiSize - m_uiCount + uiPoint) % uiSize];
}

CWatchHistory::CWatchHistory(uint32_t uiNbOfInputs, uint32_t uiNbOfOutputs)
    : m_aoStreams{std::vector<SStreamHistory>(uiNbOfInputs), std::vector<SStreamHistory>(uiNbOfOutputs)}
{
    m_aoChanged.reserve(size_t{2} * (uiNbOfInputs + uiNbOfOutputs));
}

const CWatchHistory::SStreamHistory* CWatchHistory::GetStream(EStreamDirection eDirection, uint32_t uiIndex) const
{
    const std::vector<SStreamHistory>& raoStreams = m_aoStreams[static_cast<size_t>(eDirection)];
    return uiIndex < raoStreams.size() ? &raoStreams[uiIndex] : nullptr;
}

void CWatchHistory::Resume(const SMinuteSummary& roSummary)
{
    std::vector<SStreamHistory>& raoStreams = m_aoStreams[static_cast<size_t>(roSummary.eDirection)];
    if (roSummary.uiIndex < raoStreams.size())
    {
        raoStreams[roSummary.uiIndex].oRunning = roSummary;
    }
}

void CWatchHistory::AddStream(const SStreamFigures& roFigures, int64_t iBeginUtcNs)
{
    SStreamHistory& roStream = m_aoStreams[static_cast<size_t>(roFigures.eDirection)][roFigures.uiIndex];
    const SHistoryPoint oSecond = MakeSecond(roFigures, roStream.oCounters, iBeginUtcNs);
    const double flSeconds = roFigures.oCounters.flWatchedSeconds - roStream.oCounters.flWatchedSeconds;
    roStream.oCounters = roFigures.oCounters;
    roStream.oSeconds.Add(oSecond);
    SMinuteSummary& roRunning = roStream.oRunning;
    if (roRunning.uiPoints > 0 && roRunning.oPoint.iUtcNs != MinuteSummary_GetBegin(iBeginUtcNs))
    {
        roRunning.bIsComplete = true;
        roStream.oMinutes.Add(roRunning.oPoint);
        m_aoChanged.push_back(roRunning);
        roRunning = {};
    }
    roRunning.eDirection = roFigures.eDirection;
    roRunning.uiIndex = roFigures.uiIndex;
    MinuteSummary_Add(roRunning, oSecond, flSeconds, roFigures.flPeriodSeconds);
    m_aoChanged.push_back(roRunning);
}

std::span<const SMinuteSummary> CWatchHistory::Add(const SWatchSnapshot& roSnapshot)
{
    // The first second began about one before the first snapshot; later ones begin where the last one ended.
    const int64_t iNowUtcNs = roSnapshot.oClock.iUtcNs;
    const int64_t iBeginUtcNs = m_iLastUtcNs == 0 ? iNowUtcNs - iNsPerSecond : m_iLastUtcNs;
    m_iLastUtcNs = iNowUtcNs;
    m_aoChanged.clear();
    for (const SDirectionFigures& roDirection : roSnapshot.aoDirections)
    {
        for (const SStreamFigures& roFigures : roDirection.aoStreams)
        {
            if (GetStream(roFigures.eDirection, roFigures.uiIndex) != nullptr)
            {
                AddStream(roFigures, iBeginUtcNs);
            }
        }
    }
    return m_aoChanged;
}

void CWatchHistory::Find(const SHistoryQuery& roQuery, std::vector<SHistoryPoint>& raoPoints) const
{
    const SStreamHistory* poStream = GetStream(roQuery.eDirection, roQuery.uiIndex);
    if (poStream == nullptr)
    {
        return;
    }
    const CPointRing& roRing = roQuery.uiSeconds == 1 ? poStream->oSeconds : poStream->oMinutes;
    for (uint32_t uiPoint = 0; uiPoint < roRing.GetCount(); ++uiPoint)
    {
        if (IsInRange(roRing[uiPoint], roQuery))
        {
            raoPoints.push_back(roRing[uiPoint]);
        }
    }
    if (roQuery.uiSeconds != 1 && poStream->oRunning.uiPoints > 0 && IsInRange(poStream->oRunning.oPoint, roQuery))
    {
        raoPoints.push_back(poStream->oRunning.oPoint);
    }
}

int64_t CWatchHistory::GetBegin(EStreamDirection eDirection, uint32_t uiIndex, uint32_t uiSeconds) const
{
    const SStreamHistory* poStream = GetStream(eDirection, uiIndex);
    if (poStream == nullptr)
    {
        return INT64_MAX;
    }
    const CPointRing& roRing = uiSeconds == 1 ? poStream->oSeconds : poStream->oMinutes;
    if (roRing.GetCount() > 0)
    {
        return roRing[0].iUtcNs;
    }
    return uiSeconds != 1 && poStream->oRunning.uiPoints > 0 ? poStream->oRunning.oPoint.iUtcNs : INT64_MAX;
}

int64_t CWatchHistory::GetBegin(uint32_t uiSeconds) const
{
    int64_t iBegin = INT64_MAX;
    for (const EStreamDirection eDirection : {EStreamDirection::INPUT, EStreamDirection::OUTPUT})
    {
        const auto uiCount = static_cast<uint32_t>(m_aoStreams[static_cast<size_t>(eDirection)].size());
        for (uint32_t uiIndex = 0; uiIndex < uiCount; ++uiIndex)
        {
            iBegin = std::min(iBegin, GetBegin(eDirection, uiIndex, uiSeconds));
        }
    }
    return iBegin;
}
