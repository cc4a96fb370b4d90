// Whole sessions. A redraw comes every two seconds, so one session answers many questions, and sessions that need no
// keys run side by side.
#include "ConsoleProcess.h"

#include <csignal>
#include <fstream>
#include <memory>
#include <sstream>

#include <gmock/gmock.h>

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

namespace
{

constexpr char BANNER[] = "Korvani VtVideoMonitor - Version 4.1.0.146\n"
                          "Timings, frame rates and genlock of every video stream, live. Build 2017-09-15 \n\n";
constexpr char MENU[] = R"(
COMMANDS (PRESS KEY):
  <i>      Initialize application threads.
  <g>      Cycles display of GENLOCK information (off, general, detailed).
  <l>      Cycles threshold of GENLOCK information (1, 5, 40, 90 lines).
  <t>      Toggles display of extended timing information.
  <f>      Toggles display of FPS average min and max values (and reset them).
  <1>      Set reference for PPM calculations.
  <2>      Reset fps average for PPM calculations.
  <r>      Resets the screen output (clear screen).
  <d>      Dump raw data info (debug).
  <q>      To quit.

)";
constexpr char HEADINGS_IN[] =
    "           FRAMES_PER_SECOND     READIES               LOANS                FRAMES                             \n"
    "   ID      Avg    Max    Min     Avg    Max    Min     Avg    Max    Min    Skipped   Missed  Doubled   Total  \n"
    "========  ====== ====== ======  ====== ====== ======  ====== ====== ======  ======== ======== ======== ========\n";
constexpr char EMPTY_IN[] =
    "--------  ------ ------ ------  ------ ------ ------  ------ ------ ------  -------- -------- -------- --------\n";
constexpr char HEADINGS_OUT[] =
    "           FRAMES_PER_SECOND    SETBUFFER_PER_SECOND  FRAMES                             \n"
    "   ID      Avg    Max    Min     Avg    Max    Min    Skipped    Set    Doubled   Total  \n"
    "========  ====== ====== ======  ====== ====== ======  ======== ======== ======== ========\n";
constexpr char EMPTY_OUT[] =
    "--------  ------ ------ ------  ------ ------ ------  -------- -------- -------- --------\n";
constexpr char STOPPED[] = " >>> Stopping...\nStopped!\n";

// The log file's share of a redraw: the time in front of a row, but not twice in a second.
constexpr char LOGGED_ROWS[] = "\\*\\*\\* <time> \\*\\*\\*\n(\\[IN_0[01]\\]   [ 0-9.]+\n){2}\n"
                               "(\\*\\*\\* <time> \\*\\*\\*\n)?(\\[OUT_0[01]\\]  [ 0-9.]+\n){2}\n";

std::string FirstScreen()
{
    const std::string szTiming = " - 1920 x 1080p @  8 Hz (YUV) VtPixelFormat_YUV422_UYVY";
    const std::string szIn = szTiming + ", NumBuf=8 (VtVideoIn_State_STARTED)\n";
    const std::string szOut = szTiming + " PowerState_ON\n";
    return std::string(BANNER) + "Start Time   : <time>\nCurrent Time : <time>\n\n" + MENU +
           "VIDEO_INPUT:\n    [IN_00] - IN%n%s 0" + szIn + "    [IN_01] - IN%n%s 1" + szIn + "\n" + HEADINGS_IN +
           EMPTY_IN + EMPTY_IN + "\nVIDEO_OUTPUT:\n    [OUT_00] - OUT%n%s 0" + szOut + "    [OUT_01] - OUT%n%s 1" +
           szOut + "\n" + HEADINGS_OUT + EMPTY_OUT + EMPTY_OUT + "\n\n";
}

size_t Count(const std::string& szText, std::string_view szPart)
{
    size_t uiCount = 0;
    for (size_t uiAt = szText.find(szPart); uiAt != std::string::npos; uiAt = szText.find(szPart, uiAt + 1))
    {
        ++uiCount;
    }
    return uiCount;
}

