// veltrano-conformance: asks whatever libVeltrano.so the loader finds for every promise of the interface, and prints
// which hold. Knows no board; what a board has, it says itself.
#include "Checks.h"
#include "Operations.h"

#include <dlfcn.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

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

constexpr const char* szHelp =
    "Usage: veltrano-conformance [--chip INDEX] [--list]\n"
    "\n"
    "Checks the libVeltrano.so that the loader finds against the interface, and prints what holds and what does not.\n"
    "Another library is put first by LD_LIBRARY_PATH. Streams are opened for reading only.\n"
    "\n"
    "  --chip INDEX  checks this chip instead of chip 0\n"
    "  --list        prints the promises without checking them\n"
    "  --help        prints this\n"
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

void Print(EOutcome eOutcome, const char* szPromise, const std::vector<std::string>& rasLines)
{
    constexpr std::array aszOutcomes = {"holds", "FAILS", "skipped"};
    std::printf("%-8s %s\n", aszOutcomes[static_cast<size_t>(eOutcome)], szPromise);
    for (const std::string& rs : rasLines)
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
    alarm(uiCheckAtMostSec);
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

int CheckAll(uint32_t uiChip)
{
    constexpr const char* szExported = "the library exports all operations of the interface";
    GuardAgainstCrashes();
    g_szPromise = szExported;
    if (const std::string sMissing = MissingOperations(); !sMissing.empty())
    {
        Print(EOutcome::FAILS, szExported, {"missing: " + sMissing});
        return EXIT_FAILS;
    }
    Veltrano_LoadLite();
    if (!PrintBoard(uiChip))
    {
        Veltrano_UnLoad();
        return EXIT_NO_BOARD;
    }
    Print(EOutcome::HOLDS, szExported, {});
    std::array<int, 3> aiOutcomes{1, 0, 0};
    for (const auto aoChecks : {DeviceChecks(), StreamChecks()})
    {
        for (const SCheck& ro : aoChecks)
        {
            ++aiOutcomes[static_cast<size_t>(Run(ro, uiChip))];
        }
    }
    Veltrano_UnLoad();
    std::printf("\n%d hold, %d fail, %d skipped\n", aiOutcomes[0], aiOutcomes[1], aiOutcomes[2]);
    return aiOutcomes[1] == 0 ? EXIT_HOLDS : EXIT_FAILS;
}

int List()
{
    for (const auto aoChecks : {DeviceChecks(), StreamChecks()})
    {
        for (const SCheck& ro : aoChecks)
        {
            std::printf("%s\n", ro.szPromise);
        }
    }
    return EXIT_HOLDS;
}

} // namespace

int main(int iArguments, char** paszArguments)
{
    uint32_t uiChip = 0;
    for (int iArgument = 1; iArgument < iArguments; ++iArgument)
    {
        const std::string sArgument = paszArguments[iArgument];
        if (sArgument == "--help" || sArgument == "-h")
        {
            std::fputs(szHelp, stdout);
            return EXIT_HOLDS;
        }
        if (sArgument == "--list")
        {
            return List();
        }
        const char* const szValue =
            sArgument == "--chip" && iArgument + 1 < iArguments ? paszArguments[++iArgument] : "";
        char* szEnd = nullptr;
        uiChip = static_cast<uint32_t>(std::strtoul(szValue, &szEnd, 10));
        if (*szValue < '0' || *szValue > '9' || *szEnd != '\0')
        {
            std::fprintf(stderr, "veltrano-conformance: %s\n",
                         sArgument == "--chip" ? "--chip takes an index, from 0" : ("unknown: " + sArgument).c_str());
            std::fputs("try --help\n", stderr);
            return EXIT_USAGE;
        }
    }
    return CheckAll(uiChip);
}
