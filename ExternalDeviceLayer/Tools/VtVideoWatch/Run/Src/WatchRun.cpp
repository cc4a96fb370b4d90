#include "WatchRun.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <iterator>
#include <sys/prctl.h>
#include <unistd.h>
#include <utility>

#include "Memory.h"
#include "ProcessCosts.h"
#include "StreamId.h"
#include "Threads.h"
#include "VideoTexts.h"
#include "WatchClocks.h"

namespace
{

constexpr uint64_t uiDrainPeriodNs = 50'000'000;
constexpr uint64_t uiRealSleepNs = 1'000'000; // less is over before the timer is set
constexpr uint32_t uiTriesAtEnd = 5;
constexpr uint64_t uiStallNs = 2'000'000; // so late, this thread did not just wake up slowly

std::string GetHostName()
{
    char szHost[HOST_NAME_MAX + 1] = {};
    return gethostname(szHost, HOST_NAME_MAX) == 0 ? szHost : "";
}

void SleepUntil(uint64_t uiMomentNs)
{
    const timespec oMoment = {static_cast<time_t>(uiMomentNs / iNsPerSecond),
                              static_cast<long>(uiMomentNs % iNsPerSecond)};
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &oMoment, nullptr);
}

uint32_t CountStreams(const CBoardChip& roChip, EStreamDirection eDirection)
{
    return static_cast<uint32_t>(roChip.GetChannels()[static_cast<size_t>(eDirection)].size());
}

template <typename TVisit> void ForEachChannel(const CBoardChip& roChip, const TVisit& roVisit)
{
    for (const StreamChannels& raoStreams : roChip.GetChannels())
    {
        for (const std::shared_ptr<SStreamChannel>& rpoChannel : raoStreams)
        {
            roVisit(*rpoChannel);
        }
    }
}

SStreamTexts& GetTexts(SWatchPublication& roPublication, const SStreamKey& roKey)
{
    return roPublication.aaoTexts[StreamKey_GetSlot(roKey)][roKey.uiIndex];
}

// What concerns a chip; the engine knows of no other.
SWatchSettings AddBoard(const SWatchRunSetup& roSetup, const CBoardChip& roChip)
{
    SWatchSettings oSettings = roSetup.oSettings;
    for (SStreamKey oStream : roSetup.aoReferences)
    {
        if (oStream.uiChip == roChip.GetKey())
        {
            oStream.uiChip = 0;
            oSettings.aoReferences[static_cast<size_t>(oStream.eDirection)] = oStream;
        }
    }
    // A single one is for both.
    auto& [oOfInputs, oOfOutputs] = oSettings.aoReferences;
    oOfInputs = oOfInputs ? oOfInputs : oOfOutputs;
    oOfOutputs = oOfOutputs ? oOfOutputs : oOfInputs;
    for (SStreamPath oPath : roSetup.aoPaths)
    {
        if (oPath.oInput.uiChip == roChip.GetKey())
        {
            oPath.oInput.uiChip = oPath.oOutput.uiChip = 0;
            oSettings.aoPaths.push_back(oPath);
        }
    }
    const SBoardFacts& roFacts = roChip.GetFacts();
    oSettings.uiTickFrequencyHz = roFacts.uiTickFrequencyHz;
    oSettings.bTicksAreMonotonic = roFacts.bTicksAreMonotonic;
    oSettings.iTickOffsetNs = roFacts.iTickOffsetNs;
    oSettings.bSetsAreEstimated = roFacts.bSetsAreEstimated;
    return oSettings;
}

} // namespace

CWatchRun::CWatchRun(const CBoardSession& roSession, SWatchRunSetup oSetup)
    : m_oSetup(std::move(oSetup)), m_oJudge(m_oSetup.oJudge), m_oHistory(m_oSetup.aoRunning)
{
    SWatchSettings& roSettings = m_oSetup.oSettings;
    roSettings.puiLastEvent = std::make_shared<uint64_t>(roSettings.uiEventsBefore);
    m_oTemplate.szHost = GetHostName();
    m_oTemplate.iStartUtcNs = m_oSetup.iStartUtcNs;
    for (const std::shared_ptr<CBoardChip>& rpoChip : roSession.GetChips())
    {
        m_aoChips.emplace_back().poBoard = rpoChip;
    }
    OpenChips();
}

// Those that have not been open so far, and are now.
void CWatchRun::OpenChips()
{
    for (SChip& roChip : m_aoChips)
    {
        if (roChip.poEngine == nullptr && roChip.poBoard->IsOpen())
        {
            OpenChip(roChip);
        }
    }
}