// Total fields in the detailed frame rates of output 1.
int TotalFields(const std::string& szRedraw)
{
    std::istringstream oLine(szRedraw.substr(szRedraw.find("[OUT_01] 8.0") + 8));
    double flRate = 0.0;
    int iFields = -1;
    oLine >> flRate >> flRate >> flRate >> iFields;
    return iFields;
}

std::string ReadFile(const std::string& szFile)
{
    return (std::ostringstream() << std::ifstream(szFile).rdbuf()).str();
}

} // namespace

TEST(Session, KeysChangeTheNextRedraw)
{
    CConsoleProcess oConsole({.szScenario = Scenario(2, 2)});
    EXPECT_TRUE(oConsole.Await([&] { return Plain(oConsole.Screen()).starts_with(FirstScreen()); }))
        << oConsole.Screen();
    oConsole.Type("\033OQ\033[2~\033[3;5~\033q"); // none of them quits, resets or restarts
    oConsole.Type("gtF");
    EXPECT_TRUE(oConsole.AwaitInRedraw(2, "[OUT_01] 8.00"));
    oConsole.Type("1gll");
    EXPECT_TRUE(oConsole.AwaitInRedraw(3, "[OUT_01] 8.00"));
    oConsole.Type("2ggl");
    EXPECT_TRUE(oConsole.AwaitInRedraw(4, "[OUT_01] 8.00"));
    oConsole.Type("ggftl");
    oConsole.Resize(61, 201); // one more clear
    EXPECT_TRUE(oConsole.AwaitInRedraw(5, "[OUT_01]  "));
    oConsole.Type("Q");
    EXPECT_EQ(oConsole.AwaitEnd(), 0);
    EXPECT_THAT(oConsole.Output(), testing::EndsWith(STOPPED));

    const struct
    {
        size_t uiCleared; // by the keys that were typed when the redraw was there
        const char* szSummary;
        size_t uiDetails;
        size_t uiExtended; // frame rates and timings
        const char* szReference;
    } aoRows[] = {
        {1, "", 0, 0, ""},
        {3, "", 0, 0, ""},
        {4, "(THRESHOLD 1 LINE):\n", 0, 4, "0\\.000000 ==>  0\\.0"},
        {4, "(THRESHOLD 30 LINES):\n", 2, 4, "8\\.0[0-9]+ ==> [ -]0\\.[0-9]"},
        {6, "(THRESHOLD 90 LINES):\n", 0, 4, "8\\.0[0-9]+ ==> [ -]0\\.[0-9]"},
        {0, "", 0, 0, ""},
    };
    const std::vector<std::string> aszRedraws = oConsole.Redraws();
    ASSERT_GE(aszRedraws.size(), std::size(aoRows));
    for (size_t uiRedraw = 0; uiRedraw < std::size(aoRows); ++uiRedraw)
    {
        const std::string szRedraw = Plain(aszRedraws[uiRedraw]);
        const auto& roRow = aoRows[uiRedraw];
        SCOPED_TRACE(std::to_string(uiRedraw) + szRedraw);
        EXPECT_EQ(Count(szRedraw, "\033[2J"), roRow.uiCleared);
        EXPECT_EQ(Count(szRedraw, "FRAMELOCK SUMMARY "), roRow.szSummary[0] != '\0' ? 2U : 0U);
        EXPECT_THAT(szRedraw, HasSubstr(roRow.szSummary));
        EXPECT_EQ(Count(szRedraw, "FRAMELOCK DETAILS:\n"), roRow.uiDetails);
        EXPECT_EQ(Count(szRedraw, "  19800 KHz,  88,  44, 148,   4,   5,  36 (+/-)"), roRow.uiExtended);
        EXPECT_EQ(Count(szRedraw, " ppm)\n"), roRow.uiExtended);
        if (roRow.uiExtended > 0)
        {
            EXPECT_THAT(szRedraw, ContainsRegex("\n\\[OUT_01\\] 8\\.[0-9. ]+ \\(" + std::string(roRow.szReference)));
            // Only outputs ever get a reference.
            EXPECT_THAT(szRedraw, ContainsRegex("\n\\[IN_01\\] 8\\.[0-9. ]+ \\(0\\.000000 ==>  0\\.0 ppm\\)\n"));
        }
    }
    EXPECT_LT(TotalFields(aszRedraws[4]), TotalFields(aszRedraws[3])); // reset by key 2
    EXPECT_THAT(aszRedraws[5], ContainsRegex("\n.*\\[IN_01\\]     8\\.00 [ 0-9.]{13}    1\\.00      1      1    2\\.00"
                                             "      2      2         0 [ 0-9]{26}\n"));
}

