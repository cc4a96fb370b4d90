// Serves a watch whose figures are made up, until its standard input ends: for drivers that speak HTTP themselves.
//   ServeMadeUp <streams per direction>
#include <cstdio>
#include <cstdlib>
#include <poll.h>
#include <unistd.h>

#include "MadeUpWatch.h"
#include "WatchServer.h"

int main(int iArguments, char** aszArguments)
{
    const auto uiStreams = static_cast<uint32_t>(iArguments > 1 ? std::atoi(aszArguments[1]) : 4);
    SWatchData oData;
    oData.iPointsToUtcNs = MadeUpWatch_GetUtcNs();
    oData.iPointsFromUtcNs = oData.iPointsToUtcNs - 600'000'000'000;
    for (size_t i = 0; i < static_cast<size_t>(EWatchEventKind::COUNT); ++i)
    {
        MadeUpWatch_AddEvent(oData, static_cast<EWatchEventKind>(i), EStreamDirection::INPUT, 0);
    }
    std::string szProblem;
    const WatchServerPtr poServer = WatchServer_Start(oData, "127.0.0.1:0", szProblem);
    if (poServer == nullptr)
    {
        std::fprintf(stderr, "%s\n", szProblem.c_str());
        return 1;
    }
    std::printf("%s\n", WatchServer_GetAddress(*poServer).c_str());
    std::fflush(stdout);
    pollfd oInput = {STDIN_FILENO, POLLIN, 0};
    for (uint64_t uiNumber = 1; uiNumber == 1 || poll(&oInput, 1, 1000) == 0; ++uiNumber)
    {
        MadeUpWatch_AddEvent(oData, EWatchEventKind::FIELDS_LOST, EStreamDirection::INPUT, 0);
        MadeUpWatch_Publish(oData, MadeUpWatch_Make(uiNumber, uiStreams));
    }
    return 0;
}
