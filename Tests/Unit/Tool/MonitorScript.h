// Runs a monitor's thread function on the test's own thread against a scenario of the simulated board in stepped time.
// Nobody is there to ask for the end, so the board does: the wait behind the last one of the script fails.
#ifndef MONITOR_SCRIPT_H
#define MONITOR_SCRIPT_H

#include <gtest/gtest.h>

#include <cstdio>
#include <regex>
#include <string>

#include "KrvTools.h"
#include "MonitorGlobals.h"
#include "MonitorUserData.h"
#include "VtSimulatedBoard.h"

constexpr char TIMING_OF_CLOCK[] =
    "timing = { h_active = 1920, h_front_porch = 88, h_sync = 44, h_back_porch = 148, v_active = 1080, "
    "v_front_porch = 4, v_sync = 5, v_back_porch = 36, pixel_clock_hz = ";

inline std::string FailingCall(const std::string& szOperation, const std::string& szStatus, const std::string& szWhen)
{
    return "[[fault]]\noperation = \"" + szOperation + "\"\nstatus = \"" + szStatus + "\"\n" + szWhen + "\n";
}

// Loads a scenario, which must be right, and opens its chip.
inline VtDevice_Handle LoadScenario(const std::string& szText)
{
    char szFault[256] = "";
    EXPECT_EQ(VtSim_SetScenario(szText.c_str(), szFault, sizeof(szFault)), VtStatus_OK) << szFault << "\n" << szText;
    Veltrano_LoadLite();
    return Veltrano_GetDevice(0);
}

// What is printed between the two, without the place of assertion reports.
inline void BeginPrinted()
{
    testing::internal::CaptureStdout();
}

inline std::string EndPrinted()
{
    std::fflush(stdout);
    static const std::regex oReport("[^\n]*(Video[A-Za-z]*\\.cpp)\\([0-9]+\\) Assertion failed");
    return std::regex_replace(testing::internal::GetCapturedStdout(), oReport, "$1 Assertion failed");
}

// One stream at 6 MHz, which makes a field of 1080p60 100000 ticks, and one thread function.
struct SMonitorScript
{
    const char* szDirection; // "In" or "Out"
    uint32_t (*pfnThread)(void*);
    SMonitorUserData oData = {};
    uint32_t uiResult = 0;

    SMonitorScript(const char* szWay, uint32_t (*pfnFunction)(void*)) : szDirection(szWay), pfnThread(pfnFunction)
    {
        g_bMonitor = g_bStatus = g_bLog = g_bAddTimeStamp = g_bInitialLaunch = g_bExtendVidTimingDetails = 0;
        oData.bShowExtraData = 1;
        oData.uiTickRefFreq = 1;
        KrvTools_strcpy_s(oData.szStatusData, sizeof(oData.szStatusData), "placeholder");
    }

    // What was printed until the last wait; the message of that one is checked and taken off.
    std::string Run(const std::string& szStream, uint32_t uiWaits, const std::string& szFaults = "")
    {
        const std::string szWait = std::string("VtVideo") + szDirection + "_WaitForFieldStart";
        const std::string szTable = szDirection == std::string("In") ? "[[chip.input]]" : "[[chip.output]]";
        oData.hDev = LoadScenario("[time]\nmode = \"stepped\"\n[[chip]]\ntick_frequency_hz = 6000000\n" + szTable +
                                  "\nconnector = \"SDI A\"\n" + szStream + "\n" + szFaults +
                                  FailingCall(szWait, "VtStatus_FAIL", "call = " + std::to_string(uiWaits + 1)));
        BeginPrinted();
        uiResult = pfnThread(&oData);
        std::string szPrinted = EndPrinted();
        const std::string szEnd =
            "Error " + szWait + " un-expected return value\nVideo" + szDirection + "Monitor.cpp Assertion failed\n";
        if (szPrinted.ends_with(szEnd))
        {
            EXPECT_EQ(uiResult, 1U);
            EXPECT_EQ(VtSim_GetCallCount(szWait.c_str()), uiWaits + 1U);
            szPrinted.resize(szPrinted.size() - szEnd.size());
        }
        EXPECT_EQ(VtSim_GetOpenHandleCount(), 0U);
        Veltrano_UnLoad();
        return szPrinted;
    }
};

#endif
