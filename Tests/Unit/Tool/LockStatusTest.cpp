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

TEST(FrameLockStatus, WorstPairOfAllCyclesAgainstTheLineOfTheLast)
{
    SFrameLockVerdict oVerdict = {};
    const auto Judge = [&](SLockTestStreams& roStreams, uint32_t uiHRate_KHz)
    {
        roStreams.daoData[0].uiHRate_KHz = uiHRate_KHz;
        roStreams.Measure();
        JudgeFrameLockCycle(roStreams.daoVideo, roStreams.daoPair, oVerdict);
        CMString szVerdict;
        FormatFrameLockVerdict(oVerdict, szVerdict);
        return std::string(szVerdict.GetString());
    };
    SLockTestStreams oAlone({0}), oNear({0, 12, 1469}), oLineApart({0, 1470}), oLongLine({0, 5}), oNoLine({0, 5});
    EXPECT_EQ(Judge(oAlone, 68), " Failed (biggest difference : 0 ticks, max allowed : 0 ticks)");
    EXPECT_EQ(Judge(oNear, 68), " Success (biggest difference : 1469 ticks, max allowed : 1470 ticks)");
    EXPECT_EQ(Judge(oLineApart, 68), " Failed (biggest difference : 1470 ticks, max allowed : 1470 ticks)");
    EXPECT_EQ(Judge(oLongLine, 50), " Success (biggest difference : 1470 ticks, max allowed : 2000 ticks)");
    EXPECT_EQ(Judge(oNear, 68), " Success (biggest difference : 1470 ticks, max allowed : 2000 ticks)"); // nothing new
    EXPECT_EQ(Judge(oNoLine, 0), " Failed (biggest difference : 1470 ticks, max allowed : 0 ticks)");
}

TEST(CableLockStatus, SecondIsGoodWhenAllStreamsAreOnOneClock)
{
    const auto IsGood = [](const std::vector<uint64_t>& rdauiOffset, const std::vector<uint64_t>& rdauiNewest)
    {
        SLockTestStreams oStreams(rdauiOffset);
        oStreams.Measure();
        return IsCableLocked(oStreams.daoVideo, oStreams.daoPair, rdauiNewest.data());
    };
    EXPECT_TRUE(IsGood({0, 16, 1469}, {9, 10, 11}));
    EXPECT_FALSE(IsGood({0, 16, 1470}, {9, 10, 11}));
    EXPECT_FALSE(IsGood({0}, {9}));
    EXPECT_TRUE(IsGood({0, 0, 0}, {0x8000001, 1, 5}));
    EXPECT_FALSE(IsGood({0, 0, 0}, {1, 0x8000002, 5}));
    EXPECT_FALSE(IsGood({0, 0}, {1, 0x100000001})); // alike in 32 bits
}

TEST(CableLockStatus, VerdictNeedsEverySecondAndSecondsKeepTheirPace)
{
    CMString szVerdict;
    FormatCableLockVerdict({3600, 12}, 3600, szVerdict);
    EXPECT_STREQ(szVerdict.GetString(), " Success (3600 of 3600 seconds locked, biggest difference : 12 ticks)");
    FormatCableLockVerdict({3599, 0x80000000}, 3600, szVerdict);
    EXPECT_STREQ(szVerdict.GetString(), " Failed (3599 of 3600 seconds locked, biggest difference : 2147483648 ticks)");
    FormatCableLockVerdict({0, 0}, 0, szVerdict);
    EXPECT_STREQ(szVerdict.GetString(), " Failed (0 of 0 seconds locked, biggest difference : 0 ticks)");

    EXPECT_EQ(GetNextCableLockSecond(10000, 10500), 11000U);
    EXPECT_EQ(GetNextCableLockSecond(10000, 10501), 12000U);
    EXPECT_EQ(GetNextCableLockSecond(10000, 75600), 77000U);
}

} // namespace
