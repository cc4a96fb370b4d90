// The frame-lock check and the cable-lock test, whole runs included. The executable is linked so that usleep and
// tmCounter come here: time passes only in pauses, and what happens in a pause is the case's to say.
#include <functional>

#include <unistd.h>

#include "CableLockStatus.h"
#include "FrameLockStatus.h"
#include "LockTestStreams.h"
#include "MonitorGlobals.h"
#include "Veltrano.h"

namespace
{

struct SWorld
{
    uint64_t uiNowUs = 0;
    std::vector<uint64_t> dauiPauseUs;
    std::string szDebugText; // a line a message
    std::function<void(size_t uiPause)> oDuringPause;
};
SWorld g_oWorld;

VtDevice_Handle TestDevice()
{
    return reinterpret_cast<VtDevice_Handle>(&g_oWorld);
}

// Streams of 60 fields a second; one of them may stop.
struct SRunningStreams : SLockTestStreams
{
    explicit SRunningStreams(const std::vector<uint64_t>& rdauiOffset)
        : SLockTestStreams(rdauiOffset), dauiOffset(rdauiOffset)
    {
        g_oWorld = {};
    }
    void Deliver(uint32_t uiFields, bool bIsLastStalled = false)
    {
        for (uint32_t uiVideo = 0; uiVideo + (bIsLastStalled ? 1 : 0) < Count(); ++uiVideo)
        {
            Fill(uiVideo, FIELD_TICKS + dauiOffset[uiVideo], FIELD_TICKS, uiField, uiField + uiFields);
        }
        uiField += uiFields;
    }
    std::vector<uint64_t> dauiOffset;
    uint32_t uiField = 170;
};

std::string RunFrameLock(SRunningStreams& roStreams)
{
    return CaptureTerminal([&] { FrameLockStatus(roStreams.Count(), roStreams.daoData.data(), TestDevice()); });
}

std::string RunCableLock(SRunningStreams& roStreams, uint32_t uiDurationSec)
{
    g_uiCableLockDurationSec = uiDurationSec;
    return CaptureTerminal([&] { CableLockStatus(roStreams.Count(), roStreams.daoData.data(), TestDevice()); });
}

} // namespace

extern "C" int WrappedSleep(useconds_t uiPauseUs) asm("__wrap_usleep");
extern "C" int WrappedSleep(useconds_t uiPauseUs)
{
    g_oWorld.uiNowUs += uiPauseUs;
    g_oWorld.dauiPauseUs.push_back(uiPauseUs);
    g_oWorld.oDuringPause(g_oWorld.dauiPauseUs.size());
    return 0;
}

extern "C" uint32_t WrappedCounter(uint64_t* puiCounterUs) asm("__wrap__Z9tmCounterPm");
extern "C" uint32_t WrappedCounter(uint64_t* puiCounterUs)
{
    *puiCounterUs = g_oWorld.uiNowUs;
    return 1;
}

VtStatus VtDebug_WriteMsg(VtDevice_Handle hDev, const char* szMsg)
{
    EXPECT_EQ(hDev, TestDevice());
    g_oWorld.szDebugText += std::string(szMsg) + "\n";
    return VtStatus_FAIL; // which nobody looks at
}

TEST(FrameLockStatus, JudgesTheWorstPairOfSixCyclesByOneLine)
{
    const struct
    {
        std::vector<uint64_t> dauiOffset;
        size_t uiStallFrom;      // pause from which on the last stream delivers nothing
        uint64_t uiOffsetAtLast; // of the last stream in the sixth cycle
        const char* szVerdict;
    } aoRow[] = {
        {{0, 12, 7}, 9, 7, "Success (biggest difference : 12 ticks, max allowed : 1470 ticks)"},
        {{0, 1470}, 9, 1470, "Failed (biggest difference : 1470 ticks, max allowed : 1470 ticks)"},
        {{0, 1469}, 9, 1469, "Success (biggest difference : 1469 ticks, max allowed : 1470 ticks)"},
        {{0, 12}, 9, 5012, "Failed (biggest difference : 5012 ticks, max allowed : 1470 ticks)"},
        {{0, 12, 7}, 2, 5012, "Success (biggest difference : 12 ticks, max allowed : 1470 ticks)"},
        {{0}, 9, 0, "Failed (biggest difference : 0 ticks, max allowed : 0 ticks)"},
    };
    for (const auto& roRow : aoRow)
    {
        SRunningStreams oStreams(roRow.dauiOffset);
        g_oWorld.oDuringPause = [&](size_t uiPause)
        {
            oStreams.dauiOffset.back() = uiPause == 5 ? roRow.uiOffsetAtLast : roRow.dauiOffset.back();
            oStreams.Deliver(30, uiPause >= roRow.uiStallFrom);
        };
        const std::string szVerdict = " " + std::string(roRow.szVerdict) + "\n";
        EXPECT_EQ(RunFrameLock(oStreams), TerminalText("|Testing if the system is frame locked ...\n|" + szVerdict));
        EXPECT_EQ(g_oWorld.szDebugText, "Testing if the system is frame locked ...\n" + szVerdict);
        EXPECT_EQ(g_oWorld.dauiPauseUs, std::vector<uint64_t>(6, 500000));
    }
}

