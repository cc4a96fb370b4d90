// Whole sessions. A redraw comes every two seconds, so one session answers many questions, and sessions that need no
// keys run side by side.
#include "ConsoleProcess.h"

#include <csignal>
#include <fstream>
#include <memory>
#include <regex>
#include <sstream>

#include <gmock/gmock.h>

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

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
constexpr char CLEAR[] = "\033[2J";

// What a redraw comes down to on paper: no sequences, and times by their form.
std::string Plain(const std::string& szOutput)
{
    static const std::regex s_oTime("[A-Z][a-z]{2} [A-Z][a-z]{2} [ 123][0-9] [0-9]{2}:[0-9]{2}:[0-9]{2} [0-9]{4}");
    const std::string szNoErase = std::regex_replace(szOutput, std::regex("\033\\[K"), "");
    return std::regex_replace(szNoErase, s_oTime, "<time>");
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

std::string ReadFile(const std::string& szFile)
{
    return (std::ostringstream() << std::ifstream(szFile).rdbuf()).str();
}

uint64_t CapturedNumber(const std::string& szText, const std::string& szPattern)
{
    std::smatch oMatch;
    return std::regex_search(szText, oMatch, std::regex(szPattern)) ? std::stoull(oMatch[1]) : 0;
}

// The first screen of a board of Scenario(2, 2).
std::string FirstScreen()
{
    const std::string szTiming = " - 1920 x 1080p @  8 Hz (YUV) VtPixelFormat_YUV422_UYVY";
    const std::string szIn = szTiming + ", NumBuf=8 (VtVideoIn_State_STARTED)\n";
    return std::string(BANNER) + "Start Time   : <time>\nCurrent Time : <time>\n\n" + MENU +
           "VIDEO_INPUT:\n    [IN_00] - IN%n%s 0" + szIn + "    [IN_01] - IN%n%s 1" + szIn + "\n" + HEADINGS_IN +
           EMPTY_IN + EMPTY_IN + "\nVIDEO_OUTPUT:\n    [OUT_00] - OUT%n%s 0" + szTiming +
           " PowerState_ON\n    [OUT_01] - OUT%n%s 1" + szTiming + " PowerState_ON\n\n" + HEADINGS_OUT + EMPTY_OUT +
           EMPTY_OUT + "\n\n";
}

} // namespace

