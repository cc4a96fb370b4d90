/*
 * Entry of the watch: reads the command line and hands over to the subcommand.
 */
#include <cstdio>
#include <cstring>
#include <exception>
#include <string_view>
#include <unistd.h>

#include "BoardLoader.h"
#include "CheckCommand.h"
#include "ExportCommand.h"
#include "Memory.h"
#include "Notice.h"
#include "RecordCommand.h"
#include "ReportCommand.h"
#include "ServeCommand.h"
#include "SignalWatch.h"
#include "StandardFiles.h"
#include "WatchClocks.h"
#include "WatchOptions.h"

namespace
{

// Where nobody can catch what is thrown for want of memory, in objects that are made before main among others, the
// program ends like any other that cannot begin.
[[noreturn]] void EndWithoutMemory()
{
    constexpr std::string_view szLine = "VtVideoWatch: no memory\n";
    [[maybe_unused]] const ssize_t iWritten = write(STDERR_FILENO, szLine.data(), szLine.size());
    _exit(iExitFailure);
}

// Before the first object is made.
[[gnu::constructor(101)]] void SetEnd()
{
    std::set_terminate(EndWithoutMemory);
}

int Run(int argc, char* argv[])
{
    SWatchOptions oOptions;
    std::string szText;
    const std::vector<std::string> aszArguments(argv + (argc > 0 ? 1 : 0), argv + argc);
    const std::optional<int> iStatus = WatchOptions_Parse(aszArguments, ReadClockNs(CLOCK_REALTIME), oOptions, szText);
    if (iStatus.value_or(iExitUsage) != iExitUsage)
    {
        std::fputs(szText.c_str(), stdout);
        return *iStatus;
    }
    if (iStatus)
    {
        return oOptions.eCommand == EWatchCommand::CHECK ? CheckCommand_RefuseUsage(szText)
                                                         : (Notice_Say(szText + "; --help tells more"), *iStatus);
    }
    if (oOptions.eCommand != EWatchCommand::SERVE)
    {
        CSignalWatch::LetHangUp();
    }
    VTSTR4096 szError;
    const bool bNeedsBoard = oOptions.eCommand != EWatchCommand::REPORT && oOptions.eCommand != EWatchCommand::EXPORT;
    if (bNeedsBoard && !BoardLoader_Load(szError))
    {
        return oOptions.eCommand == EWatchCommand::CHECK ? CheckCommand_RefuseBoard(szError)
                                                         : (Notice_Say(szError), iExitFailure);
    }
    switch (oOptions.eCommand)
    {
    case EWatchCommand::SERVE:
        return ServeCommand_Run(oOptions.oServe);
    case EWatchCommand::CHECK:
        return CheckCommand_Run(oOptions.oCheck);
    case EWatchCommand::REPORT:
        return ReportCommand_Run(oOptions.oReport);
    case EWatchCommand::RECORD:
        return RecordCommand_Run(oOptions.oRecord);
    case EWatchCommand::EXPORT:
        return ExportCommand_Run(oOptions.oExport);
    }
    return iExitUsage;
}

} // namespace

int main(int argc, char* argv[])
{
    CSignalWatch::HoldEarly();
    StandardFiles_KeepPlaces();
    Memory_Reserve();
    int iStatus = iExitFailure;
    const CFault oFault = Memory_Try(
        [&]
        {
            iStatus = Run(argc, argv);
            return CFault();
        });
    if (!oFault)
    {
        return iStatus;
    }
    if (argc > 1 && std::strcmp(argv[1], "check") == 0)
    {
        return CheckCommand_RefuseMemory();
    }
    static_cast<void>(std::fputs("VtVideoWatch: no memory\n", stderr));
    return iExitFailure;
}
