#include "CheckCommand.h"

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <thread>
#include <unistd.h>

#include "CheckVerdict.h"
#include "SignalWatch.h"
#include "WatchClocks.h"
#include "WatchDataWriter.h"
#include "WatchRun.h"

namespace
{

constexpr uint32_t uiEndMs = 850;
constexpr uint32_t uiThreadsEndMs = 400;
constexpr uint32_t uiBeatMs = 50;
constexpr uint32_t uiPatienceSeconds = 10; // beyond the time that was asked for: to open the board, and to judge

int Say(const std::string& rszLine, EVerdict eVerdict)
{
    std::puts(rszLine.c_str());
    std::fflush(stdout);
    return static_cast<int>(eVerdict);
}

int SayUnknown(const std::string& rszText)
{
    return Say("VIDEO UNKNOWN - " + rszText, EVerdict::UNKNOWN);
}

// Answers in the board's place when one of its calls does not come back: a monitoring system must hear something.
class CAnswerGuard
{
public:
    explicit CAnswerGuard(std::chrono::seconds oPatience)
        : m_oThread([this, oPatience](const std::stop_token& roStop) { Await(roStop, oPatience); })
    {
    }

private:
    void Await(const std::stop_token& roStop, std::chrono::seconds oPatience)
    {
        std::unique_lock oLock(m_oMutex);
        if (!m_oStopped.wait_for(oLock, roStop, oPatience, [&roStop] { return roStop.stop_requested(); }))
        {
            _exit(SayUnknown("the board does not answer"));
        }
    }

    std::mutex m_oMutex;
    std::condition_variable_any m_oStopped;
    std::jthread m_oThread;
};

SWatchSettings MakeSettings(const SCheckOptions& roOptions)
{
    SWatchSettings oSettings;
    oSettings.flThresholdLines = roOptions.oThreshold.flLines;
    oSettings.flThresholdSeconds = roOptions.oThreshold.flSeconds;
    return oSettings;
}

// The last moment of the watch; null, with the reason, when there is none.
std::shared_ptr<const SWatchPublication> Watch(const SCheckOptions& roOptions, CBoardSession& roSession,
                                               CSignalWatch& roSignals, std::string& rszFault)
{
    if (!roSession.Open(roOptions.oBoard, rszFault) || !roSession.Start(rszFault))
    {
        return nullptr;
    }
    const std::array<StreamChannels, 2>& raoChannels = roSession.GetChannels();
    const WatchDataPtr poData = WatchData_Create(static_cast<uint32_t>(raoChannels[0].size()),
                                                 static_cast<uint32_t>(raoChannels[1].size()), {});
    SWatchRunSetup oSetup;
    oSetup.oSettings = MakeSettings(roOptions);
    oSetup.iStartUtcNs = ReadClockNs(CLOCK_REALTIME);
    CWatchRun oRun(roSession, *poData, oSetup);
    oRun.Start();
    const uint64_t uiEndNs = ReadMonotonicNs() + roOptions.uiSeconds * static_cast<uint64_t>(iNsPerSecond);
    while (ReadMonotonicNs() < uiEndNs)
    {
        if (roSignals.AwaitEnd(uiBeatMs))
        {
            rszFault = "ended by a signal before its time";
            return nullptr;
        }
    }
    oRun.Stop();
    return WatchData_GetLatest(*poData);
}

} // namespace

int CheckCommand_RefuseUsage(const std::string& rszText)
{
    return SayUnknown(rszText + "; --help tells more");
}

int CheckCommand_RefuseBoard(const std::string& rszText)
{
    return SayUnknown(rszText);
}

int CheckCommand_Run(const SCheckOptions& roOptions)
{
    CSignalWatch oSignals;
    oSignals.Start(uiEndMs, static_cast<int>(EVerdict::UNKNOWN), {});
    const CAnswerGuard oGuard(std::chrono::seconds(roOptions.uiSeconds + uiPatienceSeconds));
    CBoardSession oSession;
    std::string szFault;
    int iStatus = static_cast<int>(EVerdict::UNKNOWN);
    if (const std::shared_ptr<const SWatchPublication> poLast = Watch(roOptions, oSession, oSignals, szFault))
    {
        const SCheckVerdict oVerdict = CheckVerdict_Judge(roOptions, *poLast);
        iStatus = Say(roOptions.bJson ? CheckVerdict_PrintJson(oVerdict, *poLast, roOptions.uiSeconds)
                                      : CheckVerdict_Print(oVerdict),
                      oVerdict.eVerdict);
    }
    else
    {
        iStatus = SayUnknown(szFault);
    }
    if (!oSession.Stop(uiThreadsEndMs))
    {
        _exit(iStatus);
    }
    return iStatus;
}
