// Runs that end before any stream is monitored: what is printed, byte for byte, and the exit status.
#include "ConsoleProcess.h"

#include <filesystem>

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

constexpr int FAILED = 255;

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
        {{"-x"}, "[-x] is an invalid argument.\n"},
        {{"-h", "-x", "-h"}, "[-x] is an invalid argument.\n"},
        {{"--log", "file"}, "[--log] is an invalid argument.\n[file] is an invalid argument.\n"},
        {{"-em", "--GpuIdx=1", "-H", ""},
         "[-em] is an invalid argument.\n[--GpuIdx=1] is an invalid argument.\n[-H] is an invalid argument.\n"
         "[] is an invalid argument.\n"},
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
        EXPECT_EQ(oConsole.AwaitEnd(), FAILED);
        EXPECT_EQ(oConsole.Output(), "\n" + roRow.szMessages + HELP);
    }
    EXPECT_FALSE(std::filesystem::exists(szNeverMade));
}

TEST(CommandLine, ADeviceErrorEndsTheRunAndAPipeGetsTheSameBytes)
{
    const std::string szAssertion = "\n"
                                    R"(qz2\(4\.1\.0\.146\)\[0\]: \(Error\) MonitorRun\.cpp\([0-9]+\) Assertion failed)";
    const std::string szNoDevice = R"(Error : Veltrano_GetDevice, hdev is null)";
    const std::string szFails = "\nstatus = \"VtStatus_FAIL\"\n[[fault]]\noperation = \"VtPixelFormat_GetName\"\n"
                                "status = \"VtStatus_FAIL\"\n";
    const std::string szClear = "\n\033\\[2J";
    const struct
    {
        std::vector<std::string> aszArguments;
        std::string szFault;
        std::string szOutput;
    } aoRows[] = {
        {{"-g", "0", "-g", "7"}, "", szClear + szNoDevice},
        {{"-g", "-1"}, "", szClear + szNoDevice},
        {{"--GpuIdx", " +9x", "--Status"}, "", "\n" + szNoDevice},
        {{"-g", "nothing"}, "VtVideoOut_GetCount", szClear + R"(Error : VtVideoOut_GetCount\(\))" + szAssertion},
        {{}, "VtVideoIn_GetCount", szClear + R"(Error : VtVideoIn_GetCount\(\))" + szAssertion},
    };
    for (const auto& roRow : aoRows)
    {
        SCOPED_TRACE(testing::PrintToString(roRow.aszArguments) + roRow.szFault);
        const std::string szFault =
            roRow.szFault.empty() ? "" : "[[fault]]\noperation = \"" + roRow.szFault + "\"" + szFails;
        const SConsoleSetup oSetup = {.aszArguments = roRow.aszArguments, .szScenario = Scenario(1, 3) + szFault};
        CConsoleProcess oConsole(oSetup);
        EXPECT_EQ(oConsole.AwaitEnd(), FAILED);
        EXPECT_THAT(oConsole.Output(), testing::MatchesRegex(roRow.szOutput + "\nStopped!\n"));
        EXPECT_EQ(oConsole.Terminal(), oConsole.FoundTerminal());

        SConsoleSetup oPiped = oSetup;
        oPiped.bOutputIsPipe = true;
        CConsoleProcess oPipe(oPiped);
        EXPECT_EQ(oPipe.AwaitEnd(), FAILED);
        EXPECT_EQ(oPipe.Output(), oConsole.Output());
    }
}
