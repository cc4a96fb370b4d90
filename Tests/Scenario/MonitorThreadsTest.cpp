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
input = [
  { standard = '1080p60', connector = 'IN A' },
  { standard = '1080i50', connector = 'IN B', event = [{ kind = 'signal_loss', at_field = 30, for_fields = 2 }] }]
output = [{ standard = '1080p60', connector = 'OUT A' }, { standard = '1080i50', connector = 'OUT B' }]
)";

using CRecords = std::array<SMonitorUserData, 4>;

// A trigger is lost for a thread that is not waiting yet.
void ReleaseLateThreads(const CRecords& raoData)
{
    for (const SMonitorUserData& roData : raoData)
    {
        while (!roData.bFirstPassDone)
        {
            g_oOsServices.Signal_Trigger(g_hStartSig);
        }
    }
}

void Grant(uint64_t uiFields, uint64_t uiTimeOuts)
{
    ASSERT_EQ(VtSim_GrantAll(uiFields), VtStatus_OK);
    ASSERT_EQ(VtSim_GrantTimeOutsAll(uiTimeOuts), VtStatus_OK);
    ASSERT_EQ(VtSim_AwaitAllIdle(30000), VtStatus_OK);
}

TEST(MonitorThreads, FillTheirRecordsFieldByField)
{
    constexpr char IN_B[] = "[IN_01] - IN B - 1920 x 1080i @ 50 Hz (YUV) VtPixelFormat_YUV422_UYVY, NumBuf=8";
    CRecords aoData = {};
    auto& [roOutA, roOutB, roInA, roInB] = aoData;
    HCpuThread ahThread[4] = {};
    g_oOsServices.Signal_Create(g_hStartSig);
    const VtDevice_Handle hDev = LoadScenario(RACK);
    ASSERT_NE(hDev, nullptr);
    ASSERT_EQ(CreateThreads(hDev, 2, ahThread, &roOutA, VtVideoOutMonitorThreadFunc, "empty"), 1U);
    ASSERT_EQ(CreateThreads(hDev, 2, ahThread + 2, &roInA, VtVideoInMonitorThreadFunc, "empty"), 1U);
    ReleaseLateThreads(aoData);
    Grant(24, 0);
    EXPECT_STREQ(roInB.szStatusData, "empty"); // one field short of a pass
    EXPECT_STREQ(roOutB.szFpsData, "UNUSED");
    Grant(6, 0);
    EXPECT_STREQ(roInB.szStatusData,
                 "[IN_01]    25.00  25.00  25.00    1.00      1      1    2.00      2      2         "
                 "0        0        0       24");
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
    EXPECT_STREQ(roOutA.szVidParam, "[OUT_00] - OUT A - 1920 x 1080p @ 60 Hz 148500 KHz,  88,  44, 148,   4,   5,  36 "
                                    "(+/+) (YUV) VtPixelFormat_YUV422_UYVY PowerState_ON");
    EXPECT_EQ(roInB.bShowExtraData + roOutA.bShowDetailedTiming, 0U);

    Grant(1, 0); // and back: the refresh comes by itself, and the ring starts anew
    EXPECT_STREQ(roInB.szVidParam, IN_B);
    EXPECT_EQ(roInB.auiTickRefCounter[0], 6000000U + 32 * 120000U);
    EXPECT_EQ(roInB.auiTickRefCounter[29], 6000000U + 29 * 120000U);
    for (SMonitorUserData& roData : aoData)
    {
        roData.bStopSignal = 1;
    }
    EXPECT_EQ(VtSim_GrantTimeOutsAll(1), VtStatus_OK);
    for (const HCpuThread hThread : ahThread)
    {
        EXPECT_EQ(g_oOsServices.CpuThread_Join(hThread), 1U);
        g_oOsServices.CpuThread_Destroy(hThread);
    }
    g_oOsServices.Signal_Destroy(g_hStartSig);
    EXPECT_EQ(VtSim_GetOpenHandleCount(), 0U);
}

} // namespace
