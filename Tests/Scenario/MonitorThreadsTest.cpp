// The real threads of two inputs and two outputs against a board whose fields the test grants.
#include <array>

#include "MonitorRun.h"
#include "MonitorScript.h"
#include "VideoInMonitor.h"
#include "VideoOutMonitor.h"

namespace
{

constexpr char RACK[] = R"(
time = { mode = 'granted', hold = true }
[[chip]]
tick_frequency_hz = 6000000
[[chip.input]]
standard = '1080p60'
connector = 'IN A'
[[chip.input]]
standard = '1080i50'
connector = 'IN B'
event = [{ kind = 'signal_loss', at_field = 30, for_fields = 2 }]
[[chip.output]]
standard = '1080p60'
connector = 'OUT A'
[[chip.output]]
standard = '1080i50'
connector = 'OUT B'
)";

class MonitorThreads : public testing::Test
{
protected:
    void SetUp() override
    {
        g_oOsServices.Signal_Create(g_hStartSig);
        const VtDevice_Handle hDev = LoadScenario(RACK);
        ASSERT_NE(hDev, nullptr);
        ASSERT_EQ(CreateThreads(hDev, 2, &ahThread[0], &roOutA, VtVideoOutMonitorThreadFunc, "empty"), 1U);
        ASSERT_EQ(CreateThreads(hDev, 2, &ahThread[2], &roInA, VtVideoInMonitorThreadFunc, "empty"), 1U);
    }

    void TearDown() override
    {
        for (const HCpuThread hThread : ahThread)
        {
            EXPECT_EQ(g_oOsServices.CpuThread_Join(hThread), 1U);
            g_oOsServices.CpuThread_Destroy(hThread);
        }
        g_oOsServices.Signal_Destroy(g_hStartSig);
        g_hStartSig = nullptr;
        EXPECT_EQ(VtSim_GetOpenHandleCount(), 0U);
    }

    void ReleaseLateThreads()
    {
        for (const SMonitorUserData& roData : aoData)
        {
            while (!roData.bFirstPassDone) // a trigger is lost for a thread that is not waiting yet
            {
                g_oOsServices.Signal_Trigger(g_hStartSig);
            }
        }
        Grant(0, 0);
    }

    void Stop()
    {
        for (SMonitorUserData& roData : aoData)
        {
            roData.bStopSignal = 1;
        }
    }

    static void Grant(uint64_t uiFields, uint64_t uiTimeOuts)
    {
        ASSERT_EQ(VtSim_GrantAll(uiFields), VtStatus_OK);
        ASSERT_EQ(VtSim_GrantTimeOutsAll(uiTimeOuts), VtStatus_OK);
        ASSERT_EQ(VtSim_AwaitAllIdle(30000), VtStatus_OK);
    }

    std::array<SMonitorUserData, 4> aoData = {};
    SMonitorUserData& roOutA = aoData[0];
    SMonitorUserData& roOutB = aoData[1];
    SMonitorUserData& roInA = aoData[2];
    SMonitorUserData& roInB = aoData[3];
    std::array<HCpuThread, 4> ahThread = {};
};

TEST_F(MonitorThreads, FillTheirRecordsFieldByField)
{
    constexpr char ROW_IN_B[] = "[IN_01]    25.00  25.00  25.00    1.00      1      1    2.00      2      2         0  "
                                "      0        0       24";
    constexpr char IN_B[] = "[IN_01] - IN B - 1920 x 1080i @ 50 Hz (YUV) VtPixelFormat_YUV422_UYVY, NumBuf=8";
    constexpr char OUT_A[] = "[OUT_00] - OUT A - 1920 x 1080p @ 60 Hz 148500 KHz,  88,  44, 148,   4,   5,  36 (+/+) "
                             "(YUV) VtPixelFormat_YUV422_UYVY PowerState_ON";
    ReleaseLateThreads();
    Grant(24, 0);
    EXPECT_STREQ(roInB.szStatusData, "empty"); // one field short of a pass
    EXPECT_STREQ(roOutB.szFpsData, "UNUSED");
    Grant(6, 0);
    EXPECT_STREQ(roInB.szStatusData, ROW_IN_B);
    EXPECT_STREQ(roOutA.szStatusData,
                 "[OUT_00]   60.00  60.00  60.00   60.00  60.00  60.00         0       29        0       29");
    EXPECT_STREQ(roInB.szVidParam, IN_B);

    Grant(2, 0); // the second input's signal is lost
    roInB.bShowExtraData = 1;
    roOutA.bShowDetailedTiming = 1;
    g_bExtendVidTimingDetails = 1;
    Grant(0, 1);
    g_bExtendVidTimingDetails = 0;
    EXPECT_STREQ(roInB.szVidParam, "[IN_01] - IN B - No timings detected VtPixelFormat_YUV422_UYVY, NumBuf=8");
    EXPECT_STREQ(roOutA.szVidParam, OUT_A);
    EXPECT_EQ(roInB.bShowExtraData + roOutA.bShowDetailedTiming, 0U);

    Grant(1, 0); // and back: the refresh comes by itself, and the ring starts anew
    EXPECT_STREQ(roInB.szVidParam, IN_B);
    EXPECT_EQ(roInB.auiTickRefCounter[0], 6000000U + 32 * 120000U);
    EXPECT_EQ(roInB.auiTickRefCounter[29], 6000000U + 29 * 120000U);
    Stop();
    EXPECT_EQ(VtSim_GrantTimeOutsAll(1), VtStatus_OK);
}

TEST_F(MonitorThreads, EndWhenTheDeviceGoesAway)
{
    ReleaseLateThreads();
    EXPECT_EQ(VtSim_RemoveDevice(0), VtStatus_OK);
}

} // namespace
