#include "MadeUpWatch.h"

#include <algorithm>
#include <chrono>
#include <ctime>

namespace
{

constexpr int64_t iNsPerSecond = 1'000'000'000;

// The first stream is the reference, every fourth has no signal, the last one carries a hostile name.
SStreamFigures MakeStream(EStreamDirection eDirection, uint32_t i, int64_t iNowNs)
{
    SStreamFigures oStream;
    oStream.eDirection = eDirection;
    oStream.uiIndex = i;
    const bool bRuns = i % 4 != 3;
    oStream.eState = bRuns ? EStreamState::RUNNING : EStreamState::LOST;
    oStream.iStateSinceUtcNs = iNowNs - 3600 * iNsPerSecond;
    oStream.oDescription.eCaptureState = VtVideoIn_State_STARTED;
    oStream.oDescription.ePowerState = VtVideoOut_PowerState_ON;
    oStream.uiNominalNumerator = 60000;
    oStream.uiNominalDenominator = 1001;
    oStream.flNominalRateHz = 60000.0 / 1001.0;
    oStream.flLineSeconds = 1.0 / oStream.flNominalRateHz / 1125.0;
    oStream.flPeriodSeconds = 1.0 / oStream.flNominalRateHz;
    oStream.oCounters = {.uiFields = 1'000'000 + i, .uiFieldsObserved = 999'990, .uiFieldsLost = i, .uiLateWakes = 2};
    oStream.oCounters.flSignalLostSeconds = 1.0 / 3.0 + i;
    oStream.oCounters.flRunningSeconds = 16'683.35;
    oStream.oCounters.flWatchedSeconds = 16'700.0;
    oStream.oIntervals = {1e-7, {}};
    oStream.oWakes.auiCounts = {10, 20, 30, 40, 50, 60, 7, 8, 9, 1, 2};
    oStream.oWakes.flSumSeconds = 1.25;
    if (bRuns)
    {
        const double flIndex = i;
        for (size_t iWindow = 0; iWindow < 4; ++iWindow)
        {
            oStream.aoRateHz[iWindow] = {oStream.flNominalRateHz * (1.0 + flIndex * 1e-9 / 3.0), 1.234567e-7, true};
            oStream.aoRatePpm[iWindow] = {flIndex * 1e-3 / 3.0, 2.0597e-3, true};
        }
        oStream.aoTdevSeconds.fill({1.23456789e-7, 3.4567e-9, true});
        oStream.flJitterRmsSeconds = 1.0e-6 / 3.0;
        oStream.flJitterPeakSeconds = 5.0e-6 / 3.0;
        oStream.oPhaseSeconds = {flIndex * 1e-5 / 3.0, 1.0e-8 / 3.0, true};
        oStream.oDriftRatio = {flIndex * 1e-9 / 3.0, 1e-10 / 3.0, true};
        oStream.eLock = i < 4 ? ELockState::LOCKED : ELockState::FREE;
        oStream.flSecondsToThreshold = i == 0 ? -1.0 : 1000.0 / flIndex;
        oStream.flSecondsToSlip = i == 0 ? -1.0 : 1e7 / flIndex;
        oStream.oTaiPhaseSeconds = {1e-3 / 3.0 + flIndex * 1e-5 / 3.0, 1e-8, true};
        oStream.flTaiUncertaintySeconds = 1e-6 / 3.0;
    }
    return oStream;
}

SDirectionFigures MakeDirection(EStreamDirection eDirection, uint32_t uiStreams, int64_t iNowNs)
{
    SDirectionFigures oDirection;
    oDirection.bHasReference = uiStreams > 0;
    for (uint32_t i = 0; i < uiStreams; ++i)
    {
        oDirection.aoStreams.push_back(MakeStream(eDirection, i, iNowNs));
        for (uint32_t j = i + 1; j < uiStreams; ++j)
        {
            SPairFigures oPair;
            oPair.uiFirst = i;
            oPair.uiSecond = j;
            oPair.oOffsetSeconds = {1e-6 * (j - i), 1e-8, j % 4 != 3 && i % 4 != 3};
            oPair.eLock = oPair.oOffsetSeconds.bIsValid ? ELockState::FREE : ELockState::IDLE;
            oDirection.aoPairs.push_back(oPair);
        }
    }
    if (uiStreams > 1)
    {
        oDirection.aoGroups.push_back({7, 3, iNowNs});
    }
    return oDirection;
}

SStreamTexts MakeTexts(uint32_t i, uint32_t uiStreams)
{
    SStreamTexts oTexts;
    oTexts.szName = i + 1 == uiStreams ? "<img src=x onerror=alert(1)> \"\\" : "SDI " + std::to_string(i);
    oTexts.szStandard = "1920 x 1080p @ 59.94 Hz (YUV)";
    oTexts.szFormat = "VtPixelFormat_YUV422_UYVY";
    oTexts.szCapture = "started";
    return oTexts;
}

} // namespace

int64_t MadeUpWatch_GetUtcNs()
{
    return std::time(nullptr) * iNsPerSecond;
}

SWatchPublication MadeUpWatch_Make(uint64_t uiNumber, uint32_t uiStreams)
{
    SWatchPublication oPublication;
    SWatchSnapshot& roSnapshot = oPublication.oSnapshot;
    timespec oNow = {};
    clock_gettime(CLOCK_MONOTONIC, &oNow);
    roSnapshot.uiNumber = uiNumber;
    roSnapshot.uiTickFrequencyHz = 27'000'000;
    roSnapshot.flThresholdLines = 1.0;
    roSnapshot.oClock.iUtcNs = MadeUpWatch_GetUtcNs();
    roSnapshot.oClock.uiMonotonicNs =
        static_cast<uint64_t>(oNow.tv_sec) * 1'000'000'000U + static_cast<uint64_t>(oNow.tv_nsec);
    roSnapshot.oClock.iTaiOffsetSeconds = 37;
    roSnapshot.aoDirections[0] = MakeDirection(EStreamDirection::INPUT, uiStreams, roSnapshot.oClock.iUtcNs);
    roSnapshot.aoDirections[1] = MakeDirection(EStreamDirection::OUTPUT, uiStreams, roSnapshot.oClock.iUtcNs);
    for (uint32_t i = 0; i < uiStreams; ++i)
    {
        oPublication.aoInputTexts.push_back(MakeTexts(i, uiStreams));
        oPublication.aoOutputTexts.push_back(MakeTexts(i, uiStreams));
    }
    oPublication.szHost = "made-up";
    oPublication.szBoard = "/nowhere/libVeltrano.so";
    oPublication.uiBoardVersion = 0x0004000100000092;
    oPublication.bIsSimulated = true;
    oPublication.iStartUtcNs = roSnapshot.oClock.iUtcNs - 3600 * iNsPerSecond;
    return oPublication;
}

void MadeUpWatch_Publish(SWatchData& roData, SWatchPublication oPublication)
{
    const std::lock_guard oGuard(roData.oMutex);
    for (const SWatchEvent& roEvent : roData.aoEvents)
    {
        auto& raoStreams = oPublication.oSnapshot.aoDirections[static_cast<size_t>(roEvent.eDirection)].aoStreams;
        raoStreams[roEvent.uiIndex].uiLastEvent = roEvent.uiNumber;
    }
    roData.poLatest = std::make_shared<const SWatchPublication>(std::move(oPublication));
    roData.oChanged.notify_all();
}

uint64_t MadeUpWatch_AddEvent(SWatchData& roData, EWatchEventKind eKind, EStreamDirection eDirection, uint32_t uiIndex)
{
    const std::lock_guard oGuard(roData.oMutex);
    SWatchEvent oEvent = {};
    oEvent.uiNumber = roData.aoEvents.size() + 1;
    oEvent.iUtcNs = MadeUpWatch_GetUtcNs();
    oEvent.uiTick = oEvent.uiNumber * 1000;
    oEvent.eKind = eKind;
    oEvent.eDirection = eDirection;
    oEvent.uiIndex = uiIndex;
    oEvent.uiCount = 3;
    oEvent.uiAfter = 1;
    oEvent.flSeconds = 0.25;
    oEvent.uiGroup = 7;
    oEvent.uiMembers = 3;
    roData.aoEvents.push_back(oEvent);
    return oEvent.uiNumber;
}

std::shared_ptr<const SWatchPublication> WatchData_GetLatest(const SWatchData& roData)
{
    auto& roOwn = const_cast<SWatchData&>(roData);
    const std::lock_guard oGuard(roOwn.oMutex);
    return roOwn.poLatest;
}

std::shared_ptr<const SWatchPublication> WatchData_AwaitNewer(SWatchData& roData, uint64_t uiKnownNumber,
                                                              uint32_t uiTimeOutMs)
{
    std::unique_lock oLock(roData.oMutex);
    const auto IsNewer = [&] { return roData.poLatest && roData.poLatest->oSnapshot.uiNumber > uiKnownNumber; };
    roData.oChanged.wait_for(oLock, std::chrono::milliseconds(uiTimeOutMs), IsNewer);
    return IsNewer() ? roData.poLatest : nullptr;
}

std::vector<SWatchEvent> WatchData_FindEvents(SWatchData& roData, const SEventQuery& roQuery)
{
    const std::lock_guard oGuard(roData.oMutex);
    std::vector<SWatchEvent> aoFound;
    for (auto oEvent = roData.aoEvents.rbegin(); oEvent != roData.aoEvents.rend(); ++oEvent)
    {
        const uint64_t uiStreams = oEvent->eDirection == EStreamDirection::INPUT ? roQuery.uiInputs : roQuery.uiOutputs;
        if (aoFound.size() < roQuery.uiMost && oEvent->uiNumber > roQuery.uiAfterNumber &&
            (uiStreams >> oEvent->uiIndex & 1U) != 0 &&
            (roQuery.uiKinds >> static_cast<unsigned>(oEvent->eKind) & 1U) != 0 &&
            oEvent->iUtcNs >= roQuery.iFromUtcNs && oEvent->iUtcNs < roQuery.iToUtcNs)
        {
            aoFound.push_back(*oEvent);
        }
    }
    return aoFound;
}

std::vector<SHistoryPoint> WatchData_FindHistory(SWatchData& roData, const SHistoryQuery& roQuery)
{
    const std::lock_guard oGuard(roData.oMutex);
    std::vector<SHistoryPoint> aoPoints;
    const int64_t iStep = roQuery.uiSeconds * iNsPerSecond;
    for (int64_t iUtcNs = roData.iPointsFromUtcNs; iUtcNs < roData.iPointsToUtcNs; iUtcNs += iStep)
    {
        if (iUtcNs >= roQuery.iFromUtcNs && iUtcNs < roQuery.iToUtcNs)
        {
            SHistoryPoint oPoint;
            oPoint.iUtcNs = iUtcNs;
            oPoint.uiSeconds = roQuery.uiSeconds;
            oPoint.uiFields = 60;
            oPoint.oRateHz = {60.0 + 1.0 / 3.0, 1e-6 / 3.0, true};
            oPoint.oPhaseSeconds = {1e-6 / 3.0, 1e-9, iUtcNs / iNsPerSecond % 2 == 0};
            aoPoints.push_back(oPoint);
        }
    }
    const auto iSurplus = std::max<std::ptrdiff_t>(0, static_cast<std::ptrdiff_t>(aoPoints.size()) - roQuery.uiMost);
    aoPoints.erase(aoPoints.begin(), aoPoints.begin() + iSurplus);
    return aoPoints;
}

SHistoryReach WatchData_GetReach(SWatchData& roData)
{
    const std::lock_guard oGuard(roData.oMutex);
    return {roData.iPointsFromUtcNs, 0};
}
