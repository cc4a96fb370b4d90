#include "ServeCommand.h"

#include <algorithm>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include "ChildProgram.h"
#include "EventJournal.h"
#include "EventJson.h"
#include "EventKinds.h"
#include "IncidentDelivery.h"
#include "Memory.h"
#include "Notice.h"
#include "RateComparison.h"
#include "RecordingKeeper.h"
#include "ServiceNotice.h"
#include "SignalWatch.h"
#include "StoreReader.h"
#include "StoreWriter.h"
#include "StreamId.h"
#include "TextFormat.h"
#include "WatchClocks.h"
#include "WatchData.h"
#include "WatchJson.h"
#include "WatchRun.h"
#include "WatchServer.h"
#include "WatchTexts.h"

namespace
{

// A second for the whole end; the rest is for the system to take the process away.
constexpr uint32_t uiEndMs = 850;
constexpr uint32_t uiThreadsEndMs = 400;
constexpr uint32_t uiBeatMs = 500;
constexpr uint32_t uiCutMs = 5000;
constexpr uint32_t uiProgramMs = 10'000; // that the program for incidents may take

// Everything that a run needs, in the order in which it is made; End() takes it apart in the order of what may be lost.
struct SServeRun
{
    std::unique_ptr<CEventJournal> poJournal;
    std::unique_ptr<CStoreWriter> poStore;
    SStoreRemains oRemains;
    std::string szWarning; // told once the run goes on
    CBoardSession oSession;
    std::unique_ptr<CWatchData> poData;
    std::mutex oServerMutex; // whether there is one: HUP comes at any time
    std::unique_ptr<CWatchServer> poServer;
    std::unique_ptr<CWatchRun> poRun;
    CServiceNotice oNotice;
    std::unique_ptr<CIncidentDelivery> poDelivery;
    std::unique_ptr<CRecordingKeeper> poKeeper;
    SJudgeSettings oJudge;
};

CFault CheckReferences(const SServeOptions& roOptions, const SServeRun& roRun)
{
    for (const SStreamKey& roStream : roOptions.aoReferences)
    {
        if (!roRun.oSession.MayHave(roStream))
        {
            return CFault("--reference: the board has no " + StreamId_Print(roStream));
        }
    }
    return {};
}

// What one watches now may change: rates that do not compare are a fault only at the start.
CFault CheckPaths(const SServeOptions& roOptions, const SServeRun& roRun)
{
    for (const SStreamPath& roPath : roOptions.aoPaths)
    {
        for (const SStreamKey& roStream : {roPath.oInput, roPath.oOutput})
        {
            if (!roRun.oSession.MayHave(roStream))
            {
                return CFault("--path: the board has no " + StreamId_Print(roStream));
            }
        }
        const VtVideo_VidParam oInput = roRun.oSession.ReadTimings(roPath.oInput);
        const VtVideo_VidParam oOutput = roRun.oSession.ReadTimings(roPath.oOutput);
        if (RateComparison_AreDifferent(oInput, oOutput))
        {
            return CFault(TextFormat_Print("--path: %s at %.6g Hz and %s at %.6g Hz do not compare",
                                           StreamId_Print(roPath.oInput).c_str(), RateComparison_GetHz(oInput),
                                           StreamId_Print(roPath.oOutput).c_str(), RateComparison_GetHz(oOutput)));
        }
    }
    return {};
}

std::unique_ptr<CRecordingKeeper> MakeKeeper(const SServeOptions& roOptions, SServeRun& roRun)
{
    SRecordingKeeperSetup oSetup;
    oSetup.szFolder = roOptions.szRecordings;
    oSetup.uiKeepBytes = uint64_t{roOptions.uiKeepRecordingsMiB} << 20U;
    oSetup.uiSeconds = roOptions.uiRecorderSeconds;
    oSetup.fnAwaitCut = [&roRun](const SRecorderSpan& roSpan) { return roRun.poRun->AwaitCut(roSpan, uiCutMs); };
    return std::make_unique<CRecordingKeeper>(std::move(oSetup));
}

// Everything that can be wrong with what the command line names. A store that cannot be opened now, but perhaps later,
// is told and no fault.
CFault Open(const SServeOptions& roOptions, SServeRun& roRun, int64_t iNowUtcNs)
{
    CFault oFault = roRun.poJournal ? roRun.poJournal->Open() : CFault();
    if (!oFault && !roOptions.szStore.empty())
    {
        roRun.poStore = std::make_unique<CStoreWriter>(roOptions.szStore, roOptions.uiKeepDays);
        oFault = roRun.poStore->Open(iNowUtcNs, roRun.oRemains);
        if (oFault.MayHeal())
        {
            roRun.szWarning = oFault.GetText();
            oFault = CFault();
        }
    }
    if (roRun.poJournal && !oFault)
    {
        roRun.poJournal->Put(roRun.oRemains.aoUntold);
    }
    if (!oFault && !roOptions.szRecordings.empty())
    {
        roRun.poKeeper = MakeKeeper(roOptions, roRun);
        oFault = roRun.poKeeper->Open();
    }
    oFault = oFault ? oFault : roRun.oSession.Open(roOptions.oBoard);
    oFault = oFault ? oFault : CheckReferences(roOptions, roRun);
    return oFault ? oFault : CheckPaths(roOptions, roRun);
}

SWatchSettings MakeSettings(const SServeOptions& roOptions)
{
    SWatchSettings oSettings;
    oSettings.oThreshold = roOptions.oThreshold;
    return oSettings;
}

void PutIncidents(SServeRun& roRun, const SWatchStep& roStep)
{
    for (const SWatchEvent& roEvent : roStep.aoEvents)
    {
        const std::vector<SIncident>& raoIncidents = roStep.poPublication->oJudgement.aoIncidents;
        const bool bIsOfIncident = EventKind_Get(roEvent.eKind).bIsOfIncident;
        const auto itIncident = std::ranges::find(raoIncidents, roEvent.uiGroup, &SIncident::uiNumber);
        if (bIsOfIncident && itIncident != raoIncidents.end())
        {
            roRun.poDelivery->Put({roEvent.uiNumber, roEvent.eKind, *itIncident, false});
        }
    }
}

// What an earlier run could not tell: the program of begins and ends, and everybody of what its own end has ended.
void PutRemains(bool bHasProgram, SServeRun& roRun)
{
    const auto& raoEnded = roRun.oRemains.aoEnded;
    const auto& raoUndelivered = roRun.oRemains.aoUndelivered;
    const bool bIsToldAgain = bHasProgram && roRun.oRemains.bHasDelivered;
    for (const auto& [oEvent, oIncident] : bIsToldAgain ? raoUndelivered : raoEnded)
    {
        const uint64_t uiNumber = oEvent.uiNumber;
        const bool bIsNew = std::ranges::any_of(raoEnded, [uiNumber](const auto& roEnded)
                                                { return roEnded.first.uiNumber == uiNumber; });
        roRun.poDelivery->Put({uiNumber, oEvent.eKind, oIncident, !bIsNew});
    }
}

// Those that the program of an earlier run was not told of come first.
CFault StartDelivery(const SServeOptions& roOptions, SServeRun& roRun)
{
    CIncidentDelivery::RunProgram fnRun;
    if (!roOptions.szOnIncident.empty())
    {
        fnRun = [szProgram = roOptions.szOnIncident](const std::string& rszInput, const std::atomic<bool>& rbIsToEnd)
        { return ChildProgram_Run(szProgram, rszInput, uiProgramMs, rbIsToEnd); };
    }
    roRun.poDelivery = std::make_unique<CIncidentDelivery>(std::move(fnRun),
                                                           [&roRun](uint64_t uiEvent)
                                                           {
                                                               if (roRun.poStore)
                                                               {
                                                                   roRun.poStore->KeepDelivered(uiEvent);
                                                               }
                                                           });
    if (!roOptions.szOnIncident.empty())
    {
        if (roRun.poStore && !roRun.oRemains.bHasDelivered)
        {
            roRun.poStore->KeepDelivered(roRun.oRemains.uiLastEvent); // from here on
        }
    }
    PutRemains(!roOptions.szOnIncident.empty(), roRun);
    return roRun.poDelivery->Start();
}

SWatchRunSetup MakeRunSetup(const SServeOptions& roOptions, SServeRun& roRun, int64_t iNowUtcNs)
{
    SWatchRunSetup oSetup;
    oSetup.oSettings = MakeSettings(roOptions);
    oSetup.oSettings.uiEventsBefore = roRun.oRemains.uiLastEvent;
    oSetup.aoReferences = roOptions.aoReferences;
    oSetup.aoPaths = roOptions.aoPaths;
    oSetup.oJudge = roRun.oJudge;
    oSetup.oJudge.uiIncidentsBefore = roRun.oRemains.uiLastIncident;
    oSetup.aoRunning = roRun.oRemains.aoRunning;
    oSetup.aoEarlier = roRun.oRemains.aoEarlier;
    oSetup.iStartUtcNs = iNowUtcNs;
    oSetup.uiRecorderSeconds =
        roOptions.uiRecorderSeconds == 0 ? 0 : roOptions.uiRecorderSeconds + uiRecorderSlackSeconds;
    oSetup.fnAddStreams = [&roRun](size_t uiSlot, uint32_t uiCount) { roRun.poData->AddStreams(uiSlot, uiCount); };
    oSetup.fnTake = [&roRun](const SWatchStep& roStep)
    {
        Memory_Do("a second of the history", [&] { roRun.poData->Put(roStep); });
        if (roRun.poStore)
        {
            roRun.poStore->Put(roStep);
        }
        if (roRun.poJournal)
        {
            roRun.poJournal->Put(roStep.aoEvents);
        }
        Memory_Do("incidents", [&] { PutIncidents(roRun, roStep); });
        if (roRun.poKeeper)
        {
            Memory_Do("a recording", [&] { roRun.poKeeper->Put(roStep); });
        }
    };
    oSetup.fnAddCosts = [&roRun](SWatchCosts& roCosts)
    {
        if (roRun.poStore)
        {
            roRun.poStore->AddCosts(roCosts);
        }
        if (roRun.poJournal)
        {
            roRun.poJournal->AddCosts(roCosts);
        }
        if (roRun.poKeeper)
        {
            roRun.poKeeper->AddCosts(roCosts);
        }
        roCosts.uiIncidentFailures = roRun.poDelivery ? roRun.poDelivery->GetFailures() : 0;
    };
    return oSetup;
}

CFault StartThreads(const SServeOptions& roOptions, SServeRun& roRun)
{
    CFault oFault = roRun.oSession.Start();
    oFault = oFault || !roRun.poStore ? oFault : roRun.poStore->Start();
    oFault = oFault || !roRun.poJournal ? oFault : roRun.poJournal->Start();
    oFault = oFault ? oFault : StartDelivery(roOptions, roRun);
    oFault = oFault || !roRun.poKeeper ? oFault : roRun.poKeeper->Start();
    return oFault ? oFault : roRun.poRun->Start();
}

CFault StartServer(const SServeOptions& roOptions, SServeRun& roRun)
{
    const std::lock_guard oGuard(roRun.oServerMutex);
    auto poServer = std::make_unique<CWatchServer>(*roRun.poData, roRun.poKeeper.get());
    CFault oFault = poServer->Start(roOptions.oServing);
    roRun.poServer = oFault ? nullptr : std::move(poServer);
    return oFault;
}

CFault Begin(const SServeOptions& roOptions, SServeRun& roRun)
{
    const int64_t iNowUtcNs = ReadClockNs(CLOCK_REALTIME);
    if (CFault oFault = Expectations_Read(roOptions.oExpect, roRun.oJudge))
    {
        return oFault;
    }
    if (CFault oFault = Open(roOptions, roRun, iNowUtcNs))
    {
        return oFault;
    }
    roRun.poData = std::make_unique<CWatchData>(
        0, 0, roOptions.szStore.empty() ? nullptr : std::make_unique<CStoreReader>(roOptions.szStore));
    roRun.poRun = std::make_unique<CWatchRun>(roRun.oSession, MakeRunSetup(roOptions, roRun, iNowUtcNs));
    roRun.poData->Resume(roRun.oRemains.aoRunning);
    CFault oFault = StartServer(roOptions, roRun);
    oFault = oFault ? oFault : StartThreads(roOptions, roRun);
    if (oFault)
    {
        return oFault;
    }
    for (const std::string& rszUrl : roRun.poServer->GetUrls())
    {
        Notice_Say("serving on " + rszUrl);
    }
    const std::string szWarning = roRun.poServer->GetWarning();
    if (!szWarning.empty())
    {
        Notice_Say(szWarning);
    }
    if (!roRun.szWarning.empty())
    {
        Notice_Say(roRun.szWarning);
    }
    return {};
}

std::string MakeStatus(const IWatchReader& roReader)
{
    const WatchPublicationPtr poLatest = roReader.GetLatest();
    if (!poLatest)
    {
        return "starting";
    }
    std::array<uint32_t, static_cast<size_t>(EStreamState::COUNT)> auiStates = {};
    WatchPublication_ForEachStream(poLatest->oSnapshot, [&auiStates](const SStreamFigures& roFigures)
                                   { ++auiStates[static_cast<size_t>(roFigures.eState)]; });
    std::string szStatus = poLatest->bIsSimulated ? "simulated board:" : "streams:";
    for (size_t uiState = 0; uiState < auiStates.size(); ++uiState)
    {
        szStatus += (uiState == 0 ? " " : ", ") + std::to_string(auiStates[uiState]) + " " +
                    WatchTexts_GetState(static_cast<EStreamState>(uiState));
    }
    return szStatus;
}

void Watch(SServeRun& roRun, CSignalWatch& roSignals)
{
    bool bIsReady = false;
    while (!roSignals.AwaitEnd(uiBeatMs))
    {
        const uint64_t uiProgress = roRun.poRun->GetProgress();
        if (!bIsReady && uiProgress > 0)
        {
            bIsReady = Memory_Do("the status", [&] { roRun.oNotice.SayReady(MakeStatus(*roRun.poData)); });
            if (roRun.oSession.GetRealTime() == ERealTime::REFUSED)
            {
                Notice_Say("no right to real-time priority (see LimitRTPRIO or CAP_SYS_NICE); fields may be seen late");
            }
        }
        if (bIsReady)
        {
            Memory_Do("the status", [&] { roRun.oNotice.SayStatus(MakeStatus(*roRun.poData)); });
            roRun.oNotice.SayAlive(uiProgress);
        }
    }
}

// What must not be lost first: a board that does not come back ends the process before the rest.
bool End(SServeRun& roRun)
{
    roRun.oNotice.SayStopping();
    if (roRun.poKeeper)
    {
        roRun.poKeeper->BeginEnd();
    }
    if (roRun.poRun)
    {
        roRun.poRun->Stop();
    }
    if (roRun.poData)
    {
        roRun.poData->End();
    }
    if (roRun.poDelivery)
    {
        roRun.poDelivery->Close();
    }
    if (roRun.poStore)
    {
        roRun.poStore->Close();
    }
    if (roRun.poJournal)
    {
        roRun.poJournal->Close();
    }
    {
        const std::lock_guard oGuard(roRun.oServerMutex);
        roRun.poServer.reset();
    }
    if (roRun.poKeeper)
    {
        roRun.poKeeper->Close();
    }
    return roRun.oSession.Stop(uiThreadsEndMs);
}

void ReloadServer(SServeRun& roRun)
{
    const std::lock_guard oGuard(roRun.oServerMutex);
    Memory_Do("reading the served files anew",
              [&roRun]
              {
                  const CFault oFault = roRun.poServer ? roRun.poServer->Reload() : CFault();
                  if (oFault)
                  {
                      Notice_Say(oFault.GetText() + "; what was read before goes on");
                  }
              });
}

CFault BeginAll(const SServeOptions& roOptions, SServeRun& roRun, CSignalWatch& roSignals)
{
    if (!roOptions.szJournal.empty())
    {
        roRun.poJournal = std::make_unique<CEventJournal>(roOptions.szJournal, [](const SWatchEvent& roEvent)
                                                          { return WatchJson_Print(EventJson_FromEvent(roEvent)); });
    }
    CFault oFault = roSignals.Start(uiEndMs, iExitOk,
                                    [&roRun]
                                    {
                                        if (roRun.poJournal)
                                        {
                                            roRun.poJournal->Reopen();
                                        }
                                        ReloadServer(roRun);
                                    });
    return oFault ? oFault : Begin(roOptions, roRun);
}

} // namespace

int ServeCommand_Run(const SServeOptions& roOptions)
{
    SServeRun oRun;
    CSignalWatch oSignals;
    const CFault oFault = Memory_Try([&] { return BeginAll(roOptions, oRun, oSignals); });
    const int iStatus = oFault ? iExitFailure : iExitOk;
    if (oFault)
    {
        Notice_Say(oFault.GetText());
    }
    else
    {
        Watch(oRun, oSignals);
    }
    if (!End(oRun))
    {
        // A thread is inside the board: what it uses stays, and the process goes.
        _exit(iStatus);
    }
    return iStatus;
}