void CWatchRun::OpenChip(SChip& roChip)
{
    const CBoardChip& roBoard = *roChip.poBoard;
    const SBoardFacts& roFacts = roBoard.GetFacts();
    const uint32_t uiInputs = CountStreams(roBoard, EStreamDirection::INPUT);
    const uint32_t uiOutputs = CountStreams(roBoard, EStreamDirection::OUTPUT);
    if (m_oSetup.uiRecorderSeconds > 0 && m_aoChips.size() == 1)
    {
        m_oRecorder.emplace(uiInputs, uiOutputs, m_oSetup.uiRecorderSeconds);
    }
    m_oTemplate.szBoard = roFacts.szLibrary;
    m_oTemplate.uiBoardVersion = roFacts.uiVersion;
    m_oTemplate.bIsSimulated = roFacts.bIsSimulated;
    auto poEngine = std::make_unique<CWatchEngine>(AddBoard(m_oSetup, roBoard), uiInputs, uiOutputs);
    const size_t uiSlot = StreamKey_GetSlot({EStreamDirection::INPUT, 0, roBoard.GetKey()});
    m_oTemplate.aaoTexts.resize(std::max(m_oTemplate.aaoTexts.size(), uiSlot + 2));
    m_oTemplate.aaoTexts[uiSlot].resize(uiInputs);
    m_oTemplate.aaoTexts[uiSlot + 1].resize(uiOutputs);
    if (m_oSetup.fnAddStreams)
    {
        m_oSetup.fnAddStreams(uiSlot, uiInputs);
        m_oSetup.fnAddStreams(uiSlot + 1, uiOutputs);
    }
    ForEachChannel(roBoard,
                   [&](const SStreamChannel& roChannel)
                   {
                       const SStreamKey& roKey = roChannel.oKey;
                       const auto itEarlier = std::ranges::find(m_oSetup.aoEarlier, roKey, &SEarlierStream::oKey);
                       if (itEarlier != m_oSetup.aoEarlier.end())
                       {
                           poEngine->TellEarlier(roKey, itEarlier->oRun);
                       }
                       GetTexts(m_oTemplate, roKey).szId = StreamId_Print(roKey);
                   });
    roChip.poEngine = std::move(poEngine);
}

CFault CWatchRun::Start()
{
    return Thread_Start(m_oThread, "analysis", [this] { Run(); });
}

void CWatchRun::Stop()
{
    m_bStop.store(true);
    if (m_oThread.joinable())
    {
        m_oThread.join();
    }
}

void CWatchRun::Run()
{
    // A timer that may fire 50 us late, as they do unless told otherwise, says nothing about how late fields are.
    prctl(PR_SET_TIMERSLACK, 1);
    while (!m_bStop.load(std::memory_order_relaxed))
    {
        const uint64_t uiNowNs = ReadMonotonicNs();
        const uint64_t uiDueNs = std::max(GetDueNs(), uiNowNs);
        const uint64_t uiWakeNs = std::min(uiNowNs + uiDrainPeriodNs, uiDueNs);
        SleepUntil(uiWakeNs);
        if (uiWakeNs > uiNowNs + uiRealSleepNs)
        {
            TakeWake(uiWakeNs);
        }
        Memory_Do("a chip", [this] { OpenChips(); });
        Drain();
        GiveCut();
        while (TryAnalyse(false))
        {
        }
    }
    Drain();
    TryAnalyse(true);
    GiveCut();
    m_oCuts.Close();
}

// False when nothing is due, or there is no memory for it: then there may be after a pause.
bool CWatchRun::TryAnalyse(bool bIsLast)
{
    for (uint32_t uiTry = 0; uiTry < uiTriesAtEnd; ++uiTry)
    {
        bool bIsDone = false;
        if (Memory_Do("the analysis", [&] { bIsDone = Analyse(bIsLast); }))
        {
            return bIsDone;
        }
        SleepUntil(ReadMonotonicNs() + uiDrainPeriodNs);
        if (!bIsLast)
        {
            return false;
        }
    }
    return false;
}

// When the first of all chips has a second to be analysed.
uint64_t CWatchRun::GetDueNs() const
{
    uint64_t uiDueNs = UINT64_MAX;
    for (const SChip& roChip : m_aoChips)
    {
        uiDueNs = roChip.poEngine ? std::min(uiDueNs, roChip.poEngine->GetDueNs()) : uiDueNs;
    }
    return uiDueNs;
}

