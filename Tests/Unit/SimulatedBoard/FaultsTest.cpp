// The n-th call of any operation fails on request; calls are counted, texts of the debug channel kept.
#include <cstring>
#include <functional>

#include "BoardTest.h"

namespace
{

// Room for the outputs of the operations below.
struct SOutputs
{
    uint32_t aui[4];
    uint64_t au[2];
    VtBoard_ConnectorInfo oInfo;
    VtVideoIn_State eState;
    VtPixelFormat eFormat;
    char szName[VtTextSize_PIXEL_FORMAT_NAME];
};

class Faults : public CBoardTest
{
};

} // namespace

// The operations that no monitor's test makes fail, and one wait.
TEST_F(Faults, TheThirdCallFailsAndTouchesNothing)
{
    SOutputs o;
    const std::pair<const char*, std::function<VtStatus()>> aoOperations[] = {
        {"VtDebug_WriteMsg", [&] { return VtDebug_WriteMsg(m_hDev, "text"); }},
        {"VtPixelFormat_GetName", [&] { return VtPixelFormat_GetName(VtPixelFormat_RGB565, o.szName); }},
        {"VtBoard_GetConnectorInfo", [&] { return VtBoard_GetConnectorInfo(m_hDev, 0, &o.oInfo); }},
        {"VtVideoIn_GetCount", [&] { return VtVideoIn_GetCount(m_hDev, o.aui); }},
        {"VtVideoIn_WaitForFieldStart",
         [&] { return VtVideoIn_WaitForFieldStart(m_hIn, 50, &o.au[0], &o.au[1], o.aui); }},
        {"VtVideoIn_GetCaptureState",
         [&] { return VtVideoIn_GetCaptureState(m_hIn, &o.eState, o.aui, &o.aui[1], &o.aui[2], &o.aui[3]); }},
        {"VtVideoIn_GetBufferAttributes",
         [&] { return VtVideoIn_GetBufferAttributes(m_hIn, o.aui, &o.aui[1], &o.eFormat, &o.aui[2]); }},
    };
    std::string szRules;
    for (const auto& [szOperation, fnCall] : aoOperations)
    {
        szRules += std::string("[[fault]]\ncall = 3\nstatus = 'VtStatus_HARDWARE_MALFUNCTION'\noperation = '") +
                   szOperation + "'\n";
    }
    LoadPair("", "", szRules + "[time]\nmode = 'stepped'\n"); // has opened one handle of each kind
    for (const auto& [szOperation, fnCall] : aoOperations)
    {
        SCOPED_TRACE(szOperation);
        for (uint64_t uiCall = VtSim_GetCallCount(szOperation) + 1; uiCall <= 4; ++uiCall)
        {
            std::memset(&o, 0xEE, sizeof(o));
            o.oInfo.uiSize = sizeof(o.oInfo);
            const SOutputs oBefore = o;
            EXPECT_EQ(fnCall(), uiCall == 3 ? VtStatus_HARDWARE_MALFUNCTION : VtStatus_OK);
            EXPECT_EQ(VtSim_GetCallCount(szOperation), uiCall);
            EXPECT_TRUE(uiCall != 3 || std::memcmp(&o, &oBefore, sizeof(o)) == 0);
        }
    }
    EXPECT_EQ(VtSim_GetCallCount("VtVideoOut_Wait"), 0U);
    EXPECT_EQ(GetCounts(msc_oInput).uiOther, 1U);
}

TEST_F(Faults, RulesRepeatAndNameStreams)
{
    LoadPair("", "", R"(time = { mode = "stepped" }
fault = [
    { operation = "VtVideoIn_WaitForFieldStart", status = "VtStatus_TIMEOUT", call = 2, times = 2, every = 4, index = 0 },
    { operation = "VtVideoIn_WaitForFieldStart", status = "VtStatus_FAIL", times = 0, index = 1 },
    { operation = "VtVideoIn_ReleaseHandle", status = "VtStatus_FAIL" },
    { operation = "Veltrano_GetDevice", status = "VtStatus_FAIL", call = 2 },
    { operation = "Veltrano_Version", status = "VtStatus_FAIL" },
]
)");
    for (const uint64_t uiFailures : {0U, 1U, 2U, 2U, 2U, 3U, 4U, 4U})
    {
        (void)Wait(m_hIn);
        EXPECT_EQ(GetCounts(msc_oInput).uiOther, uiFailures);
    }
    EXPECT_EQ(GetTruth(msc_oInput, 4).uiTickRefCounter, Wait(m_hIn).uiTicks); // failing waits used up no field
    EXPECT_EQ(VtVideoIn_ReleaseHandle(m_hIn), VtStatus_FAIL);
    EXPECT_EQ(VtVideoIn_ReleaseHandle(m_hIn), VtStatus_INVALID_PARAM);
    EXPECT_EQ(Veltrano_GetDevice(0), nullptr);
    EXPECT_EQ(Veltrano_GetDevice(0), m_hDev);
    EXPECT_EQ(Veltrano_Version(), 0U);
    EXPECT_NE(Veltrano_Version(), 0U);
}

TEST_F(Faults, DebugTextsAndCountsOutliveUnloading)
{
    LoadPair("");
    EXPECT_EQ(VtDebug_WriteMsg(m_hDev, "100 %s"), VtStatus_OK);
    EXPECT_EQ(VtDebug_WriteMsg(m_hDev, std::string(5000, 'x').c_str()), VtStatus_OK);
    (void)WaitTimes(m_hIn, 3);
    Veltrano_UnLoad();
    EXPECT_EQ(VtSim_GetCallCount("VtVideoIn_WaitForFieldStart"), 3U);
    ASSERT_EQ(VtSim_GetDebugMsgCount(), 2U);
    std::array<char, VtTextSize_DEBUG_MSG + 1> szMsg{};
    EXPECT_EQ(VtSim_GetDebugMsg(0, szMsg.data(), 5), VtStatus_OK);
    EXPECT_STREQ(szMsg.data(), "100 ");
    EXPECT_EQ(VtSim_GetDebugMsg(1, szMsg.data(), szMsg.size()), VtStatus_OK);
    EXPECT_EQ(std::strlen(szMsg.data()), VtTextSize_DEBUG_MSG - 1U);
    EXPECT_EQ(VtSim_GetDebugMsg(2, szMsg.data(), szMsg.size()), VtStatus_INVALID_PARAM);
    Veltrano_LoadLite();
    EXPECT_EQ(VtSim_GetDebugMsgCount() + VtSim_GetCallCount("VtVideoIn_WaitForFieldStart"), 0U);
}
