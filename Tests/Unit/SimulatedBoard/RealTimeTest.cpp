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