// What held up this thread held up those of the streams as well, and what never fails to hold it up does so too.
void CWatchRun::TakeWake(uint64_t uiDueNs)
{
    const uint64_t uiNowNs = ReadMonotonicNs();
    m_oLeastWake.Take(uiNowNs - uiDueNs);
    if (uiNowNs > uiDueNs + uiStallNs)
    {
        for (SChip& roChip : m_aoChips)
        {
            if (roChip.poEngine)
            {
                roChip.poEngine->TakeStall(uiDueNs, uiNowNs);
            }
        }
    }
}

void CWatchRun::Drain()
{
    for (SChip& roChip : m_aoChips)
    {
        if (roChip.poEngine)
        {
            DrainChip(roChip);
        }
    }
}

void CWatchRun::DrainChip(SChip& roChip)
{
    for (const StreamChannels& raoStreams : roChip.poBoard->GetChannels())
    {
        for (const std::shared_ptr<SStreamChannel>& rpoChannel : raoStreams)
        {
            const SStreamKey& roKey = rpoChannel->oKey;
            rpoChannel->oFields.Drain([&](const SFieldRecord& roRecord)
                                      { Memory_Do("a field", [&] { TakeField(roChip, roKey, roRecord); }); });
            rpoChannel->oDescriptions.Drain(
                [&](const SDescriptionRecord& roRecord)
                { Memory_Do("a stream's description", [&] { TakeDescription(roChip, roKey, roRecord); }); });
        }
    }
}

void CWatchRun::TakeField(SChip& roChip, const SStreamKey& roKey, const SFieldRecord& roRecord)
{
    roChip.poEngine->TakeRecord(roKey, roRecord);
    if (m_oRecorder)
    {
        m_oRecorder->Add(roKey, roRecord);
    }
}

void CWatchRun::GiveCut()
{
    if (m_oRecorder && m_oCuts.IsAskedFor())
    {
        Memory_Do("a recording", [this] { m_oCuts.Give(m_oRecorder->Copy(m_oCuts.GetSpan())); });
    }
}

void CWatchRun::TakeDescription(SChip& roChip, const SStreamKey& roKey, const SDescriptionRecord& roRecord)
{
    const SStreamDescription& roDescription = roRecord.oDescription;
    roChip.poEngine->TakeDescription(roKey, roDescription);
    SStreamTexts& roTexts = GetTexts(m_oTemplate, roKey);
    VTSTR256 szStandard = {};
    FormatVideoParam(&roDescription.oTimings, 0, szStandard);
    roTexts.szName = roRecord.szName;
    roTexts.szStandard = szStandard;
    roTexts.szFormat = roRecord.szFormat;
    roTexts.szCapture = roKey.eDirection == EStreamDirection::INPUT
                            ? VtVideoInStateToString(roDescription.eCaptureState)
                            : PowerStateToString(roDescription.ePowerState);
    if (m_oRecorder)
    {
        m_oRecorder->AddDescription({roKey, roDescription, roTexts.szName, roTexts.szFormat});
    }
}

void CWatchRun::TakeIncidents(std::span<const SWatchEvent> aoIncidents)
{
    for (SWatchEvent oEvent : aoIncidents)
    {
        const auto itChip = std::ranges::find_if(m_aoChips, [&](const SChip& roChip)
                                                 { return roChip.poBoard->GetKey() == oEvent.oKey.uiChip; });
        itChip->poEngine->Number(oEvent);
        m_aoEvents.push_back(oEvent);
    }
}

void CWatchRun::EndWatch(int64_t iUtcNs)
{
    for (const SChip& roChip : m_aoChips)
    {
        if (!roChip.poEngine)
        {
            continue;
        }
        ForEachChannel(*roChip.poBoard,
                       [&](const SStreamChannel& roChannel)
                       {
                           SWatchEvent oEvent = {};
                           oEvent.uiNumber = ++*m_oSetup.oSettings.puiLastEvent;
                           oEvent.iUtcNs = iUtcNs;
                           oEvent.eKind = EWatchEventKind::WATCH_ENDED;
                           oEvent.oKey = roChannel.oKey;
                           m_aoEvents.push_back(oEvent);
                       });
    }
}

