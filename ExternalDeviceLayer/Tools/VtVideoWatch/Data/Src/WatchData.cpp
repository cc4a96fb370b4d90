#include "WatchData.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>

#include "StoreReader.h"
#include "WatchDataWriter.h"
#include "WatchHistory.h"

struct SWatchData
{
    SWatchData(uint32_t uiNbOfInputs, uint32_t uiNbOfOutputs) : oHistory(uiNbOfInputs, uiNbOfOutputs) {}

    mutable std::mutex oLatestMutex; // guards the next three
    std::condition_variable oNewer;
    std::shared_ptr<const SWatchPublication> poLatest;
    bool bHasEnded = false;

    std::mutex oMemoryMutex; // guards the next two
    CWatchHistory oHistory;
    std::deque<SWatchEvent> aoEvents; // oldest first

    std::string szStoreFile; // empty: none
    CStoreReader oStore;
    std::mutex oStoreMutex; // of the opening: the file may come into being later than we do
};

namespace
{

// The store, opened when it is first needed; null without one.
CStoreReader* OpenStore(SWatchData& roData)
{
    if (roData.szStoreFile.empty())
    {
        return nullptr;
    }
    const std::lock_guard oGuard(roData.oStoreMutex);
    std::string szFault;
    if (!roData.oStore.IsOpen() && roData.oStore.Open(roData.szStoreFile, szFault) != EStoreOpen::OPENED)
    {
        return nullptr;
    }
    return &roData.oStore;
}

void KeepNewest(std::vector<SHistoryPoint>& raoPoints, uint32_t uiMost)
{
    if (raoPoints.size() > uiMost)
    {
        raoPoints.erase(raoPoints.begin(), raoPoints.end() - static_cast<std::ptrdiff_t>(uiMost));
    }
}

} // namespace

void WatchData_Destroy(SWatchData* poData)
{
    delete poData;
}

WatchDataPtr WatchData_Create(uint32_t uiNbOfInputs, uint32_t uiNbOfOutputs, const std::string& rszStoreFile)
{
    WatchDataPtr poData(new SWatchData(uiNbOfInputs, uiNbOfOutputs));
    poData->szStoreFile = rszStoreFile;
    return poData;
}

void WatchData_Resume(SWatchData& roData, std::span<const SMinuteSummary> aoRunning)
{
    const std::lock_guard oGuard(roData.oMemoryMutex);
    for (const SMinuteSummary& roSummary : aoRunning)
    {
        roData.oHistory.Resume(roSummary);
    }
}

std::span<const SMinuteSummary> WatchData_Publish(SWatchData& roData,
                                                  std::shared_ptr<const SWatchPublication> poPublication,
                                                  std::span<const SWatchEvent> aoEvents)
{
    std::span<const SMinuteSummary> aoChanged;
    {
        const std::lock_guard oGuard(roData.oMemoryMutex);
        aoChanged = roData.oHistory.Add(poPublication->oSnapshot);
        roData.aoEvents.insert(roData.aoEvents.end(), aoEvents.begin(), aoEvents.end());
        while (roData.aoEvents.size() > uiEventsInMemory)
        {
            roData.aoEvents.pop_front();
        }
    }
    {
        const std::lock_guard oGuard(roData.oLatestMutex);
        roData.poLatest.swap(poPublication);
    }
    roData.oNewer.notify_all();
    return aoChanged;
}

void WatchData_End(SWatchData& roData)
{
    {
        const std::lock_guard oGuard(roData.oLatestMutex);
        roData.bHasEnded = true;
    }
    roData.oNewer.notify_all();
}

std::shared_ptr<const SWatchPublication> WatchData_GetLatest(const SWatchData& roData)
{
    const std::lock_guard oGuard(roData.oLatestMutex);
    return roData.poLatest;
}

