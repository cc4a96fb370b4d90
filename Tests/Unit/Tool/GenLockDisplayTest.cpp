// The genlock report, block by block and character by character. A line has 1470 ticks of 10 ns.
#include "GenLockDisplay.h"

#include "LockTestStreams.h"

namespace
{

std::string Display(SLockTestStreams& roStreams, uint32_t uiThresholdMode, uint32_t uiDisplayMode,
                    Bool32 bIsVideoIn = 1)
{
    return CaptureTerminal(
        [&]
        {
            DisplayGenLock(roStreams.Count(), bIsVideoIn, uiDisplayMode, uiThresholdMode, roStreams.daoData.data(),
                           roStreams.dauiLast.data());
        });
}

} // namespace

TEST(GenLockDisplay, TimesScaleAtTheirBorders)
{
    const struct
    {
        int64_t iTimeNs;
        const char* szText;
    } aoRow[] = {
        {0, "0 ns"},           {99999, "99999 ns"},      {100999, "100 us"},      {99999999, "99999 us"},
        {100000000, "100 ms"}, {-99999, "-99999 ns"},    {-100000, "-100 us"},    {-150999, "-150 us"},
        {100000, "100 us"},    {-99999999, "-99999 us"}, {-100000000, "-100 ms"}, {4294967296000000, "4294967296 ms"},
    };
    for (const auto& roRow : aoRow)
    {
        EXPECT_EQ(std::to_string(TimeConvertValue(roRow.iTimeNs)) + " " + TimeConvertUnit(roRow.iTimeNs), roRow.szText);
    }
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
              R"(|FRAMELOCK SUMMARY (THRESHOLD 1 LINE):
|    [OUT_00] Idle|
|    [OUT_01] Idle|
|    [OUT_02] Idle|
|    [OUT_03] Idle|
|
|FRAMELOCK DETAILS:
|   No detailed information to display
|
|
|
|
|
|
|
)");
}

TEST(GenLockDisplay, ChainIsFollowedInOnePass)
{
    // Neighbours 0 - 3 - 2 - 1 are 1000 ticks apart: pair (1, 2) comes before 2 has joined.
    SLockTestStreams oStreams({0, 3000, 2000, 1000});
    EXPECT_EQ(Display(oStreams, GENLOCK_THRESHOLD_1, GENLOCK_DISPLAY_SUMMARY),
              R"(|FRAMELOCK SUMMARY (THRESHOLD 1 LINE):
|    [|IN_00|, IN_02|, IN_03|] Locked : 0.68 line = 10000 ns (threshold 14700 ns)|
|    [|IN_01|] Locked : 0.68 line = 10000 ns (threshold 14700 ns)|
|
|
|
|
)");
}

TEST(GenLockDisplay, ThresholdsPluralsAndGuardsOfTwoStreams)
{
    const struct
    {
        uint64_t uiOffset;
        uint32_t uiThresholdMode;
        const char* szLines;
        const char* szVerdict; // null: unlocked
        uint32_t uiTickRefFreq = 100000000;
        uint32_t uiHRate_KHz = 68;
    } aoRow[] = {
        {1470, GENLOCK_THRESHOLD_1, "1 LINE", nullptr},
        {1469, GENLOCK_THRESHOLD_1, "1 LINE", "0.99 line = 14690 ns (threshold 14700 ns)"},
        {0, GENLOCK_THRESHOLD_5, "5 LINES", "0.00 line = 0 ns (threshold 73500 ns)"},
        {2939, GENLOCK_THRESHOLD_5, "5 LINES", "1.99 line = 29390 ns (threshold 73500 ns)"},
        {2940, GENLOCK_THRESHOLD_5, "5 LINES", "2.00 lines = 29400 ns (threshold 73500 ns)"},
        {44099, GENLOCK_THRESHOLD_30, "30 LINES", "29.99 lines = 440 us (threshold 441 us)"},
        {132299, GENLOCK_THRESHOLD_90, "90 LINES", "89.99 lines = 1322 us (threshold 1323 us)"},
        {1469, GENLOCK_THRESHOLD_COUNT, "1 LINE", "0.99 line = 14690 ns (threshold 14700 ns)"},
        {1470, 0xFFFFFFFF, "1 LINE", nullptr},
        {0, GENLOCK_THRESHOLD_90, "90 LINES", nullptr, 0},            // no tick frequency
        {0, GENLOCK_THRESHOLD_90, "90 LINES", nullptr, 1},            // less than a tick a line
        {0, GENLOCK_THRESHOLD_90, "90 LINES", nullptr, 100000000, 0}, // no line frequency
        {4294967, GENLOCK_THRESHOLD_90, "90 LINES", "42.94 lines = 2147 us (threshold 4500 us)", 2000000000, 20},
        {4294968, GENLOCK_THRESHOLD_90, "90 LINES", "0.00 line = 2147 us (threshold 4500 us)", 2000000000, 20}, // wraps
    };
    for (const auto& roRow : aoRow)
    {
        SLockTestStreams oStreams({0, 0});
        for (uint32_t uiVideo = 0; uiVideo < 2; ++uiVideo)
        {
            oStreams.daoData[uiVideo].uiTickRefFreq = roRow.uiTickRefFreq;
            oStreams.daoData[uiVideo].uiHRate_KHz = roRow.uiHRate_KHz;
            oStreams.Fill(uiVideo, 1 + uiVideo * roRow.uiOffset, 100000000, 0, NB_OF_SAMPLES);
        }
        const std::string szVerdict =
            roRow.szVerdict == nullptr ? "|    [IN_00] Unlocked|\n|    [IN_01] Unlocked|\n"
                                       : "|    [|IN_00|, IN_01|] Locked : " + std::string(roRow.szVerdict) + "|\n|\n";
        EXPECT_EQ(Display(oStreams, roRow.uiThresholdMode, GENLOCK_DISPLAY_SUMMARY),
                  "|FRAMELOCK SUMMARY (THRESHOLD " + std::string(roRow.szLines) + "):\n" + szVerdict + "|\n|\n");
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
    SLockTestStreams oNone({});
    EXPECT_EQ(Display(oNone, GENLOCK_THRESHOLD_1, GENLOCK_DISPLAY_DETAILED), "");
    SLockTestStreams oOne({0});
    EXPECT_EQ(Display(oOne, GENLOCK_THRESHOLD_1, GENLOCK_DISPLAY_DETAILED),
              "|FRAMELOCK SUMMARY (THRESHOLD 1 LINE):\n|    [IN_00] Unlocked|\n|\n|FRAMELOCK DETAILS:\n"
              "|   No detailed information to display\n|\n|\n");
    // Every stream but the last has a bit to be grouped by.
    SLockTestStreams oMany(std::vector<uint64_t>(33, 0));
    const std::string szText = Display(oMany, GENLOCK_THRESHOLD_1, GENLOCK_DISPLAY_SUMMARY);
    EXPECT_NE(szText.find("|, IN_31|] Locked : 0.00 line = 0 ns (threshold 14700 ns)|\n|    [IN_32] Unlocked|\n|\n"),
              std::string::npos);
}
