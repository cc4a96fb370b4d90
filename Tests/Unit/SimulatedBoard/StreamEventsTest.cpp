// Every kind of event, seen through the SDK in stepped time. Field 0 of every stream starts at tick 100000000.
#include <algorithm>

#include "BoardTest.h"

namespace
{

// Start of the n-th field of an undisturbed 1080p60 stream.
int64_t GridTick(uint64_t uiField)
{
    return static_cast<int64_t>(100'000'000 + (uiField * 5'000'000 * 2 + 3) / 6);
}

class StreamEvents : public CBoardTest
{
public:
    // What so many waits say: the number of the field, with its distance from the grid in ticks if it has one; "-" for
    // a cancelled wait, "T" for one that times out.
    template <typename THandle> static std::string Trace(THandle hStream, int iWaits)
    {
        std::string szTrace;
        for (int iWait = 0; iWait < iWaits; ++iWait)
        {
            const SWaited oWaited = Wait(hStream);
            const int64_t iOff = static_cast<int64_t>(oWaited.uiTicks) - GridTick(oWaited.uiField / 16);
            szTrace += oWaited.eStatus == VtStatus_CANCELED  ? "-"
                       : oWaited.eStatus == VtStatus_TIMEOUT ? "T"
                                                             : std::to_string(oWaited.uiField / 16);
            EXPECT_TRUE(oWaited.eStatus == VtStatus_OK || oWaited.uiTicks + oWaited.uiField == 0);
            szTrace +=
                oWaited.eStatus != VtStatus_OK || iOff == 0 ? " " : (iOff > 0 ? "+" : "") + std::to_string(iOff) + " ";
        }
        return szTrace;
    }
    VtVideo_VidParam GetInParam()
    {
        VtVideo_VidParam oParam{};
        EXPECT_EQ(VtVideoIn_GetDetectedVideoParameters(m_hIn, &oParam), VtStatus_OK);
        return oParam;
    }
};

} // namespace

TEST_F(StreamEvents, EachKindMovesOrHidesItsFieldsAndReturns)
{
    for (const auto& [szEvents, szTrace] : std::vector<std::pair<std::string, std::string>>{
             {"{ kind = 'signal_loss', at_field = 3, for_fields = 2, every_fields = 5 }",
              "0 1 2 - - 5 6 7 - - 10 11 12 - "},
             {"{ kind = 'signal_loss', at_field = 1, for_fields = 1, every_fields = 2, times = 2 }", "0 - 2 - 4 5 6 "},
             {"{ kind = 'format_change', at_field = 3, for_fields = 4, standard = '1080i50' }",
              "0 1 2 3 4+333333 5+666667 6+1000000 7+1333333 8+1333334 "},
             {"{ kind = 'missed_field', at_field = 2 }, { kind = 'missed_field', at_field = 4, for_fields = 12 }",
              "0 1 3 T T T T 16 17 "}, // twelve outlast the time-out of 50 ms, three fields at a time
             {"{ kind = 'doubled_field', at_field = 2 }", "0 1 2-1250000 3-1666667 4-1666667 "},
             {"{ kind = 'phase_step', at_field = 3, every_fields = 3, step_us = 10 }",
              "0 1 2 3+1000 4+1000 5+1000 6+2000 7+2000 "},
             {"{ kind = 'lock_lost', at_field = 1, for_fields = 3, ppm = 100 }", "0 1 2-166 3-333 4 5 "},
             {"{ kind = 'hang', ms = 100, at_field = 2 }", "0 1 2 8 9 "}})
    {
        SCOPED_TRACE(szEvents);
        LoadPair("event = [" + szEvents + "]", "event = [" + szEvents + "]");
        const auto iWaits = static_cast<int>(std::ranges::count(szTrace, ' '));
        EXPECT_EQ(Trace(m_hIn, iWaits), szTrace);
        EXPECT_EQ(Trace(m_hOut, iWaits), szTrace);
        Veltrano_UnLoad();
    }
}

