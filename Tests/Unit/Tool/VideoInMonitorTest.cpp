#include "VideoInMonitor.h"

#include <gmock/gmock.h>

#include "MonitorScript.h"

namespace
{

const std::string CLOCK = TIMING_OF_CLOCK;
const std::string PROGRESSIVE = "standard = \"1080p60\"\n";
const std::string DESCRIPTION = "[IN_00] - SDI A - 1920 x 1080p @ 60 Hz (YUV) VtPixelFormat_YUV422_UYVY, NumBuf=8";
constexpr char NO_REFERENCE[] = " (0.000000 ==>  0.0 ppm)";

std::string Event(const std::string& szKeys)
{
    return "[[chip.input.event]]\nkind = " + szKeys + "\n";
}

struct SCase
{
    const char* szName;
    std::string szStream;
    uint32_t uiWaits;
    std::string szFaults;
    std::string szStatusData;
    std::string szFpsData;
    std::string szVidParam;
    std::string szPrinted;
};

const SCase CASES[] = {
    // The buffers that ran out in fields 0 to 4 count in the second pass too: counts come from the arrays' start.
    {"Progressive", PROGRESSIVE + Event("\"buffers_run_out\"\nat_fields = 0\nfor_fields = 5"), 60, "",
     "[IN_00]    60.00  60.00  60.00    0.83      1      0    3.00      8      2         5        0        0       59",
     "[IN_00] 60.000000 60.000000 60.000000 59", DESCRIPTION, ""},
    {"TimeOutsChangeNothing", PROGRESSIVE, 33,
     FailingCall("VtVideoIn_WaitForFieldStart", "VtStatus_TIMEOUT", "call = 5\ntimes = 3"),
     "[IN_00]    60.00  60.00  60.00    1.00      1      1    2.00      2      2         0        0        0       29",
     "[IN_00] 60.000000 60.000000 60.000000 29", DESCRIPTION, ""},
    {"Interlaced", "standard = \"1080i50\"", 50, "",
     "[IN_00]    25.00  25.00  25.00    1.00      1      1    2.00      2      2         0        0        0       49",
     "[IN_00] 50.000000 25.000000 25.000000 49",
     "[IN_00] - SDI A - 1920 x 1080i @ 50 Hz (YUV) VtPixelFormat_YUV422_UYVY, NumBuf=8", ""},
    // A pass of 125 fields: the ring holds the last 120, and the pass rate spans what its slots say.
    {"HighRate", CLOCK + "618750000 }\n" + Event("\"buffers_run_out\"\nat_fields = 5\nfor_fields = 5"), 125, "",
     "[IN_00]   250.00 250.00 250.00    0.96      1      0    2.25      8      2         5        0        0        4",
     "[IN_00] 250.000000 250.000000 250.000000 4",
     "[IN_00] - SDI A - 1920 x 1080p @250 Hz (YUV) VtPixelFormat_YUV422_UYVY, NumBuf=8", ""},
    // A pass of exactly 120 fields begins and ends in the same slot, so it has no rate.
    {"RateBelowOneHertz", CLOCK + "990000 }", 240, "",
     "[IN_00]     0.00   0.40   0.40    1.00      1      1    2.00      2      2         0        0        0      119",
     "[IN_00] 0.400000 0.400000 0.400000 119",
     "[IN_00] - SDI A - 1920 x 1080p @  0 Hz (YUV) VtPixelFormat_YUV422_UYVY, NumBuf=8", ""},
    {"PassWithoutSamples", CLOCK + "2475000 }", 1, "",
     "[IN_00]     0.00   0.00 999.00    0.00      0    999    0.00      0    999         0        0        0        0",
     "[IN_00] 0.000000 0.000000 0.000000 0",
     "[IN_00] - SDI A - 1920 x 1080p @  1 Hz (YUV) VtPixelFormat_YUV422_UYVY, NumBuf=8", ""},
    // No timings at start: the nominal rate stays 0, and every interval counts as doubled.
    {"SignalComesLate", PROGRESSIVE + Event("\"signal_loss\"\nat_fields = 0\nfor_fields = 1"), 31, "",
     "[IN_00]    60.00  60.00  60.00    1.00      1      1    2.00      2      2         0        0       29       29",
     "[IN_00] 60.000000 60.000000 60.000000 29", DESCRIPTION, ""},
    // Interval 150000 ticks is not missed, 150001 is; a quarter of a field is doubled; 17 counts are still measured.
    {"Intervals",
     PROGRESSIVE + "field_counter_start = \"0xFFFFFFFF00000000\"\n" + Event("\"missed_field\"\nat_fields = 10") +
         Event("\"counter_jump\"\nat_fields = 15\njump = 1") +
         Event("\"phase_step\"\nat_fields = 20\nstep_ticks = 50000") +
         Event("\"phase_step\"\nat_fields = 22\nstep_ticks = 50001") + Event("\"doubled_field\"\nat_fields = 25"),
     30, "",
     "[IN_00]    60.12 240.00  40.00    1.00      1      1    2.00      2      2         0        2        1       30",
     "[IN_00] 60.124980 60.124980 60.124980 30", DESCRIPTION,
     "\033[K[IN_00] Abnormal FieldCounter increment detected from 0x90 to 0xB0\n"
     "\033[K[IN_00] Abnormal FieldCounter increment detected from 0xe0 to 0xF1\n"},
    // Half of the nominal interval: doubled, for the threshold is the single-precision 0.5 / 60, a little above.
    {"NominalRateStaysThatOfTheStart",
     PROGRESSIVE + "[[chip.input.event]]\nkind = \"format_change\"\nat_fields = 1\n" + CLOCK + "297000000 }", 30, "",
     "[IN_00]   116.00 120.00  60.00    1.00      1      1    2.00      2      2         0        0       28       29",
     "[IN_00] 116.000000 116.000000 116.000000 29", DESCRIPTION, ""},
    {"CounterWraps", PROGRESSIVE + "field_counter_start = \"0xFFFFFFFFFFFFFFB0\"", 30, "",
     "[IN_00]    60.00  60.00  60.00    1.00      1      1    2.00      2      2         0        0        0       29",
     "[IN_00] 60.000000 60.000000 60.000000 29", DESCRIPTION, ""},
    {"LostAndRegained", PROGRESSIVE + Event("\"signal_loss\"\nat_fields = 35\nfor_fields = 2"), 67, "",
     "[IN_00]    60.00  60.00  60.00    1.00      1      1    2.00      2      2         0        0        0       58",
     "[IN_00] 60.000000 60.000000 60.000000 58", DESCRIPTION, ""},
    {"SkipCountFails", PROGRESSIVE + "skip_count_start = 9", 60,
     FailingCall("VtBoard_CustomCall", "VtStatus_CONNECTION_LOST", "call = 2"),
     "[IN_00]    60.00  60.00  60.00    1.00      1      1    2.00      2      2         0        0        0       59",
     "[IN_00] 60.000000 60.000000 60.000000 59", DESCRIPTION,
     "\033[K[IN_00] custom call GET_CAPTURE_SKIP_BUFFER_COUNT status = VtStatus_VtStatus_CONNECTION_LOST\n"},
    {"ParametersFail", PROGRESSIVE, 120,
     FailingCall("VtVideoIn_GetDetectedVideoParameters", "VtStatus_FAIL", "times = 0"),
     "[IN_00]    60.00  60.00  60.00    1.00      1      1    2.00      2      2         0        0      119      119",
     "[IN_00] 60.000000 60.000000 60.000000 119",
     "[IN_00] - SDI A - No timings detected VtPixelFormat_YUV422_UYVY, NumBuf=8", ""},
    {"NoTickFrequency", PROGRESSIVE, 30, FailingCall("VtBoard_GetTickReferenceFrequency", "VtStatus_FAIL", "times = 0"),
     "[IN_00]     0.00   0.00   0.00    1.00      1      1    2.00      2      2         0       29        0       29",
     "[IN_00] 0.000010 0.000010 0.000010 29", DESCRIPTION, ""},
    {"CannotBeOpened", PROGRESSIVE, 0, FailingCall("VtVideoIn_GetHandle", "VtStatus_RESOURCES_BUSY", ""), "placeholder",
     "", "", "Error : VtVideoIn_GetHandle failed!\nVideoInMonitor.cpp Assertion failed\n"},
};

class VideoInMonitor : public testing::TestWithParam<SCase>
{
};

TEST_P(VideoInMonitor, WritesItsTexts)
{
    const SCase& roCase = GetParam();
    SMonitorScript oScript("In", VtVideoInMonitorThreadFunc);
    EXPECT_EQ(oScript.Run(roCase.szStream, roCase.uiWaits, roCase.szFaults), roCase.szPrinted);
    EXPECT_EQ(oScript.uiResult, 1U);
    EXPECT_EQ(oScript.oData.szStatusData, roCase.szStatusData);
    EXPECT_EQ(oScript.oData.szFpsData, roCase.szFpsData.empty() ? "" : roCase.szFpsData + NO_REFERENCE);
    EXPECT_EQ(oScript.oData.szVidParam, roCase.szVidParam);
    EXPECT_EQ(oScript.oData.bShowExtraData, roCase.uiWaits == 0 ? 1U : 0U);
    EXPECT_STREQ(oScript.oData.szVideoState, roCase.uiWaits == 0 ? "" : "VtVideoIn_State_STARTED");
}

INSTANTIATE_TEST_SUITE_P(Cases, VideoInMonitor, testing::ValuesIn(CASES),
                         [](const auto& roInfo) { return std::string(roInfo.param.szName); });

TEST(VideoInMonitorThread, PrintsALineInMonitorMode)
{
    SMonitorScript oScript("In", VtVideoInMonitorThreadFunc);
    g_bMonitor = 1;
    EXPECT_EQ(
        oScript.Run(PROGRESSIVE, 30),
        "\033[K[SDI A - 1920 x 1080p @ 60 Hz (YUV) VtPixelFormat_YUV422_UYVY, NumBuf=8] FpsAvg=60.00 FpsMax=60.00 "
        "FpsMin=60.00 RdyAvg=1.00 RdyMax=01 RdyMin=01 LoanAvg=2.00 LoanMax=02 LoanMin=02 Skip=0 \t Frame= 29\n");
    EXPECT_STREQ(oScript.oData.szStatusData, "placeholder");
}

TEST(VideoInMonitorThread, ShowsOnlyErrorsWhenAskedTo)
{
    SMonitorScript oHealthy("In", VtVideoInMonitorThreadFunc);
    oHealthy.oData.bOnlyShowError = 1;
    EXPECT_EQ(oHealthy.Run(PROGRESSIVE, 60), "");
    EXPECT_STREQ(oHealthy.oData.szStatusData, "placeholder");
    EXPECT_EQ(oHealthy.oData.uiFpsTotalFieldCounter, 59U * COUNTS_PER_FIELD);

    SMonitorScript oFast("In", VtVideoInMonitorThreadFunc);
    oFast.oData.bOnlyShowError = 1;
    oFast.oData.fFpsRef = 50.0;
    EXPECT_EQ(oFast.Run(PROGRESSIVE + "ppm = 40000", 30), "");
    EXPECT_STREQ(oFast.oData.szStatusData, "[IN_00]    62.40  62.40  62.40    1.00      1      1    2.00      2      2 "
                                           "        0        0        0       29");
    EXPECT_STREQ(oFast.oData.szFpsData, "[IN_00] 62.399990 62.399990 62.399990 29 (50.000000 ==> 247999.8 ppm)");
}

TEST(VideoInMonitorThread, EndsWithoutAWait)
{
    SMonitorScript oScript("In", VtVideoInMonitorThreadFunc);
    oScript.oData.bStopSignal = 1;
    EXPECT_EQ(oScript.Run(PROGRESSIVE, 1), "");
    EXPECT_EQ(oScript.uiResult, 0U);
    EXPECT_EQ(oScript.oData.bFirstPassDone, 1U);
    EXPECT_EQ(oScript.oData.uiTickRefFreq, 6000000U);
    EXPECT_EQ(VtSim_GetCallCount("VtVideoIn_WaitForFieldStart"), 0U);
    EXPECT_EQ(VtVideoInMonitorThreadFunc(nullptr), 1U);
}

TEST(VideoInMonitorThread, LosesTheSlotOfACanceledWait)
{
    SMonitorScript oScript("In", VtVideoInMonitorThreadFunc);
    oScript.oData.auiTickRefCounter[4] = oScript.oData.auiTickRefCounter[5] = 77;
    oScript.Run(PROGRESSIVE + Event("\"signal_loss\"\nat_fields = 5"), 6);
    EXPECT_EQ(oScript.oData.auiTickRefCounter[4], 6000000U + 4 * 100000U);
    EXPECT_EQ(oScript.oData.auiTickRefCounter[5], 0U);
}

// A recovery waits for a pass whose skip count can be read.
TEST(VideoInMonitorStages, RecoverAfterAGoodPass)
{
    SMonitorScript oScript("In", VtVideoInMonitorThreadFunc);
    SVideoInMonitor oMonitor = {};
    oMonitor.poData = &oScript.oData;
    oMonitor.oCurrentVidParam.uiVRate_Hz = 2;
    oMonitor.uiTickPerSecond = 1;
    oMonitor.uiSampleCount = 1;
    oMonitor.bLastWaitCanceled = 1;
    oScript.oData.bShowExtraData = 0;
    oScript.oData.auiTickRefCounter[0] = 1;
    oScript.oData.auiTickRefCounter[1] = oScript.oData.auiTickRefCounter[2] = 2;
    testing::internal::CaptureStdout();
    VideoInMonitor_ProcessField(oMonitor); // there is no board
    EXPECT_THAT(testing::internal::GetCapturedStdout(), testing::HasSubstr("status = VtStatus_INVALID_PARAM"));
    EXPECT_EQ(oScript.oData.bShowExtraData, 0U);
    VideoInMonitor_ProcessField(oMonitor); // a pass without a rate does not ask for it
    EXPECT_EQ(oScript.oData.bShowExtraData, 1U);
    EXPECT_EQ(oMonitor.bLastWaitCanceled, 0U);
}

} // namespace