TEST(Session, RestartDumpAndLogFile)
{
    const std::string szFile = testing::TempDir() + "VtConsoleSession.log";
    std::ofstream(szFile) << "left from an earlier run";
    // The restart finds an input that cannot be opened any more.
    CConsoleProcess oConsole({.aszArguments = {"-l", szFile},
                              .szScenario = Scenario(2, 2) + "[[fault]]\noperation = \"VtVideoIn_GetHandle\"\n"
                                                             "call = 3\nstatus = \"VtStatus_RESOURCES_BUSY\"\n"});
    EXPECT_TRUE(oConsole.AwaitInRedraw(1, EMPTY_OUT));
    oConsole.Type("xrP");
    EXPECT_TRUE(oConsole.AwaitInRedraw(2, "[OUT_01]  "));
    oConsole.Type("di");
    EXPECT_TRUE(oConsole.AwaitOutput("Error : VtVideoIn_GetHandle failed!\nqz2(4.1.0.146)[0]: (Error) VideoInMonitor"));
    const std::string szLog = Plain(ReadFile(szFile));
    oConsole.Type("iq"); // neither may hang, with one thread gone
    EXPECT_EQ(oConsole.AwaitEnd(), 0);
    EXPECT_THAT(oConsole.Output(), HasSubstr(STOPPED));

    const std::vector<std::string> aszRedraws = oConsole.Redraws();
    ASSERT_GE(aszRedraws.size(), 3U);
    EXPECT_EQ(Count(aszRedraws[1], "\033[2J"), 1U);
    EXPECT_EQ(Count(aszRedraws[2], " PowerState_BLANKED\n"), 1U); // read again by key p
    std::string szDump;
    for (const char* szTitle : {"In", "Out"})
    {
        szDump += std::string("\n\nDisplay Raw Data \\(Video") + szTitle + "\\)\n   000: (0x[0-9A-F]{16} ){2}\n" +
                  "(   [0-9]{3}: (0x[0-9A-F]{16} ){2}\n){118}   119: (0x[0-9A-F]{16} ){2}\n\n";
    }
    EXPECT_THAT(Plain(aszRedraws[2]), ContainsRegex(szDump + "\n{100}"));

    // The first screen whole, then of each redraw the rows alone, behind the time.
    const std::string szFirst = FirstScreen();
    ASSERT_THAT(szLog, StartsWith(szFirst));
    EXPECT_THAT(szLog.substr(szFirst.size()), MatchesRegex(LOGGED_ROWS));
}

