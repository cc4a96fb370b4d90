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
    CMadeUpWatch oData;
    oData.AddPoints({EStreamDirection::INPUT, 1}, MadeUpWatch_GetUtcNs() - 600 * iNsPerSecond, MadeUpWatch_GetUtcNs());
    for (size_t i = 0; i < static_cast<size_t>(EWatchEventKind::COUNT); ++i)
    {
        oData.AddEvent(static_cast<EWatchEventKind>(i), {EStreamDirection::INPUT, 0});
    }
    oData.AddEvent(EWatchEventKind::FIELDS_LOST, {EStreamDirection::INPUT, 0});
    oData.Publish(MadeUpWatch_Make(1, uiStreams));
    CWatchServer oServer(oData);
    if (const CFault oFault = oServer.Start({{"127.0.0.1:0"}}))
    {
        std::fprintf(stderr, "%s\n", oFault.GetText().c_str());
        return 1;
    }
    std::printf("%s\n", oServer.GetAddresses().front().c_str());
    std::fflush(stdout);
    pollfd oInput = {STDIN_FILENO, POLLIN, 0};
    for (uint64_t uiNumber = 2; poll(&oInput, 1, 1000) == 0; ++uiNumber)
    {
        oData.AddEvent(EWatchEventKind::FIELDS_LOST, {EStreamDirection::INPUT, 0});
        oData.Publish(MadeUpWatch_Make(uiNumber, uiStreams));
    }
    return 0;
}
