// Every kind of event, seen through the SDK in stepped time. Field 0 of every stream starts at tick 100000000.
#include "BoardTest.h"

namespace
{

constexpr uint64_t uiStart = 100'000'000;

// Start of the n-th field of an undisturbed 1080p60 stream.
uint64_t GridTick(uint64_t uiField)
{
    return uiStart + (uiField * 5'000'000 * 2 + 3) / 6;
}

class StreamEvents : public CBoardTest
{
public:
    uint64_t GetSkipCount()
    {
        const VtBoard_CaptureSkipBufferCountIn oIn{0};
        VtBoard_CaptureSkipBufferCountOut oOut{};
        EXPECT_EQ(VtBoard_CustomCall(m_hDev, 9, &oIn, sizeof(oIn), &oOut, sizeof(oOut)), VtStatus_OK);
        return oOut.uiSkipBuffCnt;
    }
    VtVideo_VidParam GetInParam()
    {
        VtVideo_VidParam oParam{};
        EXPECT_EQ(VtVideoIn_GetDetectedVideoParameters(m_hIn, &oParam), VtStatus_OK);
        return oParam;
    }
};

} // namespace

TEST_F(StreamEvents, SignalLossCancelsAndZeroesTimingsPeriodically)
{
    LoadPair("event = [{ kind = 'signal_loss', at_field = 3, for_fields = 2, every_fields = 5 }]");
    for (uint64_t uiField = 0; uiField < 20; ++uiField)
    {
        const bool bLost = uiField >= 3 && (uiField - 3) % 5 < 2;
        const SWaited oWaited = Wait(m_hIn);
        EXPECT_EQ(oWaited.eStatus, bLost ? VtStatus_CANCELED : VtStatus_OK) << uiField;
        EXPECT_EQ(oWaited.uiTicks, bLost ? 0 : GridTick(uiField)) << uiField; // a failed wait leaves outputs alone
        EXPECT_EQ(oWaited.uiField, bLost ? 0 : 16 * uiField) << uiField;
        EXPECT_EQ(GetInParam().uiHActive, bLost ? 0U : 1920U) << uiField;
    }
}

TEST_F(StreamEvents, FormatChangesAndReturns)
{
    LoadPair("event = [{ kind = 'format_change', at_field = 3, for_fields = 4, standard = '1080i50' }]");
    uint64_t uiExpected = GridTick(3);
    EXPECT_EQ(WaitTimes(m_hIn, 4).uiTicks, uiExpected);
    EXPECT_EQ(GetInParam().bInterlaced, 1U);
    EXPECT_EQ(GetInParam().uiVRate_Hz, 50U);
    for (int iField = 4; iField <= 7; ++iField) // a field of 1080i50 lasts 2000000 ticks
    {
        const SWaited oWaited = Wait(m_hIn);
        EXPECT_EQ(oWaited.uiTicks, uiExpected += 2'000'000);
        EXPECT_EQ(oWaited.bTop, iField == 4 || iField == 6 ? 1U : 0U);
    }
    EXPECT_EQ(GetInParam().uiVRate_Hz, 60U);
    EXPECT_EQ(Wait(m_hIn).uiTicks, uiStart + 8'000'000 + 6'666'667);
}

TEST_F(StreamEvents, InterlacedTopFieldsAlternate)
{
    Load("[time]\nmode = 'stepped'\n[[chip]]\ninput = [{ standard = '1080i50' }, { timing = { h_active = 720, h_sync = "
         "144, v_active = 576, v_sync = 24, pixel_clock_hz = 13_500_000, interlaced = true, bottom_field_first = true "
         "} }]");
    const VtVideoIn_Handle hTop = OpenIn(0);
    const VtVideoIn_Handle hBottom = OpenIn(1);
    for (uint32_t uiField = 0; uiField < 4; ++uiField)
    {
        EXPECT_EQ(Wait(hTop).bTop, (uiField + 1) % 2);
        const SWaited oWaited = Wait(hBottom);
        EXPECT_EQ(oWaited.bTop, uiField % 2);
        EXPECT_EQ(oWaited.uiTicks, uiStart + uiField * 2'000'000U); // 864 x 625 at 13.5 MHz, half of it
    }
}

