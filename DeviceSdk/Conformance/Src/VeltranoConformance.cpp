// veltrano-conformance: asks whatever libVeltrano.so the loader finds for every promise of the interface, and prints
// which hold. Knows no board; what a board has, it says itself.
#include <algorithm>
#include <array>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <iterator>
#include <unistd.h>

#include "DeviceChecks.h"
#include "Operations.h"
#include "RecordingChecks.h"
#include "StreamChecks.h"
#include "TimingChecks.h"

namespace
{

enum EExit
{
    EXIT_HOLDS = 0,
    EXIT_FAILS = 1,
    EXIT_USAGE = 2,
    EXIT_NO_BOARD = 77
};

// Longest that one check may take; a wait that never comes back must not hold up whoever runs this.
constexpr unsigned uiCheckAtMostSec = 180;
constexpr uint32_t uiLossDefaultS = 60;
constexpr uint32_t uiLossMostS = 600;

struct SOptions
{
    uint32_t uiChip = 0;
    std::string szOnly;
    std::string szRecording; // empty: a board is checked
    bool bList = false;
    bool bHelp = false;
    std::string szFault; // what is wrong with the command line
};

constexpr const char* szHelp =
    "Usage: veltrano-conformance [--chip INDEX | --recording FILE] [--only TEXT] [--wait-for-loss [SECONDS]]\n"
    "           [--list]\n"
    "\n"
    "Checks the libVeltrano.so that the loader finds against the interface, and prints what holds and what does not.\n"
    "Another library is put first by LD_LIBRARY_PATH. Streams are opened for reading only.\n"
    "\n"
    "  --chip INDEX                checks this chip instead of chip 0\n"
    "  --recording FILE            judges what a board did when the watch recorded it, where a recording tells that\n"
    "  --only TEXT                 checks only promises with this text in them\n"
    "  --wait-for-loss [SECONDS]   asks for a cable to be pulled, and gives that long for it, once for inputs and\n"
    "                              once for outputs: 1 to 600 seconds, 60 when none are given\n"
    "  --list                      prints the promises without checking them\n"
    "  --help                      prints this\n"
    "\n"
    "Exit status: 0 all that could be checked holds, 1 something does not, 2 wrong usage, 77 there is no such chip.\n";

// A library that crashes or hangs fails the check that it was asked; nothing after it can be trusted.
const char* g_szPromise = "";

void OnSignal(int iSignal)
{
    const auto Write = [](const char* sz) { return write(STDOUT_FILENO, sz, std::strlen(sz)); };
    const bool bWritten = Write("FAILS    ") > 0 && Write(g_szPromise) > 0 &&
                          Write(iSignal == SIGALRM ? "\n           a call does not come back\n\nstopped here\n"
                                                   : "\n           the library crashed\n\nstopped here\n") > 0;
    _exit(bWritten ? EXIT_FAILS : EXIT_USAGE);
}

void GuardAgainstCrashes()
{
    std::signal(SIGALRM, OnSignal);
    for (const int iSignal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT})
    {
        // A sanitizer that has taken the signal says more than this does.
        if (const auto fnOld = std::signal(iSignal, OnSignal); fnOld != SIG_DFL)
        {
            std::signal(iSignal, fnOld);
        }
    }
}

void Print(EOutcome eOutcome, const char* szPromise, const std::vector<std::string>& raszLines)
{
    constexpr std::array aszOutcomes = {"holds", "FAILS", "skipped"};
    std::printf("%-8s %s\n", aszOutcomes[static_cast<size_t>(eOutcome)], szPromise);
    for (const std::string& rs : raszLines)
    {
        std::printf("           %s\n", rs.c_str());
    }
    std::fflush(stdout);
}