std::shared_ptr<const SWatchPublication> WatchData_AwaitNewer(SWatchData& roData, uint64_t uiKnownNumber,
                                                              uint32_t uiTimeOutMs)
{
    std::unique_lock oLock(roData.oLatestMutex);
    const auto fnIsNewer = [&] { return roData.poLatest && roData.poLatest->oSnapshot.uiNumber > uiKnownNumber; };
    roData.oNewer.wait_for(oLock, std::chrono::milliseconds(uiTimeOutMs),
                           [&] { return roData.bHasEnded || fnIsNewer(); });
    return !roData.bHasEnded && fnIsNewer() ? roData.poLatest : nullptr;
}

std::vector<SWatchEvent> WatchData_FindEvents(SWatchData& roData, const SEventQuery& roQuery)
{
    std::vector<SWatchEvent> aoFound;
    uint64_t uiOldestNumber = UINT64_MAX;
    bool bReachesBack = false;
    {
        const std::lock_guard oGuard(roData.oMemoryMutex);
        for (auto itEvent = roData.aoEvents.rbegin(); itEvent != roData.aoEvents.rend(); ++itEvent)
        {
            if (aoFound.size() < roQuery.uiMost && StoreReader_Fits(*itEvent, roQuery))
            {
                aoFound.push_back(*itEvent);
            }
        }
        if (!roData.aoEvents.empty())
        {
            uiOldestNumber = roData.aoEvents.front().uiNumber;
            bReachesBack = uiOldestNumber <= roQuery.uiAfterNumber + 1;
        }
    }
    if (aoFound.size() < roQuery.uiMost && !bReachesBack)
    {
        if (CStoreReader* poStore = OpenStore(roData))
        {
            poStore->FindEvents(roQuery, uiOldestNumber, aoFound);
        }
    }
    return aoFound;
}

std::vector<SHistoryPoint> WatchData_FindHistory(SWatchData& roData, const SHistoryQuery& roQuery)
{
    std::vector<SHistoryPoint> aoMemory;
    int64_t iMemoryBegin = INT64_MAX;
    {
        const std::lock_guard oGuard(roData.oMemoryMutex);
        roData.oHistory.Find(roQuery, aoMemory);
        iMemoryBegin = roData.oHistory.GetBegin(roQuery.eDirection, roQuery.uiIndex, roQuery.uiSeconds);
    }
    std::vector<SHistoryPoint> aoPoints;
    CStoreReader* poStore = nullptr;
    if (roQuery.uiSeconds != 1 && aoMemory.size() < roQuery.uiMost && roQuery.iFromUtcNs < iMemoryBegin)
    {
        poStore = OpenStore(roData);
    }
    if (poStore != nullptr)
    {
        SHistoryQuery oOlder = roQuery;
        oOlder.iToUtcNs = std::min(roQuery.iToUtcNs, iMemoryBegin);
        oOlder.uiMost = roQuery.uiMost - static_cast<uint32_t>(aoMemory.size());
        std::vector<SMinuteSummary> aoMinutes;
        poStore->FindMinutes(oOlder, aoMinutes);
        for (const SMinuteSummary& roMinute : aoMinutes)
        {
            aoPoints.push_back(roMinute.oPoint);
        }
    }
    aoPoints.insert(aoPoints.end(), aoMemory.begin(), aoMemory.end());
    KeepNewest(aoPoints, roQuery.uiMost);
    return aoPoints;
}

SHistoryReach WatchData_GetReach(SWatchData& roData)
{
    SHistoryReach oReach;
    {
        const std::lock_guard oGuard(roData.oMemoryMutex);
        oReach.iSecondsFromUtcNs = roData.oHistory.GetBegin(1);
        oReach.iMinutesFromUtcNs = roData.oHistory.GetBegin(60);
    }
    if (CStoreReader* poStore = OpenStore(roData))
    {
        oReach.iMinutesFromUtcNs = std::min(oReach.iMinutesFromUtcNs, poStore->GetBegin());
    }
    return oReach;
}
