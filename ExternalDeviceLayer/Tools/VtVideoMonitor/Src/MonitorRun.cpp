#include "MonitorRun.h"

#include <cstdio>
#include <memory>
#include <span>

#include "AssertReport.h"
#include "CableLockStatus.h"
#include "ConsoleLog.h"
#include "FrameLockStatus.h"
#include "KeyCommands.h"
#include "KeySequences.h"
#include "KrvTools.h"
#include "MonitorGlobals.h"
#include "StatusScreen.h"
#include "StreamCounts.h"
#include "Terminal.h"
#include "Veltrano.h"
#include "VideoInMonitor.h"
#include "VideoOutMonitor.h"

namespace
{

constexpr uint32_t uiStartPauseMs = 200;
constexpr uint32_t uiLoopPauseMs = 10;
constexpr uint64_t uiRedrawPeriodMs = 2000;
constexpr uint32_t uiMaxBytesPerPass = 64;

// The handles of one direction, null until its threads are started.
HCpuThread* ClearThreads(std::vector<HCpuThread>& rdahThread, uint32_t uiNbOfVideo)
{
    rdahThread.assign(uiNbOfVideo, nullptr);
    return rdahThread.data();
}

void SetMemory(SMonitorStreams& roStreams, HCpuThread* pahVideoMonitorThread, SMonitorUserData* paoVideoMonitorData,
               uint64_t* pauiVideoLastTimeStamp)
{
    roStreams.pahVideoMonitorThread = pahVideoMonitorThread;
    roStreams.paoVideoMonitorData = paoVideoMonitorData;
    roStreams.pauiVideoLastTimeStamp = pauiVideoLastTimeStamp;
}

void StartThreads(SMonitorRun& roRun, SMonitorStreams& roStreams)
{
    CreateThreads(roRun.hDev, roStreams.uiNbOfVideo, roStreams.pahVideoMonitorThread, roStreams.paoVideoMonitorData,
                  roStreams.pThreadFunc, roStreams.szEmptyLine);
}

// A trigger is lost for a thread that comes to its wait later. On a loaded machine one may; it gets another one.
void ReleaseLateThreads(SMonitorRun& roRun)
{
    for (const SMonitorStreams* poStreams : {&roRun.oVideoOut, &roRun.oVideoIn})
    {
        for (const SMonitorUserData& roData : std::span(poStreams->paoVideoMonitorData, poStreams->uiNbOfVideo))
        {
            if (!roData.bFirstPassDone)
            {
                g_oOsServices.Signal_Trigger(g_hStartSig);
                return;
            }
        }
    }
}

void ReleaseThreads(SMonitorRun& roRun)
{
    g_oOsServices.SleepMilliSeconds(uiStartPauseMs);
    g_oOsServices.Signal_Trigger(g_hStartSig);
    g_oOsServices.SleepMilliSeconds(uiStartPauseMs);
    ReleaseLateThreads(roRun);
}

void RaiseStopSignal(SMonitorStreams& roStreams)
{
    for (SMonitorUserData& roData : std::span(roStreams.paoVideoMonitorData, roStreams.uiNbOfVideo))
    {
        roData.bStopSignal = 1;
    }
}

void JoinThreads(SMonitorStreams& roStreams)
{
    for (HCpuThread& rhThread : std::span(roStreams.pahVideoMonitorThread, roStreams.uiNbOfVideo))
    {
        g_oOsServices.CpuThread_Join(rhThread);
        g_oOsServices.CpuThread_Destroy(rhThread);
        // A restart may fail before it comes to this entry; the next stop must not find the old handle.
        rhThread = nullptr;
    }
}

void RunLockTests(SMonitorRun& roRun)
{
    const SMonitorStreams& roIn = roRun.oVideoIn;
    const SMonitorStreams& roOut = roRun.oVideoOut;
    if (g_bFrameLockStatus)
    {
        if (roIn.uiNbOfVideo > 0)
        {
            FrameLockStatus(roIn.uiNbOfVideo, roIn.paoVideoMonitorData, roRun.hDev);
        }
        if (roOut.uiNbOfVideo > 0)
        {
            FrameLockStatus(roOut.uiNbOfVideo, roOut.paoVideoMonitorData, roRun.hDev);
        }
    }
    if (g_bCableLockStatus)
    {
        if (roIn.uiNbOfVideo > 0)
        {
            CableLockStatus(roIn.uiNbOfVideo, roIn.paoVideoMonitorData, roRun.hDev);
        }
        if (roOut.uiNbOfVideo > 0)
        {
            CableLockStatus(roOut.uiNbOfVideo, roOut.paoVideoMonitorData, roRun.hDev);
        }
    }
}

void RedrawWhenDue(SMonitorRun& roRun)
{
    if (g_bMonitor)
    {
        return;
    }
    roRun.uiEnd = g_oOsServices.GetTimeInMs();
    if (roRun.uiEnd - roRun.uiStart < uiRedrawPeriodMs)
    {
        return;
    }
    RedrawStatusScreen(roRun);
    roRun.uiStart = roRun.uiEnd;
}

// The next key, -1 when there is none. Sequences are passed over whole; what is left of a very long one waits.
int32_t ReadKey(SKeySequence& roSequence)
{
    for (uint32_t uiByte = 0; uiByte < uiMaxBytesPerPass; ++uiByte)
    {
        const int32_t iByte = getch();
        const uint64_t uiNowMs = g_oOsServices.GetTimeInMs();
        if (iByte == -1)
        {
            ForgetOverdueSequence(roSequence, uiNowMs);
            break;
        }
        if (IsKeyOfItsOwn(roSequence, iByte, uiNowMs))
        {
            return iByte;
        }
    }
    return -1;
}

int32_t RunCommandLoop(SMonitorRun& roRun)
{
    SKeySequence oSequence = {};
    int32_t iRet = -1;
    Bool32 bQuit = 0;
    while (!bQuit)
    {
        g_oOsServices.SleepMilliSeconds(uiLoopPauseMs);
        ReleaseLateThreads(roRun);
        const char cCommand = static_cast<char>(ReadKey(oSequence));
        if (IsQuitKey(cCommand) || roRun.bStopSignal)
        {
            std::puts(" >>> Stopping...");
            iRet = 0;
            bQuit = 1;
        }
        DispatchKey(cCommand, roRun);
        RedrawWhenDue(roRun);
    }
    return iRet;
}

// Counts the streams of one direction. 0, with a count of 0, after a message.
Bool32 CountOrReport(VtDevice_Handle hDev, SMonitorStreams& roStreams)
{
    const char* szOperation = roStreams.bIsVideoIn ? "VtVideoIn_GetCount()" : "VtVideoOut_GetCount()";
    const EStreamCount eOutcome = CountStreams(hDev, roStreams.bIsVideoIn, roStreams.uiNbOfVideo);
    if (eOutcome == EStreamCount::COUNTED)
    {
        return 1;
    }
    if (eOutcome == EStreamCount::FAILED)
    {
        std::printf("Error : %s\n", szOperation);
        ReportFailedAssert();
    }
    else
    {
        std::printf("Error : %s gives %u, a board has at most %u\n", szOperation, roStreams.uiNbOfVideo,
                    uiMaxNbOfVideo);
    }
    roStreams.uiNbOfVideo = 0;
    return 0;
}

// The part of the run between a known number of outputs and the end of all threads.
int32_t MonitorStreams(SMonitorRun& roRun)
{
    const uint32_t uiNbOfVideoOut = roRun.oVideoOut.uiNbOfVideo;
    HCpuThread* pahVideoOutMonitorThread = ClearThreads(g_dahVideoOutMonitorThread, uiNbOfVideoOut);
    const auto paoVideoOutMonitorData = std::make_unique<SMonitorUserData[]>(uiNbOfVideoOut);
    const auto pauiVideoOutLastTimeStamp = std::make_unique<uint64_t[]>(uiNbOfVideoOut);
    SetMemory(roRun.oVideoOut, pahVideoOutMonitorThread, paoVideoOutMonitorData.get(), pauiVideoOutLastTimeStamp.get());
    StartThreads(roRun, roRun.oVideoOut);

    if (!CountOrReport(roRun.hDev, roRun.oVideoIn))
    {
        // The output threads are blocked on the start signal with records that are about to be freed: end them first.
        StopMonitorThreads(roRun);
        return -1;
    }
    const uint32_t uiNbOfVideoIn = roRun.oVideoIn.uiNbOfVideo;
    HCpuThread* pahVideoInMonitorThread = ClearThreads(g_dahVideoInMonitorThread, uiNbOfVideoIn);
    const auto paoVideoInMonitorData = std::make_unique<SMonitorUserData[]>(uiNbOfVideoIn);
    const auto pauiVideoInLastTimeStamp = std::make_unique<uint64_t[]>(uiNbOfVideoIn);
    SetMemory(roRun.oVideoIn, pahVideoInMonitorThread, paoVideoInMonitorData.get(), pauiVideoInLastTimeStamp.get());
    StartThreads(roRun, roRun.oVideoIn);
    ReleaseThreads(roRun);
    roRun.uiStart = g_oOsServices.GetTimeInMs();
    GetTimeString(roRun.szStartTime);

    int32_t iRet = -1;
    if (g_bFrameLockStatus || g_bCableLockStatus)
    {
        RunLockTests(roRun);
    }
    else
    {
        iRet = RunCommandLoop(roRun);
    }
    StopMonitorThreads(roRun);
    return iRet;
}

int32_t OpenAndMonitor(SMonitorRun& roRun)
{
    Veltrano_LoadLite();
    static_cast<void>(Veltrano_Version());
    roRun.hDev = Veltrano_GetDevice(g_uiSelectedGpu);
    if (roRun.hDev == nullptr)
    {
        std::puts("Error : Veltrano_GetDevice, hdev is null");
        return -1;
    }
    return CountOrReport(roRun.hDev, roRun.oVideoOut) ? MonitorStreams(roRun) : -1;
}

} // namespace

