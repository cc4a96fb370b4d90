#include "WatchData.h"

#include <algorithm>
#include <chrono>

void CWatchData::AddStreams(size_t uiSlot, uint32_t uiCount)
{
    const std::lock_guard oGuard(m_oMemoryMutex);
    m_oHistory.AddStreams(uiSlot, uiCount);
}

void CWatchData::Resume(std::span<const SMinuteSummary> aoRunning)
{
    const std::lock_guard oGuard(m_oMemoryMutex);
    m_oHistory.Add({}, aoRunning);
}

void CWatchData::Put(const SWatchStep& roStep)
{
    {
        const std::lock_guard oGuard(m_oMemoryMutex);
        m_oHistory.Add(roStep.aoSeconds, roStep.aoMinutes);
        m_aoEvents.insert(m_aoEvents.end(), roStep.aoEvents.begin(), roStep.aoEvents.end());
        while (m_aoEvents.size() > uiEventsInMemory)
        {
            m_aoEvents.pop_front();
        }
        for (const SIncident& roIncident : roStep.poPublication->oJudgement.aoIncidents)
        {
            m_oIncidents[roIncident.uiNumber] = roIncident;
        }
        while (m_oIncidents.size() > uiIncidentsInMemory)
        {
            m_oIncidents.erase(m_oIncidents.begin());
        }
    }
    WatchPublicationPtr poPublication = roStep.poPublication;
    {
        const std::lock_guard oGuard(m_oLatestMutex);
        m_poLatest.swap(poPublication);
    }
    m_oNewer.notify_all();
}

void CWatchData::End()
{
    {
        const std::lock_guard oGuard(m_oLatestMutex);
        m_bHasEnded = true;
    }
    m_oNewer.notify_all();
}

WatchPublicationPtr CWatchData::GetLatest() const
{
    const std::lock_guard oGuard(m_oLatestMutex);
    return m_poLatest;
}

WatchPublicationPtr CWatchData::AwaitNewer(uint64_t uiKnownNumber, uint32_t uiTimeOutMs)
{
    std::unique_lock oLock(m_oLatestMutex);
    const auto fnIsNewer = [&] { return m_poLatest && m_poLatest->oSnapshot.uiNumber > uiKnownNumber; };
    m_oNewer.wait_for(oLock, std::chrono::milliseconds(uiTimeOutMs), [&] { return m_bHasEnded || fnIsNewer(); });
    return !m_bHasEnded && fnIsNewer() ? m_poLatest : nullptr;
}

std::vector<SWatchEvent> CWatchData::FindEvents(const SEventQuery& roQuery)
{
    std::vector<SWatchEvent> aoFound;
    uint64_t uiOldestNumber = UINT64_MAX;
    {
        const std::lock_guard oGuard(m_oMemoryMutex);
        for (auto itEvent = m_aoEvents.rbegin(); itEvent != m_aoEvents.rend() && aoFound.size() < roQuery.uiMost;
             ++itEvent)
        {
            if (WatchQuery_Fits(*itEvent, roQuery))
            {
                aoFound.push_back(*itEvent);
            }
        }
        uiOldestNumber = m_aoEvents.empty() ? UINT64_MAX : m_aoEvents.front().uiNumber;
    }
    const bool bReachesBack = uiOldestNumber != UINT64_MAX && uiOldestNumber <= roQuery.uiAfterNumber + 1;
    if (m_poArchive != nullptr && aoFound.size() < roQuery.uiMost && !bReachesBack)
    {
        m_poArchive->FindEvents(roQuery, uiOldestNumber, aoFound);
    }
    return aoFound;
}

std::vector<SHistoryPoint> CWatchData::FindHistory(const SHistoryQuery& roQuery)
{
    std::vector<SHistoryPoint> aoMemory;
    int64_t iMemoryBegin = INT64_MAX;
    {
        const std::lock_guard oGuard(m_oMemoryMutex);
        m_oHistory.Find(roQuery, aoMemory);
        iMemoryBegin = m_oHistory.GetBegin(roQuery.oKey, roQuery.uiSeconds);
    }
    std::vector<SHistoryPoint> aoPoints;
    if (m_poArchive != nullptr && roQuery.uiSeconds != 1 && aoMemory.size() < roQuery.uiMost &&
        roQuery.iFromUtcNs < iMemoryBegin)
    {
        SHistoryQuery oOlder = roQuery;
        oOlder.iToUtcNs = std::min(roQuery.iToUtcNs, iMemoryBegin);
        oOlder.uiMost = roQuery.uiMost - static_cast<uint32_t>(aoMemory.size());
        std::vector<SMinuteSummary> aoMinutes;
        m_poArchive->FindMinutes(oOlder, aoMinutes);
        for (const SMinuteSummary& roMinute : aoMinutes)
        {
            aoPoints.push_back(roMinute.oPoint);
        }
    }
    aoPoints.insert(aoPoints.end(), aoMemory.begin(), aoMemory.end());
    // The clock may have been set back meanwhile.
    std::ranges::stable_sort(aoPoints, {}, &SHistoryPoint::iUtcNs);
    const size_t uiSurplus = aoPoints.size() - std::min<size_t>(aoPoints.size(), roQuery.uiMost);
    aoPoints.erase(aoPoints.begin(), aoPoints.begin() + static_cast<std::ptrdiff_t>(uiSurplus));
    return aoPoints;
}

SHistoryReach CWatchData::GetReach()
{
    SHistoryReach oReach;
    {
        const std::lock_guard oGuard(m_oMemoryMutex);
        oReach = m_oHistory.GetReach();
    }
    if (m_poArchive != nullptr)
    {
        oReach.iMinutesFromUtcNs = std::min(oReach.iMinutesFromUtcNs, m_poArchive->GetBegin());
    }
    return oReach;
}

std::vector<SIncident> CWatchData::FindIncidents(const SIncidentQuery& roQuery)
{
    std::vector<SIncident> aoFound;
    uint64_t uiOldest = UINT64_MAX;
    {
        const std::lock_guard oGuard(m_oMemoryMutex);
        for (auto itIncident = m_oIncidents.rbegin();
             itIncident != m_oIncidents.rend() && aoFound.size() < roQuery.uiMost; ++itIncident)
        {
            if (WatchQuery_Fits(itIncident->second, roQuery))
            {
                aoFound.push_back(itIncident->second);
            }
        }
        uiOldest = m_oIncidents.empty() ? UINT64_MAX : m_oIncidents.begin()->first;
    }
    if (m_poArchive != nullptr && aoFound.size() < roQuery.uiMost)
    {
        m_poArchive->FindIncidents(roQuery, uiOldest, aoFound);
    }
    return aoFound;
}
