#include "KeyCommands.h"

#include <span>

#include "ConsoleLog.h"
#include "KrvMFCTypes.h"
#include "KrvTools.h"
#include "MonitorGlobals.h"
#include "Terminal.h"

namespace
{

constexpr uint32_t uiRestartPauseMs = 500;
constexpr int32_t iLinesAfterDump = 100;

std::span<SMonitorUserData> Records(const SMonitorStreams& roStreams)
{
    return {roStreams.paoVideoMonitorData, roStreams.uiNbOfVideo};
}

template <typename TAction> void ForEachRecord(SMonitorRun& roRun, TAction&& roAction)
{
    for (SMonitorUserData& roData : Records(roRun.oVideoIn))
    {
        roAction(roData);
    }
    for (SMonitorUserData& roData : Records(roRun.oVideoOut))
    {
        roAction(roData);
    }
}

void RefreshDescriptions(SMonitorRun& roRun)
{
    ForEachRecord(roRun, [](SMonitorUserData& roData) { roData.bShowExtraData = 1; });
}

void CycleGenLockDisplay(SMonitorRun& roRun)
{
    roRun.uiGenLockDisplayMode = (roRun.uiGenLockDisplayMode + 1) % GENLOCK_DISPLAY_COUNT;
    ClearScreen();
}

void CycleGenLockThreshold(SMonitorRun& roRun)
{
    roRun.uiGenLockThresholdMode = (roRun.uiGenLockThresholdMode + 1) % GENLOCK_THRESHOLD_COUNT;
    ClearScreen();
}

void ResetScreen(SMonitorRun&)
{
    ClearScreen();
}

// Everything but the reference.
void ResetFrameRateTotals(SMonitorUserData& roData)
{
    roData.uiFpsTotalFieldCounter = 0;
    roData.uiFpsTotalTickRefCounter = 0;
    roData.fFpsAvg = 0.0;
    roData.fFpsMin = 0.0;
    roData.fFpsMax = 0.0;
    roData.fFpsPpm = 0.0;
}

void ToggleFrameRateDetails(SMonitorRun& roRun)
{
    g_bFpsDetailedInfo = !g_bFpsDetailedInfo;
    ForEachRecord(roRun,
                  [](SMonitorUserData& roData)
                  {
                      ResetFrameRateTotals(roData);
                      roData.fFpsRef = 0.0;
                  });
    ClearScreen();
}

// The directions differ on purpose: only outputs get a reference.
void SetPpmReference(SMonitorRun& roRun)
{
    for (SMonitorUserData& roData : Records(roRun.oVideoIn))
    {
        roData.fFpsAvg = 0.0;
        roData.fFpsRef = 0.0;
    }
    for (SMonitorUserData& roData : Records(roRun.oVideoOut))
    {
        roData.fFpsRef = roData.fFpsAvg;
    }
    ClearScreen();
}

void ResetFrameRates(SMonitorRun& roRun)
{
    ForEachRecord(roRun, ResetFrameRateTotals);
    ClearScreen();
}

void ToggleExtendedTimings(SMonitorRun& roRun)
{
    g_bExtendVidTimingDetails = !g_bExtendVidTimingDetails;
    ForEachRecord(roRun, [](SMonitorUserData& roData) { roData.bShowDetailedTiming = 1; });
    ClearScreen();
}

void DumpTimeStamps(const SMonitorStreams& roStreams)
{
    using CTimeStamps = CMArray<uint64_t, uint64_t>;
    CMArray<CTimeStamps, const CTimeStamps&> dapoCopyVideoMonitorData;
    dapoCopyVideoMonitorData.SetSize(static_cast<int32_t>(roStreams.uiNbOfVideo), -1);
    const std::span oCopies(dapoCopyVideoMonitorData.Begin(), dapoCopyVideoMonitorData.End());
    for (CTimeStamps& roTimeStamps : oCopies)
    {
        roTimeStamps.SetSize(NB_OF_SAMPLES, -1);
    }
    {
        OsMutexGuard oGuard(g_oMutex, OsServices_INFINITE);
        const SMonitorUserData* poData = roStreams.paoVideoMonitorData;
        for (CTimeStamps& roTimeStamps : oCopies)
        {
            KrvTools_memcpy(roTimeStamps.GetData(), poData->auiTickRefCounter, sizeof(poData->auiTickRefCounter));
            ++poData;
        }
    }
    Log("\n\nDisplay Raw Data (%s)\n", roStreams.bIsVideoIn ? "VideoIn" : "VideoOut");
    for (uint32_t uiSample = 0; uiSample < NB_OF_SAMPLES; ++uiSample)
    {
        Log("   %03d: ", LowInt(uiSample));
        for (const CTimeStamps& roTimeStamps : oCopies)
        {
            Log("0x%016lX ", roTimeStamps[uiSample]);
        }
        Log("\n");
    }
    Log("\n");
}

void DumpRawData(SMonitorRun& roRun)
{
    if (roRun.oVideoIn.uiNbOfVideo > 0)
    {
        DumpTimeStamps(roRun.oVideoIn);
    }
    if (roRun.oVideoOut.uiNbOfVideo > 0)
    {
        DumpTimeStamps(roRun.oVideoOut);
    }
    if (roRun.oVideoIn.uiNbOfVideo + roRun.oVideoOut.uiNbOfVideo > 0)
    {
        // Pushes the dump up into the scroll-back before the next redraw overwrites the screen.
        for (int32_t iLine = 0; iLine < iLinesAfterDump; ++iLine)
        {
            Log("\n");
        }
    }
}

void RestartThreads(SMonitorRun& roRun)
{
    StopMonitorThreads(roRun);
    g_oOsServices.SleepMilliSeconds(uiRestartPauseMs);
    StartMonitorThreads(roRun);
}

struct SKeyCommand
{
    char cKey; // letters in upper case
    void (*pfnAction)(SMonitorRun& roRun);
};

constexpr SKeyCommand aoKeyCommands[] = {
    {'P', RefreshDescriptions}, // the key help keeps quiet about this one
    {'G', CycleGenLockDisplay},    {'L', CycleGenLockThreshold}, {'R', ResetScreen},
    {'F', ToggleFrameRateDetails}, {'1', SetPpmReference},       {'2', ResetFrameRates},
    {'T', ToggleExtendedTimings},  {'D', DumpRawData},           {'I', RestartThreads},
};

constexpr bool IsLetter(char cKey)
{
    return cKey >= 'A' && cKey <= 'Z';
}

constexpr bool IsKey(char cCommand, char cKey)
{
    constexpr int32_t iCaseBit = 0x20;
    return IsLetter(cKey) ? static_cast<char>(cCommand & ~iCaseBit) == cKey : cCommand == cKey;
}

} // namespace

Bool32 IsQuitKey(char cCommand)
{
    return IsKey(cCommand, 'Q') ? 1 : 0;
}

void DispatchKey(char cCommand, SMonitorRun& roRun)
{
    for (const SKeyCommand& roCommand : aoKeyCommands)
    {
        if (IsKey(cCommand, roCommand.cKey))
        {
            roCommand.pfnAction(roRun);
            return;
        }
    }
}
