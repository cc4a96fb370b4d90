#include "VideoOutMonitor.h"

#include <algorithm>
#include <cstdio>

#include "AssertReport.h"
#include "ConsoleLog.h"
#include "FrameRateTotals.h"
#include "KrvTools.h"
#include "MonitorGlobals.h"
#include "VideoDescription.h"

namespace
{

constexpr double flRateMinStart = 999.0;
constexpr char szUnknownPixelFormat[] = "VtPixelFormat_UNKOWN";

// Rates over the pass and the long-run totals.
void MeasurePass(SVideoOutMonitor& roMonitor, SVideoOutPass& roPass)
{
    SMonitorUserData& roData = *roMonitor.poData;
    const uint32_t uiSlot = roMonitor.uiSampleCount % NB_OF_SAMPLES;
    const uint32_t uiLastSlot = roMonitor.uiLastSampleCount % NB_OF_SAMPLES;
    const uint64_t uiTick0 = roData.auiTickRefCounter[uiLastSlot];
    const uint64_t uiTick1 = roData.auiTickRefCounter[uiSlot];
    if (uiTick0 == 0 || uiTick0 >= uiTick1)
    {
        return;
    }
    const uint64_t uiCounts = roMonitor.auiFieldCounter[uiSlot] - roMonitor.auiFieldCounter[uiLastSlot];
    const uint64_t uiTicks = uiTick1 - uiTick0;
    const double flSeconds = TicksToSeconds(uiTicks, roMonitor.uiTickPerSecond);
    roMonitor.uiFrameTotal += uiCounts >> uiCountToFieldShift;
    roPass.flFramePerSecondCur = FieldRate(uiCounts, flSeconds, roMonitor.oCurrentVidParam.bInterlaced);

    const uint64_t uiSetBuffers = roMonitor.auiSetBufferCounter[uiSlot] - roMonitor.auiSetBufferCounter[uiLastSlot];
    roMonitor.uiFrameSet += uiSetBuffers;
    roPass.flSetBufferPerSecondCur = static_cast<double>(uiSetBuffers) / flSeconds;
    AddPassToTotals(roData, uiCounts, uiTicks, roMonitor.uiTickPerSecond, roPass.flFramePerSecondCur);
}

// One step of the walk: the interval between two neighbouring slots.
void WalkInterval(SVideoOutMonitor& roMonitor, uint32_t uiIndexA, uint32_t uiIndexB, SVideoOutPass& roPass)
{
    const uint64_t uiTickA = roMonitor.poData->auiTickRefCounter[uiIndexA];
    const uint64_t uiTickB = roMonitor.poData->auiTickRefCounter[uiIndexB];
    if (uiTickA == 0 || uiTickA >= uiTickB)
    {
        return;
    }
    const double flInterval = TicksToSeconds(uiTickB - uiTickA, roMonitor.uiTickPerSecond);
    const uint64_t uiSetBuffers = roMonitor.auiSetBufferCounter[uiIndexB] - roMonitor.auiSetBufferCounter[uiIndexA];
    if (uiSetBuffers != 0)
    {
        roMonitor.uiFrameSkipped += uiSetBuffers - 1;
        const double flSetRate = static_cast<double>(uiSetBuffers) / flInterval;
        roPass.flSetBufferPerSecondMin = std::min(roPass.flSetBufferPerSecondMin, flSetRate);
        roPass.flSetBufferPerSecondMax = std::max(roPass.flSetBufferPerSecondMax, flSetRate);
    }
    else
    {
        ++roMonitor.uiFrameDoubled;
    }
    const uint64_t uiCounts = roMonitor.auiFieldCounter[uiIndexB] - roMonitor.auiFieldCounter[uiIndexA];
    const double flRate = FieldRate(uiCounts, flInterval, roMonitor.oCurrentVidParam.bInterlaced);
    roPass.flFramePerSecondMin = std::min(roPass.flFramePerSecondMin, flRate);
    roPass.flFramePerSecondMax = std::max(roPass.flFramePerSecondMax, flRate);
}

void WalkFields(SVideoOutMonitor& roMonitor, SVideoOutPass& roPass)
{
    const uint32_t uiNbOfSamples = FieldsInRing(roMonitor.uiSampleCount, roMonitor.uiLastSampleCount);
    const uint32_t uiFirst = roMonitor.uiLastSampleCount % NB_OF_SAMPLES;
    for (uint32_t k = 0; k < uiNbOfSamples; ++k)
    {
        WalkInterval(roMonitor, (uiFirst + k) % NB_OF_SAMPLES, (uiFirst + k + 1) % NB_OF_SAMPLES, roPass);
    }
}

void LogPass(const SVideoOutMonitor& roMonitor, const SVideoOutPass& roPass)
{
    // The uneven blanks are part of the line.
    Log("[%s - %s %s]: FpsAvg=%3.2f  FpsMax=%3.2f  FpsMin=%3.2f  SetBufAvg=%3.2f  SetBufMax=%3.2f  SetBufMin=%3.2f  "
        "FrameSkipped=%d  FrameSet=%d FrameDoubled=%d FrameTotal=%d\n",
        roMonitor.szVideoName, roMonitor.szVideoParam, roMonitor.szPixelFormat, roPass.flFramePerSecondCur,
        roPass.flFramePerSecondMax, roPass.flFramePerSecondMin, roPass.flSetBufferPerSecondCur,
        roPass.flSetBufferPerSecondMax, roPass.flSetBufferPerSecondMin, LowInt(roMonitor.uiFrameSkipped),
        LowInt(roMonitor.uiFrameSet), LowInt(roMonitor.uiFrameDoubled), LowInt(roMonitor.uiFrameTotal));
}

void WriteRow(const SVideoOutMonitor& roMonitor, const SVideoOutPass& roPass)
{
    SMonitorUserData& roData = *roMonitor.poData;
    std::snprintf(roData.szStatusData, sizeof(roData.szStatusData),
                  "[OUT_%02d]  %6.2f %6.2f %6.2f  %6.2f %6.2f %6.2f  %8lu %8lu %8lu %8lu",
                  LowInt(roMonitor.uiVideoOutIndex), roPass.flFramePerSecondCur, roPass.flFramePerSecondMax,
                  roPass.flFramePerSecondMin, roPass.flSetBufferPerSecondCur, roPass.flSetBufferPerSecondMax,
                  roPass.flSetBufferPerSecondMin, roMonitor.uiFrameSkipped, roMonitor.uiFrameSet,
                  roMonitor.uiFrameDoubled, roMonitor.uiFrameTotal);
    FormatFrameRateDetails(roData, "OUT");
}

void MakeStatisticsPass(SVideoOutMonitor& roMonitor)
{
    SVideoOutPass oPass = {};
    oPass.flFramePerSecondMin = flRateMinStart;
    oPass.flSetBufferPerSecondMin = flRateMinStart;
    MeasurePass(roMonitor, oPass);
    WalkFields(roMonitor, oPass);
    // Shared with the main thread and the other outputs: their lines may get, or lose, a time header by this.
    g_bAddTimeStamp = 1;
    if (g_bMonitor)
    {
        LogPass(roMonitor, oPass);
    }
    else
    {
        WriteRow(roMonitor, oPass);
    }
    g_bAddTimeStamp = 0;
}

// Runs until the record asks for the end. 0 then; 1 after a status that no wait should give.
uint32_t RunMonitor(SVideoOutMonitor& roMonitor)
{
    const SMonitorUserData& roData = *roMonitor.poData;
    while (!roData.bStopSignal)
    {
        const VtStatus eStatus = VideoOutMonitor_WaitAndStamp(roMonitor);
        if (eStatus == VtStatus_OK)
        {
            VideoOutMonitor_ProcessField(roMonitor);
        }
        else if (eStatus == VtStatus_CANCELED)
        {
            VideoOutMonitor_RestartSamples(roMonitor);
        }
        else if (eStatus != VtStatus_TIMEOUT)
        {
            std::puts("Error VtVideoOut_WaitForFieldStart un-expected return value");
            ReportFailedAssert();
            return 1;
        }
        VideoOutMonitor_Refresh(roMonitor);
    }
    return 0;
}

} // namespace