TEST_F(StreamEvents, QueriesTellOfTheFieldThatStartedLast)
{
    LoadPair("event = [{ kind = 'signal_loss', at_field = 1, for_fields = 1 },"
             "{ kind = 'format_change', at_field = 2, for_fields = 2, standard = '1080i50' }]",
             "event = [{ kind = 'power_state', state = 'OFF', at_field = 1, for_fields = 1 },"
             "{ kind = 'power_state', state = 'BLANKED', at_field = 3 }]");
    const std::array aePowers = {VtVideoOut_PowerState_ON, VtVideoOut_PowerState_OFF, VtVideoOut_PowerState_ON,
                                 VtVideoOut_PowerState_BLANKED};
    const std::array<uint32_t, 4> auiRates = {60, 0, 50, 50};
    for (size_t uiField = 0; uiField < 4; ++uiField)
    {
        SCOPED_TRACE(uiField);
        EXPECT_EQ(Wait(m_hIn).bTop, uiField == 2 ? 1U : 0U); // of the interlaced ones, whose first is the top field
        EXPECT_EQ(GetInParam().uiVRate_Hz, auiRates[uiField]);
        EXPECT_EQ(GetInParam().bInterlaced, uiField >= 2 ? 1U : 0U);
        const bool bOff = aePowers[uiField] == VtVideoOut_PowerState_OFF;
        EXPECT_EQ(Wait(m_hOut).eStatus, bOff ? VtStatus_CANCELED : VtStatus_OK);
        VtVideoOut_PowerState ePower = VtVideoOut_PowerState_DISABLED;
        EXPECT_EQ(VtVideoOut_GetPowerState(m_hOut, &ePower), VtStatus_OK);
        EXPECT_EQ(ePower, aePowers[uiField]);
        VtPixelFormat eFormat = VtPixelFormat_UNKOWN;
        uint32_t uiWidth = 0, uiHeight = 0;
        uint64_t uiLuid = 1;
        EXPECT_EQ(VtVideoOut_GetBufferAttributes(m_hOut, &eFormat, &uiWidth, &uiHeight, &uiLuid), VtStatus_OK);
        EXPECT_EQ(uiLuid == 0, bOff);
        EXPECT_EQ(uiWidth * 10000 + uiHeight, 19'201'080U);
        VtVideo_VidParam oParam{};
        EXPECT_EQ(VtVideoOut_GetVideoParameters(m_hOut, &oParam), VtStatus_OK);
        EXPECT_EQ(oParam.uiVActive, bOff ? 0U : 1080U);
    }
}

// Two swaps at once are none.
TEST_F(StreamEvents, AFieldOrderSwapTurnsTheFlagsAndNothingElse)
{
    Load("[time]\nmode = 'stepped'\n[[chip]]\n[[chip.input]]\nstandard = '1080i50'\n"
         "event = [{ kind = 'field_order_swap', at_field = 3, for_fields = 3 },"
         "{ kind = 'field_order_swap', at_field = 5 }]");
    m_hIn = OpenIn();
    std::string szTops;
    for (uint32_t uiField = 0; uiField < 9; ++uiField)
    {
        const SWaited oWaited = Wait(m_hIn);
        EXPECT_EQ(oWaited.uiField, uiField * 16U);
        EXPECT_EQ(oWaited.uiTicks, 100'000'000 + uiField * 2'000'000U);
        szTops += oWaited.bTop != 0 ? 't' : 'b';
    }
    EXPECT_EQ(szTops, "tbtt" // swapped from field 3 on
                      "bbb"  // twice at 5, so not at all, and once from 6 on
                      "tb");
    EXPECT_EQ(GetInParam().bBottomFieldFirst, 0U);
}