// The head of the list: which library, which chip, what it has. False when there is no such chip.
bool PrintBoard(uint32_t uiChip)
{
    Dl_info oInfo{};
    const bool bFound = dladdr(reinterpret_cast<void*>(Veltrano_LoadLite), &oInfo) != 0;
    std::printf("%s, chip %u", bFound ? oInfo.dli_fname : "libVeltrano.so", uiChip);
    VtDevice_Handle hDev = Veltrano_GetDevice(uiChip);
    uint32_t uiInputs = 0;
    uint32_t uiOutputs = 0;
    if (hDev != nullptr)
    {
        VtVideoIn_GetCount(hDev, &uiInputs);
        VtVideoOut_GetCount(hDev, &uiOutputs);
        std::printf(": %u inputs, %u outputs\n\n", uiInputs, uiOutputs);
    }
    else
    {
        std::printf(": there is no such chip\n");
    }
    std::fflush(stdout);
    return hDev != nullptr;
}

EOutcome Run(const SCheck& roCheck, uint32_t uiChip)
{
    CFindings oFindings;
    g_szPromise = roCheck.szPromise;
    alarm(uiCheckAtMostSec + g_uiLossAtMostS);
    VtDevice_Handle hDev = Veltrano_GetDevice(uiChip);
    if (oFindings.Expect(hDev != nullptr, "the chip did not come back after unloading and loading"))
    {
        roCheck.fnCheck(oFindings, hDev, uiChip);
    }
    alarm(0);
    const EOutcome eOutcome = oFindings.Outcome();
    Print(eOutcome, roCheck.szPromise, oFindings.Lines());
    return eOutcome;
}

std::vector<SCheck> GetChecks(const std::string& rszOnly)
{
    std::vector<SCheck> aoAll;
    for (const auto aoChecks : {DeviceChecks(), TimingChecks(), StreamChecks()})
    {
        std::ranges::copy_if(aoChecks, std::back_inserter(aoAll),
                             [&rszOnly](const SCheck& ro)
                             { return std::string_view(ro.szPromise).find(rszOnly) != std::string_view::npos; });
    }
    return aoAll;
}

int CheckAll(const SOptions& roOptions)
{
    constexpr const char* szExported = "the library exports all operations of the interface";
    GuardAgainstCrashes();
    g_szPromise = szExported;
    if (const std::string szMissing = MissingOperations(); !szMissing.empty())
    {
        Print(EOutcome::FAILS, szExported, {"missing: " + szMissing});
        return EXIT_FAILS;
    }
    Veltrano_LoadLite();
    if (!PrintBoard(roOptions.uiChip))
    {
        Veltrano_UnLoad();
        return EXIT_NO_BOARD;
    }
    Print(EOutcome::HOLDS, szExported, {});
    std::array<int, 3> aiOutcomes{1, 0, 0};
    for (const SCheck& ro : GetChecks(roOptions.szOnly))
    {
        ++aiOutcomes[static_cast<size_t>(Run(ro, roOptions.uiChip))];
    }
    Veltrano_UnLoad();
    std::printf("\n%d hold, %d fail, %d skipped\n", aiOutcomes[0], aiOutcomes[1], aiOutcomes[2]);
    return aiOutcomes[1] == 0 ? EXIT_HOLDS : EXIT_FAILS;
}

// Judges what a board did once, and says of each other promise that it cannot be judged so.
int JudgeRecording(const SOptions& roOptions)
{
    SReplay oReplay;
    std::string szWhy;
    if (!Replay_Read(roOptions.szRecording, oReplay, szWhy))
    {
        std::ranges::replace_if(
            szWhy, [](char cByte) { return static_cast<unsigned char>(cByte) < ' '; }, '?');
        std::fprintf(stderr, "veltrano-conformance: %s: %s\n", roOptions.szRecording.c_str(), szWhy.c_str());
        return EXIT_FAILS;
    }
    std::printf("%s: %zu inputs, %zu outputs\n\n", roOptions.szRecording.c_str(), oReplay.aoInputs.size(),
                oReplay.aoOutputs.size());
    std::array<int, 3> aiOutcomes{};
    for (const SCheck& ro : GetChecks(roOptions.szOnly))
    {
        CFindings oFindings;
        if (const SRecordingCheck* poCheck = RecordingChecks_Find(ro.szPromise))
        {
            poCheck->fnCheck(oFindings, oReplay);
        }
        else
        {
            oFindings.Skip("cannot be judged by a recording");
        }
        Print(oFindings.Outcome(), ro.szPromise, oFindings.Lines());
        ++aiOutcomes[static_cast<size_t>(oFindings.Outcome())];
    }
    std::printf("\n%d hold, %d fail, %d skipped\n", aiOutcomes[0], aiOutcomes[1], aiOutcomes[2]);
    return aiOutcomes[1] == 0 ? EXIT_HOLDS : EXIT_FAILS;
}