TEST(Session, KeysChangeTheNextRedraw)
{
    const std::string szFirst = std::regex_replace(FirstScreen(), std::regex(" +\n"), "\n");
    CConsoleProcess oConsole({.szScenario = Scenario(2, 2)});
    EXPECT_TRUE(oConsole.Await([&] { return Plain(oConsole.Screen()).starts_with(szFirst); })) << oConsole.Screen();
    oConsole.Type("gtF");
    EXPECT_TRUE(oConsole.AwaitInRedraw(2, "[OUT_01] 8.00"));
    oConsole.Type("1gll");
    EXPECT_TRUE(oConsole.AwaitInRedraw(3, "[OUT_01] 8.00"));
    oConsole.Type("2ggl");
    EXPECT_TRUE(oConsole.AwaitInRedraw(4, "[OUT_01] 8.00"));
    oConsole.Type("ggftl");
    EXPECT_TRUE(oConsole.AwaitInRedraw(5, "[OUT_01]  "));
    oConsole.Type("Q");
    EXPECT_EQ(oConsole.AwaitEnd(), 0);
    EXPECT_THAT(oConsole.Output(), testing::EndsWith(STOPPED));
    EXPECT_EQ(oConsole.Terminal(), oConsole.FoundTerminal());

    std::vector<std::string> aszRedraws = oConsole.Redraws();
    ASSERT_GE(aszRedraws.size(), 6U);
    // Keys that were typed stand behind the redraw in front of them, and so does the clearing that they made.
    const size_t auiCleared[] = {1, 3, 4, 4, 5, 0};
    for (size_t uiRedraw = 0; uiRedraw < std::size(auiCleared); ++uiRedraw)
    {
        EXPECT_EQ(Count(aszRedraws[uiRedraw], CLEAR), auiCleared[uiRedraw]) << uiRedraw;
        aszRedraws[uiRedraw] = Plain(aszRedraws[uiRedraw]);
    }
    const struct
    {
        size_t uiRedraw;
        const char* szSummary; // null: no genlock report
        bool bIsDetailed;
        bool bHasFrameRates; // and extended timings
        const char* szReferenceOut;
    } aoRows[] = {
        {1, nullptr, false, false, ""},
        {2, "(THRESHOLD 1 LINE):\n", false, true, "0\\.000000"},
        {3, "(THRESHOLD 30 LINES):\n", true, true, "8\\.0[0-9]+"},
        {4, "(THRESHOLD 90 LINES):\n", false, true, "8\\.0[0-9]+"},
        {5, nullptr, false, false, ""},
    };
    for (const auto& roRow : aoRows)
    {
        const std::string& roRedraw = aszRedraws[roRow.uiRedraw];
        SCOPED_TRACE(roRedraw);
        EXPECT_EQ(Count(roRedraw, "FRAMELOCK SUMMARY "), roRow.szSummary != nullptr ? 2U : 0U);
        EXPECT_THAT(roRedraw, HasSubstr(roRow.szSummary != nullptr ? roRow.szSummary : ""));
        EXPECT_EQ(Count(roRedraw, "FRAMELOCK DETAILS:\n"), roRow.bIsDetailed ? 2U : 0U);
        EXPECT_EQ(Count(roRedraw, "  19800 KHz,  88,  44, 148,   4,   5,  36 (+/-)"), roRow.bHasFrameRates ? 4U : 0U);
        EXPECT_EQ(Count(roRedraw, " ppm)\n"), roRow.bHasFrameRates ? 4U : 0U);
        if (roRow.bHasFrameRates)
        {
            // Only outputs ever get a reference.
            EXPECT_THAT(roRedraw, ContainsRegex(std::string("\n\\[OUT_01\\] 8\\.[0-9]+ [0-9. ]+ [0-9]+ \\(") +
                                                roRow.szReferenceOut + " ==> +-?[0-9]+\\.[0-9] ppm\\)\n"));
            EXPECT_THAT(roRedraw, ContainsRegex("\n\\[IN_01\\] 8\\.[0-9. ]+ \\(0\\.000000 ==> +0\\.0 ppm\\)\n"));
        }
    }
    const std::string szRow =
        "\n\\[IN_01\\]     8\\.00 +[0-9.]+ +[0-9.]+    1\\.00 +1 +1    2\\.00 +2 +2 +0 +0 +0 +[0-9]+\n";
    EXPECT_THAT(aszRedraws[5], ContainsRegex(szRow));
    const std::string szFields = "\n\\[OUT_01\\] [0-9.]+ [0-9.]+ [0-9.]+ ([0-9]+) ";
    EXPECT_LT(CapturedNumber(aszRedraws[4], szFields), CapturedNumber(aszRedraws[3], szFields)); // by key 2
}

TEST(Session, RestartDumpAndLogFile)
{
    const std::string szFile = testing::TempDir() + "VtConsoleSession.log";
    std::ofstream(szFile) << "left from an earlier run";
    // The first restart finds an input that cannot be opened.
    CConsoleProcess oConsole({.aszArguments = {"-l", szFile},
                              .szScenario = Scenario(2, 2) + "[[fault]]\noperation = \"VtVideoIn_GetHandle\"\n"
                                                             "call = 3\nstatus = \"VtStatus_RESOURCES_BUSY\"\n"});
    EXPECT_TRUE(oConsole.AwaitInRedraw(1, EMPTY_OUT));
    oConsole.Type("xrP");
    EXPECT_TRUE(oConsole.AwaitInRedraw(2, "[OUT_01]  "));
    oConsole.Type("d");
    EXPECT_TRUE(oConsole.AwaitOutput("(VideoOut)"));
    oConsole.Type("i");
    EXPECT_TRUE(
        oConsole.AwaitOutput("Error : VtVideoIn_GetHandle failed!\nqz2(4.1.0.146)[0]: (Error) VideoInMonitor.cpp("));
    const std::string szLog = ReadFile(szFile);
    oConsole.Type("iq"); // neither may hang, with one thread gone
    EXPECT_EQ(oConsole.AwaitEnd(), 0);
    EXPECT_THAT(oConsole.Output(), HasSubstr(STOPPED));

    const std::vector<std::string> aszRedraws = oConsole.Redraws();
    ASSERT_GE(aszRedraws.size(), 3U);
    EXPECT_EQ(Count(aszRedraws[1], CLEAR), 1U);
    EXPECT_EQ(Count(aszRedraws[1], " PowerState_ON\n"), 2U);
    EXPECT_EQ(Count(aszRedraws[2], " PowerState_BLANKED\n"), 1U); // the board's change is seen by key p
    for (const char* szKind : {"In", "Out"})
    {
        const std::string szTitle = std::string("\n\nDisplay Raw Data (Video") + szKind + ")\n";
        const size_t uiTitle = oConsole.Output().find(szTitle);
        ASSERT_NE(uiTitle, std::string::npos);
        const std::string szDump = Plain(oConsole.Output().substr(uiTitle + szTitle.size(), 120 * 70));
        EXPECT_THAT(szDump, ContainsRegex("^   000: (0x[0-9A-F]{16} ){2}\n   001: (0x[0-9A-F]{16} ){2}\n"));
        EXPECT_THAT(szDump, ContainsRegex("\n   119: (0x[0-9A-F]{16} ){2}\n\n"));
    }
    EXPECT_THAT(Plain(oConsole.Output()), HasSubstr(std::string(101, '\n')));

    // The first screen whole, then of each redraw the rows alone, behind the time.
    const std::string szFirst = FirstScreen();
    ASSERT_TRUE(Plain(szLog).starts_with(szFirst)) << szLog;
    const std::string szRows = "(\\*\\*\\* <time> \\*\\*\\*\n)?(\\[IN_0[01]\\]   [ 0-9.]+\n){2}\n"
                               "(\\*\\*\\* <time> \\*\\*\\*\n)?(\\[OUT_0[01]\\]  [ 0-9.]+\n){2}\n";
    EXPECT_THAT(Plain(szLog).substr(szFirst.size()), MatchesRegex("\\*\\*\\* .*"));
    EXPECT_THAT(Plain(szLog).substr(szFirst.size()), MatchesRegex("(" + szRows + ")+"));
}

