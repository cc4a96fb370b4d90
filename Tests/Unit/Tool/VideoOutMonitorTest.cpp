#include "VideoOutMonitor.h"

#include <fstream>

#include "ConsoleLog.h"
#include "MonitorScript.h"

namespace
{

const std::string UNEVEN = "standard = '1080i50'\nset_buffer_pattern = [2, 1, 0, 1]\n";
const std::string HD60_TEXT = "1920 x 1080p @ 60 Hz (YUV) VtPixelFormat_YUV422_UYVY PowerState_ON";
constexpr char ROW60[] = "[OUT_00]   60.00  60.00  60.00   60.00  60.00  60.00         0       29        0       29";
constexpr char RATES60[] = "60.000000 60.000000 60.000000 29";

const SMonitorCase CASES[] = {
    {"TimeOutsChangeNothing", HD60, 33, ROW60, RATES60, HD60_TEXT,
     FailingCall("VtVideoOut_WaitForFieldStart", "TIMEOUT", "call = 5\ntimes = 3")},
    // Frames are halved, set buffers and the long-run average are not.
    {"InterlacedWithSkippedAndDoubled", UNEVEN, 50,
     "[OUT_00]   25.00  25.00  25.00   50.00 100.00  50.00        12       49       12       49",
     "50.000000 25.000000 25.000000 49", "1920 x 1080i @ 50 Hz (YUV) VtPixelFormat_YUV422_UYVY PowerState_ON"},
    // A pass of 125 fields: the walk covers the 119 intervals that the ring holds, the pass rate what its slots say.
    {"HighRate", FULL_HD + "618750000 }\nset_buffer_pattern = [2]", 125,
     "[OUT_00]  250.00 250.00 250.00  500.00 500.00 500.00       119        8        0        4",
     "250.000000 250.000000 250.000000 4", "1920 x 1080p @250 Hz (YUV) VtPixelFormat_YUV422_UYVY PowerState_ON"},
    // The parameters are those of the field, and so is the length of the pass.
    {"FollowsTheFormat", HD60 + Event("format_change", "at_field = 1\n" + FULL_HD + "297000000 }"), 60,
     "[OUT_00]  118.00 120.00  60.00  118.00 120.00  60.00         0       59        0       59",
     "118.000000 118.000000 118.000000 59", HD60_TEXT},
    {"AttributesFail", HD60, 30, ROW60, RATES60, "1920 x 1080p @ 60 Hz (YUV) VtPixelFormat_UNKOWN PowerState_OFF",
     FailingCall("VtVideoOut_GetBufferAttributes", "NOTHING_DONE", "times = 0") +
         FailingCall("VtVideoOut_GetPowerState", "FAIL", "times = 0")},
    // The pixel format is forgotten with the signal; the second refresh cannot find it again.
    {"PowerLostAndRegained", HD60 + Event("power_state", "state = 'STANDBY'\nat_field = 5\nfor_fields = 2"), 37, ROW60,
     RATES60, "1920 x 1080p @ 60 Hz (YUV) VtPixelFormat_UNKOWN PowerState_ON",
     FailingCall("VtVideoOut_GetBufferAttributes", "FAIL", "call = 2")},
};

TEST(VideoOutMonitor, WritesItsTexts)
{
    for (const SMonitorCase& roCase : CASES)
    {
        SCOPED_TRACE(roCase.szName);
        SMonitorScript oScript("Out", VtVideoOutMonitorThreadFunc);
        oScript.oData.bOnlyShowError = 1; // not for outputs
        EXPECT_EQ(oScript.Run(roCase.szStream, roCase.uiWaits, roCase.szFaults), "");
        EXPECT_EQ(oScript.oData.szStatusData, roCase.szStatusData);
        EXPECT_EQ(oScript.oData.szFpsData, "[OUT_00] " + roCase.szRates + " (0.000000 ==>  0.0 ppm)");
        EXPECT_EQ(oScript.oData.szVidParam, "[OUT_00] - SDI A - " + roCase.szDescription);
        EXPECT_EQ(oScript.oData.bShowExtraData, 0U);
        EXPECT_EQ(g_bAddTimeStamp, 0U);
    }
}

struct VideoOutMonitorThread : testing::Test
{
    SMonitorScript oScript{"Out", VtVideoOutMonitorThreadFunc};
};

TEST_F(VideoOutMonitorThread, PrintsALineWithATimeHeaderInMonitorMode)
{
    const std::string szLine =
        "[SDI A - 1920 x 1080i @ 50 Hz (YUV) VtPixelFormat_YUV422_UYVY]: FpsAvg=25.00  FpsMax=25.00  FpsMin=25.00  "
        "SetBufAvg=50.00  SetBufMax=100.00  SetBufMin=50.00  FrameSkipped=6  FrameSet=24 FrameDoubled=6 "
        "FrameTotal=24\n";
    const std::string szFile = testing::TempDir() + "VideoOutMonitorTest.log";
    g_bMonitor = g_bLog = 1;
    g_pszLogFileName = szFile.c_str();
    CreateFile(g_pszLogFileName);
    oScript.bMayAllocate = true; // the log file
    EXPECT_EQ(oScript.Run(UNEVEN, 25), "\033[K" + szLine);
    EXPECT_STREQ(oScript.oData.szStatusData, "placeholder");
    std::ifstream oFile(szFile);
    std::string szHeader;
    std::string szLogged;
    std::getline(std::getline(oFile, szHeader), szLogged);
    EXPECT_TRUE(szHeader.size() == 32 && szHeader.starts_with("*** ") && szHeader.ends_with(" ***")) << szHeader;
    EXPECT_EQ(szLogged + "\n", szLine);
}

TEST_F(VideoOutMonitorThread, TriesARefreshUntilTheParametersCanBeRead)
{
    EXPECT_EQ(oScript.Run(HD60, 3, FailingCall("VtVideoOut_GetVideoParameters", "FAIL", "times = 0")), "");
    EXPECT_STREQ(oScript.oData.szVidParam,
                 "[OUT_00] - SDI A - No timings detected VtPixelFormat_YUV422_UYVY PowerState_ON");
    EXPECT_STREQ(oScript.oData.szFpsData, "UNUSED");
    EXPECT_EQ(oScript.oData.bShowExtraData, 1U);
    EXPECT_EQ(VtSim_GetCallCount("VtVideoOut_GetPowerState"), 3U);
}

TEST_F(VideoOutMonitorThread, EndsWithoutAWait)
{
    oScript.oData.bStopSignal = 1;
    EXPECT_EQ(oScript.Run(HD60, 1), "");
    EXPECT_EQ(oScript.uiResult, 0U);
    EXPECT_EQ(oScript.oData.bFirstPassDone, 1U);
    EXPECT_EQ(VtSim_GetCallCount("VtVideoOut_WaitForFieldStart"), 0U);

    // Unlike an input, it asks for the tick frequency only after it has its handle.
    EXPECT_EQ(oScript.Run(HD60, 1, FailingCall("VtVideoOut_GetHandle", "ACCESS_DENIED", "")),
              "Error : VtVideoOut_GetHandle failed!\nVideoOutMonitor.cpp Assertion failed\n");
    EXPECT_EQ(oScript.uiResult, 1U);
    EXPECT_EQ(VtSim_GetCallCount("VtBoard_GetTickReferenceFrequency"), 0U);
    EXPECT_EQ(VtVideoOutMonitorThreadFunc(nullptr), 1U);
}

TEST_F(VideoOutMonitorThread, LeavesTheSlotOfACanceledWait)
{
    oScript.oData.auiTickRefCounter[4] = oScript.oData.auiTickRefCounter[5] = 77;
    oScript.Run(HD60 + Event("signal_loss", "at_field = 5"), 6);
    EXPECT_EQ(oScript.oData.auiTickRefCounter[4], 6000000U + 4 * 100000U);
    EXPECT_EQ(oScript.oData.auiTickRefCounter[5], 77U);
}

} // namespace
