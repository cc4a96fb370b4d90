// The n-th call of any operation fails on request; calls are counted, texts of the debug channel kept.
#include <cstring>

#include "BoardTest.h"

namespace
{

// Room for the outputs of any operation.
struct SOutputs
{
    uint32_t aui[4];
    uint64_t au[4];
    VtVideo_VidParam oParam;
    VtBoard_ConnectorInfo oInfo;
    VtVideoIn_Handle hIn;
    VtVideoOut_Handle hOut;
    VtVideoIn_State eState;
    VtVideoOut_PowerState ePower;
    VtPixelFormat eFormat;
    char szName[VtTextSize_PIXEL_FORMAT_NAME];
};

class Faults : public CBoardTest
{
public:
    // clang-format off
    static constexpr std::array msc_aszOperations = {
        "VtDebug_WriteMsg", "VtPixelFormat_GetName",
        "VtBoard_GetTickReferenceFrequency", "VtBoard_GetConnectorCount",
        "VtBoard_GetConnectorInfo", "VtBoard_CustomCall",
        "VtVideoIn_GetCount", "VtVideoIn_GetHandle",
        "VtVideoIn_GetDetectedVideoParameters", "VtVideoIn_WaitForFieldStart",
        "VtVideoIn_GetCaptureState", "VtVideoIn_GetBufferAttributes",
        "VtVideoOut_GetCount", "VtVideoOut_GetHandle",
        "VtVideoOut_WaitForFieldStart", "VtVideoOut_GetVideoParameters",
        "VtVideoOut_GetBufferAttributes", "VtVideoOut_GetPowerState",
    };

    // Calls the operation of that place in the list.
    VtStatus Call(size_t uiOperation, SOutputs& ro)
    {
        const uint32_t uiIndex = 0;
        const auto eRead = VtAccessMode_READONLY;
        switch (uiOperation)
        {
        case 0: return VtDebug_WriteMsg(m_hDev, "text");
        case 1: return VtPixelFormat_GetName(VtPixelFormat_RGB565, ro.szName);
        case 2: return VtBoard_GetTickReferenceFrequency(m_hDev, ro.aui);
        case 3: return VtBoard_GetConnectorCount(m_hDev, ro.aui);
        case 4: return VtBoard_GetConnectorInfo(m_hDev, 0, &ro.oInfo);
        case 5: return VtBoard_CustomCall(m_hDev, 9, &uiIndex, 4, ro.au, 16);
        case 6: return VtVideoIn_GetCount(m_hDev, ro.aui);
        case 7: return VtVideoIn_GetHandle(m_hDev, 0, eRead, &ro.hIn);
        case 8: return VtVideoIn_GetDetectedVideoParameters(m_hIn, &ro.oParam);
        case 9: return VtVideoIn_WaitForFieldStart(m_hIn, 50, &ro.au[0], &ro.au[1], &ro.aui[0]);
        case 10: return VtVideoIn_GetCaptureState(m_hIn, &ro.eState, &ro.aui[0], &ro.aui[1], &ro.aui[2], &ro.aui[3]);
        case 11: return VtVideoIn_GetBufferAttributes(m_hIn, &ro.aui[0], &ro.aui[1], &ro.eFormat, &ro.aui[2]);
        case 12: return VtVideoOut_GetCount(m_hDev, ro.aui);
        case 13: return VtVideoOut_GetHandle(m_hDev, 0, eRead, &ro.hOut);
        case 14: return VtVideoOut_WaitForFieldStart(m_hOut, 50, &ro.au[0], &ro.au[1], &ro.au[2], &ro.aui[0]);
        case 15: return VtVideoOut_GetVideoParameters(m_hOut, &ro.oParam);
        case 16: return VtVideoOut_GetBufferAttributes(m_hOut, &ro.eFormat, &ro.aui[0], &ro.aui[1], &ro.au[0]);
        default: return VtVideoOut_GetPowerState(m_hOut, &ro.ePower);
        }
    }
    // clang-format on
};

} // namespace

TEST_F(Faults, TheThirdCallOfAnyOperationFailsAndTouchesNothing)
{
    std::string szRules;
    for (const char* szOperation : msc_aszOperations)
    {
        szRules += std::string("[[fault]]\ncall = 3\nstatus = 'VtStatus_HARDWARE_MALFUNCTION'\noperation = '") +
                   szOperation + "'\n";
    }
    LoadPair("connector = 'A'", "", szRules + "[time]\nmode = 'stepped'\n"); // has opened one handle of each kind
    for (size_t uiOperation = 0; uiOperation < msc_aszOperations.size(); ++uiOperation)
    {
        const char* szOperation = msc_aszOperations[uiOperation];
        SCOPED_TRACE(szOperation);
        for (uint64_t uiCall = VtSim_GetCallCount(szOperation) + 1; uiCall <= 4; ++uiCall)
        {
            SOutputs oOutputs;
            std::memset(&oOutputs, 0xEE, sizeof(oOutputs));
            oOutputs.oInfo.uiSize = sizeof(oOutputs.oInfo);
            const SOutputs oBefore = oOutputs;
            EXPECT_EQ(Call(uiOperation, oOutputs), uiCall == 3 ? VtStatus_HARDWARE_MALFUNCTION : VtStatus_OK);
            EXPECT_EQ(VtSim_GetCallCount(szOperation), uiCall);
            EXPECT_TRUE(uiCall != 3 || std::memcmp(&oOutputs, &oBefore, sizeof(oOutputs)) == 0);
        }
    }
    EXPECT_EQ(VtSim_GetCallCount("VtVideoOut_WaitForFieldStart"), 4U);
    EXPECT_EQ(VtSim_GetCallCount("VtVideoOut_Wait"), 0U);
    EXPECT_EQ(GetCounts(msc_oInput).uiOther, 1U);
}

TEST_F(Faults, RulesRepeatAndNameStreams)
{
    LoadPair("", "", R"([[fault]]
operation = "VtVideoIn_WaitForFieldStart"
status = "VtStatus_TIMEOUT"
call = 2
times = 2
every = 4
index = 0
[[fault]]
operation = "VtVideoIn_WaitForFieldStart"
status = "VtStatus_FAIL"
times = 0
index = 1
[[fault]]
operation = "VtVideoIn_ReleaseHandle"
status = "VtStatus_FAIL"
[[fault]]
operation = "Veltrano_GetDevice"
status = "VtStatus_FAIL"
call = 2
[[fault]]
operation = "Veltrano_Version"
status = "VtStatus_FAIL"
[time]
mode = "stepped"
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
    EXPECT_EQ(VtDebug_WriteMsg(m_hDev, nullptr), VtStatus_INVALID_PARAM);
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
    EXPECT_EQ(VtSim_GetDebugMsgCount(), 0U);
    EXPECT_EQ(VtSim_GetCallCount("VtVideoIn_WaitForFieldStart"), 0U);
}