int32_t RunTest()
{
    SMonitorRun oRun = {};
    oRun.oVideoOut.pThreadFunc = VtVideoOutMonitorThreadFunc;
    oRun.oVideoOut.szEmptyLine = szEmptyLineVideoOut;
    oRun.oVideoIn.bIsVideoIn = 1;
    oRun.oVideoIn.pThreadFunc = VtVideoInMonitorThreadFunc;
    oRun.oVideoIn.szEmptyLine = szEmptyLineVideoIn;

    g_oOsServices.Signal_Create(g_hStartSig);
    g_bExtendVidTimingDetails = g_bExtendedTimingStart;
    const int32_t iRet = OpenAndMonitor(oRun);
    g_oOsServices.Signal_Destroy(g_hStartSig);
    g_hStartSig = nullptr;
    Veltrano_UnLoad();
    std::puts("Stopped!");
    return iRet;
}

Bool32 CreateThreads(VtDevice_Handle hDev, uint32_t uiNbOfVideo, HCpuThread* pahVideoMonitorThread,
                     SMonitorUserData* paoVideoMonitorData, PfnCpuThreadFunction pThreadFunc, const char* szEmptyLine)
{
    for (uint32_t uiVideoIndex = 0; uiVideoIndex < uiNbOfVideo; ++uiVideoIndex)
    {
        SMonitorUserData& roData = paoVideoMonitorData[uiVideoIndex];
        roData.hDev = hDev;
        roData.uiInOutIndex = uiVideoIndex;
        roData.bStopSignal = 0;
        roData.bShowExtraData = 1;
        roData.bShowDetailedTiming = 0;
        roData.bOnlyShowError = g_bFilterError;
        roData.uiTickRefFreq = 1;
        roData.bFirstPassDone = 0;
        KrvTools_strcpy_s(roData.szStatusData, sizeof(roData.szStatusData), szEmptyLine);
        KrvTools_strcpy_s(roData.szFpsData, sizeof(roData.szFpsData),
                          "--------  --------------- --------------- --------------- -------");
        KrvTools_memset(roData.auiTickRefCounter, 0, sizeof(roData.auiTickRefCounter));
        if (!g_oOsServices.CpuThread_Create(pThreadFunc, &roData, pahVideoMonitorThread[uiVideoIndex]))
        {
            return 0;
        }
    }
    return 1;
}

void StartMonitorThreads(SMonitorRun& roRun)
{
    g_oOsServices.Signal_Activate(g_hStartSig);
    StartThreads(roRun, roRun.oVideoOut);
    StartThreads(roRun, roRun.oVideoIn);
    ReleaseThreads(roRun);
}

void StopMonitorThreads(SMonitorRun& roRun)
{
    RaiseStopSignal(roRun.oVideoIn);
    RaiseStopSignal(roRun.oVideoOut);
    // A thread that missed the trigger would wait for ever, and the join with it. A cancelled signal lets it through,
    // also when it comes to its wait only now.
    g_oOsServices.Signal_Cancel(g_hStartSig);
    JoinThreads(roRun.oVideoIn);
    JoinThreads(roRun.oVideoOut);
}
