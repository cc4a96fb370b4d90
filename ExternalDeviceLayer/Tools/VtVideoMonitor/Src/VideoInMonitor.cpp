#include "VideoInMonitor.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "AssertReport.h"
#include "ConsoleLog.h"
#include "FrameRateTotals.h"
#include "KrvTools.h"
#include "MonitorGlobals.h"
#include "VideoDescription.h"
#include "VtBoard.h"

namespace
{

constexpr double flRateMinStart = 999.0;
constexpr uint32_t uiCountMinStart = 999;
constexpr double flRateTolerance = 2.0;

// Field intervals outside of these count as doubled or missed, seconds. Single precision, as the nominal rate.
struct SIntervalLimits
{
    float flFrameDoubledTreshold;
    float flFrameMissedTreshold;
};

SIntervalLimits ComputeLimits(double flNominalRate, Bool32 bInterlaced)
{
    const float flRate = static_cast<float>(flNominalRate);
    SIntervalLimits oLimits = {0.5F / flRate, 1.5F / flRate};
    if (bInterlaced)
    {
        oLimits.flFrameDoubledTreshold *= 0.5F;
        oLimits.flFrameMissedTreshold *= 0.5F;
    }
    return oLimits;
}

// The skip count of the board; 1 when the board answered well. A failing call leaves a count of 0.
Bool32 ReadSkipCount(SVideoInMonitor& roMonitor)
{
    VtBoard_CaptureSkipBufferCountIn oIn = {roMonitor.uiVideoInIndex};
    VtBoard_CaptureSkipBufferCountOut oOut = {};
    const VtStatus eStatus = VtBoard_CustomCall(roMonitor.hDev, VtBoard_CustomCallId_GET_CAPTURE_SKIP_BUFFER_COUNT,
                                                &oIn, sizeof(oIn), &oOut, sizeof(oOut));
    roMonitor.uiFrameSkipped = oOut.uiSkipBuffCnt;
    if (eStatus == VtStatus_OK)
    {
        return 1;
    }
    Log("[IN_%02d] custom call GET_CAPTURE_SKIP_BUFFER_COUNT status = %s\n", LowInt(roMonitor.uiVideoInIndex),
        VtStatusToString(eStatus));
    return 0;
}

// Rate over the pass and the long-run totals. 0 when the board could not tell the skip count.
Bool32 MeasurePass(SVideoInMonitor& roMonitor, SVideoInPass& roPass)
{
    SMonitorUserData& roData = *roMonitor.poData;
    const uint32_t uiSlot = roMonitor.uiSampleCount % NB_OF_SAMPLES;
    const uint32_t uiLastSlot = roMonitor.uiLastSampleCount % NB_OF_SAMPLES;
    const uint64_t uiTick0 = roData.auiTickRefCounter[uiLastSlot];
    const uint64_t uiTick1 = roData.auiTickRefCounter[uiSlot];
    if (uiTick0 == 0 || uiTick0 >= uiTick1)
    {
        return 1;
    }
    const uint64_t uiCounts = roMonitor.auiFieldCounter[uiSlot] - roMonitor.auiFieldCounter[uiLastSlot];
    const uint64_t uiTicks = uiTick1 - uiTick0;
    roMonitor.uiFrameTotal += uiCounts >> uiCountToFieldShift;
    roPass.flFramePerSecondCur =
        FieldRate(uiCounts, TicksToSeconds(uiTicks, roMonitor.uiTickPerSecond), roMonitor.oCurrentVidParam.bInterlaced);
    const Bool32 bIsGood = ReadSkipCount(roMonitor);
    AddPassToTotals(roData, uiCounts, uiTicks, roMonitor.uiTickPerSecond, roPass.flFramePerSecondCur);
    return bIsGood;
}

// One step of the scan: the interval between two neighbouring slots.
void ScanInterval(SVideoInMonitor& roMonitor, uint32_t uiIndex0, uint32_t uiIndex1, const SIntervalLimits& roLimits,
                  SVideoInPass& roPass)
{
    const uint64_t uiTick0 = roMonitor.poData->auiTickRefCounter[uiIndex0];
    const uint64_t uiTick1 = roMonitor.poData->auiTickRefCounter[uiIndex1];
    if (uiTick0 == 0 || uiTick0 >= uiTick1)
    {
        return;
    }
    const uint64_t uiCounter0 = roMonitor.auiFieldCounter[uiIndex0];
    const uint64_t uiCounter1 = roMonitor.auiFieldCounter[uiIndex1];
    const double flInterval = TicksToSeconds(uiTick1 - uiTick0, roMonitor.uiTickPerSecond);
    const double flRate = FieldRate(uiCounter1 - uiCounter0, flInterval, roMonitor.oCurrentVidParam.bInterlaced);
    roPass.flFramePerSecondMin = std::min(roPass.flFramePerSecondMin, flRate);
    roPass.flFramePerSecondMax = std::max(roPass.flFramePerSecondMax, flRate);
    if (uiCounter1 - uiCounter0 > uiCountsPerField)
    {
        Log("[IN_%02d] Abnormal FieldCounter increment detected from 0x%x to 0x%X\n", LowInt(roMonitor.uiVideoInIndex),
            static_cast<uint32_t>(uiCounter0), static_cast<uint32_t>(uiCounter1));
    }
    if (static_cast<double>(roLimits.flFrameDoubledTreshold) > flInterval)
    {
        ++roMonitor.uiFrameDoubled;
    }
    if (flInterval > static_cast<double>(roLimits.flFrameMissedTreshold))
    {
        ++roMonitor.uiFrameMissed;
    }
}

void ScanFields(SVideoInMonitor& roMonitor, SVideoInPass& roPass)
{
    const uint32_t uiNbOfSamples = FieldsInRing(roMonitor.uiSampleCount, roMonitor.uiLastSampleCount);
    if (uiNbOfSamples == 0)
    {
        return;
    }
    const uint32_t uiFirst = roMonitor.uiLastSampleCount % NB_OF_SAMPLES;
    const SIntervalLimits oLimits = ComputeLimits(roMonitor.flCurrVideoVRate, roMonitor.oCurrentVidParam.bInterlaced);
    uint32_t uiReadySum = 0;
    uint32_t uiLoanSum = 0;
    for (uint32_t k = 0; k < uiNbOfSamples; ++k)
    {
        ScanInterval(roMonitor, (uiFirst + k) % NB_OF_SAMPLES, (uiFirst + k + 1) % NB_OF_SAMPLES, oLimits, roPass);
        // The buffer counts come from the start of their arrays, not from the slots of the pass: kept as it is.
        const uint32_t uiReady = roMonitor.auiReadyBufferCount[k];
        const uint32_t uiLoan = roMonitor.auiLoanBufferCount[k];
        uiReadySum += uiReady;
        uiLoanSum += uiLoan;
        roPass.uiReadyCountMax = std::max(roPass.uiReadyCountMax, uiReady);
        roPass.uiReadyCountMin = std::min(roPass.uiReadyCountMin, uiReady);
        roPass.uiLoanCountMax = std::max(roPass.uiLoanCountMax, uiLoan);
        roPass.uiLoanCountMin = std::min(roPass.uiLoanCountMin, uiLoan);
    }
    roPass.flReadyCountAvg = static_cast<double>(uiReadySum) / uiNbOfSamples;
    roPass.flLoanCountAvg = static_cast<double>(uiLoanSum) / uiNbOfSamples;
}

bool IsInError(const SVideoInPass& roPass, double flNominalRate)
{
    return std::fabs(roPass.flFramePerSecondCur - flNominalRate) > flRateTolerance ||
           std::fabs(roPass.flFramePerSecondMin - flNominalRate) > flRateTolerance ||
           std::fabs(roPass.flFramePerSecondMax - flNominalRate) > flRateTolerance;
}

void LogPass(const SVideoInMonitor& roMonitor, const SVideoInPass& roPass)
{
    Log("[%s - %s %s, NumBuf=%d] FpsAvg=%3.2f FpsMax=%3.2f FpsMin=%3.2f RdyAvg=%3.2f RdyMax=%02d RdyMin=%02d "
        "LoanAvg=%3.2f LoanMax=%02d LoanMin=%02d Skip=%d \t Frame= %d\n",
        roMonitor.szVideoName, roMonitor.szVideoParam, roMonitor.szPixelFormat, LowInt(roMonitor.uiNbOfBuffer),
        roPass.flFramePerSecondCur, roPass.flFramePerSecondMax, roPass.flFramePerSecondMin, roPass.flReadyCountAvg,
        LowInt(roPass.uiReadyCountMax), LowInt(roPass.uiReadyCountMin), roPass.flLoanCountAvg,
        LowInt(roPass.uiLoanCountMax), LowInt(roPass.uiLoanCountMin), LowInt(roMonitor.uiFrameSkipped),
        LowInt(roMonitor.uiFrameTotal));
}

void WriteRow(const SVideoInMonitor& roMonitor, const SVideoInPass& roPass)
{
    SMonitorUserData& roData = *roMonitor.poData;
    std::snprintf(roData.szStatusData, sizeof(roData.szStatusData),
                  "[IN_%02d]   %6.2f %6.2f %6.2f  %6.2f %6d %6d  %6.2f %6d %6d  %8lu %8lu %8lu %8lu",
                  LowInt(roMonitor.uiVideoInIndex), roPass.flFramePerSecondCur, roPass.flFramePerSecondMax,
                  roPass.flFramePerSecondMin, roPass.flReadyCountAvg, LowInt(roPass.uiReadyCountMax),
                  LowInt(roPass.uiReadyCountMin), roPass.flLoanCountAvg, LowInt(roPass.uiLoanCountMax),
                  LowInt(roPass.uiLoanCountMin), roMonitor.uiFrameSkipped, roMonitor.uiFrameMissed,
                  roMonitor.uiFrameDoubled, roMonitor.uiFrameTotal);
    FormatFrameRateDetails(roData, "IN");
}

// The pass flag: 0 only when the board could not tell the skip count.
Bool32 MakeStatisticsPass(SVideoInMonitor& roMonitor)
{
    SVideoInPass oPass = {};
    oPass.flFramePerSecondMin = flRateMinStart;
    oPass.uiReadyCountMin = uiCountMinStart;
    oPass.uiLoanCountMin = uiCountMinStart;
    const Bool32 bIsGood = MeasurePass(roMonitor, oPass);
    ScanFields(roMonitor, oPass);
    roMonitor.uiLastSampleCount = roMonitor.uiSampleCount;
    if (roMonitor.bShowOnlyError && !IsInError(oPass, roMonitor.flCurrVideoVRate))
    {
        return bIsGood;
    }
    GetPixelFormatString(roMonitor.ePixelFormat, roMonitor.szPixelFormat);
    if (g_bMonitor)
    {
        LogPass(roMonitor, oPass);
    }
    else
    {
        WriteRow(roMonitor, oPass);
    }
    return bIsGood;
}

// Runs until the record asks for the end. 0 then; 1 after a status that no wait should give.
uint32_t RunMonitor(SVideoInMonitor& roMonitor)
{
    const SMonitorUserData& roData = *roMonitor.poData;
    while (!roData.bStopSignal)
    {
        const VtStatus eStatus = VideoInMonitor_WaitAndStamp(roMonitor);
        if (eStatus == VtStatus_OK)
        {
            VideoInMonitor_ProcessField(roMonitor);
        }
        else if (eStatus == VtStatus_CANCELED)
        {
            VideoInMonitor_RestartSamples(roMonitor);
        }
        else if (eStatus != VtStatus_TIMEOUT)
        {
            std::puts("Error VtVideoIn_WaitForFieldStart un-expected return value");
            ReportFailedAssert();
            return 1;
        }
        VideoInMonitor_Refresh(roMonitor);
    }
    return 0;
}

} // namespace

