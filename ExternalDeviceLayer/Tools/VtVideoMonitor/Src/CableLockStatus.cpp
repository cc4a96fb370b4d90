#include "CableLockStatus.h"

#include <algorithm>
#include <memory>
#include <span>

#include "KrvVxd.h"
#include "LockReport.h"
#include "MonitorGlobals.h"

namespace
{

constexpr uint32_t uiDelayMs = 1000;
constexpr uint32_t uiShortestDelayMs = uiDelayMs / 2;
constexpr uint64_t uiUsPerMs = 1000;
constexpr char szTableRule[] = "------------------\n";

void DisplaySecond(uint32_t uiSecond, std::span<const SFrameLockVideoData> aoVideo,
                   const uint64_t* pauiVideoLastTimeStamp)
{
    Log("CableLock TS %3d : ", LowInt(uiSecond));
    for (size_t uiVideo = 0; uiVideo < aoVideo.size(); ++uiVideo)
    {
        Log("0x%016lX ", aoVideo[uiVideo].bActive ? pauiVideoLastTimeStamp[uiVideo] : 0);
    }
    Log("\n");
}

void MeasureSecond(uint32_t uiSecond, uint32_t uiNbOfVideo, const SMonitorUserData* paoVideoMonitorData,
                   uint64_t* pauiVideoLastTimeStamp, SCableLockResult& roResult)
{
    CFrameLockVideoArray daoFrameLockVideoData;
    CFrameLockPairArray daoFrameLockPairData;
    if (!ProcessGenLock(uiNbOfVideo, paoVideoMonitorData, pauiVideoLastTimeStamp, daoFrameLockVideoData,
                        daoFrameLockPairData))
    {
        return;
    }
    DisplaySecond(uiSecond, {daoFrameLockVideoData.GetData(), static_cast<size_t>(daoFrameLockVideoData.GetSize())},
                  pauiVideoLastTimeStamp);
    for (int32_t iPair = 0; iPair < daoFrameLockPairData.GetSize(); ++iPair)
    {
        roResult.uiWorstTicks = std::max(roResult.uiWorstTicks, daoFrameLockPairData[iPair].uiDeltaAbs);
    }
    if (IsCableLocked(daoFrameLockVideoData, daoFrameLockPairData, pauiVideoLastTimeStamp))
    {
        ++roResult.uiSecondsGood;
    }
}

uint64_t GetMonotonicTimeInMs()
{
    uint64_t uiTimeUs = 0;
    tmCounter(&uiTimeUs);
    return uiTimeUs / uiUsPerMs;
}

void SleepUntil(uint64_t uiTimeMs)
{
    const uint64_t uiNowMs = GetMonotonicTimeInMs();
    if (uiNowMs < uiTimeMs)
    {
        g_oOsServices.SleepMilliSeconds(static_cast<uint32_t>(uiTimeMs - uiNowMs));
    }
}

} // namespace

void CableLockStatus(uint32_t uiNbOfVideo, const SMonitorUserData* paoVideoMonitorData, VtDevice_Handle hDev)
{
    const uint32_t uiDurationSec = g_uiCableLockDurationSec;
    const auto pauiVideoLastTimeStamp = std::make_unique<uint64_t[]>(uiNbOfVideo);
    SCableLockResult oResult = {};
    CMString szLogMsg;
    szLogMsg.Format("Cable Lock Testing begin (%d seconds) ... ", LowInt(uiDurationSec));
    ReportLockText(hDev, szLogMsg);
    Log("%s", szTableRule);
    uint64_t uiSecondMs = GetMonotonicTimeInMs();
    for (uint32_t uiSecond = 1; uiSecond <= uiDurationSec; ++uiSecond)
    {
        MeasureSecond(uiSecond, uiNbOfVideo, paoVideoMonitorData, pauiVideoLastTimeStamp.get(), oResult);
        uiSecondMs = GetNextCableLockSecond(uiSecondMs, GetMonotonicTimeInMs());
        SleepUntil(uiSecondMs);
    }
    Log("%s", szTableRule);
    szLogMsg.Format("Cable Lock Testing done ... ");
    ReportLockText(hDev, szLogMsg);
    FormatCableLockVerdict(oResult, uiDurationSec, szLogMsg);
    ReportLockText(hDev, szLogMsg);
}

Bool32 IsCableLocked(const CFrameLockVideoArray& rdaoFrameLockVideoData,
                     const CFrameLockPairArray& rdaoFrameLockPairData, const uint64_t* pauiVideoLastTimeStamp)
{
    const std::span aoVideo(rdaoFrameLockVideoData.GetData(), static_cast<size_t>(rdaoFrameLockVideoData.GetSize()));
    const std::span aoPair(rdaoFrameLockPairData.GetData(), static_cast<size_t>(rdaoFrameLockPairData.GetSize()));
    if (aoVideo.size() < 2 || aoPair.size() != aoVideo.size() * (aoVideo.size() - 1) / 2)
    {
        // A pair is missing as soon as one of its streams has delivered nothing.
        return 0;
    }
    const bool bAllWithinLine = std::all_of(aoPair.begin(), aoPair.end(),
                                            [&](const SFrameLockPairData& roPair) {
                                                return roPair.uiDeltaAbs < TicksPerLine(aoVideo[roPair.uiVideoIndexA]);
                                            });
    const auto [puiOldest, puiNewest] =
        std::minmax_element(pauiVideoLastTimeStamp, pauiVideoLastTimeStamp + aoVideo.size());
    return bAllWithinLine && *puiNewest - *puiOldest <= uiCableLockTimeStampMask ? 1 : 0;
}

uint64_t GetNextCableLockSecond(uint64_t uiPlannedMs, uint64_t uiNowMs)
{
    const uint64_t uiLatestMs = uiNowMs + uiShortestDelayMs;
    const uint64_t uiPassedMs = uiLatestMs > uiPlannedMs ? uiLatestMs - uiPlannedMs - 1 : 0;
    return uiPlannedMs + (uiPassedMs / uiDelayMs + 1) * uiDelayMs;
}

void FormatCableLockVerdict(const SCableLockResult& roResult, uint32_t uiDurationSec, CMString& rszLogMsg)
{
    const bool bIsLocked = uiDurationSec > 0 && roResult.uiSecondsGood == uiDurationSec;
    rszLogMsg.Format(" %s (%u of %u seconds locked, biggest difference : %u ticks)", bIsLocked ? "Success" : "Failed",
                     roResult.uiSecondsGood, uiDurationSec, roResult.uiWorstTicks);
}
