// Real and scaled time: what is delivered, whatever the moment at which a loaded machine wakes the caller.
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>
#include <unistd.h>

#include "BoardTest.h"

namespace
{

class RealTime : public CBoardTest
{
public:
    // The field that a wait delivered, by its counter.
    static uint64_t FieldOf(const SWaited& roWaited) { return roWaited.uiField / 16; }
};

int64_t ElapsedMs(std::chrono::steady_clock::time_point oStart)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - oStart).count();
}

} // namespace

// A thousand times too fast no caller keeps up, so that is a late caller on any machine.
TEST_F(RealTime, StampsAreTheModelsHoweverLateTheCaller)
{
    const std::string szTruth = testing::TempDir() + "real-" + std::to_string(getpid()) + ".csv";
    for (const bool bFast : {false, true})
    {
        const auto oStart = std::chrono::steady_clock::now();
        LoadPair("jitter_ticks = 100", "",
                 "truth = { file = '" + szTruth + "' }\n" +
                     (bFast ? "time = { mode = 'scaled', scale = 1000 }\n" : ""));
        SWaited oLast = Wait(m_hIn, 10'000);
        uint64_t uiMissed = 0;
        for (int iWait = 0; iWait < (bFast ? 200 : 20); ++iWait)
        {
            const SWaited oWaited = Wait(m_hIn, 10'000);
            ASSERT_EQ(oWaited.eStatus, VtStatus_OK);
            ASSERT_GT(oWaited.uiTicks, oLast.uiTicks);
            EXPECT_EQ(oWaited.uiTicks, GetTruth(msc_oInput, FieldOf(oWaited)).uiTickRefCounter);
            const int64_t iTicksAMs = bFast ? 100'000'000 : 100'000; // none comes before its time
            EXPECT_GE((ElapsedMs(oStart) + 1) * iTicksAMs, static_cast<int64_t>(oWaited.uiTicks - 100'000'000));
            uiMissed += FieldOf(oWaited) - FieldOf(oLast) - 1;
            oLast = oWaited;
        }
        EXPECT_TRUE(!bFast || uiMissed > 0);
        std::ifstream oTruth(szTruth); // has every field by now, seen or not
        std::string szRow;
        uint64_t uiNext = 0;
        for (std::getline(oTruth, szRow); std::getline(oTruth, szRow); ++uiNext)
        {
            const uint64_t uiField = std::stoull(szRow.substr(std::strlen("0,in,0,")));
            ASSERT_EQ(uiField, uiNext == 0 ? uiNext = uiField : uiNext) << szRow;
        }
        EXPECT_EQ(uiNext, FieldOf(oLast) + 1);
        Veltrano_UnLoad();
    }
    std::filesystem::remove(szTruth);
}

TEST_F(RealTime, TimeOutsHangsLossesAndRemovalEndAWait)
{
    Load("[[chip]]\n[[chip.input]]\ntiming = { h_active = 100, v_active = 100, pixel_clock_hz = 2000 }\n" // 5 s each
         "phase_us = 4_000_000\n[[chip.input]]\nstandard = '1080p60'\n"
         "event = [{ kind = 'signal_loss', at_field = 0 }]\n"
         "[[chip.output]]\nstandard = '1080p60'\nevent = [{ kind = 'hang', ms = 60, at_field = 0, every_fields = 2 },"
         "{ kind = 'hang', ms = 60, at_field = 1, every_fields = 2 }]\n"
         "[[chip.output]]\nstandard = '1080p60'\npower_state = 'OFF'");
    auto oStart = std::chrono::steady_clock::now();
    const VtVideoIn_Handle hSlow = OpenIn(0);
    EXPECT_EQ(Wait(hSlow, 20).eStatus, VtStatus_TIMEOUT);
    EXPECT_GE(ElapsedMs(oStart), 20);
    EXPECT_EQ(Wait(OpenIn(1), 10'000).eStatus, VtStatus_CANCELED);
    EXPECT_EQ(Wait(OpenIn(1), 1).eStatus, VtStatus_CANCELED); // lost, not late
    EXPECT_EQ(Wait(OpenOut(1), 10'000).eStatus, VtStatus_CANCELED);
    const VtVideoOut_Handle hHanging = OpenOut(0);
    oStart = std::chrono::steady_clock::now();
    EXPECT_EQ(Wait(hHanging, 1000).eStatus, VtStatus_OK);
    EXPECT_GE(ElapsedMs(oStart), 60);
    std::thread oRemover([] { EXPECT_EQ(VtSim_RemoveDevice(0), VtStatus_OK); });
    EXPECT_EQ(Wait(hSlow, 600'000).eStatus, VtStatus_FAIL);
    oRemover.join();
    EXPECT_EQ(Wait(hSlow, 600'000).eStatus, VtStatus_FAIL);
}

// The moment is the scenario's: it comes later for whom this machine is too slow to have opened anything by then.
TEST_F(RealTime, ARemovalThatIsForeseenEndsAWait)
{
    VtStatus eOpened = VtStatus_FAIL;
    for (double flRemoval = 0.1; eOpened != VtStatus_OK && flRemoval < 100.0; flRemoval *= 8.0)
    {
        Veltrano_UnLoad();
        Load("[[chip]]\nremoval_at_s = " + std::to_string(flRemoval) +
             "\n[[chip.input]]\nstandard = '1080p60'\nphase_us = 1e9");
        VtVideoIn_Handle hIn = nullptr;
        eOpened = VtVideoIn_GetHandle(m_hDev, 0, VtAccessMode_READONLY, &hIn);
        EXPECT_EQ(Wait(hIn, 600'000).eStatus, eOpened == VtStatus_OK ? VtStatus_FAIL : VtStatus_INVALID_PARAM);
    }
    EXPECT_EQ(eOpened, VtStatus_OK);
}

// A chip that is 5 % fast has had so many fields more, whenever somebody looks.
TEST_F(RealTime, ChipsRunAtTheRateOfTheirOwnClocks)
{
    const std::string szInput = "input = [{ standard = '1080p60' }]\n[[chip]]\n";
    Load("[time]\nmode = 'scaled'\nscale = 1000\n[[chip]]\n" + szInput +
         "tick_frequency_hz = 27_000_000\ntick_start = 5\nclock_ppm = 50_000\ninput = [{ standard = '1080p60' }]");
    uint64_t uiBefore = 0;
    uint64_t uiFast = 0;
    uint64_t uiAfter = 0;
    do // until nothing came between two looks, and the fields are enough to tell
    {
        ASSERT_EQ(VtSim_GetPosition(msc_oInput, &uiBefore), VtStatus_OK);
        ASSERT_EQ(VtSim_GetPosition({1, VtSim_Direction_INPUT, 0}, &uiFast), VtStatus_OK);
        ASSERT_EQ(VtSim_GetPosition(msc_oInput, &uiAfter), VtStatus_OK);
    } while (uiAfter < 10'000 || (uiAfter - uiBefore) * 100 > uiAfter);
    EXPECT_GE(uiFast * 100 + 200, uiBefore * 105);
    EXPECT_LE(uiFast * 100, uiAfter * 105 + 200);
}

TEST_F(RealTime, ChipsOfOneClockSaySoAndWhatTheyAreApart)
{
    Load("chip = [{ clock = 'a', tick_start = 100_000_000 }, { clock = 'b' }, { clock = 'a', tick_start = 54, "
         "tick_frequency_hz = 27_000_000 }, { }]");
    std::string szSaid;
    for (uint32_t uiChip = 0; uiChip < 4; ++uiChip)
    {
        VtBoard_SharedClockOut oClock{};
        const VtStatus eStatus = VtBoard_CustomCall(Veltrano_GetDevice(uiChip), VtBoard_CustomCallId_GET_SHARED_CLOCK,
                                                    nullptr, 0, &oClock, sizeof(oClock));
        szSaid += eStatus == VtStatus_OK
                      ? std::to_string(oClock.uiClockId) + " " + std::to_string(oClock.iOffsetNs) + ","
                      : "none,";
        EXPECT_TRUE(eStatus == VtStatus_OK || eStatus == VtStatus_UNSUPPORTED);
    }
    EXPECT_EQ(szSaid, "1 -1000000000,none,1 -2000,none,");
}
