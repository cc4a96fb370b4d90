#include "CheckCommand.h"

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <optional>
#include <thread>
#include <unistd.h>

#include "CheckVerdict.h"
#include "SignalWatch.h"
#include "WatchClocks.h"
#include "WatchRun.h"

namespace
{

constexpr uint32_t uiEndMs = 850;
constexpr uint32_t uiThreadsEndMs = 400;
constexpr uint32_t uiBeatMs = 50;
constexpr uint32_t uiPatienceSeconds = 10; // beyond the time that was asked for: to open the board, and to judge
constexpr std::chrono::milliseconds END_PATIENCE{1000}; // from the answer to the end of the process

// A verdict that nobody can read is none.
int Say(const std::string& rszLine, EVerdict eVerdict)
{
    const bool bIsSaid = std::puts(rszLine.c_str()) >= 0 && std::fflush(stdout) == 0;
    return static_cast<int>(bIsSaid ? eVerdict : EVerdict::UNKNOWN);
}

int SayUnknown(const std::string& rszText)
{
    return Say("VIDEO UNKNOWN - " + rszText, EVerdict::UNKNOWN);
}

// The one answer of a check. When a call to the board does not come back it answers in the board's place, for a
// monitoring system must hear something; when there is an answer already it only ends the process.
class CAnswer
{
public:
    explicit CAnswer(std::chrono::seconds oPatience)
        : m_oDeadline(std::chrono::steady_clock::now() + oPatience),
          m_oThread([this](const std::stop_token& roStop) { Guard(roStop); })
    {
    }

    int Give(const std::string& rszLine, EVerdict eVerdict)
    {
        const std::lock_guard oGuard(m_oMutex);
        m_iStatus = Say(rszLine, eVerdict);
        m_oDeadline = std::chrono::steady_clock::now() + END_PATIENCE;
        m_oChanged.notify_all();
        return *m_iStatus;
    }

private:
    void Guard(const std::stop_token& roStop)
    {
        std::unique_lock oLock(m_oMutex);
        while (!roStop.stop_requested())
        {
            const auto oDeadline = m_oDeadline;
            m_oChanged.wait_until(oLock, roStop, oDeadline, [&] { return m_oDeadline != oDeadline; });
            if (!roStop.stop_requested() && std::chrono::steady_clock::now() >= m_oDeadline)
            {
                _exit(m_iStatus ? *m_iStatus : SayUnknown("the board does not answer"));
            }
        }
    }

    std::mutex m_oMutex; // guards the next two
    std::chrono::steady_clock::time_point m_oDeadline;
    std::optional<int> m_iStatus; // once the answer is given
    std::condition_variable_any m_oChanged;
    std::jthread m_oThread;
};

// The last moment of the watch; null, with the reason, when there is none.
WatchPublicationPtr Watch(const SCheckOptions& roOptions, CBoardSession& roSession, CSignalWatch& roSignals,
                          std::string& rszFault)
{
    if (!roSession.Open(roOptions.oBoard, rszFault) || !roSession.Start(rszFault))
    {
        return nullptr;
    }
    WatchPublicationPtr poLast;
    SWatchRunSetup oSetup;
    oSetup.oSettings.oThreshold = roOptions.oThreshold;
    oSetup.iStartUtcNs = ReadClockNs(CLOCK_REALTIME);
    oSetup.fnTake = [&poLast](const SWatchStep& roStep) { poLast = roStep.poPublication; };
    CWatchRun oRun(roSession, oSetup);
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
    return poLast;
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
    CAnswer oAnswer(std::chrono::seconds(roOptions.uiSeconds + uiPatienceSeconds));
    CBoardSession oSession;
    std::string szFault;
    int iStatus = static_cast<int>(EVerdict::UNKNOWN);
    if (const WatchPublicationPtr poLast = Watch(roOptions, oSession, oSignals, szFault))
    {
        const SCheckVerdict oVerdict = CheckVerdict_Judge(roOptions, *poLast);
        iStatus = oAnswer.Give(roOptions.bJson ? CheckVerdict_PrintJson(oVerdict, *poLast, roOptions.uiSeconds)
                                               : CheckVerdict_Print(oVerdict),
                               oVerdict.eVerdict);
    }
    else
    {
        iStatus = oAnswer.Give("VIDEO UNKNOWN - " + szFault, EVerdict::UNKNOWN);
    }
    if (!oSession.Stop(uiThreadsEndMs))
    {
        _exit(iStatus);
    }
    return iStatus;
}
