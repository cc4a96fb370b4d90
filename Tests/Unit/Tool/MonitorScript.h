// Runs a monitor's thread function on the test's own thread against a scenario of the simulated board in stepped time.
// Nobody is there to ask for the end, so the board does: the wait behind the last one of the script fails.
#ifndef MONITOR_SCRIPT_H
#define MONITOR_SCRIPT_H

#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "KrvTools.h"
#include "MonitorGlobals.h"
#include "MonitorUserData.h"
#include "VtSimulatedBoard.h"

// What the process has allocated so far, and how long it has paused, microseconds; a script really does not.
extern uint64_t g_uiAllocations;
extern uint64_t g_uiPausedUs;

const std::string HD60 = "standard = '1080p60'\n";
const std::string FULL_HD = // up to its pixel clock
    "timing = { h_active = 1920, h_front_porch = 88, h_sync = 44, h_back_porch = 148, v_active = 1080, "
    "v_front_porch = 4, v_sync = 5, v_back_porch = 36, pixel_clock_hz = ";

// A stream of one kind or another, and what its monitor makes of it after so many waits.
struct SMonitorCase
{
    const char* szName;
    std::string szStream;
    uint32_t uiWaits;
    std::string szStatusData;
    std::string szRates;
    std::string szDescription = "1920 x 1080p @ 60 Hz (YUV)";
    std::string szFaults = "";
    std::string szPrinted = "";
};

inline std::string Event(const std::string& szKind, const std::string& szKeys)
{
    return "[[event]]\nkind = '" + szKind + "'\n" + szKeys + "\n";
}

inline std::string FailingCall(const std::string& szOperation, const std::string& szStatus, const std::string& szWhen)
{
    return "[[fault]]\noperation = '" + szOperation + "'\nstatus = 'VtStatus_" + szStatus + "'\n" + szWhen + "\n";
}

// Loads a scenario, which must be right, in place of the one before, and opens its chip.
inline VtDevice_Handle LoadScenario(const std::string& szText)
{
    char szFault[256] = "";
    EXPECT_EQ(VtSim_SetScenario(szText.c_str(), szFault, sizeof(szFault)), VtStatus_OK) << szFault << "\n" << szText;
    Veltrano_UnLoad();
    Veltrano_LoadLite();
    return Veltrano_GetDevice(0);
}

// What a function prints. Of an assertion report without the place: "Source.cpp Assertion failed".
template <typename TFunction> std::string Printed(TFunction pfnFunction)
{
    testing::internal::CaptureStdout();
    pfnFunction();
    const std::regex oPlace(R"(.* (.*)\(\d+\) Assertion failed)");
    return std::regex_replace(testing::internal::GetCapturedStdout(), oPlace, "$1 Assertion failed");
}

struct SMonitorScript
{
    const std::string szDirection; // "In" or "Out"
    uint32_t (*const pfnThread)(void*);
    SMonitorUserData oData = {};
    std::string szHead;                                 // keys before the tables
    std::string szChip = "tick_frequency_hz = 6000000"; // a field of 1080p60 lasts 100000 ticks
    bool bMayAllocate = false;
    uint32_t uiResult = 0;

    SMonitorScript(const char* szWay, uint32_t (*pfnFunction)(void*)) : szDirection(szWay), pfnThread(pfnFunction)
    {
        g_bMonitor = g_bStatus = g_bLog = g_bAddTimeStamp = g_bInitialLaunch = g_bExtendVidTimingDetails = 0;
        oData.bShowExtraData = 1;
        KrvTools_strcpy_s(oData.szStatusData, sizeof(oData.szStatusData), "placeholder");
    }

    // What was printed until the last wait; the message of that one is checked and taken off.
    std::string Run(const std::string& szStream, uint64_t uiWaits, const std::string& szFaults = "");
};

#endif