void CWatchRun::FillCosts(SWatchCosts& roCosts)
{
    roCosts = {};
    for (const SChip& roChip : m_aoChips)
    {
        if (roChip.poEngine)
        {
            ForEachChannel(
                *roChip.poBoard, [&roCosts](const SStreamChannel& roChannel)
                { roCosts.uiRingOverruns += roChannel.oFields.GetOverruns() + roChannel.oDescriptions.GetOverruns(); });
        }
    }
    roCosts.uiMemoryFailures = Memory_GetFailures();
    roCosts.flAnalysisSeconds = m_flAnalysisSeconds;
    const SProcessCosts oProcess = ProcessCosts_Read();
    roCosts.flCpuSeconds = oProcess.flCpuSeconds;
    roCosts.uiResidentBytes = oProcess.uiResidentBytes;
    if (m_oSetup.fnAddCosts)
    {
        m_oSetup.fnAddCosts(roCosts);
    }
}

// Takes what the last analysis of a chip told.
void CWatchRun::TakeEvents(SChip& roChip)
{
    const auto fnAppend =
        [uiChip = roChip.poBoard->GetKey()](std::span<const SWatchEvent> aoEvents, std::vector<SWatchEvent>& raoTo)
    {
        for (SWatchEvent oEvent : aoEvents)
        {
            oEvent.oKey.uiChip = uiChip;
            raoTo.push_back(oEvent);
        }
    };
    fnAppend(roChip.poEngine->TakeEvents(), m_aoEvents);
    fnAppend(roChip.poEngine->GetHappenings(), m_aoHappenings);
}

bool CWatchRun::AnalyseChip(SChip& roChip, bool bIsLast)
{
    const uint64_t uiBeginNs = ReadMonotonicNs();
    if (!roChip.poEngine || (!bIsLast && uiBeginNs < roChip.poEngine->GetDueNs()))
    {
        return false;
    }
    if (roChip.bIsFresh)
    {
        HandOn(false); // its clock has gained a second on those of the others
    }
    SClockReading oClock = ReadClocks();
    oClock.flLeastWakeSeconds = m_oLeastWake.GetSeconds();
    if (bIsLast)
    {
        roChip.poEngine->End();
    }
    if (!roChip.poEngine->Analyse(oClock, roChip.oSnapshot))
    {
        return false;
    }
    TakeEvents(roChip);
    roChip.bIsFresh = true;
    m_flChipSeconds += static_cast<double>(ReadMonotonicNs() - uiBeginNs) * 1e-9;
    return true;
}

// True when something has been handed on.
bool CWatchRun::Analyse(bool bIsLast)
{
    bool bIsNew = false;
    for (SChip& roChip : m_aoChips)
    {
        bIsNew = AnalyseChip(roChip, bIsLast) || bIsNew;
    }
    // One that has just been opened is not waited for.
    const bool bIsWhole = std::ranges::all_of(m_aoChips, [](const SChip& roChip)
                                              { return roChip.bIsFresh || roChip.oSnapshot.uiNumber == 0; });
    if (bIsNew && (bIsWhole || bIsLast))
    {
        HandOn(bIsLast);
        return true;
    }
    return false;
}

// The last second of every chip as one moment. What has not been analysed since the last moment is as it was then.
void CWatchRun::JoinChips(SWatchSnapshot& roSnapshot)
{
    roSnapshot.uiNumber = ++m_uiSnapshots;
    roSnapshot.oThreshold = m_oSetup.oSettings.oThreshold;
    roSnapshot.aoDirections.resize(m_oTemplate.aaoTexts.size());
    for (SChip& roChip : m_aoChips)
    {
        SWatchSnapshot& roOwn = roChip.oSnapshot;
        const uint32_t uiKey = roChip.poBoard->GetKey();
        const SBoardFacts& roFacts = roChip.poBoard->GetFacts();
        roSnapshot.aoChips.push_back({uiKey, roChip.poBoard->GetNumber(), roOwn.uiNumber, roOwn.uiTickFrequencyHz,
                                      roOwn.oClock, roChip.poEngine ? roFacts.uiSharedClock : 0,
                                      roChip.poEngine ? roFacts.iSharedOffsetNs : 0});
        if (!roChip.poEngine)
        {
            continue; // nothing is known of its streams
        }
        roSnapshot.uiEventsDropped += roOwn.uiEventsDropped;
        if (roSnapshot.uiTickFrequencyHz == 0 && roOwn.uiNumber != 0)
        {
            roSnapshot.uiTickFrequencyHz = roOwn.uiTickFrequencyHz;
            roSnapshot.oClock = roOwn.oClock;
        }
        for (const EStreamDirection eDirection : aeDirections)
        {
            const size_t uiSlot = StreamKey_GetSlot({eDirection, 0, uiKey});
            if (roChip.bIsFresh)
            {
                std::swap(roSnapshot.aoDirections[uiSlot], roOwn.aoDirections[static_cast<size_t>(eDirection)]);
            }
            else if (m_poLast && uiSlot < m_poLast->oSnapshot.aoDirections.size())
            {
                roSnapshot.aoDirections[uiSlot] = m_poLast->oSnapshot.aoDirections[uiSlot];
            }
            roSnapshot.aoDirections[uiSlot].oReference.uiChip = uiKey;
            for (SStreamFigures& roStream : roSnapshot.aoDirections[uiSlot].aoStreams)
            {
                roStream.oKey.uiChip = uiKey;
                roStream.uiChip = roChip.poBoard->GetNumber();
            }
        }
        JoinAcross(roSnapshot, roChip);
        roChip.bIsFresh = false;
    }
    m_oChipPairs.Update(roSnapshot);
}

