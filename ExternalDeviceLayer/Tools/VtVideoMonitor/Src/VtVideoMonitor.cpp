/*
 * Entry of the tool: turns the command line into settings, prints the help when it is wrong, and hands over to the run.
 */
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <span>

#include "BoardLoader.h"
#include "ConsoleLog.h"
#include "KrvTools.h"
#include "MonitorGlobals.h"
#include "MonitorRun.h"
#include "StatusScreen.h"
#include "Terminal.h"

namespace
{

constexpr char szSwitch1Help[] = "-h";
constexpr char szSwitch2Help[] = "--Help";
constexpr char szSwitch1GpuIndex[] = "-g";
constexpr char szSwitch2GpuIndex[] = "--GpuIdx";
constexpr char szSwitch1ErrorOnly[] = "-e";
constexpr char szSwitch2ErrorOnly[] = "--ErrorFilter";
constexpr char szSwitch1Monitor[] = "-m";
constexpr char szSwitch2Monitor[] = "--Monitor";
constexpr char szSwitch1Log[] = "-l";
constexpr char szSwitch2Log[] = "--Log";
constexpr char szSwitch1Status[] = "-s";
constexpr char szSwitch2Status[] = "--Status";
constexpr char szSwitch1FrameLockStatus[] = "-f";
constexpr char szSwitch2FrameLockStatus[] = "--FrameLockStatus";
constexpr char szSwitch1CableLockStatus[] = "-c";
constexpr char szSwitch2CableLockStatus[] = "--CableLockStatus";
constexpr char szSwitch1ExtendedTimings[] = "-t";
constexpr char szSwitch2ExtendedTimings[] = "--ExtendedTimings";

constexpr char szDescriptionHelp[] = "             Display this help";
constexpr char szDescriptionGpuIndex[] = "<GpuIndex>   Select the chip index.";
constexpr char szDescriptionErrorOnly[] = "             Filter display to only display errors";
constexpr char szDescriptionMonitor[] = "             Monitor all frame per second information.";
constexpr char szDescriptionLog[] = "<filename>   Log output to file.";
constexpr char szDescriptionStatus[] = "             Monitor Videos for 3 seconds and exit.";
constexpr char szDescriptionFrameLockStatus[] = "             Monitor FrameLock for 3 seconds and exit.";
constexpr char szDescriptionCableLockStatus[] = "<TimeSec>    Monitor CableLock for TimeSec seconds and exit.";
constexpr char szDescriptionExtendedTimings[] = "             Start with extended timings display.";

// The arguments that are still to be looked at, and what they have come to.
struct SParser
{
    std::span<char* const> aszArguments;
    Bool32 bShowHelp; // the help ends the parse
    Bool32 bFailed;   // the parse ends here
};

// What a switch does; szSwitch is the switch as it was typed.
using PfnSwitch = void (*)(SParser& roParser, const char* szSwitch);

// The value of a switch; null, after a message, when the command line ends before it.
const char* TakeValue(SParser& roParser, const char* szSwitch, const char* szMissing)
{
    if (roParser.aszArguments.empty())
    {
        std::printf("[%s] Missing %s.\n", szSwitch, szMissing);
        roParser.bFailed = 1;
        return nullptr;
    }
    const char* szValue = roParser.aszArguments.front();
    roParser.aszArguments = roParser.aszArguments.subspan(1);
    return szValue;
}

void SelectChip(SParser& roParser, const char* szSwitch)
{
    if (const char* szValue = TakeValue(roParser, szSwitch, "chip index"))
    {
        g_uiSelectedGpu = static_cast<uint32_t>(KrvTools_atoi(szValue));
    }
}

void SelectLogFile(SParser& roParser, const char* szSwitch)
{
    g_bLog = 1;
    if (!roParser.aszArguments.empty() && roParser.aszArguments.front()[0] == '-')
    {
        // Not taken: it is looked at next, as a switch of its own.
        std::printf("[%s %s] Invalid file name.\n", szSwitch, roParser.aszArguments.front());
        roParser.bShowHelp = 1;
        return;
    }
    if (const char* szValue = TakeValue(roParser, szSwitch, "log file name"))
    {
        g_pszLogFileName = szValue;
    }
}

void SelectCableLock(SParser& roParser, const char* szSwitch)
{
    if (const char* szValue = TakeValue(roParser, szSwitch, "Cable Lock test duration (seconds)"))
    {
        g_uiCableLockDurationSec = static_cast<uint32_t>(KrvTools_atoi(szValue));
        g_bCableLockStatus = 1;
    }
}

struct SSwitch
{
    const char* szShort;
    const char* szLong;
    const char* szDescription;
    PfnSwitch pfnAction;
};

// In the order in which an argument is compared with them and the help shows them.
constexpr SSwitch aoSwitches[] = {
    {szSwitch1Help, szSwitch2Help, szDescriptionHelp, [](SParser& roParser, const char*) { roParser.bShowHelp = 1; }},
    {szSwitch1GpuIndex, szSwitch2GpuIndex, szDescriptionGpuIndex, SelectChip},
    {szSwitch1ErrorOnly, szSwitch2ErrorOnly, szDescriptionErrorOnly, [](SParser&, const char*) { g_bFilterError = 1; }},
    {szSwitch1Monitor, szSwitch2Monitor, szDescriptionMonitor, [](SParser&, const char*) { g_bMonitor = 1; }},
    {szSwitch1Log, szSwitch2Log, szDescriptionLog, SelectLogFile},
    {szSwitch1Status, szSwitch2Status, szDescriptionStatus, [](SParser&, const char*) { g_bStatus = 1; }},
    {szSwitch1FrameLockStatus, szSwitch2FrameLockStatus, szDescriptionFrameLockStatus,
     [](SParser&, const char*) { g_bFrameLockStatus = 1; }},
    {szSwitch1CableLockStatus, szSwitch2CableLockStatus, szDescriptionCableLockStatus, SelectCableLock},
    {szSwitch1ExtendedTimings, szSwitch2ExtendedTimings, szDescriptionExtendedTimings,
     [](SParser&, const char*) { g_bExtendedTimingStart = 1; }},
};

void DisplayHelp()
{
    std::puts("\nArguments:");
    for (const SSwitch& roSwitch : aoSwitches)
    {
        std::printf("   %-6s | %-18s %s\n", roSwitch.szShort, roSwitch.szLong, roSwitch.szDescription);
    }
}

const SSwitch* FindSwitch(const char* szArgument)
{
    for (const SSwitch& roSwitch : aoSwitches)
    {
        if (KrvTools_strcmp(szArgument, roSwitch.szShort) == 0 || KrvTools_strcmp(szArgument, roSwitch.szLong) == 0)
        {
            return &roSwitch;
        }
    }
    return nullptr;
}

// 1 when the tool is to run; 0 after the help.
Bool32 ParseCommandLine(std::span<char* const> aszArguments)
{
    SParser oParser = {aszArguments, 0, 0};
    while (!oParser.aszArguments.empty() && !oParser.bFailed)
    {
        const char* szArgument = oParser.aszArguments.front();
        oParser.aszArguments = oParser.aszArguments.subspan(1);
        if (const SSwitch* poSwitch = FindSwitch(szArgument))
        {
            poSwitch->pfnAction(oParser, szArgument);
        }
        else
        {
            std::printf("[%s] is an invalid argument.\n", szArgument);
            oParser.bShowHelp = 1;
        }
    }
    if (oParser.bShowHelp || oParser.bFailed)
    {
        DisplayHelp();
        return 0;
    }
    return 1;
}

} // namespace

int main(int argc, char* argv[])
{
    PrepareTerminal();
    // Every piece of text reaches the terminal at once.
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    std::putchar('\n');
    const std::span<char* const> aszArguments(argv, static_cast<size_t>(argc));
    if (!ParseCommandLine(aszArguments.empty() ? aszArguments : aszArguments.subspan(1)))
    {
        return -1;
    }
    VTSTR4096 szError;
    if (!BoardLoader_Load(szError))
    {
        std::fprintf(stderr, "Error : %s\n", szError);
        return -1;
    }
    const int iLogError = g_bLog && !CreateFile(g_pszLogFileName) ? errno : 0;
    ClearScreen();
    if (g_bMonitor)
    {
        SetCursorPosition(0, 0);
        DisplayBanner();
    }
    if (iLogError != 0)
    {
        std::fprintf(stderr, "Error : log file %s cannot be created: %s\n", g_pszLogFileName, std::strerror(iLogError));
    }
    const int32_t iRtn = RunTest();
    return iRtn;
}