TEST_F(StreamEvents, MissedFieldsLeaveAGapAndDoubledOnesComeEarly)
{
    LoadPair(
        "event = [{ kind = 'missed_field', at_field = 2 }, { kind = 'missed_field', at_field = 5, for_fields = 30 }]",
        "event = [{ kind = 'doubled_field', at_field = 2 }]");
    EXPECT_EQ(WaitTimes(m_hIn, 2).uiTicks, GridTick(1));
    const SWaited oAfter = Wait(m_hIn);
    EXPECT_EQ(oAfter.uiTicks, GridTick(3));
    EXPECT_EQ(oAfter.uiField, 48U);
    EXPECT_EQ(Wait(m_hIn).eStatus, VtStatus_OK);
    // 30 missed fields outlast the time-out of 50 ms, three fields at a time.
    EXPECT_EQ(WaitTimes(m_hIn, 10).eStatus, VtStatus_TIMEOUT);
    EXPECT_EQ(Wait(m_hIn).uiTicks, GridTick(35));

    EXPECT_EQ(WaitTimes(m_hOut, 2).uiTicks, GridTick(1));
    const SWaited oExtra = Wait(m_hOut);
    EXPECT_EQ(oExtra.uiTicks, 102'083'333U); // a quarter of a field later
    EXPECT_EQ(oExtra.uiField, 32U);
    EXPECT_EQ(Wait(m_hOut).uiTicks, GridTick(2));
}

TEST_F(StreamEvents, CountersJumpAndWrapAt64Bits)
{
    LoadPair("field_counter_start = '0xFFFFFFFFFFFFFFE0'\n"
             "event = [{ kind = 'counter_jump', at_field = 4, jump = 17 }, { kind = 'counter_jump', at_field = 6, jump "
             "= -5 }]",
             "set_buffer_start = '0xFFFFFFFFFFFFFFFF'\nset_buffer_pattern = [1, 0, 3]");
    for (const uint64_t uiCounter :
         std::initializer_list<uint64_t>{0xFFFFFFFFFFFFFFE0, 0xFFFFFFFFFFFFFFF0, 0, 0x10, 0x31, 0x41, 0x4C})
    {
        EXPECT_EQ(Wait(m_hIn).uiField, uiCounter);
    }
    for (const uint64_t uiSet : {0U, 0U, 3U, 4U, 4U, 7U})
    {
        EXPECT_EQ(Wait(m_hOut).uiSet, uiSet);
    }
}

TEST_F(StreamEvents, BuffersAreSkippedAndRunOut)
{
    const std::string szEvents = "event = [{ kind = 'skipped_buffers', at_field = 2, count = 3 },"
                                 "{ kind = 'buffers_run_out', at_field = 4, for_fields = 2 }]\n";
    LoadPair(szEvents + "buffers = 6\nready = 1\nready_spread = 1\nloan = 2", szEvents);
    const std::array<uint64_t, 8> auiSkipped = {0, 0, 3, 3, 4, 5, 5, 5};
    const std::array<uint64_t, 8> auiSet = {1, 2, 6, 7, 7, 7, 8, 9};
    for (size_t uiField = 0; uiField < auiSkipped.size(); ++uiField)
    {
        SCOPED_TRACE(uiField);
        EXPECT_EQ(Wait(m_hIn).eStatus, VtStatus_OK);
        EXPECT_EQ(GetSkipCount(), auiSkipped[uiField]);
        EXPECT_EQ(Wait(m_hOut).uiSet, auiSet[uiField]);
        VtVideoIn_State eState = VtVideoIn_State_INVALID;
        std::array<uint32_t, 4> aui{};
        ASSERT_EQ(VtVideoIn_GetCaptureState(m_hIn, &eState, &aui[0], &aui[1], &aui[2], &aui[3]), VtStatus_OK);
        EXPECT_EQ(eState, VtVideoIn_State_STARTED);
        EXPECT_EQ(aui[0], 6U);
        EXPECT_EQ(aui[1] + aui[2] + aui[3], aui[0]);
        const bool bOut = uiField == 4 || uiField == 5;
        EXPECT_EQ(aui[2], bOut ? 6U : 2U);
        EXPECT_TRUE(bOut ? aui[1] == 0 : aui[1] == 1 || aui[1] == 2);
    }
}

