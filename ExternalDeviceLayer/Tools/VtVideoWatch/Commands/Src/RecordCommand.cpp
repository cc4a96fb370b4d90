#include "RecordCommand.h"

#include <mutex>
#include <unistd.h>

#include "Memory.h"
#include "Notice.h"
#include "RecordingMaker.h"
#include "SignalWatch.h"
#include "WatchClocks.h"
#include "WatchRun.h"

namespace
{

constexpr uint32_t uiEndMs = 5000; // to write what there is
constexpr uint32_t uiThreadsEndMs = 400;
constexpr uint32_t uiCutMs = 5000;
constexpr uint32_t uiSlackSeconds = 5; // the recorder reaches back farther than what is asked for
static_assert(uiMostRecordSeconds + uiSlackSeconds <= uiMostRecorderSeconds);
constexpr uint32_t uiBeatMs = 50;
constexpr uint64_t uiFirstMomentNs = 5'000'000'000; // the first moment is known by then, or never

// What the run hands over: the newest moment, and every event.
struct STaken
{
    std::mutex oMutex; // guards the rest
    WatchPublicationPtr poLatest;
    std::vector<SWatchEvent> aoEvents;
};

CFault Write(const SRecordOptions& roOptions, CWatchRun& roRun, STaken& roTaken, uint64_t uiBeginNs)
{
    const std::optional<CRecorderCut> oCut = roRun.AwaitCut({uiBeginNs}, uiCutMs);
    const std::lock_guard oGuard(roTaken.oMutex);
    if (!oCut || !roTaken.poLatest)
    {
        return CFault("nothing was seen: a second at least is needed");
    }
    CRecordingMaker oMaker;
    if (CFault oFault = oMaker.Begin(roOptions.szFile, *roTaken.poLatest, "asked for on the command line", uiBeginNs))
    {
        return oFault;
    }
    if (!oMaker.AddCut(*oCut, *roTaken.poLatest) || !oMaker.AddEvents(roTaken.aoEvents))
    {
        return CFault("recording " + roOptions.szFile + ": the disk takes no more");
    }
    const uint64_t uiFields = oMaker.GetFieldCount();
    if (CFault oFault = oMaker.Finish())
    {
        return oFault;
    }
    Notice_Say("recording " + roOptions.szFile + ": " + std::to_string(uiFields) + " waits");
    return {};
}

bool HasMoment(STaken& roTaken)
{
    const std::lock_guard oGuard(roTaken.oMutex);
    return roTaken.poLatest != nullptr;
}

CFault Record(const SRecordOptions& roOptions, CBoardSession& roSession, CSignalWatch& roSignals)
{
    // A wrong name is told before the watching, not after it.
    if (CFault oFault = CRecordingWriter::TryName(roOptions.szFile))
    {
        return oFault;
    }
    if (CFault oFault = roSession.Open(roOptions.oBoard))
    {
        return oFault;
    }
    STaken oTaken;
    SWatchRunSetup oSetup;
    oSetup.iStartUtcNs = ReadClockNs(CLOCK_REALTIME);
    oSetup.uiRecorderSeconds = roOptions.uiSeconds + uiSlackSeconds;
    oSetup.fnTake = [&oTaken](const SWatchStep& roStep)
    {
        const std::lock_guard oGuard(oTaken.oMutex);
        oTaken.poLatest = roStep.poPublication;
        oTaken.aoEvents.insert(oTaken.aoEvents.end(), roStep.aoEvents.begin(), roStep.aoEvents.end());
    };
    CWatchRun oRun(roSession, oSetup);
    if (CFault oFault = roSession.Start())
    {
        return oFault;
    }
    if (CFault oFault = oRun.Start())
    {
        return oFault;
    }
    const uint64_t uiBeginNs = ReadMonotonicNs();
    const uint64_t uiEndNs = uiBeginNs + roOptions.uiSeconds * static_cast<uint64_t>(iNsPerSecond);
    const auto fnHasEnough = [&]
    {
        const uint64_t uiNowNs = ReadMonotonicNs();
        return uiNowNs >= uiEndNs && (HasMoment(oTaken) || uiNowNs >= uiEndNs + uiFirstMomentNs);
    };
    while (!fnHasEnough() && !roSignals.AwaitEnd(uiBeatMs))
    {
    }
    return Write(roOptions, oRun, oTaken, uiBeginNs);
}

} // namespace

int RecordCommand_Run(const SRecordOptions& roOptions)
{
    CSignalWatch oSignals;
    CBoardSession oSession;
    const CFault oFault = Memory_Try(
        [&]
        {
            CFault oStarted = oSignals.Start(uiEndMs, iExitFailure, {});
            return oStarted ? oStarted : Record(roOptions, oSession, oSignals);
        });
    if (oFault)
    {
        Notice_Say(oFault.GetText());
    }
    const int iStatus = oFault ? iExitFailure : iExitOk;
    if (!oSession.Stop(uiThreadsEndMs))
    {
        _exit(iStatus);
    }
    return iStatus;
}