// The pairs across directions, their groups and the paths of a chip, likewise.
void CWatchRun::JoinAcross(SWatchSnapshot& roSnapshot, SChip& roChip)
{
    const uint32_t uiKey = roChip.poBoard->GetKey();
    const auto fnJoin =
        [&](auto& raoJoined, auto& raoOwn, const auto* paoLast, const auto& roGetChip, const auto& roName)
    {
        if (roChip.bIsFresh)
        {
            std::ranges::for_each(raoOwn, roName);
            raoJoined.insert(raoJoined.end(), raoOwn.begin(), raoOwn.end());
        }
        else if (paoLast != nullptr)
        {
            std::ranges::copy_if(*paoLast, std::back_inserter(raoJoined),
                                 [&](const auto& roOne) { return roGetChip(roOne) == uiKey; });
        }
    };
    SWatchSnapshot& roOwn = roChip.oSnapshot;
    const SWatchSnapshot* poLast = m_poLast ? &m_poLast->oSnapshot : nullptr;
    fnJoin(
        roSnapshot.aoAcross, roOwn.aoAcross, poLast == nullptr ? nullptr : &poLast->aoAcross,
        [](const SAcrossFigures& roPair) { return roPair.oFirst.uiChip; },
        [uiKey](SAcrossFigures& roPair) { roPair.oFirst.uiChip = roPair.oSecond.uiChip = uiKey; });
    fnJoin(
        roSnapshot.aoAcrossGroups, roOwn.aoAcrossGroups, poLast == nullptr ? nullptr : &poLast->aoAcrossGroups,
        [](const SAcrossGroup& roGroup) { return roGroup.uiChip; },
        [uiKey](SAcrossGroup& roGroup) { roGroup.uiChip = uiKey; });
    fnJoin(
        roSnapshot.aoPaths, roOwn.aoPaths, poLast == nullptr ? nullptr : &poLast->aoPaths,
        [](const SPathFigures& roPath) { return roPath.oInput.uiChip; },
        [uiKey](SPathFigures& roPath) { roPath.oInput.uiChip = roPath.oOutput.uiChip = uiKey; });
}

void CWatchRun::HandOn(bool bIsLast)
{
    const uint64_t uiBeginNs = ReadMonotonicNs();
    auto poPublication = std::make_shared<SWatchPublication>(m_oTemplate);
    JoinChips(poPublication->oSnapshot);
    SJudgement& roJudgement = poPublication->oJudgement;
    TakeIncidents(m_oJudge.Take({poPublication->oSnapshot, m_aoHappenings, m_aoEvents}, roJudgement));
    if (bIsLast)
    {
        const int64_t iUtcNs = poPublication->oSnapshot.oClock.iUtcNs;
        TakeIncidents(m_oJudge.End(iUtcNs, roJudgement));
        EndWatch(iUtcNs);
    }
    m_oHistory.Take(poPublication->oSnapshot);
    m_flAnalysisSeconds =
        std::exchange(m_flChipSeconds, 0.0) + static_cast<double>(ReadMonotonicNs() - uiBeginNs) * 1e-9;
    FillCosts(poPublication->oCosts);
    m_poLast = poPublication;
    m_oSetup.fnTake({std::move(poPublication), m_aoEvents, m_oHistory.GetSeconds(), m_oHistory.GetMinutes()});
    m_aoEvents.clear();
    m_aoHappenings.clear();
    m_uiProgress.fetch_add(1, std::memory_order_relaxed);
}
