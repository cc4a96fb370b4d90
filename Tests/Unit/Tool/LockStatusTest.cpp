// What the frame-lock check and the cable-lock test make of single measurements. A line has 1470 ticks.
#include "CableLockStatus.h"
#include "FrameLockStatus.h"
#include "LockTestStreams.h"
#include "Veltrano.h"

// No case here reports to a board.
VtStatus VtDebug_WriteMsg(VtDevice_Handle, const char*)
{
    return VtStatus_FAIL;
}

namespace
{

std::string JudgeFrameLock(std::initializer_list<SLockTestStreams*> oCycles)
{
    SFrameLockVerdict oVerdict = {};
    for (SLockTestStreams* poStreams : oCycles)
    {
        const SLockTestMeasurement oMeasurement(*poStreams);
        JudgeFrameLockCycle(oMeasurement.daoVideo, oMeasurement.daoPair, oVerdict);
    }
    CMString szVerdict;
    FormatFrameLockVerdict(oVerdict, szVerdict);
    return szVerdict.GetString();
}

} // namespace

TEST(FrameLockStatus, WorstPairOfAllCyclesAgainstTheLineOfTheLast)
{
    SLockTestStreams oNear({0, 12, 1469});
    SLockTestStreams oLineApart({0, 1470});
    SLockTestStreams oLongLine({0, 5});
    oLongLine.daoData[0].uiHRate_KHz = 50;
    SLockTestStreams oNoLine({0, 5});
    oNoLine.daoData[0].uiHRate_KHz = 0;
    SLockTestStreams oAlone({0});
    EXPECT_EQ(JudgeFrameLock({&oNear}), " Success (biggest difference : 1469 ticks, max allowed : 1470 ticks)");
    EXPECT_EQ(JudgeFrameLock({&oLineApart}), " Failed (biggest difference : 1470 ticks, max allowed : 1470 ticks)");
    oLineApart.dauiLast = {0, 0};
    EXPECT_EQ(JudgeFrameLock({&oLineApart, &oLongLine, &oLongLine}), // which has nothing new the second time
              " Success (biggest difference : 1470 ticks, max allowed : 2000 ticks)");
    EXPECT_EQ(JudgeFrameLock({&oNoLine}), " Failed (biggest difference : 5 ticks, max allowed : 0 ticks)");
    EXPECT_EQ(JudgeFrameLock({&oAlone}), " Failed (biggest difference : 0 ticks, max allowed : 0 ticks)");
}

TEST(CableLockStatus, SecondIsGoodWhenAllStreamsAreOnOneClock)
{
    const struct
    {
        const char* szCase;
        std::vector<uint64_t> dauiOffset;
        std::vector<uint64_t> dauiNewest;
        Bool32 bIsGood;
    } aoRow[] = {
        {"within a line", {0, 16, 1469}, {9, 10, 11}, 1},
        {"a line apart", {0, 16, 1470}, {9, 10, 11}, 0},
        {"alone", {0}, {9}, 0},
        {"newest as far as may be", {0, 0}, {1, 0x8000001}, 1},
        {"on another counter", {0, 0}, {0x8000002, 1}, 0},
        {"alike in 32 bits", {0, 0}, {1, 0x100000001}, 0},
    };
    for (const auto& roRow : aoRow)
    {
        SLockTestStreams oStreams(roRow.dauiOffset);
        const SLockTestMeasurement oMeasurement(oStreams);
        EXPECT_EQ(IsCableLocked(oMeasurement.daoVideo, oMeasurement.daoPair, roRow.dauiNewest.data()), roRow.bIsGood)
            << roRow.szCase;
    }
}

TEST(CableLockStatus, VerdictNeedsEverySecondAndASecondAtLeast)
{
    CMString szVerdict;
    FormatCableLockVerdict({3600, 12}, 3600, szVerdict);
    EXPECT_STREQ(szVerdict.GetString(), " Success (3600 of 3600 seconds locked, biggest difference : 12 ticks)");
    FormatCableLockVerdict({3599, 0x80000000}, 3600, szVerdict);
    EXPECT_STREQ(szVerdict.GetString(), " Failed (3599 of 3600 seconds locked, biggest difference : 2147483648 ticks)");
    FormatCableLockVerdict({0, 0}, 0, szVerdict);
    EXPECT_STREQ(szVerdict.GetString(), " Failed (0 of 0 seconds locked, biggest difference : 0 ticks)");
}

TEST(CableLockStatus, PacesByWholeSecondsAndLeavesTimeToDeliver)
{
    EXPECT_EQ(GetNextCableLockSecond(10000, 10500), 11000U);
    EXPECT_EQ(GetNextCableLockSecond(10000, 10501), 12000U);
    EXPECT_EQ(GetNextCableLockSecond(10000, 75600), 77000U);
}