TEST(Session, OneShotReportNeedsNoTerminal)
{
    const std::string szFile = testing::TempDir() + "VtConsoleReport.log";
    const SConsoleSetup aoSetups[] = {
        {.aszArguments = {"-s", "-l", szFile}, .szScenario = Scenario(2, 2)},
        {.aszArguments = {"-s"}, .szScenario = Scenario(2, 2), .eInput = EConsoleInput::EMPTY_PIPE},
        {.aszArguments = {"-s"}, .szScenario = Scenario(2, 2), .eInput = EConsoleInput::NULL_DEVICE},
        {.aszArguments = {"-s"}, .szScenario = Scenario(2, 2), .eInput = EConsoleInput::CLOSED, .bOutputIsPipe = true},
    };
    std::vector<std::unique_ptr<CConsoleProcess>> apoConsoles;
    for (const SConsoleSetup& roSetup : aoSetups)
    {
        apoConsoles.push_back(std::make_unique<CConsoleProcess>(roSetup));
    }
    // The first screen with rows in the place of the placeholders, once, and not a single sequence.
    const std::string szRows = "(\\[IN_0[01]\\]   [ 0-9.]+\n){2}\n";
    const std::string szHead = "\n" + FirstScreen().substr(0, FirstScreen().find(EMPTY_IN));
    for (const auto& rpoConsole : apoConsoles)
    {
        EXPECT_EQ(rpoConsole->AwaitEnd(), 0);
        const std::string szReport = Plain(rpoConsole->Output());
        ASSERT_TRUE(szReport.starts_with(szHead)) << szReport;
        EXPECT_THAT(szReport.substr(szHead.size()), MatchesRegex(szRows + "VIDEO_OUTPUT:\n[^\033]*\n\n" + STOPPED));
        EXPECT_EQ(Count(szReport, BANNER), 1U);
    }
    EXPECT_THAT(Plain(ReadFile(szFile)), MatchesRegex("\\*\\*\\* <time> \\*\\*\\*\n" + szRows + "[^:]*"));
}