Bool32 VideoOutMonitor_Open(SVideoOutMonitor& roMonitor)
{
    SMonitorUserData& roData = *roMonitor.poData;
    roMonitor.hDev = roData.hDev;
    roMonitor.uiVideoOutIndex = roData.uiInOutIndex;
    roMonitor.ePowerState = VtVideoOut_PowerState_OFF;
    KrvTools_strcpy_s(roMonitor.szPixelFormat, sizeof(roMonitor.szPixelFormat), szUnknownPixelFormat);
    KrvTools_strcpy_s(roData.szFpsData, sizeof(roData.szFpsData), "UNUSED");
    GetVideoNameString(roMonitor.hDev, roMonitor.uiVideoOutIndex, 0, roMonitor.szVideoName);
    const VtStatus eStatus = VtVideoOut_GetHandle(roMonitor.hDev, roMonitor.uiVideoOutIndex, VtAccessMode_READONLY,
                                                  &roMonitor.hVideoOutHandle);
    if (eStatus < 0)
    {
        std::puts("Error : VtVideoOut_GetHandle failed!");
        ReportFailedAssert();
        return 0;
    }
    roMonitor.uiTickPerSecond = ReadTickFrequency(roData);
    return 1;
}

VtStatus VideoOutMonitor_WaitAndStamp(SVideoOutMonitor& roMonitor)
{
    const uint32_t uiSlot = roMonitor.uiSampleCount % NB_OF_SAMPLES;
    return VtVideoOut_WaitForFieldStart(roMonitor.hVideoOutHandle, uiFieldWaitTimeOutMs,
                                        &roMonitor.auiFieldCounter[uiSlot], &roMonitor.auiSetBufferCounter[uiSlot],
                                        &roMonitor.poData->auiTickRefCounter[uiSlot], &roMonitor.abIsTopField[uiSlot]);
}

