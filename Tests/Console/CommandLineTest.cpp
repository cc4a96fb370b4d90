// Runs that end before any stream is monitored: what is printed, byte for byte, and the exit status.
#include "ConsoleProcess.h"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <unistd.h>

#include <gmock/gmock.h>

namespace
{

constexpr char HELP[] = R"(
Arguments:
   -h     | --Help                          Display this help
   -g     | --GpuIdx           <GpuIndex>   Select the chip index.
   -e     | --ErrorFilter                   Filter display to only display errors
   -m     | --Monitor                       Monitor all frame per second information.
   -l     | --Log              <filename>   Log output to file.
   -s     | --Status                        Monitor Videos for 3 seconds and exit.
   -f     | --FrameLockStatus               Monitor FrameLock for 3 seconds and exit.
   -c     | --CableLockStatus  <TimeSec>    Monitor CableLock for TimeSec seconds and exit.
   -t     | --ExtendedTimings               Start with extended timings display.
)";

constexpr char BOARD[] = "[[chip]]\n[[chip.output]]\nstandard = \"1080p60\"\nconnector = \"OUT\"\n";

} // namespace

TEST(CommandLine, EveryWrongOneIsReportedBeforeTheHelp)
{
    const std::string szNeverMade = testing::TempDir() + "VtConsoleNeverMade";
    const struct
    {
        std::vector<std::string> aszArguments;
        std::string szMessages;
    } aoRows[] = {
        {{"-h"}, ""},
        {{"--Help"}, ""},
        {{"-h", "-x", "-h"}, "[-x] is an invalid argument.\n"},
        {{"--log", "file"}, "[--log] is an invalid argument.\n[file] is an invalid argument.\n"},
        {{"-em", "--GpuIdx=1", ""},
         "[-em] is an invalid argument.\n[--GpuIdx=1] is an invalid argument.\n[] is an invalid argument.\n"},
        {{"-g"}, "[-g] Missing chip index.\n"},
        {{"-x", "--GpuIdx"}, "[-x] is an invalid argument.\n[--GpuIdx] Missing chip index.\n"},
        {{"-l"}, "[-l] Missing log file name.\n"},
        {{"--CableLockStatus"}, "[--CableLockStatus] Missing Cable Lock test duration (seconds).\n"},
        {{"-l", "-s"}, "[-l -s] Invalid file name.\n"},
        {{"--Log", "-y", "-g"},
         "[--Log -y] Invalid file name.\n[-y] is an invalid argument.\n[-g] Missing chip index.\n"},
        {{"-l", szNeverMade, "%s%n"}, "[%s%n] is an invalid argument.\n"},
    };
    for (const auto& roRow : aoRows)
    {
        SCOPED_TRACE(testing::PrintToString(roRow.aszArguments));
        CConsoleProcess oConsole({.aszArguments = roRow.aszArguments});
        EXPECT_EQ(oConsole.AwaitEnd(), 255);
        EXPECT_EQ(oConsole.Output(), "\n" + roRow.szMessages + HELP);
    }
    EXPECT_FALSE(std::filesystem::exists(szNeverMade));
}

