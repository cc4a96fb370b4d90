// The two lock tests from switch to exit status: inputs in step, outputs two lines apart. By how many ticks, a test in
// granted time asks: here a thread that the machine held up is fields behind.
#include "ConsoleProcess.h"

#include <gmock/gmock.h>

TEST(LockSession, BothTestsGiveBothVerdictsAndExit255)
{
    CConsoleProcess oTool({.aszArguments = {"-f", "-c", "2"}, .szScenario = Scenario(2, 2) + "phase_us = 222\n"});
    EXPECT_TRUE(oTool.AwaitOutput("CableLock TS   1 : "));
    oTool.Resize(50, 150); // does not end the second before its time, in which no stream would have a new field
    EXPECT_EQ(oTool.AwaitEnd(), 255);
    const std::string szFrameLock = "Testing if the system is frame locked \\.\\.\\.\n";
    const std::string szCableLock =
        "Cable Lock Testing begin \\(2 seconds\\) \\.\\.\\. \n-{18}\n"
        "(CableLock TS   [12] : (0x[0-9A-F]{16} ){2}\n){2}-{18}\nCable Lock Testing done \\.\\.\\. \n";
    EXPECT_THAT(Plain(oTool.Output()),
                testing::ContainsRegex(
                    szFrameLock + " Success \\(biggest difference : 0 ticks, max allowed : 11111 ticks\\)\n" +
                    szFrameLock + " Failed \\(biggest difference : [0-9]+ ticks, max allowed : 11111 ticks\\)\n" +
                    szCableLock + " Success \\(2 of 2 seconds locked, biggest difference : 0 ticks\\)\n" + szCableLock +
                    " Failed \\(0 of 2 seconds locked, biggest difference : [0-9]+ ticks\\)\n" + "Stopped!\n$"));
}
