#include "StatusScreen.h"

#include <span>

#include "ConsoleLog.h"
#include "GenLockDisplay.h"
#include "MonitorGlobals.h"
#include "Terminal.h"

namespace
{

constexpr char szNotice[] = "Timings, frame rates and genlock of every video stream, live. Build";
constexpr char szBuildDate[] = "2017-09-15";

constexpr const char* aszMenuOptions[] = {
    "\n",
    "COMMANDS (PRESS KEY):\n",
    "  <i>      Initialize application threads.\n",
    "  <g>      Cycles display of GENLOCK information (off, general, detailed).\n",
    // The third threshold is 30 lines; the text has always said 40.
    "  <l>      Cycles threshold of GENLOCK information (1, 5, 40, 90 lines).\n",
    "  <t>      Toggles display of extended timing information.\n",
    "  <f>      Toggles display of FPS average min and max values (and reset them).\n",
    "  <1>      Set reference for PPM calculations.\n",
    "  <2>      Reset fps average for PPM calculations.\n",
    "  <r>      Resets the screen output (clear screen).\n",
    "  <d>      Dump raw data info (debug).\n",
    "  <q>      To quit.\n",
    "\n",
};

constexpr const char* aszHeadingsVideoIn[] = {
    "           FRAMES_PER_SECOND     READIES               LOANS                FRAMES                             ",
    "   ID      Avg    Max    Min     Avg    Max    Min     Avg    Max    Min    Skipped   Missed  Doubled   Total  ",
    "========  ====== ====== ======  ====== ====== ======  ====== ====== ======  ======== ======== ======== ========",
};

constexpr const char* aszHeadingsVideoOut[] = {
    "           FRAMES_PER_SECOND    SETBUFFER_PER_SECOND  FRAMES                             ",
    "   ID      Avg    Max    Min     Avg    Max    Min    Skipped    Set    Doubled   Total  ",
    "========  ====== ====== ======  ====== ====== ======  ======== ======== ======== ========",
};

void DisplayStreamList(const SMonitorStreams& roStreams)
{
    Log("%s\n", roStreams.bIsVideoIn ? "VIDEO_INPUT:" : "VIDEO_OUTPUT:");
    for (const SMonitorUserData& roData : std::span(roStreams.paoVideoMonitorData, roStreams.uiNbOfVideo))
    {
        if (roStreams.bIsVideoIn)
        {
            Log("    %s (%s)\n", roData.szVidParam, roData.szVideoState);
        }
        else
        {
            Log("    %s\n", roData.szVidParam);
        }
    }
    Log("\n");
}

// Logs the rows; 1 when every thread of the direction has been released.
Bool32 DisplayRows(const SMonitorStreams& roStreams)
{
    Bool32 bFirstPassDone = 1;
    for (const SMonitorUserData& roData : std::span(roStreams.paoVideoMonitorData, roStreams.uiNbOfVideo))
    {
        Log("%s\n", g_bInitialLaunch ? roStreams.szEmptyLine : roData.szStatusData);
        if (!roData.bFirstPassDone)
        {
            bFirstPassDone = 0;
        }
    }
    Log("\n");
    return bFirstPassDone;
}

void DisplayFrameRateDetails(const SMonitorStreams& roStreams)
{
    for (const SMonitorUserData& roData : std::span(roStreams.paoVideoMonitorData, roStreams.uiNbOfVideo))
    {
        Log("%s\n", roData.szFpsData);
    }
    Log("\n");
}

void DisplayStreams(const SMonitorRun& roRun, const SMonitorStreams& roStreams)
{
    if (roStreams.uiNbOfVideo == 0)
    {
        return;
    }
    DisplayStreamList(roStreams);
    for (const char* szHeading : roStreams.bIsVideoIn ? aszHeadingsVideoIn : aszHeadingsVideoOut)
    {
        Log("%s\n", szHeading);
    }
    // The log file gets these lines of every redraw, behind a time header.
    g_bAddTimeStamp = 1;
    const Bool32 bFirstPassDone = DisplayRows(roStreams);
    if (g_bFpsDetailedInfo)
    {
        DisplayFrameRateDetails(roStreams);
    }
    g_bAddTimeStamp = 0;
    if (roRun.uiGenLockDisplayMode != GENLOCK_DISPLAY_OFF && roStreams.uiNbOfVideo >= 2 && bFirstPassDone)
    {
        DisplayGenLock(roStreams.uiNbOfVideo, roStreams.bIsVideoIn, roRun.uiGenLockDisplayMode,
                       roRun.uiGenLockThresholdMode, roStreams.paoVideoMonitorData, roStreams.pauiVideoLastTimeStamp);
    }
}

} // namespace

void DisplayBanner()
{
    Log("%s %d.%d.%d.%d\n", "Korvani VtVideoMonitor - Version", 4, 1, 0, 146);
    Log("%s %s \n\n", szNotice, szBuildDate);
}

void DisplayMenuOptions()
{
    for (const char* szLine : aszMenuOptions)
    {
        Log("%s", szLine);
    }
}

void RedrawStatusScreen(SMonitorRun& roRun)
{
    GetTimeString(roRun.szCurrentTime);
    if (TakeScreenResize())
    {
        // The terminal has moved the old table, or parts of it, to where this one does not come.
        ClearScreen();
    }
    SetCursorPosition(0, 0);
    DisplayBanner();
    Log("%s%s\n", "Start Time   : ", roRun.szStartTime);
    Log("%s%s\n\n", "Current Time : ", roRun.szCurrentTime);
    DisplayMenuOptions();
    DisplayStreams(roRun, roRun.oVideoIn);
    DisplayStreams(roRun, roRun.oVideoOut);
    Log("\n");
    if (g_bStatus && !g_bInitialLaunch)
    {
        roRun.bStopSignal = 1;
    }
    g_bInitialLaunch = 0;
}