TEST(CommandLine, ADeviceErrorEndsTheRunAndAPipeGetsTheSameBytes)
{
    const std::string szNoDevice = "Error : Veltrano_GetDevice, hdev is null";
    const std::string szFailed = "\\(\\)\nqz2\\(4\\.1\\.0\\.146\\)\\[0\\]: \\(Error\\) MonitorRun\\.cpp\\([0-9]+\\) "
                                 "Assertion failed";
    const struct
    {
        std::vector<std::string> aszArguments;
        std::string szFailing; // operation
        std::string szOutput;
    } aoRows[] = {
        {{"-g", "0", "-g", "7"}, "", "\n\033\\[2J" + szNoDevice},
        {{"-g", "-1"}, "", "\n\033\\[2J" + szNoDevice},
        {{"--GpuIdx", " +9x", "--Status"}, "", "\n" + szNoDevice},
        {{"-g", "nothing"}, "VtVideoOut_GetCount", "\n\033\\[2JError : VtVideoOut_GetCount" + szFailed},
        {{}, "VtVideoIn_GetCount", "\n\033\\[2JError : VtVideoIn_GetCount" + szFailed},
    };
    for (const auto& roRow : aoRows)
    {
        SCOPED_TRACE(testing::PrintToString(roRow.aszArguments) + roRow.szFailing);
        const std::string szFault = "[[fault]]\noperation = \"" + roRow.szFailing + "\"\nstatus = \"VtStatus_FAIL\"\n";
        SConsoleSetup oSetup = {.aszArguments = roRow.aszArguments,
                                .szScenario = BOARD + (roRow.szFailing.empty() ? "" : szFault)};
        CConsoleProcess oConsole(oSetup);
        EXPECT_EQ(oConsole.AwaitEnd(), 255);
        EXPECT_THAT(oConsole.Output(), testing::MatchesRegex(roRow.szOutput + "\nStopped!\n"));
        oSetup.szRedirect = "| cat";
        CConsoleProcess oPiped(oSetup);
        EXPECT_EQ(oPiped.AwaitEnd(), 255);
        EXPECT_EQ(oPiped.Output(), oConsole.Output());
    }
}

// A library in the place of the board's, with some of its bytes changed, and what is said of it.
TEST(CommandLine, AnUnwritableLogAndALibraryThatDoesNotDoAreNamed)
{
#ifndef VT_BOARD_FALLBACK
    GTEST_SKIP() << "the loader chooses the board of this build";
#endif
    const std::string szFolder = testing::TempDir() + "VtConsoleBoard" + std::to_string(getpid());
    const std::string szFile = szFolder + "/libVeltrano.so";
    std::filesystem::create_directory(szFolder);
    const std::string szBoard =
        (std::ostringstream() << std::ifstream(VT_BOARD_FOLDER "/libVeltrano.so").rdbuf()).str();
    const auto With = [&](const std::string& szOld, const std::string& szNew)
    { return std::string(szBoard).replace(szBoard.find(szOld), szNew.size(), szNew); };
    const std::string szNoDevice = "Error : Veltrano_GetDevice, hdev is null\nStopped!\n";
    const std::pair<std::string, std::string> aoRows[] = {
        {szBoard, "\033[2JError : log file /proc/x cannot be created: No such file or directory\n" + szNoDevice},
        {"no library", "Error : " + szFile + ": file too short\n"},
        {With(std::string("\x3E\0", 2), std::string("\xB7\0", 2)),
         "Error : " + szFile + ": the loader does not take it (wrong machine, or not readable)\n"},
        {With("libstdc++.so.6", "libstdc--.so.6"),
         "Error : libVeltrano.so: libstdc--.so.6: cannot open shared object file: No such file or directory\n"},
        {With("VtVideoIn_GetHandle", "VtVideoIn_GotHandle"), "Error : " + szFile + ": it has no VtVideoIn_GetHandle\n"},
        {"", "\033[2JError : log file /proc/x cannot be created: No such file or directory\n" + szNoDevice},
    };
    for (const auto& [szLibrary, szExpected] : aoRows)
    {
        std::filesystem::remove(szFile);
        if (!szLibrary.empty())
        {
            std::ofstream(szFile) << szLibrary;
        }
        CConsoleProcess oConsole({.aszArguments = {"-g", "7", "-l", "/proc/x"},
                                  .szScenario = BOARD,
                                  .szRedirect = "2>&1 | grep -v '^libVeltrano: '",
                                  .szBoardFolder = szFolder});
        EXPECT_EQ(oConsole.AwaitEnd(), 255);
        EXPECT_EQ(oConsole.Output(), "\n" + szExpected);
    }
    std::filesystem::remove_all(szFolder);
}
