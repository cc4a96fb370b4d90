#include "FrameLockStatus.h"

#include <memory>

#include "GenLockProcess.h"
#include "LockReport.h"
#include "MonitorGlobals.h"

namespace
{

constexpr uint32_t uiDurationMs = 3000;
constexpr uint32_t uiDelayMs = 500;

// Worst difference so far, and one line of the first pair's first stream, in ticks.
struct SFrameLockVerdict
{
    uint32_t uiMaxDiff;
    uint32_t uiMaxAllowed;
};

void MeasureCycle(uint32_t uiNbOfVideo, const SMonitorUserData* paoVideoMonitorData, uint64_t* pauiVideoLastTimeStamp,
                  SFrameLockVerdict& roVerdict)
{
    CFrameLockVideoArray daoFrameLockVideoData;
    CFrameLockPairArray daoFrameLockPairData;
    if (ProcessGenLock(uiNbOfVideo, paoVideoMonitorData, pauiVideoLastTimeStamp, daoFrameLockVideoData,
                       daoFrameLockPairData))
    {
        for (int32_t iPair = 0; iPair < daoFrameLockPairData.GetSize(); ++iPair)
        {
            const SFrameLockPairData& roPair = daoFrameLockPairData[iPair];
            if (roPair.uiDeltaAbs > roVerdict.uiMaxDiff)
            {
                roVerdict.uiMaxDiff = roPair.uiDeltaAbs;
            }
            if (iPair == 0)
            {
                roVerdict.uiMaxAllowed = TicksPerLine(daoFrameLockVideoData[roPair.uiVideoIndexA]);
            }
        }
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
    // The blank in front is kept, although the verdict stands on a line of its own.
    szLogMsg.Format(" %s (biggest difference : %d ticks, max allowed : %llu ticks)",
                    oVerdict.uiMaxDiff < oVerdict.uiMaxAllowed ? "Success" : "Failed", LowInt(oVerdict.uiMaxDiff),
                    static_cast<unsigned long long>(oVerdict.uiMaxAllowed));
    ReportLockText(hDev, szLogMsg);
}
