// What reaches standard output and the log file, message by message.
#include "ConsoleLog.h"
#include "MonitorGlobals.h"
#include "Terminal.h"

#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

namespace
{

template <typename TPrint> std::string Captured(TPrint pfnPrint)
{
    testing::internal::CaptureStdout();
    pfnPrint();
    return testing::internal::GetCapturedStdout();
}

} // namespace

TEST(ConsoleLog, LongMessagesAreFollowedByAWarningAndCutAtTheBuffer)
{
    const std::string szFile = testing::TempDir() + "VtConsoleLogTest.log";
    g_bLog = 1;
    g_pszLogFileName = szFile.c_str();
    for (const size_t uiLength : {0U, 1000U, 1001U, 4095U, 4096U, 10000U})
    {
        ASSERT_EQ(CreateFile(g_pszLogFileName), 1);
        const size_t uiKept = std::min<size_t>(uiLength, 4095);
        const std::string szWarning =
            "Warning, message length (" + std::to_string(uiKept) + ") exceed the maximum expected (1000).\n";
        const std::string szExpected = std::string(uiKept, '%') + (uiKept <= 1000 ? "" : szWarning);
        EXPECT_EQ(Captured([&] { Log("%s", std::string(uiLength, '%').c_str()); }), "\033[K" + szExpected);
        EXPECT_EQ((std::ostringstream() << std::ifstream(szFile).rdbuf()).str(), szExpected);
    }
    g_bLog = 0;
    EXPECT_EQ(CreateFile(""), 0);
    EXPECT_EQ(WriteToFile("/", "text", 4), 0);
    // Both results are inverted.
    EXPECT_EQ(WriteToFile(szFile.c_str(), "text", 0), 1);
    EXPECT_EQ(WriteToFile(szFile.c_str(), "text", 4), 0);
}

TEST(ConsoleLog, TheOneShotReportIsSilentAtFirstAndNeverMovesTheCursor)
{
    const auto PrintAll = []
    {
        ClearScreen();
        SetCursorPosition(3, 4);
        Log("%d\n", 5);
    };
    EXPECT_EQ(Captured(PrintAll), "\033[2J\033[5;4H\033[K5\n");
    g_bStatus = 1;
    EXPECT_EQ(Captured(PrintAll), "");
    g_bInitialLaunch = 0;
    EXPECT_EQ(Captured(PrintAll), "5\n");
    g_bStatus = 0;
    g_bInitialLaunch = 1;
}