int List(const std::string& rszOnly)
{
    for (const SCheck& ro : GetChecks(rszOnly))
    {
        std::printf("%s\n", ro.szPromise);
    }
    return EXIT_HOLDS;
}

bool ReadNumber(const char* szText, uint32_t uiMost, uint32_t& ruiNumber)
{
    const char* const pcEnd = szText + std::strlen(szText);
    const auto oRead = std::from_chars(szText, pcEnd, ruiNumber);
    return oRead.ec == std::errc() && oRead.ptr == pcEnd && ruiNumber <= uiMost;
}

SOptions ReadOptions(std::span<char*> aszArguments)
{
    SOptions oOptions;
    for (size_t uiAt = 0; uiAt < aszArguments.size(); ++uiAt)
    {
        const std::string_view szArgument = aszArguments[uiAt];
        const char* const szNext = uiAt + 1 < aszArguments.size() ? aszArguments[uiAt + 1] : "";
        oOptions.bHelp = oOptions.bHelp || szArgument == "--help" || szArgument == "-h";
        oOptions.bList = oOptions.bList || szArgument == "--list";
        if (szArgument == "--wait-for-loss")
        {
            const bool bGiven = *szNext >= '0' && *szNext <= '9';
            g_uiLossAtMostS = uiLossDefaultS;
            uiAt += bGiven ? 1 : 0;
            if (bGiven && (!ReadNumber(szNext, uiLossMostS, g_uiLossAtMostS) || g_uiLossAtMostS == 0))
            {
                oOptions.szFault = "--wait-for-loss takes 1 to 600 seconds";
            }
        }
        else if (szArgument == "--recording" && *szNext == '\0')
        {
            oOptions.szFault = "--recording takes a file";
        }
        else if (szArgument == "--chip" || szArgument == "--only" || szArgument == "--recording")
        {
            ++uiAt;
            oOptions.szOnly = szArgument == "--only" ? szNext : oOptions.szOnly;
            oOptions.szRecording = szArgument == "--recording" ? szNext : oOptions.szRecording;
            if (szArgument == "--chip" && !ReadNumber(szNext, UINT32_MAX, oOptions.uiChip))
            {
                oOptions.szFault = "--chip takes an index, from 0";
            }
        }
        else if (szArgument != "--help" && szArgument != "-h" && szArgument != "--list")
        {
            oOptions.szFault = "unknown: " + std::string(szArgument);
        }
    }
    if (GetChecks(oOptions.szOnly).empty())
    {
        oOptions.szFault = "--only: no promise has this text in it";
    }
    return oOptions;
}

} // namespace

uint32_t g_uiLossAtMostS = 0;

int main(int iArguments, char** paszArguments)
{
    const SOptions oOptions = ReadOptions(std::span(paszArguments, static_cast<size_t>(iArguments)).subspan(1));
    if (!oOptions.szFault.empty())
    {
        std::fprintf(stderr, "veltrano-conformance: %s\ntry --help\n", oOptions.szFault.c_str());
        return EXIT_USAGE;
    }
    if (oOptions.bHelp)
    {
        std::fputs(szHelp, stdout);
        return EXIT_HOLDS;
    }
    if (oOptions.bList)
    {
        return List(oOptions.szOnly);
    }
    return oOptions.szRecording.empty() ? CheckAll(oOptions) : JudgeRecording(oOptions);
}