Bool32 VideoInMonitor_Open(SVideoInMonitor& roMonitor)
{
    SMonitorUserData& roData = *roMonitor.poData;
    roMonitor.hDev = roData.hDev;
    roMonitor.uiVideoInIndex = roData.uiInOutIndex;
    roMonitor.bShowOnlyError = roData.bOnlyShowError;
    GetVideoNameString(roMonitor.hDev, roMonitor.uiVideoInIndex, 1, roMonitor.szVideoName);
    roMonitor.uiTickPerSecond = ReadTickFrequency(roData);
    const VtStatus eStatus =
        VtVideoIn_GetHandle(roMonitor.hDev, roMonitor.uiVideoInIndex, VtAccessMode_READONLY, &roMonitor.hVideoInHandle);
    if (eStatus < 0)
    {
        roMonitor.hVideoInHandle = nullptr;
        std::puts("Error : VtVideoIn_GetHandle failed!");
        ReportFailedAssert();
        return 0;
    }
    static_cast<void>(VtVideoIn_GetDetectedVideoParameters(roMonitor.hVideoInHandle, &roMonitor.oCurrentVidParam));
    roMonitor.flCurrVideoVRate = ComputeNominalRate(roMonitor.oCurrentVidParam, roMonitor.uiTotalScreenPixels);
    return 1;
}