TEST_F(StreamEvents, PhaseStepsAndLostLockMoveTheGridAndReturn)
{
    LoadPair("event = [{ kind = 'phase_step', at_field = 3, every_fields = 3, step_us = 10 }]",
             "event = [{ kind = 'lock_lost', at_field = 10, for_fields = 100, ppm = 100 }]");
    const std::array<uint64_t, 8> auiSteps = {0, 0, 0, 1, 1, 1, 2, 2};
    for (size_t uiField = 0; uiField < auiSteps.size(); ++uiField)
    {
        EXPECT_EQ(Wait(m_hIn).uiTicks, GridTick(uiField) + 1000 * auiSteps[uiField]);
    }
    EXPECT_EQ(WaitTimes(m_hOut, 11).uiTicks, GridTick(10));
    const uint64_t uiDrifted = WaitTimes(m_hOut, 60).uiTicks; // 60 fields of 166.65 ticks too early each
    EXPECT_EQ(uiDrifted, GridTick(70) - 9'999);
    EXPECT_EQ(WaitTimes(m_hOut, 40).uiTicks, GridTick(110));
}

TEST_F(StreamEvents, OutputsWithoutPowerAreCancelled)
{
    LoadPair("", "event = [{ kind = 'power_state', state = 'OFF', at_field = 2, for_fields = 2 },"
                 "{ kind = 'power_state', state = 'BLANKED', at_field = 5 }]");
    const std::array aePowers = {VtVideoOut_PowerState_ON,  VtVideoOut_PowerState_ON, VtVideoOut_PowerState_OFF,
                                 VtVideoOut_PowerState_OFF, VtVideoOut_PowerState_ON, VtVideoOut_PowerState_BLANKED};
    for (const VtVideoOut_PowerState eExpected : aePowers)
    {
        const bool bOff = eExpected == VtVideoOut_PowerState_OFF;
        EXPECT_EQ(Wait(m_hOut).eStatus, bOff ? VtStatus_CANCELED : VtStatus_OK);
        VtVideoOut_PowerState ePower = VtVideoOut_PowerState_DISABLED;
        EXPECT_EQ(VtVideoOut_GetPowerState(m_hOut, &ePower), VtStatus_OK);
        EXPECT_EQ(ePower, eExpected);
        VtPixelFormat eFormat = VtPixelFormat_UNKOWN;
        uint32_t uiWidth = 0;
        uint32_t uiHeight = 0;
        uint64_t uiLuid = 1;
        EXPECT_EQ(VtVideoOut_GetBufferAttributes(m_hOut, &eFormat, &uiWidth, &uiHeight, &uiLuid), VtStatus_OK);
        EXPECT_EQ(uiLuid == 0, bOff);
        EXPECT_EQ(uiWidth * 10000 + uiHeight, 19'201'080U);
        VtVideo_VidParam oParam{};
        EXPECT_EQ(VtVideoOut_GetVideoParameters(m_hOut, &oParam), VtStatus_OK);
        EXPECT_EQ(oParam.uiVActive, bOff ? 0U : 1080U);
    }
}

TEST_F(StreamEvents, AHangMakesTheCallerLate)
{
    LoadPair("event = [{ kind = 'hang', ms = 100, at_field = 2 }]");
    EXPECT_EQ(WaitTimes(m_hIn, 3).uiTicks, GridTick(2)); // the stamp knows nothing of the hang
    EXPECT_EQ(Wait(m_hIn).uiTicks, GridTick(8));         // six fields have started meanwhile
    EXPECT_EQ(Wait(m_hIn).uiTicks, GridTick(9));
}

TEST_F(StreamEvents, ARemovedDeviceFailsEveryLaterCall)
{
    Load("[time]\nmode = 'stepped'\n[[chip]]\nremoval_at_s = 0.1\n[[chip.input]]\nstandard = '1080p50'\nconnector = "
         "'A'");
    m_hIn = OpenIn();
    EXPECT_EQ(WaitTimes(m_hIn, 5).uiTicks, uiStart + 8'000'000);
    VtBoard_ConnectorInfo oInfo{};
    oInfo.uiSize = sizeof(oInfo);
    uint32_t uiCount = 77;
    VtVideoIn_Handle hIn = m_hIn;
    EXPECT_EQ(Wait(m_hIn).eStatus, VtStatus_FAIL);
    EXPECT_EQ(VtVideoIn_GetCount(m_hDev, &uiCount), VtStatus_FAIL);
    EXPECT_EQ(VtBoard_GetConnectorInfo(m_hDev, 0, &oInfo), VtStatus_FAIL);
    EXPECT_EQ(VtDebug_WriteMsg(m_hDev, "x"), VtStatus_FAIL);
    EXPECT_EQ(VtVideoIn_GetHandle(m_hDev, 0, VtAccessMode_READONLY, &hIn), VtStatus_FAIL);
    EXPECT_EQ(hIn, nullptr);
    EXPECT_EQ(uiCount, 77U);
    EXPECT_EQ(Veltrano_GetDevice(0), nullptr);
    EXPECT_EQ(VtVideoIn_ReleaseHandle(m_hIn), VtStatus_FAIL);
    EXPECT_EQ(VtVideoIn_ReleaseHandle(m_hIn), VtStatus_INVALID_PARAM); // it was given back all the same
}
