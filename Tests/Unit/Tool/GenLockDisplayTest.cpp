// The genlock report, block by block and character by character. A line has 1470 ticks of 10 ns.
#include "GenLockDisplay.h"

#include <regex>
#include <tuple>

#include "LockTestStreams.h"

namespace
{

// What the terminal gets, with a '|' for the sequence that erases a line's tail, with which every message begins.
std::string Display(SLockTestStreams& roStreams, uint32_t uiThresholdMode, uint32_t uiDisplayMode,
                    Bool32 bIsVideoIn = 1)
{
    testing::internal::CaptureStdout();
    DisplayGenLock(roStreams.uiCount, bIsVideoIn, uiDisplayMode, uiThresholdMode, roStreams.daoData.data(),
                   roStreams.dauiLast.data());
    return std::regex_replace(testing::internal::GetCapturedStdout(), std::regex("\033\\[K"), "|");
}

TEST(GenLockDisplay, TimesScaleAtTheirBorders)
{
    std::string szTexts;
    for (const int64_t iTimeNs : {0L, 99999L, 100000L, 100999L, 99999999L, 100000000L, -99999L, -100000L, -150999L,
                                  -99999999L, -100000000L, 4294967296000000L})
    {
        szTexts += std::to_string(TimeConvertValue(iTimeNs)) + TimeConvertUnit(iTimeNs) + " ";
    }
    EXPECT_EQ(szTexts, "0ns 99999ns 100us 100us 99999us 100ms -99999ns -100us -150us -99999us -100ms 4294967296ms ");
}

TEST(GenLockDisplay, GroupsUnlockedAndIdleStreamsFillTheirLines)
{
    SLockTestStreams oStreams({0, 300, 800000, 0});
    oStreams.daoData[3].auiTickRefCounter[0] = 0;
    EXPECT_EQ(Display(oStreams, GENLOCK_THRESHOLD_5, GENLOCK_DISPLAY_DETAILED),
              R"(|FRAMELOCK SUMMARY (THRESHOLD 5 LINES):
|    [|IN_00|, IN_01|] Locked : 0.20 line = 3000 ns (threshold 73500 ns)|
|    [IN_02] Unlocked|
|    [IN_03] Idle|
|
|
|FRAMELOCK DETAILS:
|    [IN_00, IN_01] 120 samples [ -3000 ns,  -3000 ns] :    0.20 line  =  3000 ns
|    [IN_00, IN_02] 120 samples [ -8000 us,  -8000 us] :  544.21 lines =  8000 us
|    [IN_01, IN_02] 120 samples [ -7997 us,  -7997 us] :  544.01 lines =  7997 us
|
|
|
|
)");
    // Nobody has delivered anything since.
    EXPECT_EQ(Display(oStreams, GENLOCK_THRESHOLD_1, GENLOCK_DISPLAY_DETAILED, 0),
              "|FRAMELOCK SUMMARY (THRESHOLD 1 LINE):\n|    [OUT_00] Idle|\n|    [OUT_01] Idle|\n|    [OUT_02] Idle|\n"
              "|    [OUT_03] Idle|\n|\n|FRAMELOCK DETAILS:\n|   No detailed information to display\n"
              "|\n|\n|\n|\n|\n|\n|\n");
}

TEST(GenLockDisplay, ChainIsFollowedInOnePass)
{
    // Neighbours 0 - 3 - 2 - 1 are 1000 ticks apart: pair (1, 2) comes before 2 has joined.
    SLockTestStreams oStreams({0, 3000, 2000, 1000});
    EXPECT_EQ(Display(oStreams, GENLOCK_THRESHOLD_1, GENLOCK_DISPLAY_SUMMARY),
              "|FRAMELOCK SUMMARY (THRESHOLD 1 LINE):\n"
              "|    [|IN_00|, IN_02|, IN_03|] Locked : 0.68 line = 10000 ns (threshold 14700 ns)|\n"
              "|    [|IN_01|] Locked : 0.68 line = 10000 ns (threshold 14700 ns)|\n|\n|\n|\n|\n");
}

TEST(GenLockDisplay, ThresholdsPluralsAndGuardsOfTwoStreams)
{
    constexpr uint32_t MHZ100 = 100000000;
    // Offset, threshold mode, tick frequency, line frequency; header and verdict.
    using Row = std::tuple<uint64_t, uint32_t, uint32_t, uint32_t, const char*, std::string>;
    for (const auto& [uiOffset, uiMode, uiTickRefFreq, uiHRate_KHz, szLines, szVerdict] : std::vector<Row>{
             {1470, GENLOCK_THRESHOLD_1, MHZ100, 68, "1 LINE", ""},
             {1469, GENLOCK_THRESHOLD_1, MHZ100, 68, "1 LINE", "0.99 line = 14690 ns (threshold 14700 ns)"},
             {0, GENLOCK_THRESHOLD_5, MHZ100, 68, "5 LINES", "0.00 line = 0 ns (threshold 73500 ns)"},
             {2939, GENLOCK_THRESHOLD_5, MHZ100, 68, "5 LINES", "1.99 line = 29390 ns (threshold 73500 ns)"},
             {2940, GENLOCK_THRESHOLD_5, MHZ100, 68, "5 LINES", "2.00 lines = 29400 ns (threshold 73500 ns)"},
             {44099, GENLOCK_THRESHOLD_30, MHZ100, 68, "30 LINES", "29.99 lines = 440 us (threshold 441 us)"},
             {132299, GENLOCK_THRESHOLD_90, MHZ100, 68, "90 LINES", "89.99 lines = 1322 us (threshold 1323 us)"},
             {1470, GENLOCK_THRESHOLD_COUNT, MHZ100, 68, "1 LINE", ""},
             {0, GENLOCK_THRESHOLD_90, 0, 68, "90 LINES", ""},     // no tick frequency
             {0, GENLOCK_THRESHOLD_90, 1, 68, "90 LINES", ""},     // less than a tick a line
             {0, GENLOCK_THRESHOLD_90, MHZ100, 0, "90 LINES", ""}, // no line frequency
             // The hundredths wrap.
             {4294968, GENLOCK_THRESHOLD_90, 2000000000, 20, "90 LINES", "0.00 line = 2147 us (threshold 4500 us)"}})
    {
        SLockTestStreams oStreams({0, uiOffset});
        for (SMonitorUserData& roData : oStreams.daoData)
        {
            roData.uiTickRefFreq = uiTickRefFreq;
            roData.uiHRate_KHz = uiHRate_KHz;
            roData.auiTickRefCounter[1] = 0; // a single sample: whatever the offset, none is nearer
        }
        EXPECT_EQ(Display(oStreams, uiMode, GENLOCK_DISPLAY_SUMMARY),
                  "|FRAMELOCK SUMMARY (THRESHOLD " + std::string(szLines) + "):\n" +
                      (szVerdict.empty() ? "|    [IN_00] Unlocked|\n|    [IN_01] Unlocked|\n"
                                         : "|    [|IN_00|, IN_01|] Locked : " + szVerdict + "|\n|\n") +
                      "|\n|\n");
    }
}

TEST(GenLockDisplay, DetailsShowSignsUnitsAndGuards)
{
    SLockTestStreams oStreams({0, 0, 1000, 0});
    oStreams.daoData[0].auiTickRefCounter[5] = 0; // leaves fields 120 to 124
    oStreams.Fill(1, FIELD_TICKS - 615000, FIELD_TICKS + 5000, 50, 170);
    oStreams.daoData[2].uiTickRefFreq = 1; // less than a tick a line
    oStreams.daoData[3].auiTickRefCounter[1] = 0;
    // So far off that its line figures wrap, and the nanoseconds of its deltas too.
    oStreams.daoData[3].auiTickRefCounter[0] = 123 * FIELD_TICKS + 300000000;
    const std::string szText = Display(oStreams, GENLOCK_THRESHOLD_1, GENLOCK_DISPLAY_DETAILED, 0);
    EXPECT_EQ(szText.substr(szText.find("FRAMELOCK DETAILS")), R"(FRAMELOCK DETAILS:
|    [OUT_00, OUT_01]   5 samples [-50000 ns,    150 us] :   10.20 lines =   150 us
|    [OUT_00, OUT_02]   5 samples [-10000 ns, -10000 ns] :    0.68 line  = 10000 ns
|    [OUT_00, OUT_03]   1 samples [  1294 ms,   1294 ms] : 2481.12 lines =  3000 ms
|    [OUT_01, OUT_02] 120 samples [ -3660 us,   2290 us] :  248.97 lines =  3660 us
|    [OUT_01, OUT_03]   1 samples [  1094 ms,   1094 ms] : 1522.05 lines =  3200 ms
|    [OUT_02, OUT_03]   1 samples [     0 ns,      0 ns] :    0.00 line  =     0 ns
|
)");
}

TEST(GenLockDisplay, CountsAtTheirLimits)
{
    SLockTestStreams oNone({}), oOne({0}), oMany(std::vector<uint64_t>(33, 0));
    EXPECT_EQ(Display(oNone, GENLOCK_THRESHOLD_1, GENLOCK_DISPLAY_DETAILED), "");
    EXPECT_EQ(Display(oOne, GENLOCK_THRESHOLD_1, GENLOCK_DISPLAY_DETAILED),
              "|FRAMELOCK SUMMARY (THRESHOLD 1 LINE):\n|    [IN_00] Unlocked|\n|\n|FRAMELOCK DETAILS:\n"
              "|   No detailed information to display\n|\n|\n");
    // Every stream but the last has a bit to be grouped by.
    const std::string szText = Display(oMany, GENLOCK_THRESHOLD_1, GENLOCK_DISPLAY_SUMMARY);
    EXPECT_NE(szText.find("|, IN_31|] Locked : 0.00 line = 0 ns (threshold 14700 ns)|\n|    [IN_32] Unlocked|\n|\n"),
              std::string::npos);
}

} // namespace
