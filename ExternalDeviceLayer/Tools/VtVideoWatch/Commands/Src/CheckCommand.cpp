#include "CheckCommand.h"

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <optional>
#include <thread>
#include <unistd.h>

#include "CheckBaseline.h"
#include "CheckPrint.h"
#include "Memory.h"
#include "Notice.h"
#include "SignalWatch.h"
#include "Threads.h"
#include "WatchClocks.h"
#include "WatchRun.h"

namespace
{

constexpr uint32_t uiEndMs = 850;
constexpr uint32_t uiThreadsEndMs = 400;
constexpr uint32_t uiBeatMs = 50;
// A check is short: what a stream has done for so long it is expected to go on with.
constexpr double flLearnSeconds = 0.5;
constexpr uint32_t uiPatienceSeconds = 10; // beyond the time that was asked for: to open the board, and to judge
constexpr std::chrono::milliseconds oEndPatience{1000}; // from the answer to the end of the process

// A verdict that nobody can read is none.
int Say(const char* szLine, EVerdict eVerdict)
{
    const bool bIsSaid = std::puts(szLine) >= 0 && std::fflush(stdout) == 0;
    return static_cast<int>(bIsSaid ? eVerdict : EVerdict::UNKNOWN);
}

int SayUnknown(const std::string& rszText)
{
    return Say(("VIDEO UNKNOWN - " + Notice_MakeLine(rszText)).c_str(), EVerdict::UNKNOWN);
}

// The one answer of a check. When a call to the board does not come back it answers in the board's place, for a
// monitoring system must hear something; when there is an answer already it only ends the process.
class CAnswer
{
public:
    explicit CAnswer(std::chrono::seconds oPatience) : m_oDeadline(std::chrono::steady_clock::now() + oPatience) {}
    ~CAnswer()
    {
        if (m_oThread.joinable())
        {
            Change([this] { m_bIsOver = true; });
            m_oThread.join();
        }
    }
    CAnswer(const CAnswer&) = delete;
    CAnswer& operator=(const CAnswer&) = delete;

    CFault Start()
    {
        return Thread_Start(m_oThread, "answer", [this] { Guard(); });
    }

    int Give(const char* szLine, EVerdict eVerdict)
    {
        Change(
            [&]
            {
                m_iStatus = Say(szLine, eVerdict);
                m_oDeadline = std::chrono::steady_clock::now() + oEndPatience;
            });
        return *m_iStatus;
    }

private:
    template <typename TChange> void Change(TChange fnChange)
    {
        const std::lock_guard oGuard(m_oMutex);
        fnChange();
        m_oChanged.notify_all();
    }

    void Guard()
    {
        std::unique_lock oLock(m_oMutex);
        while (!m_bIsOver)
        {
            m_oChanged.wait_until(oLock, m_oDeadline);
            if (!m_bIsOver && std::chrono::steady_clock::now() >= m_oDeadline)
            {
                _exit(m_iStatus ? *m_iStatus : Say("VIDEO UNKNOWN - the board does not answer", EVerdict::UNKNOWN));
            }
        }
    }

    std::mutex m_oMutex; // guards the next three
    std::chrono::steady_clock::time_point m_oDeadline;
    std::optional<int> m_iStatus; // once the answer is given
    bool m_bIsOver = false;
    std::condition_variable m_oChanged;
    std::thread m_oThread;
};

// The last moment of the watch.
CFault Watch(const SCheckOptions& roOptions, CBoardSession& roSession, CSignalWatch& roSignals,
             WatchPublicationPtr& rpoLast)
{
    SWatchRunSetup oSetup;
    oSetup.oSettings.oThreshold = roOptions.oThreshold;
    oSetup.aoPaths = roOptions.aoPaths;
    oSetup.oJudge.flLearnSeconds = flLearnSeconds;
    if (CFault oFault = CheckBaseline_Read(roOptions, oSetup.oJudge))
    {
        return oFault;
    }
    oSetup.iStartUtcNs = ReadClockNs(CLOCK_REALTIME);
    oSetup.fnTake = [&rpoLast](const SWatchStep& roStep) { rpoLast = roStep.poPublication; };
    CWatchRun oRun(roSession, oSetup);
    if (CFault oFault = oRun.Start())
    {
        return oFault;
    }
    const uint64_t uiEndNs = ReadMonotonicNs() + roOptions.uiSeconds * static_cast<uint64_t>(iNsPerSecond);
    while (ReadMonotonicNs() < uiEndNs)
    {
        if (roSignals.AwaitEnd(uiBeatMs))
        {
            return CFault("ended by a signal before its time");
        }
    }
    oRun.Stop();
    return {};
}

CFault Begin(const SCheckOptions& roOptions, CAnswer& roAnswer, CBoardSession& roSession, CSignalWatch& roSignals)
{
    CFault oFault = roSignals.Start(uiEndMs, static_cast<int>(EVerdict::UNKNOWN), {});
    oFault = oFault ? oFault : roAnswer.Start();
    oFault = oFault ? oFault : roSession.Open(roOptions.oBoard);
    return oFault ? oFault : roSession.Start();
}

std::string Judge(const SCheckOptions& roOptions, const SWatchPublication& roLast, EVerdict& reVerdict)
{
    SCheckVerdict oVerdict = CheckVerdict_Judge(roOptions, roLast);
    CheckBaseline_Judge(roOptions, roLast, oVerdict);
    std::string szLines =
        roOptions.bJson ? CheckPrint_Json(oVerdict, roLast, roOptions.uiSeconds) : CheckPrint_Lines(oVerdict);
    reVerdict = oVerdict.eVerdict;
    return szLines;
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

int CheckCommand_RefuseMemory()
{
    return Say("VIDEO UNKNOWN - no memory", EVerdict::UNKNOWN);
}

int CheckCommand_Run(const SCheckOptions& roOptions)
{
    CSignalWatch oSignals;
    CAnswer oAnswer(std::chrono::seconds(roOptions.uiSeconds + uiPatienceSeconds));
    CBoardSession oSession;
    WatchPublicationPtr poLast;
    std::string szLines;
    EVerdict eVerdict = EVerdict::UNKNOWN;
    const CFault oFault = Memory_Try(
        [&]
        {
            CFault oBegun = Begin(roOptions, oAnswer, oSession, oSignals);
            oBegun = oBegun ? oBegun : Watch(roOptions, oSession, oSignals, poLast);
            szLines = oBegun ? "VIDEO UNKNOWN - " + oBegun.GetText() : Judge(roOptions, *poLast, eVerdict);
            return CFault();
        });
    const int iStatus =
        oFault ? oAnswer.Give("VIDEO UNKNOWN - no memory", EVerdict::UNKNOWN) : oAnswer.Give(szLines.c_str(), eVerdict);
    if (!oSession.Stop(uiThreadsEndMs))
    {
        _exit(iStatus);
    }
    return iStatus;
}