TEST(Session, OneShotReportNeedsNoTerminal)
{
    const std::string szFile = testing::TempDir() + "VtConsoleReport.log";
    std::vector<std::unique_ptr<CConsoleProcess>> apoConsoles;
    apoConsoles.push_back(std::make_unique<CConsoleProcess>(
        SConsoleSetup{.aszArguments = {"-s", "-l", szFile}, .szScenario = Scenario(2, 2)}));
    for (const char* szRedirect : {"</dev/null", "<&- | cat", "< <(exec <&- >&-; sleep 9)"})
    {
        apoConsoles.push_back(std::make_unique<CConsoleProcess>(
            SConsoleSetup{.aszArguments = {"-s"}, .szScenario = Scenario(2, 2), .szRedirect = szRedirect}));
    }
    // The first screen with rows in the place of the placeholders, once, and not a single sequence.
    const std::string szHead = "\n" + FirstScreen().substr(0, FirstScreen().find(EMPTY_IN));
    const std::string szRows = "(\\[IN_0[01]\\]   [ 0-9.]+\n){2}\n";
    for (const auto& rpoConsole : apoConsoles)
    {
        EXPECT_EQ(rpoConsole->AwaitEnd(), 0);
        const std::string szReport = Plain(rpoConsole->Output());
        EXPECT_EQ(rpoConsole->Output().find('\033'), std::string::npos);
        ASSERT_THAT(szReport, StartsWith(szHead));
        EXPECT_THAT(szReport.substr(szHead.size()), MatchesRegex(szRows + "VIDEO_OUTPUT:\n[^:]*\n\n" + STOPPED));
    }
    EXPECT_THAT(Plain(ReadFile(szFile)), MatchesRegex(LOGGED_ROWS));
}

TEST(Session, SwitchesCompose)
{
    const std::string szFile = testing::TempDir() + "VtConsoleMonitor.log";
    CConsoleProcess oSilentLock({.aszArguments = {"-s", "-f"}, .szScenario = Scenario(0, 2)});
    CConsoleProcess oSilentMonitor({.aszArguments = {"-s", "-m"}, .szScenario = Scenario(1, 1)});
    CConsoleProcess oMonitor({.aszArguments = {"-m", "-t", "-l", szFile}, .szScenario = Scenario(1, 1)});

    EXPECT_TRUE(oMonitor.AwaitOutput("FrameTotal=1")); // eleven fields: the third pass of the output
    oMonitor.Type("gq");
    EXPECT_EQ(oMonitor.AwaitEnd(), 0);
    EXPECT_THAT(Plain(oMonitor.Output()), StartsWith(std::string("\n\033[2J\033[1;1H") + BANNER));
    EXPECT_EQ(oMonitor.Redraws().size(), 2U); // the cursor goes home for the banner alone
    EXPECT_EQ(Count(oMonitor.Output(), "\033[2J"), 2U);
    EXPECT_THAT(oMonitor.Output(), ContainsRegex("\\[IN[^\n]* 19800 KHz,[^\n]*NumBuf=8\\] FpsAvg=8\\.00 [^\n]*\n"));
    EXPECT_THAT(ReadFile(szFile), MatchesRegex(std::string(BANNER) + "(\\[(IN|OUT)%n%s 0 - [^\n]*\n)+"));

    oSilentMonitor.Type("5q");
    EXPECT_EQ(oSilentMonitor.AwaitEnd(), 0);
    EXPECT_THAT(oSilentMonitor.Output(), MatchesRegex("[\n5q]*" + std::string(STOPPED)));
    EXPECT_EQ(oSilentLock.AwaitEnd(), 255);
    EXPECT_EQ(oSilentLock.Output(), "\nStopped!\n");
}

