#include "VideoOutMonitor.h"

#include "MonitorScript.h"

namespace
{

const std::string PROGRESSIVE = "standard = \"1080p60\"\n";
const std::string ALTERNATING = "standard = \"1080i50\"\nset_buffer_pattern = [2, 1, 0, 1]\n";
constexpr char ROW[] = "[OUT_00]   60.00  60.00  60.00   60.00  60.00  60.00         0       29        0       29";
constexpr char RATES[] = "[OUT_00] 60.000000 60.000000 60.000000 29 (0.000000 ==>  0.0 ppm)";
constexpr char DESCRIPTION[] = "[OUT_00] - SDI A - 1920 x 1080p @ 60 Hz (YUV) VtPixelFormat_YUV422_UYVY PowerState_ON";

std::string Event(const std::string& szKeys)
{
    return "[[chip.output.event]]\nkind = " + szKeys + "\n";
}

struct SCase
{
    const char* szName;
    std::string szStream;
    uint32_t uiWaits;
    std::string szFaults;
    const char* szStatusData;
    const char* szFpsData;
    const char* szVidParam;
};

const SCase CASES[] = {
    {"Progressive", PROGRESSIVE, 30, "", ROW, RATES, DESCRIPTION},
    {"TimeOutsChangeNothing", PROGRESSIVE, 33,
     FailingCall("VtVideoOut_WaitForFieldStart", "VtStatus_TIMEOUT", "call = 5\ntimes = 3"), ROW, RATES, DESCRIPTION},
    // Frames are halved, set buffers and the long-run average are not.
    {"InterlacedWithSkippedAndDoubled", ALTERNATING, 50, "",
     "[OUT_00]   25.00  25.00  25.00   50.00 100.00  50.00        12       49       12       49",
     "[OUT_00] 50.000000 25.000000 25.000000 49 (0.000000 ==>  0.0 ppm)",
     "[OUT_00] - SDI A - 1920 x 1080i @ 50 Hz (YUV) VtPixelFormat_YUV422_UYVY PowerState_ON"},
    {"NothingSet", PROGRESSIVE + "set_buffer_pattern = [0]", 30, "",
     "[OUT_00]   60.00  60.00  60.00    0.00   0.00 999.00         0        0       29       29", RATES, DESCRIPTION},
    // A pass of 125 fields: the walk covers the 119 intervals that the ring holds, the pass rate what its slots say.
    {"HighRate", std::string(TIMING_OF_CLOCK) + "618750000 }\nset_buffer_pattern = [2]", 125, "",
     "[OUT_00]  250.00 250.00 250.00  500.00 500.00 500.00       119        8        0        4",
     "[OUT_00] 250.000000 250.000000 250.000000 4 (0.000000 ==>  0.0 ppm)",
     "[OUT_00] - SDI A - 1920 x 1080p @250 Hz (YUV) VtPixelFormat_YUV422_UYVY PowerState_ON"},
    // The parameters of field 1 are read at field 1: the rate is that of the pass, and so is its length.
    {"FollowsTheFormat",
     PROGRESSIVE + Event("\"format_change\"\nat_fields = 1\n" + std::string(TIMING_OF_CLOCK) + "297000000 }"), 60, "",
     "[OUT_00]  118.00 120.00  60.00  118.00 120.00  60.00         0       59        0       59",
     "[OUT_00] 118.000000 118.000000 118.000000 59 (0.000000 ==>  0.0 ppm)", DESCRIPTION},
    // Until the parameters can be read, the refresh is tried again at every wait.
    {"ParametersFail", PROGRESSIVE, 3, FailingCall("VtVideoOut_GetVideoParameters", "VtStatus_FAIL", "times = 0"),
     "placeholder", "UNUSED", "[OUT_00] - SDI A - No timings detected VtPixelFormat_YUV422_UYVY PowerState_ON"},
    {"AttributesFail", PROGRESSIVE, 30,
     FailingCall("VtVideoOut_GetBufferAttributes", "VtStatus_NOTHING_DONE", "times = 0") +
         FailingCall("VtVideoOut_GetPowerState", "VtStatus_FAIL", "times = 0"),
     ROW, RATES, "[OUT_00] - SDI A - 1920 x 1080p @ 60 Hz (YUV) VtPixelFormat_UNKOWN PowerState_OFF"},
    // The pixel format is forgotten with the signal; the second refresh cannot find it again.
    {"PowerLostAndRegained", PROGRESSIVE + Event("\"power_state\"\nstate = \"STANDBY\"\nat_fields = 5\nfor_fields = 2"),
     37, FailingCall("VtVideoOut_GetBufferAttributes", "VtStatus_FAIL", "call = 2"), ROW, RATES,
     "[OUT_00] - SDI A - 1920 x 1080p @ 60 Hz (YUV) VtPixelFormat_UNKOWN PowerState_ON"},
};

class VideoOutMonitor : public testing::TestWithParam<SCase>
{
};

TEST_P(VideoOutMonitor, WritesItsTexts)
{
    const SCase& roCase = GetParam();
    SMonitorScript oScript("Out", VtVideoOutMonitorThreadFunc);
    oScript.oData.bOnlyShowError = 1; // not for outputs
    EXPECT_EQ(oScript.Run(roCase.szStream, roCase.uiWaits, roCase.szFaults), "");
    EXPECT_STREQ(oScript.oData.szStatusData, roCase.szStatusData);
    EXPECT_STREQ(oScript.oData.szFpsData, roCase.szFpsData);
    EXPECT_STREQ(oScript.oData.szVidParam, roCase.szVidParam);
    const bool bParametersFail = roCase.uiWaits == 3;
    EXPECT_EQ(oScript.oData.bShowExtraData, bParametersFail ? 1U : 0U);
    EXPECT_EQ(bParametersFail, VtSim_GetCallCount("VtVideoOut_GetPowerState") == 3);
    EXPECT_EQ(g_bAddTimeStamp, 0U);
}

INSTANTIATE_TEST_SUITE_P(Cases, VideoOutMonitor, testing::ValuesIn(CASES),
                         [](const auto& roInfo) { return std::string(roInfo.param.szName); });

TEST(VideoOutMonitorThread, PrintsALineInMonitorMode)
{
    SMonitorScript oScript("Out", VtVideoOutMonitorThreadFunc);
    g_bMonitor = 1;
    EXPECT_EQ(oScript.Run(ALTERNATING, 25),
              "\033[K[SDI A - 1920 x 1080i @ 50 Hz (YUV) VtPixelFormat_YUV422_UYVY]: FpsAvg=25.00  FpsMax=25.00  "
              "FpsMin=25.00  SetBufAvg=50.00  SetBufMax=100.00  SetBufMin=50.00  FrameSkipped=6  FrameSet=24 "
              "FrameDoubled=6 FrameTotal=24\n");
    EXPECT_STREQ(oScript.oData.szStatusData, "placeholder");
}

TEST(VideoOutMonitorThread, EndsWithoutAWait)
{
    SMonitorScript oStopped("Out", VtVideoOutMonitorThreadFunc);
    oStopped.oData.bStopSignal = 1;
    EXPECT_EQ(oStopped.Run(PROGRESSIVE, 1), "");
    EXPECT_EQ(oStopped.uiResult, 0U);
    EXPECT_EQ(oStopped.oData.bFirstPassDone, 1U);
    EXPECT_EQ(VtSim_GetCallCount("VtVideoOut_WaitForFieldStart"), 0U);
    EXPECT_EQ(VtVideoOutMonitorThreadFunc(nullptr), 1U);

    // Unlike an input, it asks for the tick frequency only after it has its handle.
    SMonitorScript oRefused("Out", VtVideoOutMonitorThreadFunc);
    EXPECT_EQ(oRefused.Run(PROGRESSIVE, 1, FailingCall("VtVideoOut_GetHandle", "VtStatus_ACCESS_DENIED", "")),
              "Error : VtVideoOut_GetHandle failed!\nVideoOutMonitor.cpp Assertion failed\n");
    EXPECT_EQ(oRefused.uiResult, 1U);
    EXPECT_EQ(VtSim_GetCallCount("VtBoard_GetTickReferenceFrequency"), 0U);
}

TEST(VideoOutMonitorThread, LeavesTheSlotOfACanceledWait)
{
    SMonitorScript oScript("Out", VtVideoOutMonitorThreadFunc);
    oScript.oData.auiTickRefCounter[4] = oScript.oData.auiTickRefCounter[5] = 77;
    oScript.Run(PROGRESSIVE + Event("\"signal_loss\"\nat_fields = 5"), 6);
    EXPECT_EQ(oScript.oData.auiTickRefCounter[4], 6000000U + 4 * 100000U);
    EXPECT_EQ(oScript.oData.auiTickRefCounter[5], 77U);
}

} // namespace
