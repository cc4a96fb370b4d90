#include "FrameRateTotals.h"

#include <cstdio>

#include "ConsoleLog.h"
#include "VtBoard.h"

void AddPassToTotals(SMonitorUserData& roData, uint64_t uiCounts, uint64_t uiTicks, uint32_t uiTickPerSecond,
                     double flPassRate)
{
    constexpr double flPpm = 1000000.0;

    roData.uiFpsTotalFieldCounter += uiCounts;
    roData.uiFpsTotalTickRefCounter += uiTicks;
    if (roData.uiFpsTotalTickRefCounter != 0)
    {
        const double flSeconds = TicksToSeconds(roData.uiFpsTotalTickRefCounter, uiTickPerSecond);
        roData.fFpsAvg = FieldRate(roData.uiFpsTotalFieldCounter, flSeconds, 0);
    }
    roData.fFpsPpm = roData.fFpsRef > 0.0 ? (roData.fFpsAvg - roData.fFpsRef) * flPpm / roData.fFpsRef : 0.0;
    if (roData.fFpsMax == 0.0 || flPassRate > roData.fFpsMax)
    {
        roData.fFpsMax = flPassRate;
    }
    if (roData.fFpsMin == 0.0 || flPassRate < roData.fFpsMin)
    {
        roData.fFpsMin = flPassRate;
    }
}

uint32_t ReadTickFrequency(SMonitorUserData& roData)
{
    static_cast<void>(VtBoard_GetTickReferenceFrequency(roData.hDev, &roData.uiTickRefFreq));
    if (roData.uiTickRefFreq == 0)
    {
        roData.uiTickRefFreq = 1;
    }
    return roData.uiTickRefFreq;
}

void FormatFrameRateDetails(SMonitorUserData& roData, const char* szPrefix)
{
    std::snprintf(roData.szFpsData, sizeof(roData.szFpsData), "[%s_%02d] %8.6f %8.6f %8.6f %lu (%8.6f ==> %4.1f ppm)",
                  szPrefix, LowInt(roData.uiInOutIndex), roData.fFpsAvg, roData.fFpsMin, roData.fFpsMax,
                  roData.uiFpsTotalFieldCounter >> uiCountToFieldShift, roData.fFpsRef, roData.fFpsPpm);
}