TEST(FrameLockStatus, AllowsTheLineOfTheLastCyclesFirstStream)
{
    SFrameLockVerdict oVerdict = {};
    for (const uint32_t uiHRate_KHz : {68U, 50U, 0U})
    {
        SLockTestStreams oStreams({0, 20, 900});
        oStreams.daoData[0].auiTickRefCounter[0] = 0;
        oStreams.daoData[1].uiHRate_KHz = uiHRate_KHz;
        const SLockTestMeasurement oPair(oStreams);
        JudgeFrameLockCycle(oPair.daoVideo, oPair.daoPair, oVerdict);
        EXPECT_EQ(oVerdict.uiMaxAllowed, uiHRate_KHz == 0 ? 0 : 100000 / uiHRate_KHz);
        const SLockTestMeasurement oNoPair(oStreams);
        JudgeFrameLockCycle(oNoPair.daoVideo, oNoPair.daoPair, oVerdict);
        EXPECT_EQ(oVerdict.uiMaxAllowed, uiHRate_KHz == 0 ? 0 : 100000 / uiHRate_KHz);
    }
    CMString szVerdict;
    FormatFrameLockVerdict(oVerdict, szVerdict);
    EXPECT_STREQ(szVerdict.GetString(), " Failed (biggest difference : 880 ticks, max allowed : 0 ticks)");
}

TEST(CableLockStatus, ShowsASecondARowAndWhoDeliveredNothing)
{
    SRunningStreams oStreams({0, 16});
    g_oWorld.oDuringPause = [&](size_t uiPause)
    {
        g_oWorld.uiNowUs += 7000; // a late wake-up must not move the seconds that follow
        oStreams.Deliver(60, uiPause == 2);
    };
    EXPECT_EQ(RunCableLock(oStreams, 3),
              TerminalText("|Cable Lock Testing begin (3 seconds) ... \n"
                           "|------------------\n"
                           "|CableLock TS   1 : |0x0000000010E3530E |0x0000000010E3531E |\n"
                           "|CableLock TS   2 : |0x0000000016D93422 |0x0000000016D93432 |\n"
                           "|CableLock TS   3 : |0x000000001CCF1536 |0x0000000000000000 |\n"
                           "|------------------\n"
                           "|Cable Lock Testing done ... \n"
                           "| Failed (2 of 3 seconds locked, biggest difference : 16 ticks)\n"));
    EXPECT_EQ(g_oWorld.szDebugText, "Cable Lock Testing begin (3 seconds) ... \nCable Lock Testing done ... \n"
                                    " Failed (2 of 3 seconds locked, biggest difference : 16 ticks)\n");
    EXPECT_EQ(g_oWorld.dauiPauseUs, (std::vector<uint64_t>{1000000, 993000, 993000}));
}

TEST(CableLockStatus, SucceedsWhenAllStreamsStayOnOneClockAllTheTime)
{
    const struct
    {
        std::vector<uint64_t> dauiOffset;
        uint32_t uiDurationSec;
        uint64_t uiStepAtThird;
        const char* szVerdict;
    } aoRow[] = {
        {{0, 16, 1469}, 5, 0, " Success (5 of 5 seconds locked, biggest difference : 1469 ticks)\n"},
        {{0, 1470}, 2, 0, " Failed (0 of 2 seconds locked, biggest difference : 1470 ticks)\n"},
        {{0, 16}, 0, 0, " Failed (0 of 0 seconds locked, biggest difference : 0 ticks)\n"},
        {{0}, 2, 0, " Failed (0 of 2 seconds locked, biggest difference : 0 ticks)\n"},
        // A phase step spoils the seconds whose rings hold samples of both sides of it.
        {{0, 16}, 6, 2000, " Failed (4 of 6 seconds locked, biggest difference : 2016 ticks)\n"},
    };
    for (const auto& roRow : aoRow)
    {
        SRunningStreams oStreams(roRow.dauiOffset);
        g_oWorld.oDuringPause = [&](size_t uiPause)
        {
            oStreams.dauiOffset.back() = roRow.dauiOffset.back() + (uiPause == 2 ? roRow.uiStepAtThird : 0);
            oStreams.Deliver(60);
        };
        const std::string szText = RunCableLock(oStreams, roRow.uiDurationSec);
        EXPECT_TRUE(szText.ends_with(TerminalText("|" + std::string(roRow.szVerdict)))) << szText;
        EXPECT_EQ(g_oWorld.dauiPauseUs, std::vector<uint64_t>(roRow.uiDurationSec, 1000000));
    }
}

TEST(CableLockStatus, PacesByWholeSecondsAndLeavesTimeToDeliver)
{
    EXPECT_EQ(GetNextCableLockSecond(10000, 10000), 11000U);
    EXPECT_EQ(GetNextCableLockSecond(10000, 10500), 11000U);
    EXPECT_EQ(GetNextCableLockSecond(10000, 10501), 12000U);
    EXPECT_EQ(GetNextCableLockSecond(10000, 75600), 77000U);
}

TEST(CableLockStatus, TellsCountersApartByTheMask)
{
    SLockTestStreams oStreams({0, 0, 0});
    const SLockTestMeasurement oMeasurement(oStreams);
    const uint64_t auiNear[] = {0x8000009, 10, 9};
    const uint64_t auiFar[] = {0x800000A, 10, 9};
    EXPECT_TRUE(IsCableLocked(oMeasurement.daoVideo, oMeasurement.daoPair, auiNear));
    EXPECT_FALSE(IsCableLocked(oMeasurement.daoVideo, oMeasurement.daoPair, auiFar));
}