VtStatus VideoInMonitor_WaitAndStamp(SVideoInMonitor& roMonitor)
{
    SMonitorUserData& roData = *roMonitor.poData;
    const uint32_t uiSlot = roMonitor.uiSampleCount % NB_OF_SAMPLES;
    uint64_t uiTickRefCounter = 0;
    const VtStatus eStatus =
        VtVideoIn_WaitForFieldStart(roMonitor.hVideoInHandle, uiFieldWaitTimeOutMs, &roMonitor.auiFieldCounter[uiSlot],
                                    &uiTickRefCounter, &roMonitor.abIsTopField[uiSlot]);
    {
        OsMutexGuard oGuard(g_oMutex, OsServices_INFINITE);
        roData.auiTickRefCounter[uiSlot] = uiTickRefCounter;
    }
    static_cast<void>(VtVideoIn_GetCaptureState(roMonitor.hVideoInHandle, &roMonitor.eCaptureState,
                                                &roMonitor.uiTotalBufferCount, &roMonitor.auiReadyBufferCount[uiSlot],
                                                &roMonitor.auiLoanBufferCount[uiSlot],
                                                &roMonitor.uiInternalBufferCount));
    const char* szCaptureState = VtVideoInStateToString(roMonitor.eCaptureState);
    if (szCaptureState != roMonitor.szCaptureState)
    {
        roMonitor.szCaptureState = szCaptureState;
        KrvTools_strcpy_s(roData.szVideoState, sizeof(roData.szVideoState), szCaptureState);
    }
    return eStatus;
}

