/*
 * Fixture of the tests that look at the board from outside: a scenario from text, and short words for the SDK's calls.
 */
#ifndef SIMULATED_BOARD_BOARD_TEST_H
#define SIMULATED_BOARD_BOARD_TEST_H

#include <array>
#include <cstdint>
#include <gtest/gtest.h>
#include <string>

#include "VtSimulatedBoard.h"

struct SWaited
{
    VtStatus eStatus = VtStatus_FAIL;
    uint64_t uiField = 0;
    uint64_t uiSet = 0;
    uint64_t uiTicks = 0;
    VtBool bTop = 0;
};

class CBoardTest : public testing::Test
{
public:
    static constexpr VtSim_Stream msc_oInput{0, VtSim_Direction_INPUT, 0};
    static constexpr VtSim_Stream msc_oOutput{0, VtSim_Direction_OUTPUT, 0};
    static constexpr uint32_t msc_uiTestTimeOutMs = 60000; // what a test gives up after

    void Load(const std::string& rszText)
    {
        std::array<char, 512> szFault{};
        ASSERT_EQ(VtSim_SetScenario(rszText.c_str(), szFault.data(), szFault.size()), VtStatus_OK) << szFault.data();
        Veltrano_LoadLite();
        m_hDev = Veltrano_GetDevice(0);
    }
    /* One stepped 1080p60 input and output at 100 MHz, so that 3 fields last 5000000 ticks. */
    void LoadPair(const std::string& rszInputKeys, const std::string& rszOutputKeys = "",
                  const std::string& rszTop = "[time]\nmode = 'stepped'\n")
    {
        Load(rszTop + "[[chip]]\n[[chip.input]]\nstandard = '1080p60'\n" + rszInputKeys +
             "\n[[chip.output]]\nstandard = '1080p60'\n" + rszOutputKeys);
        m_hIn = OpenIn();
        m_hOut = OpenOut();
    }
    VtVideoIn_Handle OpenIn(uint32_t uiIndex = 0)
    {
        VtVideoIn_Handle hIn = nullptr;
        EXPECT_EQ(VtVideoIn_GetHandle(m_hDev, uiIndex, VtAccessMode_READONLY, &hIn), VtStatus_OK);
        return hIn;
    }
    VtVideoOut_Handle OpenOut(uint32_t uiIndex = 0)
    {
        VtVideoOut_Handle hOut = nullptr;
        EXPECT_EQ(VtVideoOut_GetHandle(m_hDev, uiIndex, VtAccessMode_READONLY, &hOut), VtStatus_OK);
        return hOut;
    }
    static SWaited Wait(VtVideoIn_Handle hIn, uint32_t uiTimeOutMs = 50)
    {
        SWaited oWaited;
        oWaited.eStatus =
            VtVideoIn_WaitForFieldStart(hIn, uiTimeOutMs, &oWaited.uiField, &oWaited.uiTicks, &oWaited.bTop);
        return oWaited;
    }
    static SWaited Wait(VtVideoOut_Handle hOut, uint32_t uiTimeOutMs = 50)
    {
        SWaited oWaited;
        oWaited.eStatus = VtVideoOut_WaitForFieldStart(hOut, uiTimeOutMs, &oWaited.uiField, &oWaited.uiSet,
                                                       &oWaited.uiTicks, &oWaited.bTop);
        return oWaited;
    }
    template <typename THandle> static SWaited WaitTimes(THandle hStream, int iTimes)
    {
        SWaited oWaited;
        for (int iTime = 0; iTime < iTimes; ++iTime)
        {
            oWaited = Wait(hStream);
        }
        return oWaited;
    }
    static VtSim_Field GetTruth(VtSim_Stream oStream, uint64_t uiField)
    {
        VtSim_Field oField{};
        EXPECT_EQ(VtSim_GetField(oStream, uiField, &oField), VtStatus_OK);
        return oField;
    }
    static VtSim_WaitCounts GetCounts(VtSim_Stream oStream)
    {
        VtSim_WaitCounts oCounts{};
        EXPECT_EQ(VtSim_GetWaitCounts(oStream, &oCounts), VtStatus_OK);
        return oCounts;
    }
    void TearDown() override
    {
        Veltrano_UnLoad();
        EXPECT_EQ(VtSim_GetOpenHandleCount(), 0U);
        EXPECT_EQ(VtSim_SetScenario(nullptr, nullptr, 0), VtStatus_OK);
    }

    VtDevice_Handle m_hDev = nullptr;
    VtVideoIn_Handle m_hIn = nullptr;
    VtVideoOut_Handle m_hOut = nullptr;
};

#endif