TEST(Session, EveryNumberOfStreams)
{
    const std::pair<size_t, size_t> aoNumbers[] = {{0, 0}, {1, 0}, {0, 1}, {32, 32}};
    std::vector<std::unique_ptr<CConsoleProcess>> apoConsoles;
    for (const auto& [uiIn, uiOut] : aoNumbers)
    {
        apoConsoles.push_back(std::make_unique<CConsoleProcess>(
            SConsoleSetup{.szScenario = Scenario(static_cast<int>(uiIn), static_cast<int>(uiOut))}));
        apoConsoles.back()->Type("g");
    }
    for (size_t uiConsole = 0; uiConsole < std::size(aoNumbers); ++uiConsole)
    {
        const auto& [uiIn, uiOut] = aoNumbers[uiConsole];
        SCOPED_TRACE(std::to_string(uiIn) + " " + std::to_string(uiOut));
        CConsoleProcess& roConsole = *apoConsoles[uiConsole];
        EXPECT_TRUE(roConsole.AwaitInRedraw(2, "\n"));
        roConsole.Type("q"); // not looked at before that redraw is whole
        EXPECT_EQ(roConsole.AwaitEnd(), 0);
        for (const size_t uiRedraw : {1U, 2U})
        {
            const std::string szRedraw = Plain(roConsole.Redraws().at(uiRedraw));
            EXPECT_EQ(Count(szRedraw, uiRedraw == 1 ? EMPTY_IN : "\n[IN_"), uiIn);
            EXPECT_EQ(Count(szRedraw, uiRedraw == 1 ? EMPTY_OUT : "\n[OUT_"), uiOut);
            EXPECT_EQ(Count(szRedraw, "VIDEO_INPUT:\n"), uiIn > 0 ? 1U : 0U);
            EXPECT_EQ(Count(szRedraw, "VIDEO_OUTPUT:\n"), uiOut > 0 ? 1U : 0U);
            EXPECT_EQ(Count(szRedraw, "FRAMELOCK SUMMARY"), (uiIn > 1 ? 1U : 0U) + (uiOut > 1 ? 1U : 0U));
        }
    }
}

TEST(Session, SignalsLeaveTheTerminalAsFound)
{
    CConsoleProcess oInterrupted({.szScenario = Scenario(1, 1)});
    CConsoleProcess oTerminated({.aszArguments = {"-s", "-m"}, .szScenario = Scenario(1, 1)});
    EXPECT_TRUE(oInterrupted.AwaitInRedraw(1, EMPTY_OUT));
    constexpr int iMoments = 10; // from the change of the terminal to behind its restoration
    for (int iMoment = 0; iMoment < iMoments; ++iMoment)
    {
        EXPECT_TRUE(oInterrupted.StopInKeyRead(iMoment)) << iMoment;
    }
    oInterrupted.Type("\003");
    EXPECT_EQ(oInterrupted.AwaitEnd(), -SIGINT);
    EXPECT_TRUE(oTerminated.KillInKeyRead(SIGTERM));
    EXPECT_EQ(oTerminated.AwaitEnd(), -SIGTERM);
}

TEST(Session, AJobOfAShellGoesOnInTheBackgroundAndEndsWhenKilled)
{
    CConsoleProcess oShell({.szScenario = Scenario(0, 1), .bIsShell = true});
    for (const auto& [szSignal, iSignal] : {std::pair("TERM", SIGTERM), {"INT", SIGINT}, {"HUP", SIGHUP}})
    {
        oShell.Type("\"$TOOL\" -m 2>&- &\n");
        EXPECT_TRUE(oShell.AwaitNewOutput("FrameTotal="));
        oShell.Type("kill -" + std::string(szSignal) + " %%; wait %%; echo ended=$?\n");
        EXPECT_TRUE(oShell.AwaitNewOutput("\nended=" + std::to_string(128 + iSignal)));
    }
    oShell.Type("\"$TOOL\" -m 2>&-\n");
    EXPECT_TRUE(oShell.AwaitNewOutput("FrameTotal="));
    oShell.Type("\032");
    EXPECT_TRUE(oShell.AwaitNewOutput("Stopped"));
    oShell.Type("bg\n");
    EXPECT_TRUE(oShell.AwaitNewOutput("FrameTotal="));
    oShell.Type("q\n"); // the shell's, which knows no such command
    EXPECT_TRUE(oShell.AwaitNewOutput("not found"));
    EXPECT_TRUE(oShell.AwaitNewOutput("FrameTotal="));
    oShell.Type("fg\n");
    EXPECT_TRUE(oShell.AwaitNewOutput("FrameTotal="));
    oShell.Type("q");
    EXPECT_TRUE(oShell.AwaitNewOutput(STOPPED));
    oShell.Type("exit\n");
    EXPECT_EQ(oShell.AwaitEnd(), 0);
}
