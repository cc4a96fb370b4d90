#include "FrameLockStatus.h"

#include <algorithm>
#include <memory>
#include <span>

#include "LockReport.h"
#include "MonitorGlobals.h"

namespace
{

constexpr uint32_t uiDurationMs = 3000;
constexpr uint32_t uiDelayMs = 500;

void MeasureCycle(uint32_t uiNbOfVideo, const SMonitorUserData* paoVideoMonitorData, uint64_t* pauiVideoLastTimeStamp,
                  SFrameLockVerdict& roVerdict)
{
    CFrameLockVideoArray daoFrameLockVideoData;
    CFrameLockPairArray daoFrameLockPairData;
    if (ProcessGenLock(uiNbOfVideo, paoVideoMonitorData, pauiVideoLastTimeStamp, daoFrameLockVideoData,
                       daoFrameLockPairData))
    {
        JudgeFrameLockCycle(daoFrameLockVideoData, daoFrameLockPairData, roVerdict);
    }
    g_oOsServices.SleepMilliSeconds(uiDelayMs);
}

} // namespace

void FrameLockStatus(uint32_t uiNbOfVideo, const SMonitorUserData* paoVideoMonitorData, VtDevice_Handle hDev)
{
    const auto pauiVideoLastTimeStamp = std::make_unique<uint64_t[]>(uiNbOfVideo);
    SFrameLockVerdict oVerdict = {};
    CMString szLogMsg;
    szLogMsg.Format("Testing if the system is frame locked ...");
    ReportLockText(hDev, szLogMsg);
    for (uint32_t uiElapsedTimeMs = 0; uiElapsedTimeMs < uiDurationMs; uiElapsedTimeMs += uiDelayMs)
    {
        MeasureCycle(uiNbOfVideo, paoVideoMonitorData, pauiVideoLastTimeStamp.get(), oVerdict);
    }
    FormatFrameLockVerdict(oVerdict, szLogMsg);
    ReportLockText(hDev, szLogMsg);
}

void JudgeFrameLockCycle(const CFrameLockVideoArray& rdaoFrameLockVideoData,
                         const CFrameLockPairArray& rdaoFrameLockPairData, SFrameLockVerdict& roVerdict)
{
    for (const SFrameLockPairData& roPair : std::span(rdaoFrameLockPairData.Begin(), rdaoFrameLockPairData.GetCount()))
    {
        roVerdict.uiMaxDiff = std::max(roVerdict.uiMaxDiff, roPair.uiDeltaAbs);
    }
    if (!rdaoFrameLockPairData.IsEmpty())
    {
        const uint32_t uiTickPerLine = TicksPerLine(rdaoFrameLockVideoData[rdaoFrameLockPairData[0].uiVideoIndexA]);
        roVerdict.uiMaxAllowed = uiTickPerLine;
    }
}

void FormatFrameLockVerdict(const SFrameLockVerdict& roVerdict, CMString& rszLogMsg)
{
    // The blank in front is kept, although the verdict stands on a line of its own.
    rszLogMsg.Format(" %s (biggest difference : %d ticks, max allowed : %llu ticks)",
                     roVerdict.uiMaxDiff < roVerdict.uiMaxAllowed ? "Success" : "Failed", LowInt(roVerdict.uiMaxDiff),
                     static_cast<unsigned long long>(roVerdict.uiMaxAllowed));
}