TEST(Session, SwitchesCompose)
{
    const std::string szFile = testing::TempDir() + "VtConsoleMonitor.log";
    CConsoleProcess oLocks({.aszArguments = {"-f", "-c", "1"}, .szScenario = Scenario(2, 0)});
    CConsoleProcess oSilentLock({.aszArguments = {"-s", "-f"}, .szScenario = Scenario(0, 2)});
    CConsoleProcess oSilentMonitor({.aszArguments = {"-s", "-m"}, .szScenario = Scenario(1, 1)});
    CConsoleProcess oMonitor({.aszArguments = {"-m", "-t", "-l", szFile}, .szScenario = Scenario(1, 1)});

    const std::string szBanner = std::string("\n\033[2J\033[1;1H\033[K") + BANNER;
    EXPECT_TRUE(oMonitor.AwaitOutput("FrameTotal=1")); // the second or third pass of the output
    oMonitor.Type("gq");
    EXPECT_EQ(oMonitor.AwaitEnd(), 0);
    EXPECT_EQ(oMonitor.Redraws().size(), 2U); // the cursor goes home for the banner alone
    EXPECT_EQ(Count(oMonitor.Output(), CLEAR), 2U);
    EXPECT_THAT(Plain(oMonitor.Output()), ContainsRegex("\\[IN.* 19800 KHz,.*NumBuf=8\\] FpsAvg=8\\.00 .*\n"));
    EXPECT_THAT(ReadFile(szFile), MatchesRegex(std::string(BANNER) + "(\\[(IN|OUT)%n%s 0 - [^\n]*\n)+"));

    oSilentMonitor.Type("\n5q");
    EXPECT_EQ(oSilentMonitor.AwaitEnd(), 0);
    EXPECT_THAT(oSilentMonitor.Output(), MatchesRegex("[\n5q]*" + std::string(STOPPED)));
    EXPECT_EQ(oSilentLock.AwaitEnd(), 255);
    EXPECT_EQ(oSilentLock.Output(), "\nStopped!\n");
    EXPECT_EQ(oLocks.AwaitEnd(), 255);
    EXPECT_THAT(Plain(oLocks.Output()), ContainsRegex("Testing if the system is frame locked \\.\\.\\.\n Success \\(.*"
                                                      "Cable Lock Testing begin \\(1 seconds\\) .*"
                                                      "Cable Lock Testing done .*\nStopped!\n$"));
}

TEST(Session, EveryNumberOfStreams)
{
    const std::pair<int, int> aoNumbers[] = {{0, 0}, {1, 0}, {0, 1}, {32, 32}};
    std::vector<std::unique_ptr<CConsoleProcess>> apoConsoles;
    for (const auto& [iIn, iOut] : aoNumbers)
    {
        apoConsoles.push_back(std::make_unique<CConsoleProcess>(
            SConsoleSetup{.szScenario = Scenario(iIn, iOut), .uiRows = 250, .uiColumns = 140}));
        apoConsoles.back()->Type("g");
    }
    for (size_t uiRow = 0; uiRow < std::size(aoNumbers); ++uiRow)
    {
        const auto& [iIn, iOut] = aoNumbers[uiRow];
        SCOPED_TRACE(std::to_string(iIn) + " " + std::to_string(iOut));
        CConsoleProcess& roConsole = *apoConsoles[uiRow];
        EXPECT_TRUE(roConsole.AwaitInRedraw(2, "\n"));
        roConsole.Type("q"); // not looked at before that redraw is whole
        EXPECT_EQ(roConsole.AwaitEnd(), 0);
        for (const size_t uiRedraw : {1U, 2U})
        {
            const std::string szRedraw = Plain(roConsole.Redraws().at(uiRedraw));
            const bool bIsFirst = uiRedraw == 1;
            EXPECT_EQ(Count(szRedraw, bIsFirst ? EMPTY_IN : "\n[IN_"), iIn);
            EXPECT_EQ(Count(szRedraw, bIsFirst ? EMPTY_OUT : "\n[OUT_"), iOut);
            EXPECT_EQ(Count(szRedraw, "VIDEO_INPUT:\n"), iIn > 0 ? 1U : 0U);
            EXPECT_EQ(Count(szRedraw, "VIDEO_OUTPUT:\n"), iOut > 0 ? 1U : 0U);
            EXPECT_EQ(Count(szRedraw, "FRAMELOCK SUMMARY"), (iIn > 1 ? 1U : 0U) + (iOut > 1 ? 1U : 0U));
        }
    }
}

TEST(Session, SignalsLeaveTheTerminalAsFound)
{
    CConsoleProcess oInterrupted({.szScenario = Scenario(1, 1)});
    CConsoleProcess oTerminated({.aszArguments = {"-s", "-m"}, .szScenario = Scenario(1, 1)});
    EXPECT_TRUE(oInterrupted.AwaitInRedraw(1, EMPTY_OUT));
    oInterrupted.Type("\003");
    EXPECT_EQ(oInterrupted.AwaitEnd(), -SIGINT);
    EXPECT_EQ(oInterrupted.Terminal(), oInterrupted.FoundTerminal());

    EXPECT_TRUE(oTerminated.KillInKeyRead(SIGTERM));
    EXPECT_EQ(oTerminated.AwaitEnd(), -SIGTERM);
    EXPECT_EQ(oTerminated.Terminal(), oTerminated.FoundTerminal());
}
