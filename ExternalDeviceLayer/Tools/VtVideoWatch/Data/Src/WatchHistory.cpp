#include "WatchHistory.h"

#include <algorithm>
#include <utility>

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
{
    AddStreams(StreamKey_GetSlot({EStreamDirection::INPUT, 0}), uiNbOfInputs);
    AddStreams(StreamKey_GetSlot({EStreamDirection::OUTPUT, 0}), uiNbOfOutputs);
}

void CWatchHistory::AddStreams(size_t uiSlot, uint32_t uiCount)
{
    m_aoStreams.resize(std::max(m_aoStreams.size(), uiSlot + 1));
    m_aoStreams[uiSlot].resize(std::max<size_t>(m_aoStreams[uiSlot].size(), uiCount));
}

const CWatchHistory::SStreamHistory* CWatchHistory::GetStream(const SStreamKey& roKey) const
{
    const size_t uiSlot = StreamKey_GetSlot(roKey);
    const bool bHas = uiSlot < m_aoStreams.size() && roKey.uiIndex < m_aoStreams[uiSlot].size();
    return bHas ? &m_aoStreams[uiSlot][roKey.uiIndex] : nullptr;
}

CWatchHistory::SStreamHistory* CWatchHistory::GetStream(const SStreamKey& roKey)
{
    return const_cast<SStreamHistory*>(std::as_const(*this).GetStream(roKey));
}

void CWatchHistory::Add(std::span<const SStreamSecond> aoSeconds, std::span<const SMinuteSummary> aoMinutes)
{
    for (const SStreamSecond& roSecond : aoSeconds)
    {
        if (SStreamHistory* poStream = GetStream(roSecond.oKey))
        {
            poStream->oSeconds.Add(roSecond.oPoint);
        }
    }
    for (const SMinuteSummary& roMinute : aoMinutes)
    {
        SStreamHistory* poStream = GetStream(roMinute.oKey);
        if (poStream == nullptr)
        {
            continue;
        }
        poStream->oRunning = roMinute.bIsComplete ? SMinuteSummary() : roMinute;
        if (roMinute.bIsComplete)
        {
            poStream->oMinutes.Add(roMinute.oPoint);
        }
    }
}

void CWatchHistory::Find(const SHistoryQuery& roQuery, std::vector<SHistoryPoint>& raoPoints) const
{
    const SStreamHistory* poStream = GetStream(roQuery.oKey);
    if (poStream == nullptr)
    {
        return;
    }
    const CPointRing& roRing = roQuery.uiSeconds == 1 ? poStream->oSeconds : poStream->oMinutes;
    for (uint32_t uiPoint = 0; uiPoint < roRing.GetCount(); ++uiPoint)
    {
        if (WatchQuery_Fits(roRing[uiPoint], roQuery))
        {
            raoPoints.push_back(roRing[uiPoint]);
        }
    }
    const SMinuteSummary& roRunning = poStream->oRunning;
    if (roQuery.uiSeconds != 1 && roRunning.uiPoints > 0 && WatchQuery_Fits(roRunning.oPoint, roQuery))
    {
        raoPoints.push_back(roRunning.oPoint);
    }
}

int64_t CWatchHistory::GetBegin(const SStreamKey& roKey, uint32_t uiSeconds) const
{
    const SStreamHistory* poStream = GetStream(roKey);
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

SHistoryReach CWatchHistory::GetReach() const
{
    SHistoryReach oReach;
    for (size_t uiSlot = 0; uiSlot < m_aoStreams.size(); ++uiSlot)
    {
        for (uint32_t uiIndex = 0; uiIndex < m_aoStreams[uiSlot].size(); ++uiIndex)
        {
            const SStreamKey oKey = StreamKey_FromSlot(uiSlot, uiIndex);
            oReach.iSecondsFromUtcNs = std::min(oReach.iSecondsFromUtcNs, GetBegin(oKey, 1));
            oReach.iMinutesFromUtcNs = std::min(oReach.iMinutesFromUtcNs, GetBegin(oKey, 60));
        }
    }
    return oReach;
}
