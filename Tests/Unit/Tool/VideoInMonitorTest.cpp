#include "VideoInMonitor.h"

#include <gmock/gmock.h>

#include "FieldRates.h"
#include "MonitorScript.h"

namespace
{

const std::string RATES60 = "60.000000 60.000000 60.000000 29";
constexpr char ROW60[] =
    "[IN_00]    60.00  60.00  60.00    1.00      1      1    2.00      2      2         0        0        0       29";

const SMonitorCase CASES[] = {
    // The buffers that ran out in fields 0 to 4 count in the second pass too: counts come from the arrays' start.
    {"Progressive", HD60 + Event("buffers_run_out", "at_field = 0\nfor_fields = 5"), 60,
     "[IN_00]    60.00  60.00  60.00    0.83      1      0    3.00      8      2         5        0        0       59",
     "60.000000 60.000000 60.000000 59"},
    {"TimeOutsChangeNothing", HD60 + "field_counter_start = '0xFFFFFFFFFFFFFFB0'", 33, ROW60, RATES60,
     "1920 x 1080p @ 60 Hz (YUV)", FailingCall("VtVideoIn_WaitForFieldStart", "TIMEOUT", "call = 5\ntimes = 3")},
    {"Interlaced", "standard = '1080i50'", 50,
     "[IN_00]    25.00  25.00  25.00    1.00      1      1    2.00      2      2         0        0        0       49",
     "50.000000 25.000000 25.000000 49", "1920 x 1080i @ 50 Hz (YUV)"},
    // A pass of 125 fields: the ring holds the last 120, and the pass rate spans what its slots say.
    {"HighRate", FULL_HD + "618750000 }\n" + Event("buffers_run_out", "at_field = 5\nfor_fields = 5"), 125,
     "[IN_00]   250.00 250.00 250.00    0.96      1      0    2.25      8      2         5        0        0        4",
     "250.000000 250.000000 250.000000 4", "1920 x 1080p @250 Hz (YUV)"},
    // A pass of exactly 120 fields begins and ends in the same slot, so it has no rate.
    {"RateBelowOneHertz", FULL_HD + "990000 }", 240,
     "[IN_00]     0.00   0.40   0.40    1.00      1      1    2.00      2      2         0        0        0      119",
     "0.400000 0.400000 0.400000 119", "1920 x 1080p @  0 Hz (YUV)"},
    {"PassWithoutSamples", FULL_HD + "2475000 }", 1,
     "[IN_00]     0.00   0.00 999.00    0.00      0    999    0.00      0    999         0        0        0        0",
     "0.000000 0.000000 0.000000 0", "1920 x 1080p @  1 Hz (YUV)"},
    // No timings at start: the nominal rate stays 0, and every interval counts as doubled.
    {"SignalComesLate", HD60 + Event("signal_loss", "at_field = 0\nfor_fields = 1"), 31,
     "[IN_00]    60.00  60.00  60.00    1.00      1      1    2.00      2      2         0        0       29       29",
     RATES60},
    // Interval 150000 ticks is not missed, 150001 is; a quarter of a field is doubled; 17 counts are still measured.
    {"Intervals",
     HD60 + "field_counter_start = '0xFFFFFFFF00000000'\n" + Event("missed_field", "at_field = 10") +
         Event("counter_jump", "at_field = 15\njump = 1") + Event("phase_step", "at_field = 20\nstep_ticks = 50000") +
         Event("phase_step", "at_field = 22\nstep_ticks = 50001") + Event("doubled_field", "at_field = 25"),
     30,
     "[IN_00]    60.12 240.00  40.00    1.00      1      1    2.00      2      2         0        2        1       30",
     "60.124980 60.124980 60.124980 30", "1920 x 1080p @ 60 Hz (YUV)", "",
     "\033[K[IN_00] Abnormal FieldCounter increment detected from 0x90 to 0xB0\n"
     "\033[K[IN_00] Abnormal FieldCounter increment detected from 0xe0 to 0xF1\n"},
    // Half of the nominal interval: doubled, for the threshold is the single-precision 0.5 / 60, a little above.
    {"NominalRateStaysThatOfTheStart", HD60 + Event("format_change", "at_field = 1\n" + FULL_HD + "297000000 }"), 30,
     "[IN_00]   116.00 120.00  60.00    1.00      1      1    2.00      2      2         0        0       28       29",
     "116.000000 116.000000 116.000000 29"},
    {"SkipCountFails", HD60 + "skip_count_start = 9", 60,
     "[IN_00]    60.00  60.00  60.00    1.00      1      1    2.00      2      2         0        0        0       59",
     "60.000000 60.000000 60.000000 59", "1920 x 1080p @ 60 Hz (YUV)",
     FailingCall("VtBoard_CustomCall", "CONNECTION_LOST", "call = 2"),
     "\033[K[IN_00] custom call GET_CAPTURE_SKIP_BUFFER_COUNT status = VtStatus_VtStatus_CONNECTION_LOST\n"},
    {"ParametersFail", HD60, 120,
     "[IN_00]    60.00  60.00  60.00    1.00      1      1    2.00      2      2         0        0      119      119",
     "60.000000 60.000000 60.000000 119", "No timings detected",
     FailingCall("VtVideoIn_GetDetectedVideoParameters", "FAIL", "times = 0")},
    {"NoTickFrequency", HD60, 30,
     "[IN_00]     0.00   0.00   0.00    1.00      1      1    2.00      2      2         0       29        0       29",
     "0.000010 0.000010 0.000010 29", "1920 x 1080p @ 60 Hz (YUV)",
     FailingCall("VtBoard_GetTickReferenceFrequency", "FAIL", "times = 0")},
};

TEST(VideoInMonitor, WritesItsTexts)
{
    for (const SMonitorCase& roCase : CASES)
    {
        SCOPED_TRACE(roCase.szName);
        SMonitorScript oScript("In", VtVideoInMonitorThreadFunc);
        EXPECT_EQ(oScript.Run(roCase.szStream, roCase.uiWaits, roCase.szFaults), roCase.szPrinted);
        EXPECT_EQ(oScript.oData.szStatusData, roCase.szStatusData);
        EXPECT_EQ(oScript.oData.szFpsData, "[IN_00] " + roCase.szRates + " (0.000000 ==>  0.0 ppm)");
        EXPECT_EQ(oScript.oData.szVidParam,
                  "[IN_00] - SDI A - " + roCase.szDescription + " VtPixelFormat_YUV422_UYVY, NumBuf=8");
        EXPECT_STREQ(oScript.oData.szVideoState, "VtVideoIn_State_STARTED");
        EXPECT_EQ(oScript.oData.bShowExtraData, 0U);
    }
}

struct VideoInMonitorThread : testing::Test
{
    SMonitorScript oScript{"In", VtVideoInMonitorThreadFunc};
};

TEST_F(VideoInMonitorThread, PrintsALineInMonitorMode)
{
    g_bMonitor = 1;
    EXPECT_EQ(
        oScript.Run(HD60, 30),
        "\033[K[SDI A - 1920 x 1080p @ 60 Hz (YUV) VtPixelFormat_YUV422_UYVY, NumBuf=8] FpsAvg=60.00 FpsMax=60.00 "
        "FpsMin=60.00 RdyAvg=1.00 RdyMax=01 RdyMin=01 LoanAvg=2.00 LoanMax=02 LoanMin=02 Skip=0 \t Frame= 29\n");
    EXPECT_STREQ(oScript.oData.szStatusData, "placeholder");
}

TEST_F(VideoInMonitorThread, ShowsOnlyErrorsWhenAskedTo)
{
    oScript.oData.bOnlyShowError = 1;
    oScript.oData.fFpsRef = 50.0;
    EXPECT_EQ(oScript.Run(HD60, 60), "");
    EXPECT_STREQ(oScript.oData.szStatusData, "placeholder");
    EXPECT_EQ(oScript.oData.uiFpsTotalFieldCounter, 59U * uiCountsPerField);

    oScript.oData.uiFpsTotalFieldCounter = oScript.oData.uiFpsTotalTickRefCounter = 0;
    EXPECT_EQ(oScript.Run(HD60 + "ppm = 40000", 30), "");
    EXPECT_STREQ(oScript.oData.szStatusData, "[IN_00]    62.40  62.40  62.40    1.00      1      1    2.00      2      "
                                             "2         0        0        0       29");
    EXPECT_STREQ(oScript.oData.szFpsData, "[IN_00] 62.399990 60.000000 62.399990 29 (50.000000 ==> 247999.8 ppm)");
}

TEST_F(VideoInMonitorThread, EndsWithoutAWait)
{
    oScript.oData.bStopSignal = 1;
    EXPECT_EQ(oScript.Run(HD60, 1), "");
    EXPECT_EQ(oScript.uiResult, 0U);
    EXPECT_EQ(oScript.oData.bFirstPassDone, 1U);
    EXPECT_EQ(oScript.oData.uiTickRefFreq, 6000000U);
    EXPECT_EQ(VtSim_GetCallCount("VtVideoIn_WaitForFieldStart"), 0U);

    EXPECT_EQ(oScript.Run(HD60, 1, FailingCall("VtVideoIn_GetHandle", "RESOURCES_BUSY", "")),
              "Error : VtVideoIn_GetHandle failed!\nVideoInMonitor.cpp Assertion failed\n");
    EXPECT_EQ(oScript.uiResult, 1U);
    EXPECT_EQ(VtVideoInMonitorThreadFunc(nullptr), 1U);
}

TEST_F(VideoInMonitorThread, ClearsTheSlotOfACanceledWait)
{
    oScript.oData.auiTickRefCounter[4] = oScript.oData.auiTickRefCounter[5] = 77;
    g_uiPausedUs = 0;
    oScript.Run(HD60 + Event("signal_loss", "at_field = 5"), 6);
    EXPECT_EQ(g_uiPausedUs, 10000U);
    EXPECT_EQ(oScript.oData.auiTickRefCounter[4], 6000000U + 4 * 100000U);
    EXPECT_EQ(oScript.oData.auiTickRefCounter[5], 0U);
}

TEST_F(VideoInMonitorThread, RecoversOnlyAfterAPassWithASkipCount)
{
    SVideoInMonitor oMonitor = {};
    oMonitor.poData = &oScript.oData;
    oMonitor.oCurrentVidParam.uiVRate_Hz = 2;
    oMonitor.uiTickPerSecond = oMonitor.uiSampleCount = oMonitor.bLastWaitCanceled = 1;
    oScript.oData.bShowExtraData = 0;
    oScript.oData.auiTickRefCounter[0] = 1;
    oScript.oData.auiTickRefCounter[1] = oScript.oData.auiTickRefCounter[2] = 2;
    EXPECT_THAT(Printed([&] { VideoInMonitor_ProcessField(oMonitor); }), // without a board
                testing::HasSubstr("GET_CAPTURE_SKIP_BUFFER_COUNT status = VtStatus_INVALID_PARAM\n"));
    EXPECT_EQ(oScript.oData.bShowExtraData, 0U);
    VideoInMonitor_ProcessField(oMonitor); // a pass without a rate asks for no skip count
    EXPECT_EQ(oScript.oData.bShowExtraData, 1U);
    EXPECT_EQ(oMonitor.bLastWaitCanceled, 0U);
}

} // namespace