TEST_F(StreamEvents, ALockGroupLosesItsStreamsAtOneMoment)
{
    Load("[time]\nmode = 'stepped'\n[[chip]]\nlock_group = [{ name = 'house', event = [{ kind = 'signal_loss', "
         "at_s = 0.1, for_s = 0.1 }] }]\ninput = [{ standard = '1080p50', lock_group = 'house' }, "
         "{ standard = '1080p50' }]\noutput = [{ standard = '720p60', lock_group = 'house', phase_us = -10 }]");
    EXPECT_EQ(Trace(OpenIn(), 11).substr(0, 8), "0 1+3333"); // of another rate than the trace's grid
    EXPECT_EQ(GetCounts(msc_oInput).uiCanceled, 5U);
    EXPECT_EQ(GetTruth(msc_oInput, 5).eFate, VtSim_Fate_LOST);
    (void)WaitTimes(OpenIn(1), 11);
    EXPECT_EQ(GetCounts({0, VtSim_Direction_INPUT, 1}).uiCanceled, 0U);
    const VtVideoOut_Handle hOut = OpenOut();
    EXPECT_EQ(WaitTimes(hOut, 7).eStatus, VtStatus_OK); // field 6 starts 10 us before the moment
    EXPECT_EQ(WaitTimes(hOut, 6).eStatus, VtStatus_CANCELED);
    EXPECT_EQ(WaitTimes(hOut, 1).eStatus, VtStatus_OK);
    EXPECT_EQ(GetCounts(msc_oOutput).uiCanceled, 6U);
}

TEST_F(StreamEvents, BottomFieldsComeFirstWhereTheyShould)
{
    Load("[time]\nmode = 'stepped'\n[[chip]]\ninput = [{ timing = { h_active = 720, h_sync = 144, v_active = 576, "
         "v_sync = 24, pixel_clock_hz = 13_500_000, interlaced = true, bottom_field_first = true } }]");
    m_hIn = OpenIn();
    for (uint32_t uiField = 0; uiField < 4; ++uiField)
    {
        const SWaited oWaited = Wait(m_hIn);
        EXPECT_EQ(oWaited.bTop, uiField % 2);
        EXPECT_EQ(oWaited.uiTicks, 100'000'000 + uiField * 2'000'000U); // 864 x 625 at 13.5 MHz, half of it
    }
}

TEST_F(StreamEvents, CountersJumpAndWrapAt64Bits)
{
    LoadPair("field_counter_start = '0xFFFFFFFFFFFFFFE0'\nevent = [{ kind = 'counter_jump', at_field = 4, jump = 17 },"
             "{ kind = 'counter_jump', at_field = 6, jump = -5 }]",
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
        const VtBoard_CaptureSkipBufferCountIn oIn{0};
        VtBoard_CaptureSkipBufferCountOut oOut{};
        EXPECT_EQ(VtBoard_CustomCall(m_hDev, 9, &oIn, sizeof(oIn), &oOut, sizeof(oOut)), VtStatus_OK);
        EXPECT_EQ(oOut.uiSkipBuffCnt, auiSkipped[uiField]);
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

TEST_F(StreamEvents, ARemovedDeviceFailsEveryLaterCall)
{
    Load("[time]\nmode = 'stepped'\n[[chip]]\nremoval_at_s = 0.1\ninput = [{ standard = '1080p50' }]");
    m_hIn = OpenIn();
    EXPECT_EQ(WaitTimes(m_hIn, 5).uiTicks, 108'000'000U);
    VtBoard_ConnectorInfo oInfo{};
    oInfo.uiSize = sizeof(oInfo);
    uint32_t uiCount = 77;
    VtVideoIn_Handle hIn = m_hIn;
    EXPECT_EQ(Wait(m_hIn).eStatus, VtStatus_FAIL);
    EXPECT_EQ(VtVideoIn_GetCount(m_hDev, &uiCount), VtStatus_FAIL);
    EXPECT_EQ(VtBoard_GetConnectorInfo(m_hDev, 0, &oInfo), VtStatus_FAIL);
    EXPECT_EQ(VtVideoIn_GetHandle(m_hDev, 0, VtAccessMode_READONLY, &hIn), VtStatus_FAIL);
    EXPECT_EQ(hIn, nullptr);
    EXPECT_EQ(uiCount, 77U);
    EXPECT_EQ(Veltrano_GetDevice(0), nullptr);
    EXPECT_EQ(VtVideoIn_ReleaseHandle(m_hIn), VtStatus_FAIL);
    EXPECT_EQ(VtVideoIn_ReleaseHandle(m_hIn), VtStatus_INVALID_PARAM); // it was given back all the same
}