void VideoOutMonitor_ProcessField(SVideoOutMonitor& roMonitor)
{
    SMonitorUserData& roData = *roMonitor.poData;
    static_cast<void>(VtVideoOut_GetVideoParameters(roMonitor.hVideoOutHandle, &roMonitor.oCurrentVidParam));
    PublishRates(roData, roMonitor.oCurrentVidParam);
    const uint32_t uiNextCount = roMonitor.uiSampleCount + 1;
    const uint32_t uiSampleFreq = FieldsPerPass(roMonitor.oCurrentVidParam.uiVRate_Hz);
    if (uiNextCount % uiSampleFreq == 0)
    {
        MakeStatisticsPass(roMonitor);
        roMonitor.uiLastSampleCount = roMonitor.uiSampleCount;
    }
    roMonitor.uiSampleCount = uiNextCount;
    if (roMonitor.bLastWaitCanceled)
    {
        roData.bShowExtraData = 1;
        roData.bShowDetailedTiming = 0;
        KrvTools_strcpy_s(roMonitor.szPixelFormat, sizeof(roMonitor.szPixelFormat), szUnknownPixelFormat);
        KrvTools_memset(roMonitor.szVideoParam, 0, sizeof(roMonitor.szVideoParam));
        roMonitor.bLastWaitCanceled = 0;
    }
}

void VideoOutMonitor_RestartSamples(SVideoOutMonitor& roMonitor)
{
    g_oOsServices.SleepMilliSeconds(uiLostSignalPauseMs);
    roMonitor.uiSampleCount = 0;
    roMonitor.uiLastSampleCount = 0;
    roMonitor.bLastWaitCanceled = 1;
}

void VideoOutMonitor_Refresh(SVideoOutMonitor& roMonitor)
{
    SMonitorUserData& roData = *roMonitor.poData;
    if (!roData.bShowExtraData && !roData.bShowDetailedTiming)
    {
        return;
    }
    roMonitor.ePixelFmt = VtPixelFormat_UNKOWN;
    roMonitor.uiBuffWidth = 0;
    roMonitor.uiBuffHeight = 0;
    roMonitor.uiBuffLUID = 0;
    if (VtVideoOut_GetBufferAttributes(roMonitor.hVideoOutHandle, &roMonitor.ePixelFmt, &roMonitor.uiBuffWidth,
                                       &roMonitor.uiBuffHeight, &roMonitor.uiBuffLUID) == VtStatus_OK)
    {
        GetPixelFormatString(roMonitor.ePixelFmt, roMonitor.szPixelFormat);
    }
    if (VtVideoOut_GetVideoParameters(roMonitor.hVideoOutHandle, &roMonitor.oCurrentVidParam) == VtStatus_OK)
    {
        roData.bShowExtraData = 0;
        roData.bShowDetailedTiming = 0;
    }
    GetVideoParamString(&roMonitor.oCurrentVidParam, roMonitor.szVideoParam);
    static_cast<void>(VtVideoOut_GetPowerState(roMonitor.hVideoOutHandle, &roMonitor.ePowerState));
    VTSTR4096 szDescription;
    std::snprintf(szDescription, sizeof(szDescription), "[OUT_%02d] - %s - %s %s %s", LowInt(roMonitor.uiVideoOutIndex),
                  roMonitor.szVideoName, roMonitor.szVideoParam, roMonitor.szPixelFormat,
                  PowerStateToString(roMonitor.ePowerState));
    KrvTools_strcpy_s(roData.szVidParam, sizeof(roData.szVidParam), szDescription);
}

void VideoOutMonitor_Close(SVideoOutMonitor& roMonitor)
{
    if (roMonitor.hVideoOutHandle != nullptr)
    {
        static_cast<void>(VtVideoOut_ReleaseHandle(roMonitor.hVideoOutHandle));
        roMonitor.hVideoOutHandle = nullptr;
    }
}

uint32_t VtVideoOutMonitorThreadFunc(void* pvData)
{
    if (pvData == nullptr)
    {
        return 1;
    }
    SVideoOutMonitor oMonitor = {};
    oMonitor.poData = static_cast<SMonitorUserData*>(pvData);
    uint32_t uiResult = 1;
    if (VideoOutMonitor_Open(oMonitor))
    {
        g_oOsServices.Signal_Wait(g_hStartSig, OsServices_INFINITE, 0);
        oMonitor.poData->bFirstPassDone = 1;
        uiResult = RunMonitor(oMonitor);
    }
    // Also when opening failed but left a handle.
    VideoOutMonitor_Close(oMonitor);
    return uiResult;
}