void VideoInMonitor_ProcessField(SVideoInMonitor& roMonitor)
{
    SMonitorUserData& roData = *roMonitor.poData;
    Bool32 bIsGood = 1;
    PublishRates(roData, roMonitor.oCurrentVidParam);
    const uint32_t uiNextCount = roMonitor.uiSampleCount + 1;
    const uint32_t uiSampleFreq = FieldsPerPass(roMonitor.oCurrentVidParam.uiVRate_Hz);
    if (uiNextCount % uiSampleFreq == 0)
    {
        bIsGood = MakeStatisticsPass(roMonitor);
    }
    if (roMonitor.bLastWaitCanceled && bIsGood)
    {
        roData.bShowExtraData = 1;
        roData.bShowDetailedTiming = 0;
        KrvTools_memset(roMonitor.szVideoParam, 0, sizeof(roMonitor.szVideoParam));
        roMonitor.bLastWaitCanceled = 0;
    }
    roMonitor.uiSampleCount = uiNextCount;
}

void VideoInMonitor_RestartSamples(SVideoInMonitor& roMonitor)
{
    g_oOsServices.SleepMilliSeconds(uiLostSignalPauseMs);
    roMonitor.uiSampleCount = 0;
    roMonitor.uiLastSampleCount = 0;
    roMonitor.bLastWaitCanceled = 1;
}

void VideoInMonitor_Refresh(SVideoInMonitor& roMonitor)
{
    SMonitorUserData& roData = *roMonitor.poData;
    if (!roData.bShowExtraData && !roData.bShowDetailedTiming)
    {
        return;
    }
    static_cast<void>(VtVideoIn_GetDetectedVideoParameters(roMonitor.hVideoInHandle, &roMonitor.oCurrentVidParam));
    GetVideoParamString(&roMonitor.oCurrentVidParam, roMonitor.szVideoParam);
    static_cast<void>(VtVideoIn_GetBufferAttributes(roMonitor.hVideoInHandle, &roMonitor.uiWidth, &roMonitor.uiHeight,
                                                    &roMonitor.ePixelFormat, &roMonitor.uiNbOfBuffer));
    GetPixelFormatString(roMonitor.ePixelFormat, roMonitor.szPixelFormat);
    roData.bShowExtraData = 0;
    roData.bShowDetailedTiming = 0;
    VTSTR4096 szDescription;
    std::snprintf(szDescription, sizeof(szDescription), "[IN_%02d] - %s - %s %s, NumBuf=%d",
                  LowInt(roMonitor.uiVideoInIndex), roMonitor.szVideoName, roMonitor.szVideoParam,
                  roMonitor.szPixelFormat, LowInt(roMonitor.uiNbOfBuffer));
    KrvTools_strcpy_s(roData.szVidParam, sizeof(roData.szVidParam), szDescription);
}

void VideoInMonitor_Close(SVideoInMonitor& roMonitor)
{
    if (roMonitor.hVideoInHandle != nullptr)
    {
        static_cast<void>(VtVideoIn_ReleaseHandle(roMonitor.hVideoInHandle));
        roMonitor.hVideoInHandle = nullptr;
    }
}

uint32_t VtVideoInMonitorThreadFunc(void* pvData)
{
    if (pvData == nullptr)
    {
        return 1;
    }
    SVideoInMonitor oMonitor = {};
    oMonitor.poData = static_cast<SMonitorUserData*>(pvData);
    if (!VideoInMonitor_Open(oMonitor))
    {
        return 1;
    }
    g_oOsServices.Signal_Wait(g_hStartSig, OsServices_INFINITE, 0);
    if (!oMonitor.poData->bFirstPassDone)
    {
        oMonitor.poData->bFirstPassDone = 1;
    }
    const uint32_t uiResult = RunMonitor(oMonitor);
    VideoInMonitor_Close(oMonitor);
    return uiResult;
}
